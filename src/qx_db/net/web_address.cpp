#include "qx_db/net/web_address.h"

#include <algorithm>
#include <new>
#include <unicode/uchar.h>
#include <unicode/uidna.h>

#include "qx_db/net/curl_handles.h"
#include "qx_db/platform/text.h"

namespace qx {
namespace {

bool HasControls(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// Writes blanks and what is not ASCII as %XX.
std::string Encoded(std::string_view text) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 0x20 && byte < 0x80) {
      encoded += c;
    } else {
      encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return encoded;
}

/// The name of a host as name servers know it, whatever the language of the process; empty for one
/// that cannot be a name.
std::string HostInAscii(std::string_view name) {
  if (IsAscii(name)) return std::string(name);
  UErrorCode error = U_ZERO_ERROR;
  constexpr std::uint32_t kRules =
      UIDNA_NONTRANSITIONAL_TO_ASCII | UIDNA_CHECK_BIDI | UIDNA_CHECK_CONTEXTJ;
  UIDNA* const rules = uidna_openUTS46(kRules, &error);
  UIDNAInfo info = UIDNA_INFO_INITIALIZER;
  char ascii[256];
  const bool fits = name.size() < 1024;  // a name has at most 253 characters
  const std::int32_t length =
      fits ? uidna_nameToASCII_UTF8(rules, name.data(), static_cast<std::int32_t>(name.size()),
                                    ascii, sizeof ascii, &info, &error)
           : 0;
  uidna_close(rules);
  const bool valid = U_SUCCESS(error) && info.errors == 0 && length > 0 &&
                     length <= static_cast<std::int32_t>(sizeof ascii);
  return valid ? std::string(ascii, static_cast<std::size_t>(length)) : std::string();
}

/// Host and port; empty without a host.
std::string AuthorityInAscii(std::string_view text) {
  const std::size_t port = std::min(text.rfind(':'), text.size());
  const std::string host = HostInAscii(text.substr(0, port));
  return host.empty() ? host : host + std::string(text.substr(port));
}

/// The beginning of a text that is refused, as it can be shown: on one line, and with what would
/// act on a terminal or turn the direction of writing as %XX.
std::string Shown(std::string_view text) {
  constexpr std::uint32_t kActing = U_GC_CC_MASK | U_GC_CF_MASK | U_GC_ZL_MASK | U_GC_ZP_MASK;
  std::u16string shown;
  for (const char16_t unit : Utf16(text.substr(0, 200))) {
    const bool acts = (U_GET_GC_MASK(unit) & kActing) != 0;
    shown += acts ? Utf16(Encoded(Utf8({&unit, 1}))) : std::u16string(1, unit);
  }
  return Utf8(shown);
}

}  // namespace

std::string_view WithoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

Result<WebAddress> ReadWebAddress(std::string_view text) {
  text = WithoutBlanks(text);
  const std::string shown = Shown(text);
  const auto refuse = [&](std::string what, const char* remedy) {
    return Failure{shown.empty() ? "address" : shown, "", std::move(what), remedy};
  };
  constexpr const char* kForm = "write it as https://host/path";
  if (text.empty()) return refuse("is empty", kForm);
  if (HasControls(text)) return refuse("holds control characters", kForm);
  const std::size_t colon = text.find("://");
  if (colon == text.npos) {
    const std::string_view before = text.substr(0, text.find(':'));
    const bool half = EqualNoCase(before, "http") || EqualNoCase(before, "https");
    return refuse(half ? "has no // after its scheme" : "does not begin with http:// or https://",
                  kForm);
  }
  const std::string_view scheme = text.substr(0, colon);
  const bool secure = EqualNoCase(scheme, "https");
  if (!secure && !EqualNoCase(scheme, "http")) {
    return refuse("is neither http nor https", "probe a web address");
  }
  const std::size_t host = colon + 3;
  const std::size_t path = std::min(text.find_first_of("/?#", host), text.size());
  const std::string authority = AuthorityInAscii(text.substr(host, path - host));
  if (authority.empty()) return refuse("has no host that can be looked up", kForm);
  const std::string ascii =
      std::string(text.substr(0, host)) + authority + Encoded(text.substr(path));
  const CurlUrl url = NewUrl();
  const CURLUcode code = curl_url_set(url.get(), CURLUPART_URL, ascii.c_str(), CURLU_DISALLOW_USER);
  if (code == CURLUE_USER_NOT_ALLOWED) {
    return refuse("holds a user name", "leave the credentials out, a probe sends none");
  }
  if (code == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  if (code != CURLUE_OK) {
    return refuse(std::string("is no web address: ") + curl_url_strerror(code), kForm);
  }
  return WebAddress{UrlPart(url.get(), CURLUPART_URL), UrlPart(url.get(), CURLUPART_HOST),
                    UrlPart(url.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT), secure};
}

}  // namespace qx
