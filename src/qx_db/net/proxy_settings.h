#pragma once
// The proxy that the platform sets for an address.
// Threads: any; the environment is only read.

#include <string>

#include "qx_db/net/registry.h"
#include "qx_db/net/web_address.h"
#include "qx_db/platform/outcome.h"

namespace qx {

/// A proxy; `url` is empty for a direct connection. Credentials may be empty.
struct ProxySetting {
  std::string url;
  std::string user;
  std::string password;
  bool secure = false;  ///< reached through TLS itself
};

/// Where the proxies for addresses are set.
class QXDB_API IProxySettings {
 public:
  virtual ~IProxySettings();
  /// The proxy for an address. Fails for a setting that is no address of one.
  virtual Result<ProxySetting> For(const WebAddress& address) const = 0;
};

/// The platform's: on Windows the user's internet settings in the registry, elsewhere the
/// environment.
QXDB_API const IProxySettings& PlatformProxies();

/// The environment variables https_proxy or http_proxy, then all_proxy, also in capitals save
/// HTTP_PROXY, which a web server would let its clients set. Which hosts go without one, no_proxy,
/// is left to the connection.
class QXDB_API EnvironmentProxies final : public IProxySettings {
 public:
  Result<ProxySetting> For(const WebAddress& address) const override;
};

/// The internet settings of a Windows user: ProxyServer, where ProxyEnable is not 0, for all hosts
/// but those of ProxyOverride. Automatic configuration by a script is not followed.
class QXDB_API InternetSettingsProxies final : public IProxySettings {
 public:
  /// `user` holds the settings, and is not owned.
  explicit InternetSettingsProxies(const IRegistry& user) : user_(user) {}
  Result<ProxySetting> For(const WebAddress& address) const override;

 private:
  const IRegistry& user_;
};

}  // namespace qx
