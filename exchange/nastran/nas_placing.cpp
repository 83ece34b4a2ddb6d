#include "exchange/nastran/nas_placing.h"

#include <algorithm>
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

/// Works through systems and nodes, each as soon as what it is given in is known.
class Placer {
 public:
  Placer(std::vector<NasGrid>& nodes, std::vector<tagTCord>& systems,
         const std::vector<NasOnNodes>& on_nodes,
         const std::unordered_map<Key, std::size_t>& index_of)
      : nodes_(nodes), systems_(systems), index_of_(index_of) {
    placed_.nodes.resize(nodes.size());
    placed_.systems.resize(systems.size());
    for (const NasOnNodes& on : on_nodes) on_nodes_[on.system] = &on;
  }

  NasPlaced Place() {
    for (std::size_t s = 0; s < systems_.size(); ++s) {
      if (on_nodes_.contains(s)) continue;
      const auto reference = static_cast<Key>(systems_[s].reference);
      (reference == 0 ? ready_ : systems_in_[reference]).push_back(s);
    }
    for (const auto& [system, on] : on_nodes_) {
      for (const Key node : on->nodes) systems_on_[node].push_back(system);
    }
    for (std::size_t n = 0; n < nodes_.size(); ++n) {
      if (nodes_[n].system != 0) nodes_in_[nodes_[n].system].push_back(n);
    }
    for (std::size_t n = 0; n < nodes_.size(); ++n) {
      if (nodes_[n].system == 0) PlaceNode(n);
    }
    while (!ready_.empty()) {
      const std::size_t system = ready_.back();
      ready_.pop_back();
      PlaceSystem(system);
    }
    std::sort(placed_.without_axes.begin(), placed_.without_axes.end());
    return std::move(placed_);
  }

 private:
  void PlaceNode(std::size_t n) {
    NasGrid& node = nodes_[n];
    const auto basic = known_.ToBasic(node.system, Vector3(node.at.data()));
    if (!basic || placed_.nodes[n]) return;
    placed_.moved += node.system != 0;
    basic->CopyTo(node.at.data());
    placed_.nodes[n] = 1;
    const auto waiting = systems_on_.find(node.key);
    if (waiting == systems_on_.end()) return;
    for (const std::size_t system : waiting->second) {
      if (!placed_.systems[system] && StandOnNodes(systems_[system], on_nodes_.at(system)->nodes,
                                                   nodes_, placed_.nodes, index_of_)) {
        ready_.push_back(system);
      }
    }
  }

  void PlaceSystem(std::size_t s) {
    if (placed_.systems[s]) return;
    placed_.systems[s] = 1;
    const Key key = systems_[s].key;
    if (!known_.Add(systems_[s])) return placed_.without_axes.push_back(s);
    const auto systems = systems_in_.find(key);
    if (systems != systems_in_.end()) {
      ready_.insert(ready_.end(), systems->second.begin(), systems->second.end());
    }
    const auto nodes = nodes_in_.find(key);
    if (nodes == nodes_in_.end()) return;
    for (const std::size_t node : nodes->second) PlaceNode(node);
  }

  std::vector<NasGrid>& nodes_;
  std::vector<tagTCord>& systems_;
  const std::unordered_map<Key, std::size_t>& index_of_;
  NasPlaced placed_;
  NasSystems known_;
  std::map<std::size_t, const NasOnNodes*> on_nodes_;
  std::vector<std::size_t> ready_;  // systems of which it is known what they are given in
  // By number: what waits for a system, and systems that wait for a node.
  std::unordered_map<Key, std::vector<std::size_t>> systems_in_;
  std::unordered_map<Key, std::vector<std::size_t>> nodes_in_;
  std::unordered_map<Key, std::vector<std::size_t>> systems_on_;
};

}  // namespace

NasPlaced PlaceNasNodes(std::vector<NasGrid>& nodes, std::vector<tagTCord>& systems,
                        const std::vector<NasOnNodes>& on_nodes,
                        const std::unordered_map<Key, std::size_t>& index_of) {
  return Placer(nodes, systems, on_nodes, index_of).Place();
}

}  // namespace qx::exchange
