#include "qx_db/net/proxy_settings.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "qx_db/net/curl_handles.h"
#include "qx_db/platform/text.h"

namespace qx {
namespace {

constexpr const char* kNoProxy = "is no address of a proxy";

/// Takes the address of a proxy apart; false for what is none.
bool ReadProxy(std::string text, ProxySetting& proxy) {
  if (text.find("://") == text.npos) text.insert(0, "http://");
  const CurlUrl url = NewUrl();
  if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
    return false;
  }
  proxy.user = UrlPart(url.get(), CURLUPART_USER, CURLU_URLDECODE);
  proxy.password = UrlPart(url.get(), CURLUPART_PASSWORD, CURLU_URLDECODE);
  curl_url_set(url.get(), CURLUPART_USER, nullptr, 0);
  curl_url_set(url.get(), CURLUPART_PASSWORD, nullptr, 0);
  proxy.url = UrlPart(url.get(), CURLUPART_URL);
  proxy.secure = EqualNoCase(UrlPart(url.get(), CURLUPART_SCHEME), "https");
  return true;
}

// ---- internet settings --------------------------------------------------------------------------

/// Takes the next entry, without blanks, off a list; empty at its end.
std::string_view NextEntry(std::string_view& list) {
  constexpr std::string_view kBetween = "; \t\r\n";
  list.remove_prefix(std::min(list.find_first_not_of(kBetween), list.size()));
  const std::string_view entry = list.substr(0, list.find_first_of(kBetween));
  list.remove_prefix(entry.size());
  return entry;
}

/// Of "host:port", which is for all schemes, or "http=host:port;https=...;socks=...", where the
/// last is for the schemes without an entry.
std::string ServerFor(std::string_view scheme, std::string_view list) {
  std::string others;
  while (true) {
    const std::string_view entry = NextEntry(list);
    if (entry.empty()) return others;
    const std::size_t equals = entry.find('=');
    if (equals == entry.npos) return std::string(entry);
    const std::string_view name = entry.substr(0, equals);
    const std::string server(entry.substr(equals + 1));
    if (EqualNoCase(name, scheme)) return server;
    if (EqualNoCase(name, "socks")) others = "socks4://" + server;
  }
}

/// Whether a text is the pattern with any texts in the place of its '*'.
bool Matches(std::string_view pattern, std::string_view text) {
  const std::size_t star = pattern.find('*');
  if (star == pattern.npos) return EqualNoCase(pattern, text);
  if (text.size() < star || !EqualNoCase(pattern.substr(0, star), text.substr(0, star))) {
    return false;
  }
  for (std::size_t rest = star; rest <= text.size(); ++rest) {
    if (Matches(pattern.substr(star + 1), text.substr(rest))) return true;
  }
  return false;
}

/// Whether a list of "host", "scheme://host:port", with '*' in them, or "<local>", which are the
/// names without a dot, has the address.
bool GoesWithout(std::string_view list, const WebAddress& address) {
  const std::string_view scheme = address.secure ? "https" : "http";
  while (true) {
    std::string_view entry = NextEntry(list);
    if (entry.empty()) return false;
    if (EqualNoCase(entry, "<local>")) {
      if (address.host.find_first_of(".:") == address.host.npos) return true;
      continue;
    }
    if (const std::size_t colon = entry.find("://"); colon != entry.npos) {
      if (!EqualNoCase(entry.substr(0, colon), scheme)) continue;
      entry.remove_prefix(colon + 3);
    }
    if (Matches(entry, address.host) || Matches(entry, address.host + ":" + address.port)) {
      return true;
    }
  }
}

}  // namespace

IProxySettings::~IProxySettings() = default;

Result<ProxySetting> EnvironmentProxies::For(const WebAddress& address) const {
  constexpr const char* kPlain[] = {"http_proxy", "all_proxy", "ALL_PROXY"};
  constexpr const char* kSecure[] = {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"};
  const char* const* const first = address.secure ? kSecure : kPlain;
  const char* const* const last = address.secure ? std::end(kSecure) : std::end(kPlain);
  const auto is_set = [](const char* name) { return std::getenv(name) != nullptr; };
  const char* const* const variable = std::find_if(first, last, is_set);
  const std::string value(variable == last ? "" : WithoutBlanks(std::getenv(*variable)));
  ProxySetting proxy;
  // The value is not shown: it may hold a password.
  if (!value.empty() && !ReadProxy(value, proxy)) {
    return Failure{*variable, "", kNoProxy, "set it as http://host:port"};
  }
  return proxy;
}

Result<ProxySetting> InternetSettingsProxies::For(const WebAddress& address) const {
  constexpr std::u16string_view kKey =
      u"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
  constexpr std::size_t kMostBytes = 16384;
  std::uint32_t enabled = 0;
  if (!user_.ReadNumber(kKey, u"ProxyEnable", enabled) || enabled == 0) return ProxySetting{};
  std::u16string servers;
  std::u16string without;
  user_.ReadText(kKey, u"ProxyServer", kMostBytes, servers);
  user_.ReadText(kKey, u"ProxyOverride", kMostBytes, without);
  const std::string server = ServerFor(address.secure ? "https" : "http", Utf8(servers));
  ProxySetting proxy;
  if (server.empty() || GoesWithout(Utf8(without), address)) return proxy;
  if (!ReadProxy(server, proxy)) {
    return Failure{"ProxyServer of the internet settings", "", kNoProxy, "set it as host:port"};
  }
  return proxy;
}

const IProxySettings& PlatformProxies() {
#ifdef _WIN32
  static const InternetSettingsProxies proxies(UserRegistry());
#else
  static const EnvironmentProxies proxies;
#endif
  return proxies;
}

}  // namespace qx
