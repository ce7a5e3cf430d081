// LoopbackServer: a real web server on 127.0.0.1 for tests of HTTP clients, plain or with TLS. It
// answers as the test says, records every request, and misbehaves on demand.
//
//   LoopbackServer server([](const LoopbackServer::Request& request) {
//     return LoopbackServer::Reply{.status = 200, .body = R"({"meetings":[]})"};
//   });
//   fetch(server.origin() + "/api");
//   EXPECT_EQ(server.requests().front().path, "/api");
//
// The handler runs on the server's threads, one call at a time. Connections are kept alive as
// HTTP/1.1 has it; each has a thread of its own, on which no signal arrives, so a client that
// breaks off hurts nobody. What a handler throws becomes an answer with status 500. Going out of
// scope ends every connection, stalled ones as well, and joins every thread; a handler that runs is
// waited for.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace velta::test {

class LoopbackServer {
 public:
  struct Request {
    std::string method;
    std::string target;                                 // as sent: path and query
    std::string path;                                   // before the "?"
    std::map<std::string, std::string> query;           // decoded, "+" as a space
    std::map<std::string, std::string> headers;         // names in lower case
    std::string body;                                   // not of a chunked request: that gets a 400
    int connection = 0;                                 // 1 for the first connection, and so on
    std::string header(const std::string& name) const;  // "" when absent
  };

  struct Reply {
    int status = 200;
    std::string body = {};
    std::vector<std::pair<std::string, std::string>> headers = {};  // besides Content-Length
    bool gzip = false;  // compresses the body and says so, when the client accepts it
    // Content-Length that is said instead of the true one; a false one ends the connection (FIN)
    // after the body.
    std::optional<std::size_t> claimedLength = {};
    // After so many bytes of the body, as they travel, the connection is reset (RST) or, when
    // `closeQuietly`, closed (with TLS: close_notify, then FIN). All of them arrive before a reset.
    std::optional<std::size_t> cutAfter = {};
    bool closeQuietly = false;
    bool stall = false;        // nothing more is sent, not even headers, until the server goes
    bool stallInBody = false;  // headers and half of the body, then nothing more
    std::optional<std::string> raw = {};  // these bytes instead of an HTTP answer, then a close
    // The body is sent so many times over, streamed, to make answers too large to keep.
    std::size_t repeat = 1;
  };

  using Handler = std::function<Reply(const Request&)>;

  enum class Security { plain, tls };

  // Listens on a free port of 127.0.0.1. With TLS it makes a key and a self-signed certificate for
  // "localhost" and 127.0.0.1 (subject alternative names), in PEM at certificateFile(). Throws
  // std::runtime_error.
  explicit LoopbackServer(Handler handler, Security security = Security::plain);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  int port() const;
  // "http://127.0.0.1:PORT", with TLS "https://localhost:PORT".
  std::string origin() const;
  // The certificate to trust; empty without TLS. The file goes with the server.
  std::string certificateFile() const;

  // What came so far, in order of arrival; connections that sent nothing do not count.
  std::vector<Request> requests() const;
  void forgetRequests();
  int connections() const;  // accepted so far

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace velta::test
