#include "exchange/nastran/nas_placing.h"

#include <map>

#include "exchange/nastran/nas_systems.h"

namespace qx::exchange {
namespace {

/// The points of a system from its nodes; false as long as one of them is not placed.
bool StandOnNodes(tagTCord& system, const std::array<Key, 3>& nodes,
                  const std::vector<NasGrid>& grids, const std::vector<char>& is_placed,
                  const std::unordered_map<Key, std::size_t>& index_of) {
  std::array<tagTVector3<double>, 3> points;
  for (std::size_t i = 0; i < 3; ++i) {
    const auto grid = index_of.find(nodes[i]);
    if (grid == index_of.end() || !is_placed[grid->second]) return false;
    const auto& at = grids[grid->second].at;
    points[i] = {at[0], at[1], at[2]};
  }
  system.origin = points[0];
  system.axis_point = points[1];
  system.plane_point = points[2];
  return true;
}

}  // namespace

NasPlaced PlaceNasNodes(std::vector<NasGrid>& nodes, std::vector<tagTCord>& systems,
                        const std::vector<NasOnNodes>& on_nodes,
                        const std::unordered_map<Key, std::size_t>& index_of) {
  NasPlaced placed;
  placed.nodes.resize(nodes.size());
  placed.systems.resize(systems.size());
  NasSystems known;
  std::map<std::size_t, const NasOnNodes*> nodes_of;
  for (const NasOnNodes& on : on_nodes) nodes_of[on.system] = &on;
  for (bool goes_on = true; goes_on;) {
    goes_on = false;
    for (std::size_t s = 0; s < systems.size(); ++s) {
      if (placed.systems[s]) continue;
      const auto on = nodes_of.find(s);
      const bool is_ready =
          on == nodes_of.end()
              ? known.Knows(static_cast<Key>(systems[s].reference))
              : StandOnNodes(systems[s], on->second->nodes, nodes, placed.nodes, index_of);
      if (!is_ready) continue;
      if (!known.Add(systems[s])) placed.without_axes.push_back(s);
      placed.systems[s] = 1;
      goes_on = true;
    }
    for (std::size_t n = 0; n < nodes.size(); ++n) {
      if (placed.nodes[n]) continue;
      const auto basic = known.ToBasic(nodes[n].system, Vector3(nodes[n].at.data()));
      if (!basic) continue;
      placed.moved += nodes[n].system != 0;
      basic->CopyTo(nodes[n].at.data());
      placed.nodes[n] = 1;
      goes_on = true;
    }
  }
  return placed;
}

}  // namespace qx::exchange
