#include "qx_db/net/web_util.h"

#include <algorithm>
#include <charconv>
#include <new>
#include <optional>

#include "qx_db/lib/message.h"
#include "qx_db/net/certificate_policy.h"
#include "qx_db/net/proxy_settings.h"
#include "qx_db/net/web_address.h"

namespace qx {
namespace {

constexpr int kProxyAsks = 407;
constexpr std::size_t kLongestHeader = std::size_t{64} << 10;   // all lines of an answer
constexpr std::size_t kLongestRefusal = std::size_t{64} << 10;  // body of a proxy's refusal

ProbeOptions g_options;
ICredentialPrompt* g_prompt = nullptr;

bool StartCurl() {
  static const bool started = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return started;
}

long Milliseconds(std::chrono::milliseconds limit) {
  constexpr std::int64_t kMost = 1'000'000'000;
  return static_cast<long>(std::clamp<std::int64_t>(limit.count(), 1, kMost));
}

/// What an answer that did not come tells, beyond libcurl's own words.
struct Trouble {
  CURLcode code;
  const char* what;  ///< null for libcurl's words
  const char* remedy;
};

constexpr Trouble kTroubles[] = {
    {CURLE_OK, "closes the connection before its header is complete",
     "ask who runs the server, or probe another address"},
    {CURLE_GOT_NOTHING, "closes the connection without an answer",
     "ask who runs the server, or probe another address"},
    {CURLE_UNSUPPORTED_PROTOCOL, "answers, but not as a web server does",
     "probe the address of a web server"},
    {CURLE_WEIRD_SERVER_REPLY, "answers, but not as a web server does",
     "probe the address of a web server"},
    {CURLE_SSL_CONNECT_ERROR, nullptr, "probe an address that is served through TLS"},
};

/// One request that may be sent again, over the same connection where the other side keeps it.
class Request {
 public:
  Request(const WebAddress& address, const ProxySetting& proxy);

  /// What prevents that it is sent.
  const std::optional<Failure>& Fault() const { return fault_; }
  /// Sends it; the status of the answer, or that of the proxy in its way. 0 when none came.
  int Send();
  void SetCredentials(const ProxyCredentials& credentials);
  /// Whether a proxy, and not a server, answered what was sent last.
  bool WentToProxy() const { return went_to_proxy_; }
  /// Why no answer came.
  Failure Reason() const;

 private:
  template <class T>
  void Set(CURLoption option, T value) {
    const CURLcode code = curl_easy_setopt(easy_.get(), option, value);
    if (code == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
    if (code != CURLE_OK && !fault_) fault_ = Failure{url_, "", curl_easy_strerror(code), ""};
  }
  int Info(CURLINFO info) const {
    long value = 0;
    curl_easy_getinfo(easy_.get(), info, &value);
    return static_cast<int>(value);
  }
  void Secure(const ProxySetting& proxy);
  void OnRequest(std::string_view header);
  bool OnHeader(std::string_view line);
  bool OnBody(std::size_t bytes);

  std::string url_;
  CurlEasy easy_;
  std::optional<Failure> fault_;
  CURLcode result_ = CURLE_OK;
  char error_[CURL_ERROR_SIZE] = "";
  int answer_ = 0;  // status, once its header is complete
  bool went_to_proxy_ = false;
  std::size_t header_bytes_ = 0;
  std::size_t body_bytes_ = 0;
};

Request::Request(const WebAddress& address, const ProxySetting& proxy)
    : url_(address.url), easy_(curl_easy_init()) {
  if (!easy_) throw std::bad_alloc();
  Set(CURLOPT_URL, url_.c_str());
  Set(CURLOPT_PROTOCOLS_STR, "http,https");
  Set(CURLOPT_HTTPGET, 1L);
  Set(CURLOPT_FOLLOWLOCATION, 0L);
  Set(CURLOPT_USERAGENT, "new session");
  Set(CURLOPT_CONNECTTIMEOUT_MS, Milliseconds(g_options.connect_limit));
  Set(CURLOPT_TIMEOUT_MS, Milliseconds(g_options.answer_limit));
  // A look-up that hangs is left behind when the time is over, instead of being waited for.
  Set(CURLOPT_QUICK_EXIT, 1L);
  Set(CURLOPT_ERRORBUFFER, error_);
  Set(CURLOPT_PROXY, proxy.url.c_str());
  if (!proxy.user.empty()) SetCredentials({proxy.user, proxy.password});
  // The header of a tunnel is none of the answer's.
  Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  const auto on_debug = [](CURL*, curl_infotype type, char* bytes, std::size_t count, void* self) {
    if (type == CURLINFO_HEADER_OUT) static_cast<Request*>(self)->OnRequest({bytes, count});
    return 0;
  };
  Set<curl_debug_callback>(CURLOPT_DEBUGFUNCTION, on_debug);
  Set(CURLOPT_DEBUGDATA, static_cast<void*>(this));
  Set(CURLOPT_VERBOSE, 1L);
  const auto on_header = [](char* bytes, std::size_t, std::size_t count, void* self) {
    return static_cast<Request*>(self)->OnHeader({bytes, count}) ? count : 0;
  };
  const auto on_body = [](char*, std::size_t, std::size_t count, void* self) {
    return static_cast<Request*>(self)->OnBody(count) ? count : 0;
  };
  Set<curl_write_callback>(CURLOPT_HEADERFUNCTION, on_header);
  Set(CURLOPT_HEADERDATA, static_cast<void*>(this));
  Set<curl_write_callback>(CURLOPT_WRITEFUNCTION, on_body);
  Set(CURLOPT_WRITEDATA, static_cast<void*>(this));
  if (address.secure || proxy.secure) Secure(proxy);
}

void Request::Secure(const ProxySetting& proxy) {
  const auto trust = [&](CURLoption server, CURLoption of_proxy, const std::string& file) {
    if (file.empty()) return;
    Set(server, file.c_str());
    Set(of_proxy, file.c_str());
  };
  trust(CURLOPT_CAINFO, CURLOPT_PROXY_CAINFO, g_options.authorities_file);
  trust(CURLOPT_CRLFILE, CURLOPT_PROXY_CRLFILE, g_options.revoked_file);
  // What is forgiven to the server would be forgiven to a proxy behind TLS too, which no one asked
  // for: behind such a proxy nothing is forgiven.
  if (proxy.secure) return;
  if (!ForgiveDateAndName(easy_.get()) && !fault_) {
    fault_ = Failure{url_, "", "this TLS library cannot forgive a date and a name alone",
                     "use libcurl with OpenSSL"};
  }
}

void Request::SetCredentials(const ProxyCredentials& credentials) {
  Set(CURLOPT_PROXYUSERNAME, credentials.user.c_str());
  Set(CURLOPT_PROXYPASSWORD, credentials.password.c_str());
  // In a way that the proxy offered, once it was heard, so that they go with the request at once.
  const int offered = Info(CURLINFO_PROXYAUTH_AVAIL);
  Set(CURLOPT_PROXYAUTH, offered ? static_cast<long>(offered) : static_cast<long>(CURLAUTH_ANY));
}

int Request::Send() {
  answer_ = 0;
  header_bytes_ = body_bytes_ = 0;
  error_[0] = '\0';
  result_ = curl_easy_perform(easy_.get());
  if (answer_ != 0) return answer_;
  return Info(CURLINFO_HTTP_CONNECTCODE) == kProxyAsks ? kProxyAsks : 0;
}

void Request::OnRequest(std::string_view header) {
  // A server is told the path alone; only a proxy is told the whole address, or where to connect
  // to. That a proxy is set does not tell, since hosts may go without.
  if (header.starts_with("GET /")) {
    went_to_proxy_ = false;
  } else if (header.starts_with("GET ") || header.starts_with("CONNECT ")) {
    went_to_proxy_ = true;
  }
}

bool Request::OnHeader(std::string_view line) {
  header_bytes_ += line.size();
  if (header_bytes_ > kLongestHeader) return false;
  const bool complete = line == "\r\n" || line == "\n";
  const int status = Info(CURLINFO_RESPONSE_CODE);
  if (!complete || status < 200) return true;  // 1xx only announce an answer
  header_bytes_ = 0;
  answer_ = status;
  // Nothing more is asked of an answer than its status; a proxy's refusal is read to its end, so
  // that the connection can be used again.
  return status == kProxyAsks;
}

bool Request::OnBody(std::size_t bytes) {
  body_bytes_ += bytes;
  return body_bytes_ <= kLongestRefusal;
}

Failure Request::Reason() const {
  if (fault_) return *fault_;
  if (header_bytes_ > kLongestHeader) {
    return {url_, "", "answers with a header that does not end", "probe another address"};
  }
  if (result_ == CURLE_SSL_CACERT_BADFILE && !g_options.authorities_file.empty()) {
    return {g_options.authorities_file, "", "cannot be read as the certificates of authorities",
            "give a PEM file with at least one"};
  }
  if (result_ == CURLE_SSL_CRL_BADFILE) {
    return {g_options.revoked_file, "", "cannot be read as a list of revoked certificates",
            "give a PEM file with at least one list"};
  }
  const char* const words = error_[0] ? error_ : curl_easy_strerror(result_);
  if (result_ == CURLE_PEER_FAILED_VERIFICATION) {
    return {url_, "", words, CertificateRemedy(easy_.get())};
  }
  for (const Trouble& trouble : kTroubles) {
    if (trouble.code == result_) {
      return {url_, "", trouble.what ? trouble.what : words, trouble.remedy};
    }
  }
  return {url_, "", words, "check the line and the proxy settings"};
}

/// Asks the host until the proxy is content or the host gives up; but once where no proxy is in
/// between to take the credentials, since a server never gets them.
int AnswerProxy(Request& request, const WebAddress& address, const ProxySetting& proxy) {
  ProxyChallenge challenge{"", address.url};
  for (int status = kProxyAsks;; ++challenge.attempt) {
    challenge.proxy = request.WentToProxy() ? proxy.url : "";
    if (challenge.proxy.empty() && challenge.attempt > 1) return status;
    ProxyCredentials credentials;
    if (!g_prompt || g_prompt->Ask(challenge, credentials) != ICredentialPrompt::kForceRetry) {
      qxMsgOutText(Severity::kWarning, "Canceled!");
      return status;
    }
    if (!challenge.proxy.empty()) request.SetCredentials(credentials);
    status = request.Send();
    if (status == 0) qxMsgOutText(Severity::kError, "Send Request Failed!");
    if (status != kProxyAsks) return status;
  }
}

Result<int> ProbeAddress(const CString& text) {
  if (!StartCurl()) return Failure{"", "", "libcurl cannot be started", ""};
  const Result<WebAddress> address = ReadWebAddress(text.ToUtf8());
  if (!address) return address.Error();
  const Result<ProxySetting> proxy = PlatformProxies().For(*address);
  if (!proxy) return proxy.Error();
  Request request(*address, *proxy);
  if (request.Fault()) return *request.Fault();
  int status = request.Send();
  if (status == kProxyAsks) status = AnswerProxy(request, *address, *proxy);
  if (status == 0) return request.Reason();
  return status;
}

}  // namespace

ICredentialPrompt::~ICredentialPrompt() = default;

Result<int> CQXWebUtil::Probe(const CString& address) {
  try {
    return ProbeAddress(address);
  } catch (const std::bad_alloc&) {
    return Failure{"", "", "not enough memory for a probe", "close other programs"};
  }
}

int CQXWebUtil::IsInternetConnected(const CString& address) {
  const Result<int> status = Probe(address);
  return status && *status == 200 ? 1 : 0;
}

unsigned CQXWebUtil::GetIEVersion() { return GetIEVersion(PlatformRegistry()); }

unsigned CQXWebUtil::GetIEVersion(const IRegistry& registry) {
  constexpr unsigned kUnknown = 6;
  constexpr std::size_t kMostBytes = 100;
  std::u16string version;
  if (!registry.ReadText(u"Software\\Microsoft\\Internet Explorer", u"Version", kMostBytes,
                         version)) {
    return kUnknown;
  }
  const std::string text = Utf8(version);
  const char* const end = text.data() + std::min(text.find('.'), text.size());
  unsigned major = 0;
  const auto [stop, error] = std::from_chars(text.data(), end, major);
  return error == std::errc() && stop == end ? major : kUnknown;
}

void CQXWebUtil::SetOptions(const ProbeOptions& options) { g_options = options; }

ProbeOptions CQXWebUtil::Options() { return g_options; }

void CQXWebUtil::SetCredentialPrompt(ICredentialPrompt* prompt) { g_prompt = prompt; }

}  // namespace qx
