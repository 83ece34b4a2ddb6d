#include "exchange/cgns/cgns_faces.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <limits>
#include <utility>

#include "qx_db/record/element_types.h"

namespace qx::exchange {

std::optional<CgnsCell> CellOfFaces(std::span<const std::vector<std::int64_t>> faces) {
  using Edge = std::pair<std::int64_t, std::int64_t>;
  struct Shape {
    std::size_t triangles, quads;
    std::int32_t code;
  };
  static constexpr Shape kShapes[] = {{4, 0, element::kTet4},
                                      {4, 1, element::kPyramid5},
                                      {2, 3, element::kWedge6},
                                      {0, 6, element::kHex8}};
  std::size_t triangles = 0, quads = 0;
  std::vector<Edge> edges;  // as the faces have them
  for (const std::vector<std::int64_t>& face : faces) {
    triangles += face.size() == 3;
    quads += face.size() == 4;
    for (std::size_t i = 0; i < face.size(); ++i) {
      edges.emplace_back(face[i], face[(i + 1) % face.size()]);
    }
  }
  const auto* const shape = std::find_if(
      std::begin(kShapes), std::end(kShapes),
      [&](const Shape& each) { return each.triangles == triangles && each.quads == quads; });
  if (shape == std::end(kShapes) || triangles + quads != faces.size()) return std::nullopt;
  // Each edge is of two faces, which go along it in opposite directions.
  std::sort(edges.begin(), edges.end());
  if (std::adjacent_find(edges.begin(), edges.end()) != edges.end()) return std::nullopt;
  const auto has = [&](std::int64_t a, std::int64_t b) {
    return std::binary_search(edges.begin(), edges.end(), Edge(a, b));
  };
  for (const auto& edge : edges) {
    if (!has(edge.second, edge.first)) return std::nullopt;
  }
  const std::size_t of_base = shape->code == element::kPyramid5 || quads == 6 ? 4 : 3;
  const auto base = std::find_if(faces.begin(), faces.end(),
                                 [&](const auto& face) { return face.size() == of_base; });
  CgnsCell cell{shape->code, {base->rbegin(), base->rend()}};  // it looks into the element
  for (std::size_t i = 0; i < of_base; ++i) {
    std::int64_t above = 0;
    for (const auto& edge : edges) {
      const bool is_upright = edge.first == cell.nodes[i] &&
                              std::find(base->begin(), base->end(), edge.second) == base->end();
      if (!is_upright) continue;
      if (above != 0) return std::nullopt;
      above = edge.second;
    }
    if (above == 0) return std::nullopt;
    cell.nodes.push_back(above);
  }
  const auto top = cell.nodes.begin() + static_cast<std::ptrdiff_t>(of_base);
  if (shape->code == element::kTet4 || shape->code == element::kPyramid5) {
    if (std::any_of(top, cell.nodes.end(), [&](std::int64_t n) { return n != *top; })) {
      return std::nullopt;
    }
    cell.nodes.resize(of_base + 1);
    return cell;
  }
  for (std::size_t i = 0; i < of_base; ++i) {
    if (!has(cell.nodes[of_base + i], cell.nodes[of_base + (i + 1) % of_base])) {
      return std::nullopt;
    }
  }
  return cell;
}

void CgnsFaces::Read(CgnsTree& tree, const std::string& section, bool of_cells, std::int64_t first,
                     std::int64_t last) {
  H5Reader& in = tree.File();
  const auto count = static_cast<std::uint64_t>(last - first + 1);
  Lists lists{first, {}, {}};
  const std::string offsets = tree.Find(section, "ElementStartOffset");
  const std::vector<std::int64_t> values = tree.IntegersOf(section + "/ElementConnectivity");
  if (!offsets.empty()) {
    const std::vector<std::int64_t> starts = tree.IntegersOf(offsets, count + 1);
    if (!in.Ok()) return;
    const auto most = static_cast<std::int64_t>(values.size());
    if (!std::is_sorted(starts.begin(), starts.end()) || starts.front() != 0 ||
        starts.back() > most) {
      return in.Fail(section, "its ElementStartOffset does not count up within its nodes");
    }
    lists.starts.assign(starts.begin(), starts.end());
    lists.values = values;
  } else {  // until version 3.4: each with its length before it
    lists.starts.push_back(0);
    for (std::size_t at = 0; at < values.size() && lists.starts.size() <= count;) {
      const auto left = static_cast<std::int64_t>(values.size() - at - 1);
      if (values[at] < 0 || values[at] > left) break;
      const auto begin = values.begin() + static_cast<std::ptrdiff_t>(at) + 1;
      lists.values.insert(lists.values.end(), begin, begin + values[at]);
      lists.starts.push_back(lists.values.size());
      at += static_cast<std::size_t>(values[at]) + 1;
    }
    if (!in.Ok()) return;
    if (lists.starts.size() != count + 1) {
      return in.Fail(section, fmt::format("it ends before element {}", last));
    }
  }
  for (const std::int64_t value : lists.values) {
    if (!of_cells || value == 0 || std::abs(value) > static_cast<std::int64_t>(in.MostValues())) {
      continue;
    }
    const auto face = static_cast<std::size_t>(std::abs(value));
    if (face >= uses_.size()) uses_.resize(std::max(face + 1, 2 * uses_.size()));
    uses_[face] = static_cast<unsigned char>(std::min(uses_[face] + 1, 2));
  }
  sections_.push_back(std::move(lists));
}

std::span<const std::int64_t> CgnsFaces::Find(std::int64_t number) const {
  for (const Lists& lists : sections_) {
    const std::int64_t at = number - lists.first;
    if (at < 0 || at + 1 >= std::ssize(lists.starts)) continue;
    const std::size_t begin = lists.starts[static_cast<std::size_t>(at)];
    const std::size_t end = lists.starts[static_cast<std::size_t>(at) + 1];
    return std::span(lists.values).subspan(begin, end - begin);
  }
  return {};
}

bool CgnsFaces::IsInner(std::int64_t face) const {
  return face > 0 && face < std::ssize(uses_) && uses_[static_cast<std::size_t>(face)] > 1;
}

std::optional<CgnsCell> CgnsFaces::Element(std::int64_t number, bool is_cell) const {
  constexpr std::size_t kMostFaces = 6;
  const std::span<const std::int64_t> own = Find(number);
  if (!is_cell) {
    const bool is_element = own.size() == 3 || own.size() == 4;
    if (!is_element) return std::nullopt;
    return CgnsCell{own.size() == 3 ? element::kTri3 : element::kQuad4, {own.begin(), own.end()}};
  }
  if (own.size() > kMostFaces) return std::nullopt;
  std::vector<std::vector<std::int64_t>> faces;
  for (const std::int64_t face : own) {
    if (face == std::numeric_limits<std::int64_t>::min()) return std::nullopt;
    const std::span<const std::int64_t> nodes = Find(std::abs(face));
    if (nodes.size() > 4) return std::nullopt;
    faces.emplace_back(nodes.begin(), nodes.end());
    if (face < 0) std::reverse(faces.back().begin(), faces.back().end());
  }
  return CellOfFaces(faces);
}

}  // namespace qx::exchange
