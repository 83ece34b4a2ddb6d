#pragma once
// Whether a web address answers, so that a program offers its on-line features or hides them.

#include <chrono>
#include <cstdint>
#include <string>

#include "qx_db/net/registry.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/platform/text.h"

namespace qx {

/// Limits of a probe, and whom it trusts. docs/probe.md tells the reasons.
struct ProbeOptions {
  /// Until a connection stands, and until a request is answered. Names are looked up within both.
  std::chrono::milliseconds connect_limit{5000};
  std::chrono::milliseconds answer_limit{15000};
  /// UTF-8 paths of PEM files: authorities to trust in the place of the platform's, and revoked
  /// certificates. Empty for the platform's authorities, and for no list.
  std::string authorities_file;
  std::string revoked_file;
};

/// A proxy asks who is there.
struct ProxyChallenge {
  /// Its address, without credentials. Empty where the question came without a proxy in between:
  /// nobody gets the answer's credentials then, and the question is put once.
  std::string proxy;
  std::string address;  ///< that is being probed
  int attempt = 1;      ///< how often this probe has asked by now
  std::uint32_t error = 12014;
  std::uint32_t flags = 1 | 2 | 4;
};

/// UTF-8.
struct ProxyCredentials {
  std::string user;
  std::string password;
};

/// The host's way to ask for credentials: a dialog in a desktop host.
class QXDB_API ICredentialPrompt {
 public:
  /// The answer that has the request sent again, with the credentials given.
  static constexpr std::uint32_t kForceRetry = 12032;

  virtual ~ICredentialPrompt();
  /// Any answer but kForceRetry ends the probe. Asked again as long as the proxy refuses: one that
  /// answers without a user should give up when `attempt` is above 1.
  virtual std::uint32_t Ask(const ProxyChallenge& challenge, ProxyCredentials& credentials) = 0;
};

/// Queries of the application about its connection. Synchronous; for the thread of the user
/// interface, which the prompt needs. Nothing is kept from one query to the next.
/// Threads: one thread at a time for an object; options of the process are set before the first.
class QXDB_API CQXWebUtil {
 public:
  /// 1 when a GET request to an http or https address answers 200; 0 for any other answer, for
  /// none within the limits, and for what is no such address. Says "Canceled!" or
  /// "Send Request Failed!" where a proxy's question ends the probe, and nothing else.
  static int IsInternetConnected(const CString& address);
  /// The same as the status of the answer, or why there was none.
  static Result<int> Probe(const CString& address);

  /// The major version of the platform's browser component: the number before the first '.' of its
  /// "Version" in the registry; 6 when that cannot be read.
  static unsigned GetIEVersion();
  static unsigned GetIEVersion(const IRegistry& registry);

  /// Of the whole process. Limits of zero or less are taken as a millisecond.
  static void SetOptions(const ProbeOptions& options);
  static ProbeOptions Options();
  /// Who asks for credentials; null for nobody, which is as good as a cancelled prompt. Not owned.
  static void SetCredentialPrompt(ICredentialPrompt* prompt);
};

}  // namespace qx
