// What happens to mesh sets when a step ends, beyond what their rows say.

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "qx_db/core/relations.h"
#include "qx_db/core/session.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// A set that the step touched and that is its own ancestor; 0 when there is none. Rings that were
/// there before, as a file may bring them, are none of the step's business.
ITR FindRing(const DPoolMset& sets, const FormerKeys& step) {
  std::vector<ITR> touched(step.Touched().begin(), step.Touched().end());
  std::erase_if(touched, [](ITR set) { return KeyedSetBase::IsRemoved(set); });
  // By key, so that always the same one is named.
  std::sort(touched.begin(), touched.end(), [](ITR a, ITR b) { return KeyOf(a) < KeyOf(b); });
  std::unordered_map<ITR, ITR> walk_of;  // by set: from where it was first walked over
  for (const ITR start : touched) {
    ITR at = start;
    while (at && walk_of.emplace(at, start).second) at = sets.Find(sets.GetAtNU(at).parent_key);
    if (!at || walk_of[at] != start) continue;
    ITR on_ring = at;
    do {
      if (step.Touched().contains(on_ring)) return on_ring;
      on_ring = sets.Find(sets.GetAtNU(on_ring).parent_key);
    } while (on_ring != at);
  }
  return 0;
}

}  // namespace

/// Lists, geometry and parents go by the rows; what follows is about the hierarchy as a whole, and
/// about the one set that others count on.
int DPoolMset::ProcessRelation() {
  if (!DPoolPlain::ProcessRelation()) return 0;
  if (ChangeFlags() == 0) return 1;
  const bool rehearsing = GetSession()->IsRehearsing();
  const FormerKeys step(*this, *GetSchema().Find(u"_PARENTMSETK"), *this,
                        GetSession()->History().Current());
  const ITR moved = step.RenumberedFrom(kDefaultKey);
  if (moved) {
    qxMsgOut(Severity::kRefusal, "IDS_QX_DB_MSET_DEFAULT", {std::to_string(kDefaultKey)});
    if (!rehearsing) return 0;
  }
  const ITR ring = FindRing(*this, step);
  if (!ring) return 1;
  const tagTMset& set = GetAtNU(ring);
  qxMsgOut(Severity::kRefusal, "IDS_QX_DB_MSET_PARENT_RING",
           {Utf8(set.name.View()), std::to_string(set.key)});
  return rehearsing;
}

}  // namespace qx
