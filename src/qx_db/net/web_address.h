#pragma once
// Addresses to probe, and the proxy that the platform sets for them.

#include <string>
#include <string_view>

#include "qx_db/platform/outcome.h"

namespace qx {

/// An address that was found fit to be probed.
struct WebAddress {
  std::string url;  ///< in the form that goes on the line, ASCII but for the host's name
  bool secure = false;
};

/// Takes an http or https address apart, in UTF-8. Blanks around it do not count, blanks within its
/// path stand for %20. Fails for any other scheme or none, a port that is none, a user name, and
/// control characters.
Result<WebAddress> ReadWebAddress(std::string_view text);

/// A proxy; `url` is empty for a direct connection. Credentials may be empty.
struct ProxySetting {
  std::string url;
  std::string user;
  std::string password;
  bool secure = false;  ///< reached through TLS itself
};

/// The proxy that the platform's settings name for addresses of a scheme: on every system the
/// environment variables https_proxy or http_proxy, then all_proxy, also in capitals save
/// HTTP_PROXY, which a web server would let its clients set. Which hosts go without one, no_proxy,
/// is left to the connection. Fails for a setting that is no address.
Result<ProxySetting> ReadProxySetting(bool secure);

}  // namespace qx
