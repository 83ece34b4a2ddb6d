#include "qx_db/app/mesh_repair.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "qx_db/app/element_turning.h"
#include "qx_db/app/mesh_findings.h"
#include "qx_db/core/session.h"
#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/pool/bulk_edit.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

// ---- merging nodes ------------------------------------------------------------------------------

/// Which node each node becomes, by number; itself when it stays.
using Replacement = std::vector<std::uint32_t>;

/// Leaves out merges that would give an element one node twice; returns how many.
std::int64_t RefuseCollapses(const DenseMesh& mesh, Replacement& becomes) {
  std::int64_t refused = 0;
  // Taking back one merge can only make nodes differ that were one, so one pass is enough.
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    const auto nodes = mesh.Nodes(e);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      for (std::size_t k = 0; k < nodes.size(); ++k) {
        const std::uint32_t a = nodes[i], b = nodes[k];
        if (a == b || a == PoolNumbers::kNone || b == PoolNumbers::kNone) continue;
        if (becomes[a] != becomes[b] || becomes[a] == a) continue;
        becomes[a] = a;
        ++refused;
      }
    }
  }
  return refused;
}

/// Replaces references to merged nodes in a copy of a record; in lists that are sets, members that
/// became equal are dropped. True when something changed.
bool Redirect(const PoolNumbers& numbers, const Replacement& becomes, const Schema& schema,
              TStructBase& record) {
  bool changed = false;
  const auto after = [&](ITR node) {
    const std::uint32_t number = node ? numbers.Find(node) : PoolNumbers::kNone;
    return number == PoolNumbers::kNone ? node : numbers.Records()[becomes[number]];
  };
  ForEachReference(schema, record, [&](const Row& row, char* slot) {
    if (row.target != code::kNode) return;
    const ITR now = LoadAt<ITR>(slot), then = after(now);
    if (now == then) return;
    StoreAt<ITR>(slot, then);
    changed = true;
  });
  return changed;
}

/// Whether a reference of the record leads to a merged node; reads only.
bool Concerns(const PoolNumbers& numbers, const Replacement& becomes, const Schema& schema,
              TStructBase& record) {
  bool concerned = false;
  ForEachReference(schema, record, [&](const Row& row, const char* slot) {
    if (row.target != code::kNode) return;
    const ITR node = LoadAt<ITR>(slot);
    const std::uint32_t number = node ? numbers.Find(node) : PoolNumbers::kNone;
    concerned |= number != PoolNumbers::kNone && becomes[number] != number;
  });
  return concerned;
}

/// Drops repeats from the node lists of a record, keeping the first of each.
void DropRepeats(const Schema& schema, TStructBase& record) {
  for (const Row* row : schema.References()) {
    if (!row->IsArray() || row->target != code::kNode || row->element_size != sizeof(ITR)) continue;
    if (row->beside) continue;  // another array has an entry for each of these
    ArrayStorage& array = detail::ArrayAt(detail::Bytes(record), *row);
    ITR* nodes = static_cast<ITR*>(array.data);
    DistinctRecords met;
    std::int32_t kept = 0;
    for (std::int32_t i = 0; i < array.count; ++i) {
      const ITR node = nodes[i];
      if (node && !met.Add(node)) continue;
      nodes[kept++] = node;
    }
    array.count = kept;
  }
}

bool PointsAtNodes(const DPoolBase& pool) {
  const auto& rows = pool.GetSchema().References();
  return std::any_of(rows.begin(), rows.end(),
                     [](const Row* row) { return row->target == code::kNode; });
}

bool RedirectAll(CQXDBSession& session, const PoolNumbers& numbers, const Replacement& becomes) {
  for (DPoolBase* pool : session.Pools()) {
    if (!PointsAtNodes(*pool)) continue;
    std::vector<ITR> concerned;
    LongWork work(static_cast<std::size_t>(pool->GetSize()));
    for (ITR at = pool->GetHeadPosition(); at; pool->Next(at)) {
      TStructBase& record = *KeyedSetBase::RecordAt(at);
      work.Step();
      if (Concerns(numbers, becomes, pool->GetSchema(), record)) concerned.push_back(at);
    }
    const std::size_t set = SetMany(*pool, concerned, [&](TStructBase& record, std::size_t) {
      Redirect(numbers, becomes, pool->GetSchema(), record);
      // The nodes of an element are a sequence; all other lists of nodes are sets.
      if (pool->GetTypeCode() != code::kElem) DropRepeats(pool->GetSchema(), record);
    });
    if (set != concerned.size()) return false;
  }
  return true;
}

bool MergeNodes(CQXDBSession& session, double tolerance, std::span<const ITR> among,
                RepairReport& report) {
  std::vector<ITR> merged;
  {
    const DenseMesh mesh(session);
    std::vector<std::uint8_t> chosen(among.empty() ? 0 : mesh.NodeCount());
    for (const ITR node : among) {
      const std::uint32_t number = mesh.Numbers().Find(node);
      if (number != PoolNumbers::kNone) chosen[number] = 1;
    }
    Replacement becomes(mesh.NodeCount());
    for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) becomes[n] = n;
    for (const Duplicate& pair : DuplicateNodes(mesh, tolerance, chosen)) {
      becomes[pair.first] = pair.second;
    }
    report.merges_refused = RefuseCollapses(mesh, becomes);
    for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
      if (becomes[n] != n) merged.push_back(mesh.NodeItr(n));
    }
    if (!merged.empty() && !RedirectAll(session, mesh.Numbers(), becomes)) return false;
  }
  auto& nodes = Pool<tagTNode>(session);
  for (const ITR node : merged) {
    if (!nodes.Remove(node)) return false;
  }
  report.nodes_merged = static_cast<std::int64_t>(merged.size());
  return true;
}

// ---- the other repairs --------------------------------------------------------------------------

bool RemoveDuplicateElements(CQXDBSession& session, RepairReport& report) {
  std::vector<Replaced> repeated;
  {
    const DenseMesh mesh(session);
    // An earlier one may be a duplicate itself: each is found among the first of its kind.
    std::unordered_map<std::uint32_t, std::uint32_t> first;
    for (const auto& [later, earlier] : DuplicateElements(mesh)) {
      const auto known = first.find(earlier);
      const std::uint32_t stays = known == first.end() ? earlier : known->second;
      first.emplace(later, stays);
      repeated.push_back({mesh.ElementItr(later), mesh.ElementItr(stays)});
    }
  }
  if (!repeated.empty() && !HandOn(session, repeated, report.left_behind)) return false;
  auto& elements = Pool<tagTElem>(session);
  for (const Replaced& pair : repeated) {
    if (!elements.Remove(pair.goes)) return false;
    ++report.elements_removed;
  }
  return true;
}

bool Turn(CQXDBSession& session, const std::vector<ITR>& elements, std::int64_t& turned) {
  turned = static_cast<std::int64_t>(elements.size());
  return TurnElements(session, elements);
}

bool TurnSolids(CQXDBSession& session, RepairReport& report) {
  std::vector<ITR> inverted;
  {
    const DenseMesh mesh(session);
    for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
      if (IsInvertedSolid(mesh, e)) inverted.push_back(mesh.ElementItr(e));
    }
  }
  return Turn(session, inverted, report.solids_turned);
}

bool TurnShells(CQXDBSession& session, RepairReport& report) {
  std::vector<ITR> turned;
  {
    const DenseMesh mesh(session);
    const ShellOrientation orientation = OrientShells(mesh);
    report.one_sided_patches = orientation.one_sided;
    for (const std::uint32_t e : orientation.to_flip) {
      turned.push_back(mesh.ElementItr(e));
    }
  }
  return Turn(session, turned, report.shells_turned);
}

bool RemoveUnreferencedNodes(CQXDBSession& session, RepairReport& report) {
  std::vector<ITR> unused;
  {
    const DenseMesh mesh(session);
    const UnusedNodes found = FindUnusedNodes(mesh);
    for (const std::uint32_t n : found.unused) unused.push_back(mesh.NodeItr(n));
    report.nodes_kept = found.kept;
  }
  auto& nodes = Pool<tagTNode>(session);
  for (const ITR node : unused) {
    if (!nodes.Remove(node)) return false;
    ++report.nodes_removed;
  }
  return true;
}

}  // namespace

bool RepairMesh(CQXDBSession& session, const RepairPlan& plan, RepairReport& report) {
  return (!plan.merge_tolerance ||
          MergeNodes(session, *plan.merge_tolerance, plan.merge_among, report)) &&
         (!plan.duplicate_elements || RemoveDuplicateElements(session, report)) &&
         (!plan.inverted_solids || TurnSolids(session, report)) &&
         (!plan.misoriented_shells || TurnShells(session, report)) &&
         (!plan.unreferenced_nodes || RemoveUnreferencedNodes(session, report));
}

}  // namespace qx
