#include "qx_db/callback/combo_refresh.h"

#include <array>
#include <atomic>

#include "qx_db/callback/callbacks.h"
#include "qx_db/core/session.h"

namespace qx {
namespace {

using enum ComboFamily;

constexpr ComboRefreshStep kOrder[] = {
    {code::kMset, kMset},           {code::kMatl, kMatl},       {code::kGset, kGset},
    {code::kBset, kBset},           {code::kLset, kLset},       {code::kDset, kDset},
    {code::kTset, kTset},           {code::kProp, kProp},       {code::kCord, kCord},
    {code::kCFDset, kCFDset},       {code::kCFDPset, kCFDPset}, {code::kFRset, kFRset},
    {code::kTTTset, kTTset},        {code::kEset, kEset},       {code::kTEset, kTEset},
    {code::kViewPoint, kViewPoint}, {code::kFunc, kFunc},       {code::kFunc, kFuncQX},
};
static_assert(std::size(kOrder) == kComboFamilyCount);

/// Read by whoever makes a step, while the first list may just be made.
std::array<std::atomic<ComboRefresh>, kComboFamilyCount> g_refresh{};

}  // namespace

std::span<const ComboRefreshStep> ComboRefreshOrder() { return kOrder; }

ComboRefresh SetComboRefresh(ComboFamily family, ComboRefresh refresh) {
  return g_refresh[static_cast<std::size_t>(family)].exchange(refresh);
}

void IUpdateDB::UpdateDB(CQXDBSession* session, ITR) {
  if (!session) return;
  for (const ComboRefreshStep& step : kOrder) {
    const DPoolBase* pool = session->GetDataPool(step.pool);
    const ComboRefresh refresh = g_refresh[static_cast<std::size_t>(step.family)];
    if (pool && pool->ChangeFlags() != 0 && refresh) refresh(session);
  }
}

}  // namespace qx
