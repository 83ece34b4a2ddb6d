#include "exchange/exodus/exodus_kinds.h"

#include <algorithm>
#include <array>
#include <string>

#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

#include "exchange/node_orders.h"

namespace qx::exchange {
namespace {

/// A shape by the names that types begin with.
struct Shape {
  std::array<std::string_view, 6> names;
  std::int32_t linear;
  std::int32_t quadratic;  ///< 0 for none
  /// Numbers of nodes whose first ones are those of the quadratic element.
  std::array<std::int64_t, 5> quadratic_nodes;
};
constexpr Shape kShapes[] = {
    {{"SPHERE", "CIRCLE", "POINT", "NODE"}, element::kPoint, 0, {}},
    {{"BAR", "BEAM", "TRUSS", "EDGE", "ROD", "LINE"}, element::kLine2, element::kLine3, {3}},
    {{"TRI"}, element::kTri3, element::kTri6, {6, 7}},
    {{"QUAD", "SHELL"}, element::kQuad4, element::kQuad8, {8, 9}},
    {{"TET"}, element::kTet4, element::kTet10, {10, 11, 14, 15}},
    {{"PYR"}, element::kPyramid5, element::kPyramid13, {13, 14, 18, 19}},
    {{"WED", "PRISM"}, element::kWedge6, element::kWedge15, {15, 16, 18, 20, 21}},
    {{"HEX"}, element::kHex8, element::kHex20, {20, 21, 26, 27}},
};

// By element type code, from 1.
constexpr std::string_view kTypes[] = {"SPHERE",    "BAR2",   "BAR3",    "TRISHELL3", "TRISHELL6",
                                       "SHELL4",    "SHELL8", "TETRA4",  "TETRA10",   "PYRAMID5",
                                       "PYRAMID13", "WEDGE6", "WEDGE15", "HEX8",      "HEX20"};

// Faces of solids: of ours, by the format's, from 1.
constexpr std::int32_t kTetFaces[] = {1, 2, 3, 0};
constexpr std::int32_t kPyramidFaces[] = {1, 2, 3, 4, 0};
constexpr std::int32_t kWedgeFaces[] = {2, 3, 4, 0, 1};
constexpr std::int32_t kHexFaces[] = {2, 3, 4, 5, 0, 1};

struct Faces {
  const std::int32_t* ours;
  std::int32_t count;
};
Faces FacesOf(std::int32_t code) {
  switch (FindElementType(code)->corners) {
    case 4:
      return {kTetFaces, 4};
    case 5:
      return {kPyramidFaces, 5};
    case 6:
      return {kWedgeFaces, 5};
    default:
      return {kHexFaces, 6};
  }
}

std::int64_t NodesOf(std::int32_t code) { return FindElementType(code)->nodes; }

}  // namespace

std::optional<ExodusKind> FindExodusKind(std::string_view type, std::int64_t nodes) {
  const std::string name = AsciiUpper(type);
  for (const Shape& shape : kShapes) {
    const bool is_named = std::any_of(shape.names.begin(), shape.names.end(), [&](const auto& s) {
      return !s.empty() && name.starts_with(s);
    });
    if (!is_named) continue;
    // Some writers call triangles shells.
    if (name.starts_with("SHELL") && (nodes == 3 || nodes == 6 || nodes == 7)) {
      return FindExodusKind("TRI", nodes);
    }
    if (shape.linear == element::kPoint && nodes != 1) return std::nullopt;
    if (nodes < NodesOf(shape.linear)) return std::nullopt;
    const bool is_quadratic = std::find(shape.quadratic_nodes.begin(), shape.quadratic_nodes.end(),
                                        nodes) != shape.quadratic_nodes.end();
    ExodusKind kind;
    kind.code = is_quadratic ? shape.quadratic : shape.linear;
    kind.order = ExodusOrderOf(kind.code);
    kind.is_reduced = nodes != NodesOf(kind.code);
    return kind;
  }
  return std::nullopt;
}

std::string_view ExodusTypeOf(std::int32_t code) { return kTypes[code - 1]; }

const std::int8_t* ExodusOrderOf(std::int32_t code) { return UprightOrderOf(code); }

std::int32_t SideOfExodus(std::int32_t code, std::int64_t side, bool in_space) {
  const ElementType& type = *FindElementType(code);
  if (type.dimension == 3) {
    const Faces faces = FacesOf(code);
    return side >= 1 && side <= faces.count ? faces.ours[side - 1] : -1;
  }
  const std::int32_t edges = type.corners;  // ends, of a line
  if (type.dimension < 2 || !in_space) {
    return side >= 1 && side <= edges ? static_cast<std::int32_t>(side) - 1 : -1;
  }
  if (side < 1 || side > edges + 2) return -1;
  const auto number = static_cast<std::int32_t>(side);
  return number <= 2 ? edges + number - 1 : number - 3;
}

std::int32_t ExodusSideOf(std::int32_t code, std::int32_t side) {
  const ElementType& type = *FindElementType(code);
  if (type.dimension == 3) {
    const Faces faces = FacesOf(code);
    const std::int32_t* const found = std::find(faces.ours, faces.ours + faces.count, side);
    return found == faces.ours + faces.count ? 0
                                             : static_cast<std::int32_t>(found - faces.ours) + 1;
  }
  const std::int32_t edges = type.corners;
  if (type.dimension < 2) return side >= 0 && side < edges ? side + 1 : 0;
  if (side < 0 || side > edges + 1) return 0;
  return side >= edges ? side - edges + 1 : side + 3;
}

std::string_view ExodusLossOf(std::string_view variable) {
  struct Kind {
    std::string_view head;  ///< of the names of variables
    std::string_view loss;
  };
  // A number and what is behind it may follow the head. The first that fits decides.
  static constexpr Kind kKinds[] = {
      {"coor_names", ""},
      {"coord", ""},
      {"node_num_map", ""},
      {"elem_num_map", ""},
      {"connect", ""},
      {"attrib_name", ""},
      {"attrib", ""},
      {"eb_prop1", ""},
      {"ns_prop1", ""},
      {"ss_prop1", ""},
      {"els_prop1", ""},
      {"eb_status", ""},
      {"ns_status", ""},
      {"ss_status", ""},
      {"els_status", ""},
      {"eb_names", ""},
      {"ns_names", ""},
      {"ss_names", ""},
      {"els_names", ""},
      {"node_ns", ""},
      {"elem_els", ""},
      {"elem_ss", ""},
      {"side_ss", ""},
      {"time_whole", ""},
      {"name_nod_var", ""},
      {"name_elem_var", ""},
      {"vals_nod_var", ""},
      {"vals_elem_var", ""},
      {"elem_var_tab", ""},
      {"qa_records", ""},
      {"info_records", ""},
      {"eb_prop", "further properties of blocks and sets were left out"},
      {"ns_prop", "further properties of blocks and sets were left out"},
      {"ss_prop", "further properties of blocks and sets were left out"},
      {"els_prop", "further properties of blocks and sets were left out"},
      {"vals_glo_var", "variables of the whole mesh were left out"},
      {"name_glo_var", ""},
      {"vals_nset_var", "variables of node sets were left out"},
      {"name_nset_var", ""},
      {"nset_var_tab", ""},
      {"vals_sset_var", "variables of side sets were left out"},
      {"name_sset_var", ""},
      {"sset_var_tab", ""},
      {"ebconn", "blocks of edges were left out"},
      {"fbconn", "blocks of faces were left out"},
      {"node_map", "further numberings of nodes were left out"},
      {"elem_map", "further numberings of elements were left out"},
  };
  for (const Kind& kind : kKinds) {
    if (variable.starts_with(kind.head)) return kind.loss;
  }
  return "arrays of the file were left out";
}

}  // namespace qx::exchange
