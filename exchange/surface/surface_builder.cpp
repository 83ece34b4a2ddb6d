#include "exchange/surface/surface_builder.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <unordered_map>

#include "qx_db/record/element_types.h"

#include "exchange/deck_text.h"
#include "exchange/room.h"
#include "exchange/text_lines.h"

namespace qx::exchange {
namespace {

constexpr FormatOption kReadOptions[] = {
    {"points", "separate, merged", "what points at one place become: nodes each, or one"},
    {"tolerance", "0", "how far apart, in the file's unit, points may lie that are merged",
     "NUMBER"},
};

using Point = std::array<double, 3>;

struct PointHash {
  std::size_t operator()(const Point& p) const {
    std::size_t hash = 0;
    for (const double x : p) hash = hash * 0x9E3779B97F4A7C15u + std::hash<double>()(x);
    return hash ^ (hash >> 29);
  }
};

/// Finds for each point the first one within a distance, by a grid of that width.
class PointGrid {
 public:
  explicit PointGrid(double tolerance) : tolerance_(tolerance) {}

  /// The number of the point that this one is joined to: its own, `number`, when there is none.
  std::uint32_t Join(const Point& at, std::uint32_t number) {
    if (tolerance_ == 0) {
      return exact_.try_emplace({at[0] + 0.0, at[1] + 0.0, at[2] + 0.0}, number).first->second;
    }
    const Point cell{std::floor(at[0] / tolerance_), std::floor(at[1] / tolerance_),
                     std::floor(at[2] / tolerance_)};
    std::uint32_t found = number;
    for (int i = 0; i < 27; ++i) {
      const auto near = cells_.find(
          {cell[0] + i % 3 - 1, cell[1] + i / 3 % 3 - 1, cell[2] + static_cast<double>(i / 9) - 1});
      if (near == cells_.end()) continue;
      for (const auto& [other, place] : near->second) {
        const double distance = std::hypot(at[0] - place[0], at[1] - place[1], at[2] - place[2]);
        if (distance <= tolerance_) found = std::min(found, other);
      }
    }
    if (found == number) cells_[cell].emplace_back(number, at);
    return found;
  }

 private:
  double tolerance_;
  std::unordered_map<Point, std::uint32_t, PointHash> exact_;
  std::unordered_map<Point, std::vector<std::pair<std::uint32_t, Point>>, PointHash> cells_;
};

}  // namespace

std::span<const FormatOption> SurfaceReadOptions() { return kReadOptions; }

std::string ColorName(std::int32_t color) {
  const auto c = static_cast<std::uint32_t>(color);
  return fmt::format("#{:02X}{:02X}{:02X}", c & 255, c >> 8 & 255, c >> 16 & 255);
}

void SurfaceBuilder::Fault(std::string place, std::string what, std::string remedy) {
  if (!Ok()) return;
  faults_.push_back({file_, std::move(place), std::move(what), std::move(remedy)});
}

void SurfaceBuilder::Reserve(std::size_t points, std::size_t faces) {
  MakeRoom(deck_.coordinates, 3 * points);
  MakeRoom(deck_.elements, faces);
  MakeRoom(deck_.connectivity, 3 * faces);
}

std::uint32_t SurfaceBuilder::AddPoint(const Point& at) {
  deck_.coordinates.insert(deck_.coordinates.end(), at.begin(), at.end());
  return static_cast<std::uint32_t>(Points() - 1);
}

std::size_t SurfaceBuilder::GroupOf(std::string_view name, std::int32_t color) {
  const auto [at, is_new] = groups_.try_emplace(CleanText(name), deck_.groups.size());
  if (is_new) {
    if (at->first != name) {
      Report().Changed("names of groups", 1, at->first, "they are not UTF-8 text");
    }
    Mesh::Group group;
    group.name = at->first;
    group.dimension = 2;
    group.color = color;
    deck_.groups.push_back(std::move(group));
  }
  return at->second;
}

void SurfaceBuilder::AddElement(std::span<const std::uint32_t> points,
                                std::span<const std::size_t> groups) {
  const auto key = static_cast<Key>(deck_.elements.size() + 1);
  const std::int32_t type = points.size() == 3 ? element::kTri3 : element::kQuad4;
  deck_.elements.push_back({key, type, deck_.connectivity.size()});
  for (const std::uint32_t point : points) {
    deck_.connectivity.push_back(static_cast<Key>(point + 1));
  }
  for (const std::size_t group : groups) {
    std::vector<Key>& members = deck_.groups[group].elements;
    if (members.empty() || members.back() != key) members.push_back(key);
  }
}

void SurfaceBuilder::AddFace(std::span<const std::uint32_t> points,
                             std::span<const std::size_t> groups) {
  ++faces_;
  if (points.size() == 3 || points.size() == 4) return AddElement(points, groups);
  const std::string place = fmt::format("face {}", faces_);
  if (points.size() < 3) {
    return Report().Lost("faces of fewer than three corners were left out", 1, place,
                         "they have no area");
  }
  Report().Changed("faces of more than four corners were divided into triangles", 1, place,
                   "the model has no such element; the triangles share the first corner");
  for (std::size_t i = 2; i < points.size(); ++i) {
    const std::uint32_t corners[] = {points[0], points[i - 1], points[i]};
    AddElement(corners, groups);
  }
}

void SurfaceBuilder::JoinPoints(double tolerance) {
  const std::size_t count = Points();
  PointGrid grid(tolerance);
  std::vector<Key> now(count);
  std::vector<double> kept;
  for (std::size_t i = 0; i < count; ++i) {
    const double* at = &deck_.coordinates[3 * i];
    const auto number = static_cast<std::uint32_t>(i);
    const std::uint32_t to = grid.Join({at[0], at[1], at[2]}, number);
    if (to == number) {
      kept.insert(kept.end(), at, at + 3);
      now[i] = static_cast<Key>(kept.size() / 3);
    } else {
      now[i] = now[to];
    }
  }
  deck_.coordinates = std::move(kept);
  // A face that lost a corner to another has none of its own any more: a quadrilateral is a
  // triangle, a triangle is nothing.
  std::vector<Mesh::Element> elements;
  std::vector<Key> connectivity;
  std::vector<Key> key_of(deck_.elements.size() + 1);
  std::uint64_t gone = 0;
  Key first_gone = 0;
  for (std::size_t e = 0; e < deck_.elements.size(); ++e) {
    const std::size_t first = connectivity.size();
    const std::size_t corners = deck_.NodesOf(e);
    for (std::size_t i = 0; i < corners; ++i) {
      const Key key =
          now[static_cast<std::size_t>(deck_.connectivity[deck_.elements[e].first + i]) - 1];
      const auto own = connectivity.begin() + static_cast<std::ptrdiff_t>(first);
      if (std::find(own, connectivity.end(), key) == connectivity.end()) {
        connectivity.push_back(key);
      }
    }
    const std::size_t left = connectivity.size() - first;
    if (left < 3) {
      if (gone++ == 0) first_gone = deck_.elements[e].key;
      connectivity.resize(first);
      continue;
    }
    const auto key = static_cast<Key>(elements.size() + 1);
    key_of[e + 1] = key;
    elements.push_back({key, left == 3 ? element::kTri3 : element::kQuad4, first});
  }
  for (Mesh::Group& group : deck_.groups) {
    for (Key& key : group.elements) key = key_of[static_cast<std::size_t>(key)];
    std::erase(group.elements, 0);
  }
  deck_.elements = std::move(elements);
  deck_.connectivity = std::move(connectivity);
  Report().Lost("faces whose corners were merged were left out", gone,
                fmt::format("face {}", first_gone), "nothing is left of them");
}

Result<Deck> SurfaceBuilder::Finish() {
  if (Points() > static_cast<std::size_t>(kMaxKey) ||
      deck_.elements.size() > static_cast<std::size_t>(kMaxKey)) {
    Fault("", "there are more points or faces than a model can number", "divide the file");
  }
  if (faults_.size() > before_) return faults_[before_];
  const std::size_t used = deck_.connectivity.size();
  if (ValueOf(options_.values, kReadOptions, "points") == "merged") {
    JoinPoints(*DeckReal(ValueOf(options_.values, kReadOptions, "tolerance")));
  }
  Tell(0.9);
  deck_.node_keys.resize(Points());
  for (std::size_t i = 0; i < deck_.node_keys.size(); ++i) {
    deck_.node_keys[i] = static_cast<Key>(i + 1);
  }
  if (used > 0) ReportUnused(deck_, deck_.report);
  Tell(1);
  return std::move(deck_);
}

}  // namespace qx::exchange
