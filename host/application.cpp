#include "host/application.h"

#include "qx_db/callback/callbacks.h"

namespace qx::host {
namespace {

/// The process as the library sees it: no tendons, no libraries in a place of their own, models
/// that may be changed, and operations that nobody watches or stops.
class HostProcess final : public IQXDbInterface {
 public:
  int NeedSplitMergedTendonNode(CQXDBSession*) override { return 0; }
  CQXDBSession* GetActiveSession() override { return nullptr; }
  CString GetMaterialFolder() override { return {}; }
  int IsReadOnly(CQXDBSession*) override { return 0; }
  void ShowProgress(CQXDBSession*, double) override {}
  int IsCancelled(CQXDBSession*) override { return 0; }
};

}  // namespace

Application::Application() {
  // Never destroyed: the slot names it to the end of the process.
  static auto* const process = new HostProcess;
  static_cast<void>(process);
}

}  // namespace qx::host
