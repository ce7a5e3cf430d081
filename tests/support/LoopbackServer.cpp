#include "support/LoopbackServer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <exception>
#include <list>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>
#ifdef __linux__
#include <linux/sockios.h>
#endif

#include "platform/Descriptor.h"
#include "support/TemporaryFolder.h"

namespace velta::test {
namespace {

using Request = LoopbackServer::Request;
using Reply = LoopbackServer::Reply;
// Takes the next bytes; false when it wants no more.
using Sink = std::function<bool(std::string_view)>;

constexpr std::size_t kPiece = std::size_t{64} * 1024;           // bytes sent or made at a time
constexpr std::size_t kMaxHead = std::size_t{1024} * 1024;       // bytes of a request's head
constexpr std::size_t kMaxBody = std::size_t{64} * 1024 * 1024;  // bytes of a request's body
constexpr long kCertificateSeconds = 24L * 60 * 60;              // it is valid for so long

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error("LoopbackServer: " + what);
}

[[noreturn]] void failWithErrno(const std::string& what) {
  fail(what + ": " + std::strerror(errno));
}

// --- text ---------------------------------------------------------------------------------------

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// What stands before the first `mark`, or everything; `text` keeps what stands behind it.
std::string_view takeUntil(std::string_view& text, std::string_view mark) {
  const std::size_t at = text.find(mark);
  const std::string_view taken = text.substr(0, at);
  text.remove_prefix(at == std::string_view::npos ? text.size() : at + mark.size());
  return taken;
}

int hexValue(char c) {
  constexpr std::string_view digits = "0123456789abcdef";
  const std::size_t at = digits.find(lowerCase(std::string_view(&c, 1)));
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

std::string percentDecoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
    if (text[i] == '%' && high >= 0 && low >= 0) {
      decoded += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      decoded += text[i] == '+' ? ' ' : text[i];
    }
  }
  return decoded;
}

std::map<std::string, std::string> parseQuery(std::string_view text) {
  std::map<std::string, std::string> query;
  while (!text.empty()) {
    std::string_view value = takeUntil(text, "&");
    const std::string name = percentDecoded(takeUntil(value, "="));
    query[name] = percentDecoded(value);
  }
  return query;
}

// The request whose head, without the empty line, is `head`; absent when it is none.
std::optional<Request> parseHead(std::string_view head, bool& keepAlive) {
  Request request;
  std::string_view line = takeUntil(head, "\r\n");
  request.method = takeUntil(line, " ");
  request.target = takeUntil(line, " ");
  if (!request.target.starts_with('/') || !line.starts_with("HTTP/1.")) return std::nullopt;
  keepAlive = line != "HTTP/1.0";
  std::string_view query = request.target;
  request.path = takeUntil(query, "?");
  request.query = parseQuery(query);
  while (!head.empty()) {
    std::string_view value = takeUntil(head, "\r\n");
    std::string& stored = request.headers[lowerCase(takeUntil(value, ":"))];
    if (!stored.empty()) stored += ", ";
    stored += trimmed(value);
  }
  if (lowerCase(request.header("connection")) == "close") keepAlive = false;
  return request;
}

const char* reasonOf(int status) {
  static const std::map<int, const char*> reasons = {
      {200, "OK"},
      {204, "No Content"},
      {301, "Moved Permanently"},
      {302, "Found"},
      {304, "Not Modified"},
      {400, "Bad Request"},
      {401, "Unauthorized"},
      {403, "Forbidden"},
      {404, "Not Found"},
      {429, "Too Many Requests"},
      {500, "Internal Server Error"},
      {503, "Service Unavailable"},
  };
  const auto found = reasons.find(status);
  return found == reasons.end() ? "Status" : found->second;
}

// --- bodies -------------------------------------------------------------------------------------

// What is sent as the body of a reply, made piece by piece and never held whole.
class BodyStream {
 public:
  BodyStream(const Reply& reply, bool compressed) : reply_(reply), compressed_(compressed) {}

  // Hands it to `sink` from the beginning; false when that wanted no more.
  bool sendTo(const Sink& sink) const { return compressed_ ? sendGzip(sink) : sendPlain(sink); }

  std::size_t size() const {
    if (!compressed_) return reply_.body.size() * reply_.repeat;
    std::size_t size = 0;
    sendGzip([&](std::string_view piece) {
      size += piece.size();
      return true;
    });
    return size;
  }

 private:
  bool sendPlain(const Sink& sink) const {
    if (reply_.body.empty()) return true;
    // Small bodies are sent many at a time.
    const std::size_t atOnce = std::clamp<std::size_t>(kPiece / reply_.body.size(), 1,
                                                       std::max<std::size_t>(reply_.repeat, 1));
    std::string block;
    for (std::size_t i = 0; i < atOnce; ++i) block += reply_.body;
    for (std::size_t i = 0; i < reply_.repeat / atOnce; ++i) {
      if (!sink(block)) return false;
    }
    block.resize(reply_.repeat % atOnce * reply_.body.size());
    return block.empty() || sink(block);
  }

  bool sendGzip(const Sink& sink) const {
    constexpr int kGzipWindow = 15 + 16;  // zlib's way to ask for the gzip format
    constexpr int kMemoryLevel = 8;       // zlib's default
    z_stream stream = {};
    if (deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, kGzipWindow, kMemoryLevel,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
      fail("no memory to compress in");
    }
    const bool wanted = sendPlain([&](std::string_view piece) {
                          return deflateTo(sink, stream, piece, Z_NO_FLUSH);
                        }) &&
                        deflateTo(sink, stream, {}, Z_FINISH);
    deflateEnd(&stream);
    return wanted;
  }

  static bool deflateTo(const Sink& sink, z_stream& stream, std::string_view piece, int flush) {
    std::array<char, kPiece> room;
    // zlib's pointer is not const, and it does not write there.
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
    stream.avail_in = static_cast<uInt>(piece.size());
    do {
      stream.next_out = reinterpret_cast<Bytef*>(room.data());
      stream.avail_out = static_cast<uInt>(room.size());
      deflate(&stream, flush);
      const std::size_t made = room.size() - stream.avail_out;
      if (made > 0 && !sink({room.data(), made})) return false;
    } while (stream.avail_out == 0);
    return true;
  }

  const Reply& reply_;
  bool compressed_;
};

// --- TLS ----------------------------------------------------------------------------------------

struct Free {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
  void operator()(SSL* tls) const { SSL_free(tls); }
  void operator()(BIO* bio) const { BIO_free_all(bio); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

void addExtension(X509& certificate, int kind, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, &certificate, &certificate, nullptr, nullptr, 0);
  const Owned<X509_EXTENSION> extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value));
  if (!extension || X509_add_ext(&certificate, extension.get(), -1) != 1) {
    fail(std::string("cannot extend the certificate by ") + value);
  }
}

// Self-signed, and its own authority, so that a client can be told to trust it alone.
Owned<X509> makeCertificate(EVP_PKEY& key) {
  Owned<X509> certificate(X509_new());
  if (!certificate) fail("cannot make a certificate");
  X509_set_version(certificate.get(), X509_VERSION_3);
  // Clients may know certificates by issuer and serial number; no two servers share them.
  static std::atomic<long> made{0};
  ASN1_INTEGER_set_int64(X509_get_serialNumber(certificate.get()),
                         (static_cast<std::int64_t>(::getpid()) << 20) + ++made);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kCertificateSeconds);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kCertificateSeconds);
  X509_set_pubkey(certificate.get(), &key);
  X509_NAME* name = X509_get_subject_name(certificate.get());
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>("localhost"), -1, -1, 0);
  X509_set_issuer_name(certificate.get(), name);
  addExtension(*certificate, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(*certificate, NID_key_usage, "critical,digitalSignature,keyCertSign");
  addExtension(*certificate, NID_ext_key_usage, "serverAuth");
  addExtension(*certificate, NID_subject_key_identifier, "hash");
  addExtension(*certificate, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
  if (X509_sign(certificate.get(), &key, EVP_sha256()) == 0) fail("cannot sign the certificate");
  return certificate;
}

// The server's key and certificate, made anew, and the file that clients trust.
class Identity {
 public:
  Identity() : context_(SSL_CTX_new(TLS_server_method())) {
    const Owned<EVP_PKEY> key(EVP_EC_gen("P-256"));
    if (!context_ || !key) fail("cannot make a key");
    const Owned<X509> certificate = makeCertificate(*key);
    if (SSL_CTX_use_certificate(context_.get(), certificate.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context_.get(), key.get()) != 1) {
      fail("cannot use the certificate");
    }
    const Owned<BIO> file(BIO_new_file(certificateFile().c_str(), "w"));
    if (!file || PEM_write_bio_X509(file.get(), certificate.get()) != 1 ||
        BIO_flush(file.get()) != 1) {
      fail("cannot write " + certificateFile());
    }
  }

  std::string certificateFile() const { return folder_.file("certificate.pem"); }
  SSL_CTX* context() const { return context_.get(); }

 private:
  TemporaryFolder folder_;
  Owned<SSL_CTX> context_;
};

// --- sockets ------------------------------------------------------------------------------------

// While it lives, this thread and those that it starts get no signals: a broken connection's
// SIGPIPE stays pending on the server's thread and goes with it.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &before_);
  }
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_ = {};
};

void switchOn(const Descriptor& socket, int level, int option) {
  const int on = 1;
  ::setsockopt(socket.get(), level, option, &on, sizeof on);
}

// Closed on exec from the first moment where the system can: a program that a test starts meanwhile
// would hold the connection open.
Descriptor makeSocket() {
#ifdef SOCK_CLOEXEC
  Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
#else
  Descriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
  ::fcntl(socket.get(), F_SETFD, FD_CLOEXEC);
#endif
  if (!socket) failWithErrno("socket");
  return socket;
}

Descriptor acceptFrom(const Descriptor& listener) {
#ifdef SOCK_CLOEXEC
  Descriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
#else
  Descriptor socket(::accept(listener.get(), nullptr, nullptr));
  ::fcntl(socket.get(), F_SETFD, FD_CLOEXEC);
  ::fcntl(socket.get(), F_SETFL, 0);  // not the listener's O_NONBLOCK
#endif
#ifdef SO_NOSIGPIPE
  switchOn(socket, SOL_SOCKET, SO_NOSIGPIPE);  // there the signal goes to the whole process
#endif
  switchOn(socket, IPPROTO_TCP, TCP_NODELAY);
  return socket;
}

// Bytes that the other side has not acknowledged yet.
int unacknowledged(int socket) {
  int count = 0;
#ifdef __linux__
  ::ioctl(socket, SIOCOUTQ, &count);
#else
  socklen_t size = sizeof count;
  ::getsockopt(socket, SOL_SOCKET, SO_NWRITE, &count, &size);
#endif
  return count;
}

// One client's connection. Its thread uses it; any thread may interrupt() it.
class Connection {
 public:
  Connection(Descriptor socket, int number) : number_(number), socket_(std::move(socket)) {}

  int number() const { return number_; }
  std::thread& thread() { return thread_; }

  // With a context the client has to speak TLS; false when it does not.
  bool begin(SSL_CTX* context) {
    if (context == nullptr) return true;
    tls_.reset(SSL_new(context));
    return tls_ && SSL_set_fd(tls_.get(), socket_.get()) == 1 && SSL_accept(tls_.get()) == 1;
  }

  // Reads on until what is unread holds `size` bytes; false at the end.
  bool fill(std::size_t size) {
    std::array<char, kPiece> room;
    while (unread_.size() < size) {
      const auto count = tls_ ? SSL_read(tls_.get(), room.data(), static_cast<int>(room.size()))
                              : ::recv(socket_.get(), room.data(), room.size(), 0);
      if (count <= 0) return false;
      unread_.append(room.data(), static_cast<std::size_t>(count));
    }
    return true;
  }

  // What comes up to and without `mark`; absent when the end or `limit` bytes come first.
  std::optional<std::string> readUntil(std::string_view mark, std::size_t limit) {
    std::size_t at = 0;
    while ((at = unread_.find(mark)) == std::string::npos) {
      if (unread_.size() > limit || !fill(unread_.size() + 1)) return std::nullopt;
    }
    std::string taken = unread_.substr(0, at);
    unread_.erase(0, at + mark.size());
    return taken;
  }

  std::optional<std::string> readBytes(std::size_t size) {
    if (!fill(size)) return std::nullopt;
    std::string taken = unread_.substr(0, size);
    unread_.erase(0, size);
    return taken;
  }

  // False when the client is gone.
  bool write(std::string_view bytes) {
    while (!bytes.empty()) {
      const std::size_t size = std::min(bytes.size(), kPiece);
      const auto count = tls_ ? SSL_write(tls_.get(), bytes.data(), static_cast<int>(size))
                              : ::send(socket_.get(), bytes.data(), size, 0);
      if (count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  // Sends nothing more, until the client or the server goes.
  void stall() {
    while (fill(1)) unread_.clear();
  }

  // As orderly as can be, unless it was reset. What the client still sends is read, for else the
  // system would make a reset of it, which may overtake the answer.
  void close() {
    if (!socket_) return;
    if (tls_) SSL_shutdown(tls_.get());
    ::shutdown(socket_.get(), SHUT_WR);
    std::array<char, kPiece> room;
    while (::recv(socket_.get(), room.data(), room.size(), 0) > 0) continue;
    drop();
  }

  // Resets it once the client's system has all that was sent, which a reset would discard.
  void reset() {
    pollfd gone = {socket_.get(), 0, 0};
    while (unacknowledged(socket_.get()) > 0 && ::poll(&gone, 1, 1) == 0) continue;
    const linger atOnce = {1, 0};
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    drop();
  }

  // Ends every read and write on it, now and from now on.
  void interrupt() {
    const std::lock_guard lock(mutex_);
    if (socket_) ::shutdown(socket_.get(), SHUT_RDWR);
  }

 private:
  void drop() {
    const std::lock_guard lock(mutex_);
    socket_.reset();
  }

  const int number_;
  std::mutex mutex_;  // held to close and to interrupt, lest another file's descriptor be shut down
  Descriptor socket_;
  Owned<SSL> tls_;
  std::string unread_;
  std::thread thread_;
};

}  // namespace

// --- the server ---------------------------------------------------------------------------------

class LoopbackServer::Implementation {
 public:
  Implementation(Handler handler, Security security) : handler_(std::move(handler)) {
    if (security == Security::tls) identity_.emplace();
    listen();
    int ends[2];
    if (::pipe(ends) != 0) failWithErrno("pipe");
    wakeReader_ = Descriptor(ends[0]);
    wakeWriter_ = Descriptor(ends[1]);
    for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
    const SignalsBlocked blocked;
    acceptor_ = std::thread([this] { acceptAll(); });
  }

  ~Implementation() {
    const char wake = 0;
    while (::write(wakeWriter_.get(), &wake, 1) < 0 && errno == EINTR) continue;
    acceptor_.join();
    for (Connection& connection : connections_) connection.interrupt();
    for (Connection& connection : connections_) connection.thread().join();
  }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  int port() const { return port_; }
  const std::optional<Identity>& identity() const { return identity_; }

  std::vector<Request> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }
  void forgetRequests() {
    const std::lock_guard lock(mutex_);
    requests_.clear();
  }
  int connections() const {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(connections_.size());
  }

 private:
  void listen() {
    listener_ = makeSocket();
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* general = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_.get(), general, size) != 0) failWithErrno("bind");
    if (::listen(listener_.get(), SOMAXCONN) != 0) failWithErrno("listen");
    if (::getsockname(listener_.get(), general, &size) != 0) failWithErrno("getsockname");
    port_ = ntohs(address.sin_port);
    // A client that gave up between poll and accept does not hold the server up.
    ::fcntl(listener_.get(), F_SETFL, O_NONBLOCK);
  }

  void acceptAll() {
    while (true) {
      pollfd waiting[2] = {{listener_.get(), POLLIN, 0}, {wakeReader_.get(), POLLIN, 0}};
      if (::poll(waiting, 2, -1) < 0) continue;
      if (waiting[1].revents != 0) return;
      Descriptor socket = acceptFrom(listener_);
      if (!socket) continue;
      const std::lock_guard lock(mutex_);
      const int number = static_cast<int>(connections_.size()) + 1;
      Connection& connection = connections_.emplace_back(std::move(socket), number);
      connection.thread() = std::thread([this, &connection] { serve(connection); });
    }
  }

  void serve(Connection& connection) {
    if (connection.begin(identity_ ? identity_->context() : nullptr)) {
      while (serveRequest(connection)) continue;
    }
    connection.close();
  }

  // Whether the connection is kept for another request.
  bool serveRequest(Connection& connection) {
    const auto head = connection.readUntil("\r\n\r\n", kMaxHead);
    if (!head) return false;
    bool keepAlive = false;
    auto request = parseHead(*head, keepAlive);
    if (!request || !readBody(connection, *request)) {
      connection.write(
          "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
      return false;
    }
    request->connection = connection.number();
    {
      const std::lock_guard lock(mutex_);
      requests_.push_back(*request);
    }
    return answer(connection, *request, replyTo(*request)) && keepAlive;
  }

  // A body with a length; chunked ones no client here sends.
  static bool readBody(Connection& connection, Request& request) {
    if (!request.header("transfer-encoding").empty()) return false;
    const std::string length = request.header("content-length");
    if (length.empty()) return true;
    if (length.size() > 9 || length.find_first_not_of("0123456789") != std::string::npos)
      return false;
    const std::size_t size = std::stoul(length);
    auto body = size <= kMaxBody ? connection.readBytes(size) : std::nullopt;
    if (!body) return false;
    request.body = *std::move(body);
    return true;
  }

  Reply replyTo(const Request& request) {
    const std::lock_guard lock(handlerMutex_);
    try {
      return handler_(request);
    } catch (const std::exception& error) {
      return {.status = 500, .body = std::string("the test's handler threw: ") + error.what()};
    }
  }

  // Whether the connection is still good for another request.
  static bool answer(Connection& connection, const Request& request, const Reply& reply) {
    if (reply.stall) {
      connection.stall();
      return false;
    }
    if (reply.raw) {
      connection.write(*reply.raw);
      return false;
    }
    const bool compressed =
        reply.gzip && request.header("accept-encoding").find("gzip") != std::string::npos;
    const BodyStream body(reply, compressed);
    const std::size_t size = body.size();
    const std::size_t claimed = reply.claimedLength.value_or(size);
    if (!connection.write(headOf(reply, compressed, claimed))) return false;
    if (request.method == "HEAD" || reply.status == 204 || reply.status == 304) {
      return !asksToClose(reply);
    }
    const std::size_t half = reply.stallInBody ? size / 2 : size;
    if (!sendBody(connection, body, reply.cutAfter.value_or(half))) return false;
    if (reply.cutAfter && !reply.closeQuietly) connection.reset();
    if (reply.cutAfter) return false;
    if (reply.stallInBody) connection.stall();
    return !reply.stallInBody && claimed == size && !asksToClose(reply);
  }

  static std::string headOf(const Reply& reply, bool compressed, std::size_t length) {
    std::string head =
        "HTTP/1.1 " + std::to_string(reply.status) + " " + reasonOf(reply.status) + "\r\n";
    for (const auto& [name, value] : reply.headers) head += name + ": " + value + "\r\n";
    if (compressed) head += "Content-Encoding: gzip\r\n";
    if (reply.status != 204) head += "Content-Length: " + std::to_string(length) + "\r\n";
    return head + "\r\n";
  }

  static bool asksToClose(const Reply& reply) {
    return std::any_of(reply.headers.begin(), reply.headers.end(), [](const auto& header) {
      return lowerCase(header.first) == "connection" && lowerCase(header.second) == "close";
    });
  }

  // The first `limit` bytes of it, or all; false when the client is gone.
  static bool sendBody(Connection& connection, const BodyStream& body, std::size_t limit) {
    bool connected = true;
    body.sendTo([&](std::string_view piece) {
      const std::string_view part = piece.substr(0, limit);
      limit -= part.size();
      connected = connection.write(part);
      return connected && limit > 0;
    });
    return connected;
  }

  const Handler handler_;
  std::optional<Identity> identity_;
  Descriptor listener_;
  Descriptor wakeReader_;
  Descriptor wakeWriter_;  // a byte in it ends the acceptor
  int port_ = 0;
  std::mutex handlerMutex_;
  mutable std::mutex mutex_;  // held to use what follows
  std::vector<Request> requests_;
  std::list<Connection> connections_;  // those that ended as well
  std::thread acceptor_;
};

std::string LoopbackServer::Request::header(const std::string& name) const {
  const auto found = headers.find(lowerCase(name));
  return found == headers.end() ? "" : found->second;
}

LoopbackServer::LoopbackServer(Handler handler, Security security)
    : implementation_(std::make_unique<Implementation>(std::move(handler), security)) {}

LoopbackServer::~LoopbackServer() = default;

int LoopbackServer::port() const { return implementation_->port(); }

std::string LoopbackServer::origin() const {
  const char* base = implementation_->identity() ? "https://localhost:" : "http://127.0.0.1:";
  return base + std::to_string(port());
}

std::string LoopbackServer::certificateFile() const {
  const auto& identity = implementation_->identity();
  return identity ? identity->certificateFile() : "";
}

std::vector<LoopbackServer::Request> LoopbackServer::requests() const {
  return implementation_->requests();
}

void LoopbackServer::forgetRequests() { implementation_->forgetRequests(); }

int LoopbackServer::connections() const { return implementation_->connections(); }

}  // namespace velta::test
