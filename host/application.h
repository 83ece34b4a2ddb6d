#pragma once
// The objects that make a process an application of this library.
// Threads: made and ended on the main thread.

#include "qx_db/callback/callbacks.h"

#include "host/app_db_host.h"

namespace qx::host {

/// Refreshes the selection lists, as its base does. This host has no views of its own.
class HostUpdateDB final : public IUpdateDB {
 public:
  void UpdateView(CQXDBSession*) override {}
};

/// To be made once, at the start of a program and before any model: registers the callback objects
/// so that lists are refreshed after every event of any session. Its end unregisters them, save the
/// IQXDbInterface, which the library keeps for the life of the process.
class Application {
 public:
  Application();
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

 private:
  HostAppDB app_db_;
  HostUpdateDB update_db_;
};

}  // namespace qx::host
