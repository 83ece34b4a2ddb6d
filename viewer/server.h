#pragma once
// The page on a loopback address, for as long as someone looks at it.

#include <functional>
#include <string>

#include "qx_db/platform/outcome.h"

#include "viewer/source.h"

namespace qx::viewer {

struct ServeOptions {
  /// Where to listen; anything but loopback is for the user to want. "0.0.0.0" and "::" are all
  /// addresses of the machine.
  std::string host = "127.0.0.1";
  int port = 0;       ///< 0 for any that is free
  bool stay = false;  ///< go on when the page is closed
  /// Told the address, which holds the token, once the server listens.
  std::function<void(const std::string& address)> on_ready;
};

/// Serves the page until it is closed, or the process is told to end (SIGINT, SIGTERM). The source
/// is used on the calling thread alone. Fails when the address cannot be listened at.
Outcome Serve(Source& source, const ServeOptions& options);

/// Opens an address in the user's browser, without showing it to other users of the machine; false
/// when there is no display or no browser to be found.
bool OpenBrowser(const std::string& address);

}  // namespace qx::viewer
