#include "platform/Curl.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include <curl/curl.h>
#include <dlfcn.h>

#include "platform/Files.h"

namespace velta {
namespace {

#ifdef __APPLE__
constexpr std::array<const char*, 1> kLibraryNames = {"/usr/lib/libcurl.4.dylib"};
#else
constexpr std::array<const char*, 2> kLibraryNames = {"libcurl.so.4", "libcurl-gnutls.so.4"};
#endif

// What this file uses of libcurl.
struct Library {
  decltype(&curl_global_init) globalInit;
  decltype(&curl_version_info) versionInfo;
  decltype(&curl_easy_init) easyInit;
  decltype(&curl_easy_cleanup) easyCleanup;
  decltype(&curl_easy_reset) easyReset;
  decltype(&curl_easy_setopt) easySetopt;
  decltype(&curl_easy_perform) easyPerform;
  decltype(&curl_easy_getinfo) easyGetinfo;
  decltype(&curl_easy_strerror) easyStrerror;
  decltype(&curl_slist_append) slistAppend;
  decltype(&curl_slist_free_all) slistFreeAll;
  decltype(&curl_url) url;
  decltype(&curl_url_cleanup) urlCleanup;
  decltype(&curl_url_set) urlSet;
  decltype(&curl_url_get) urlGet;
  decltype(&curl_free) free;
};

void* openLibrary() {
  for (const char* name : kLibraryNames) {
    if (void* opened = ::dlopen(name, RTLD_NOW | RTLD_LOCAL)) return opened;
  }
  const char* cause = ::dlerror();
  throw Curl::Error(std::string("libcurl is not to be had: ") + (cause ? cause : "not found"));
}

template <class Function>
void findFunction(void* opened, const char* name, Function& function) {
  // POSIX has dlsym return functions as object pointers.
  function = reinterpret_cast<Function>(::dlsym(opened, name));
  if (function == nullptr) throw Curl::Error(std::string("libcurl has no ") + name);
}

Library loadLibrary() {
  ::unsetenv("SSLKEYLOGFILE");  // nobody gets the keys of our connections
  void* opened = openLibrary();
  Library library = {};
  findFunction(opened, "curl_global_init", library.globalInit);
  findFunction(opened, "curl_version_info", library.versionInfo);
  findFunction(opened, "curl_easy_init", library.easyInit);
  findFunction(opened, "curl_easy_cleanup", library.easyCleanup);
  findFunction(opened, "curl_easy_reset", library.easyReset);
  findFunction(opened, "curl_easy_setopt", library.easySetopt);
  findFunction(opened, "curl_easy_perform", library.easyPerform);
  findFunction(opened, "curl_easy_getinfo", library.easyGetinfo);
  findFunction(opened, "curl_easy_strerror", library.easyStrerror);
  findFunction(opened, "curl_slist_append", library.slistAppend);
  findFunction(opened, "curl_slist_free_all", library.slistFreeAll);
  findFunction(opened, "curl_url", library.url);
  findFunction(opened, "curl_url_cleanup", library.urlCleanup);
  findFunction(opened, "curl_url_set", library.urlSet);
  findFunction(opened, "curl_url_get", library.urlGet);
  findFunction(opened, "curl_free", library.free);
  library.globalInit(CURL_GLOBAL_DEFAULT);
  return library;
}

// Loaded once; it stays for the life of the process. A failure is tried again by the next call.
const Library& library() {
  static const Library loaded = loadLibrary();
  return loaded;
}

class HeaderList {
 public:
  explicit HeaderList(const std::vector<std::pair<std::string, std::string>>& headers) {
    for (const auto& [name, value] : headers) append(std::string(name).append(": ").append(value));
  }
  ~HeaderList() { library().slistFreeAll(list_); }
  HeaderList(const HeaderList&) = delete;
  HeaderList& operator=(const HeaderList&) = delete;

  curl_slist* get() const { return list_; }

 private:
  void append(const std::string& line) {
    // A line break would begin a header of its own.
    if (line.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
      throw Curl::Error("a header value holds a line break");
    list_ = library().slistAppend(list_, line.c_str());
  }

  curl_slist* list_ = nullptr;
};

class URLHandle {
 public:
  URLHandle() : handle_(library().url()) {}
  ~URLHandle() { library().urlCleanup(handle_); }
  URLHandle(const URLHandle&) = delete;
  URLHandle& operator=(const URLHandle&) = delete;

  bool parse(const std::string& url) {
    const unsigned anyScheme = CURLU_NON_SUPPORT_SCHEME;
    return library().urlSet(handle_, CURLUPART_URL, url.c_str(), anyScheme) == CURLUE_OK;
  }

  std::optional<std::string> part(CURLUPart part) const {
    char* text = nullptr;
    if (library().urlGet(handle_, part, &text, 0) != CURLUE_OK) return std::nullopt;
    std::string copy(text);
    library().free(text);
    return copy;
  }

 private:
  CURLU* handle_;
};

using SteadyTime = std::chrono::steady_clock::time_point;

// The body as it comes in.
struct Body {
  std::string bytes;
  std::size_t maxBytes;
  std::chrono::seconds patience;
  SteadyTime lastPiece = {};
  bool tooLarge = false;
  bool stalled = false;
};

std::size_t takeBody(char* data, std::size_t size, std::size_t count, void* target) {
  Body& body = *static_cast<Body*>(target);
  const std::size_t length = size * count;
  if (length > body.maxBytes - body.bytes.size()) {
    body.tooLarge = true;
    return 0;  // ends the transfer
  }
  body.bytes.append(data, length);
  body.lastPiece = std::chrono::steady_clock::now();
  return length;
}

// libcurl calls this about once a second. Its own watch over the speed looks at an average, and so
// notices only seconds later that nothing comes any more.
int watchBody(void* target, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  Body& body = *static_cast<Body*>(target);
  const bool begun = body.lastPiece != SteadyTime();
  body.stalled = begun && std::chrono::steady_clock::now() - body.lastPiece > body.patience;
  return body.stalled ? 1 : 0;  // 1 ends the transfer
}

// The certificates that libcurl trusts by default, as PEM; empty where it has no such file.
std::string defaultCertificates() {
  const curl_version_info_data* info = library().versionInfo(CURLVERSION_NOW);
  if (info->age < CURLVERSION_SEVENTH || info->cainfo == nullptr) return "";
  try {
    return readFile(info->cainfo);
  } catch (const std::system_error&) {
    return "";
  }
}

void setRules(CURL* handle) {
  const auto set = library().easySetopt;
  set(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  set(handle, CURLOPT_DEFAULT_PROTOCOL, "https");  // of a URL that names none
  set(handle, CURLOPT_FOLLOWLOCATION, 0L);
  set(handle, CURLOPT_SSL_VERIFYPEER, 1L);
  set(handle, CURLOPT_SSL_VERIFYHOST, 2L);
  set(handle, CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
  set(handle, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  set(handle, CURLOPT_NOSIGNAL, 1L);  // no alarm(2): the process is not libcurl's
  set(handle, CURLOPT_ACCEPT_ENCODING, "");
}

void setLimits(CURL* handle, const Curl::Request& request) {
  const auto set = library().easySetopt;
  set(handle, CURLOPT_CONNECTTIMEOUT, static_cast<long>(request.patience.count()));
  set(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);  // bytes a second
  set(handle, CURLOPT_LOW_SPEED_TIME, static_cast<long>(request.patience.count()));
  set(handle, CURLOPT_TIMEOUT, static_cast<long>(request.whole.count()));
}

void setCertificates(CURL* handle, const std::string& extra) {
  if (extra.empty()) return;
  std::string all = defaultCertificates() + "\n" + extra;
  curl_blob blob = {.data = all.data(), .len = all.size(), .flags = CURL_BLOB_COPY};
  if (library().easySetopt(handle, CURLOPT_CAINFO_BLOB, &blob) != CURLE_OK)
    throw Curl::Error("this libcurl takes no further certificates");
}

}  // namespace

struct Curl::Handle {
  Handle() : easy(library().easyInit()) {
    if (easy == nullptr) throw Error("libcurl gives no handle");
  }
  ~Handle() { library().easyCleanup(easy); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  CURL* easy;
};

std::optional<URLParts> parseURL(const std::string& url) {
  if (url.find('\0') != std::string::npos) return std::nullopt;
  URLHandle handle;
  if (!handle.parse(url)) return std::nullopt;
  const auto scheme = handle.part(CURLUPART_SCHEME);
  const auto host = handle.part(CURLUPART_HOST);
  if (!scheme || !host || host->empty()) return std::nullopt;
  return URLParts{*scheme, *host, handle.part(CURLUPART_USER) || handle.part(CURLUPART_PASSWORD)};
}

Curl::Curl() = default;
Curl::~Curl() = default;
Curl::Curl(Curl&&) noexcept = default;
Curl& Curl::operator=(Curl&&) noexcept = default;

Curl::Response Curl::get(const Request& request) {
  if (!handle_) handle_ = std::make_unique<Handle>();
  CURL* easy = handle_->easy;
  const HeaderList headers(request.headers);
  Body body = {.bytes = {}, .maxBytes = request.maxBytes, .patience = request.patience};
  std::array<char, CURL_ERROR_SIZE> description = {};

  const auto set = library().easySetopt;
  library().easyReset(easy);  // keeps the connection
  setRules(easy);
  setLimits(easy, request);
  setCertificates(easy, request.extraCertificates);
  if (!request.viaProxy) set(easy, CURLOPT_PROXY, "");
  set(easy, CURLOPT_URL, request.url.c_str());
  set(easy, CURLOPT_HTTPHEADER, headers.get());
  set(easy, CURLOPT_WRITEFUNCTION, &takeBody);
  set(easy, CURLOPT_WRITEDATA, &body);
  set(easy, CURLOPT_XFERINFOFUNCTION, &watchBody);
  set(easy, CURLOPT_XFERINFODATA, &body);
  set(easy, CURLOPT_NOPROGRESS, 0L);
  set(easy, CURLOPT_ERRORBUFFER, description.data());

  const CURLcode outcome = library().easyPerform(easy);
  long status = 0;
  library().easyGetinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  library().easyReset(easy);  // it must not keep pointers to what ends here
  if (body.tooLarge)
    throw Error("the answer is larger than " + std::to_string(request.maxBytes) + " bytes");
  if (body.stalled)
    throw Error("the answer stopped in its middle for " + std::to_string(request.patience.count()) +
                " seconds");
  if (outcome != CURLE_OK)
    throw Error(description[0] != '\0' ? description.data() : library().easyStrerror(outcome));
  return {static_cast<int>(status), std::move(body.bytes)};
}

void Curl::closeConnections() { handle_.reset(); }

}  // namespace velta
