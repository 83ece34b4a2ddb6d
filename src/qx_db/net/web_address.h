#pragma once
// Addresses to probe.
// Threads: functions from any; objects are values, one at a time for each.

#include <string>
#include <string_view>

#include "qx_db/platform/outcome.h"

namespace qx {

/// An address that was found fit to be probed.
struct WebAddress {
  std::string url;   ///< in the form that goes on the line, ASCII
  std::string host;  ///< of it
  std::string port;  ///< of it, also where it is the scheme's own
  bool secure = false;
};

/// Takes an http or https address apart, in UTF-8. Blanks around it do not count, blanks within its
/// path stand for %20. Fails for any other scheme or none, a port that is none, a user name, and
/// control characters.
QXDB_API Result<WebAddress> ReadWebAddress(std::string_view text);

/// A text without the blanks and line ends around it.
std::string_view WithoutBlanks(std::string_view text);

}  // namespace qx
