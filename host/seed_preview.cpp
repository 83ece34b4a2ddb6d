#include "host/seed_preview.h"

#include <fmt/format.h>
#include <set>

#include "qx_db/model/edge_seeding.h"
#include "qx_db/model/standard_pools.h"

namespace qx::host {

void SeedPart(CQXDBSession& session, ICADSession& cad, SeedPreview& preview) {
  preview.cad = &cad;
  preview.seeds.clear();
  preview.sources.clear();
  preview.faults.clear();
  std::set<int> met;
  std::map<ITR, int> edge_of;
  for (const auto& [edge, itr] : preview.keys.edges) edge_of[itr] = edge;
  auto& controls = Pool<tagTSzct>(session);
  for (ITR pos = controls.GetHeadPosition(); pos;) {
    const tagTSzct& control = controls.GetNextNU(pos);
    const std::set<ITR> reversed(control.reversed_edges.begin(), control.reversed_edges.end());
    std::set<ITR> all(control.edges.begin(), control.edges.end());
    all.insert(reversed.begin(), reversed.end());
    for (const ITR itr : all) {
      const auto edge = edge_of.find(itr);
      if (edge == edge_of.end() || !met.insert(edge->second).second) continue;
      const bool backwards = reversed.contains(itr);
      EdgeSeeds seeds;
      if (Outcome seeded = SeedEdge(cad, edge->second, control, backwards, seeds); !seeded) {
        Failure failure = seeded.Error();
        failure.place =
            fmt::format("edge {} of size control {}", preview.KeyOf(edge->second), control.key);
        preview.faults.push_back({edge->second, control.key, std::move(failure)});
        continue;
      }
      preview.seeds[edge->second] = std::move(seeds);
      preview.sources[edge->second] = {control.key, control.method, backwards};
    }
  }
  preview.twins = FindTwinEdges(cad);
  preview.mismatches = CheckSeedsMatch(cad, preview.twins, preview.seeds);
}

}  // namespace qx::host
