#include "qx_db/model/size_control_pool.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "qx_db/core/session.h"

namespace qx {
namespace {

bool Lists(const TArray<ITR>& items, ITR item) {
  return std::find(items.begin(), items.end(), item) != items.end();
}

bool Controls(const tagTSzct& control, ITR edge) {
  return Lists(control.edges, edge) || Lists(control.reversed_edges, edge);
}

bool IsLocked(const tagTSzct& control) {
  return std::any_of(control.locked.begin(), control.locked.end(),
                     [](std::int32_t flag) { return flag != 0; });
}

bool IsInUse(const tagTSzct& control) {
  return !control.edges.IsEmpty() || !control.reversed_edges.IsEmpty() || !control.bodies.IsEmpty();
}

template <class Leaves>
void DropFrom(TArray<ITR>& items, Leaves& leaves) {
  const auto end = std::remove_if(items.begin(), items.end(), leaves);
  items.SetSize(end - items.begin());
}

template <class Leaves>
bool AnyLeaves(const tagTSzct& control, Leaves& leaves) {
  for (const auto* items : {&control.edges, &control.reversed_edges, &control.bodies}) {
    if (std::any_of(items->begin(), items->end(), leaves)) return true;
  }
  return false;
}

template <class Leaves>
void DropFrom(tagTSzct& control, Leaves& leaves) {
  if (control.locked.GetSize() == control.edges.GetSize()) {
    std::int32_t kept = 0;
    for (std::int32_t i = 0; i < control.edges.GetSize(); ++i) {
      if (!leaves(control.edges[i])) control.locked[kept++] = control.locked[i];
    }
    control.locked.SetSize(kept);
  }
  DropFrom(control.edges, leaves);
  DropFrom(control.reversed_edges, leaves);
  DropFrom(control.bodies, leaves);
}

bool FitsFloat(const CadPoint& p) {
  constexpr double kMost = std::numeric_limits<float>::max();
  return std::fabs(p.x) <= kMost && std::fabs(p.y) <= kMost && std::fabs(p.z) <= kMost;
}

int ToFloats(const std::vector<CadPoint>& from, std::vector<tagTVector3<float>>& to) {
  if (!std::all_of(from.begin(), from.end(), FitsFloat)) return 0;
  to.resize(from.size());
  std::transform(from.begin(), from.end(), to.begin(), [](const CadPoint& p) {
    return tagTVector3<float>{static_cast<float>(p.x), static_cast<float>(p.y),
                              static_cast<float>(p.z)};
  });
  return 1;
}

}  // namespace

// ---- seeding ------------------------------------------------------------------------------------

int DPoolSzct::GetPointsOnSzct(ITR edge, const tagTSzct& control,
                               std::vector<tagTVector3<float>>& points) const {
  if (!cad_ || edge == 0 || KeyedSetBase::IsRemoved(edge)) return 0;
  const auto& key = *static_cast<const tagTGKey*>(KeyedSetBase::RecordAt(edge));
  if (key.ItemType() != tagTGKey::kEdge) return 0;
  const bool reversed = Lists(control.reversed_edges, edge);
  return SeedEdge(*cad_, key.ItemNumber(), control, reversed, seeds_) &&
         ToFloats(seeds_.points, points);
}

int DPoolSzct::GetPointsOnSzct(int edge, const tagTSzct& control,
                               std::vector<tagTVector3<float>>& points) const {
  if (!cad_) return 0;
  const bool reversed = CQXCalcSzct::IsOverlap(GetSession(), edge, control.reversed_edges);
  return SeedEdge(*cad_, edge, control, reversed, seeds_) && ToFloats(seeds_.points, points);
}

// ---- finding ------------------------------------------------------------------------------------

int DPoolSzct::GetItrByGKeyItr(ITR edge, std::list<ITR>& out) const {
  int found = 0;
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (!Controls(GetAtNU(pos), edge)) continue;
    out.push_back(pos);
    found = 1;
  }
  return found;
}

TVArray<tagTSzct> DPoolSzct::GetSzctByEdgeArrayItr(const TArray<ITR>& edges) const {
  std::vector<ITR> found;
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    const tagTSzct& control = GetAtNU(pos);
    if (std::any_of(edges.begin(), edges.end(),
                    [&](ITR edge) { return Controls(control, edge); })) {
      found.push_back(pos);
    }
  }
  TVArray<tagTSzct> controls;
  controls.SetSize(static_cast<std::int32_t>(found.size()));
  for (std::size_t i = 0; i < found.size(); ++i) {
    controls[static_cast<std::int32_t>(i)] = GetAtNU(found[i]);
  }
  return controls;
}

int DPoolSzct::Exist(ITR edge, ITR& control) const {
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (!Controls(GetAtNU(pos), edge)) continue;
    control = pos;
    return 1;
  }
  return 0;
}

// ---- following the geometry ---------------------------------------------------------------------

/// Drops the geometry keys that leave from every control. 0 when a change or a removal failed.
template <class Leaves>
int DPoolSzct::Drop(Leaves&& leaves, Empty empty) {
  for (ITR pos = GetHeadPosition(); pos;) {
    const tagTSzct& before = GetAtNU(pos);
    const bool changes = AnyLeaves(before, leaves);
    const bool had_edges = IsInUse(before);
    const bool locked = IsLocked(before);
    tagTSzct after;
    if (changes) {
      after = before;
      DropFrom(after, leaves);
    }
    const bool has_edges = changes ? IsInUse(after) : had_edges;
    if (!has_edges && !locked && empty == Empty::kLeave) {
      if (!RemoveNext(pos)) return 0;
      continue;
    }
    if (changes) {
      // A lock that outlives its edges is what keeps the control; the flag stays to say so.
      if (!has_edges && locked && !IsLocked(after)) after.locked = {1};
      if (!SetAtNU(pos, after)) return 0;
    }
    Next(pos);
  }
  return 1;
}

int DPoolSzct::DeleteGKeyExist(ITR edge) {
  if (IsEmpty()) return 0;
  return Drop([edge](ITR itr) { return itr == edge; }, Empty::kStay);
}

int DPoolSzct::DeleteGKeyArrayExist(const TArray<ITR>& edges) {
  if (IsEmpty()) return 0;
  const std::set<ITR> leaving(edges.begin(), edges.end());
  return Drop([&](ITR itr) { return leaving.contains(itr); }, Empty::kStay);
}

void DPoolSzct::OnAfterLoad(unsigned long, void*) {
  // A key that names no record became 0 when the references were resolved.
  Drop([](ITR itr) { return itr == 0; }, Empty::kLeave);
}

}  // namespace qx
