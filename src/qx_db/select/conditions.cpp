#include "qx_db/select/conditions.h"

#include <algorithm>
#include <fmt/format.h>

#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/record/element_types.h"
#include "qx_db/record/set_rule_record.h"
#include "qx_db/select/type_words.h"

namespace qx::select {
namespace {

constexpr std::string_view kRecords = "by key and kind";
constexpr std::string_view kMembers = "by what lists them";
constexpr std::string_view kPlaces = "by place";
constexpr std::string_view kMeasured = "by measure";
constexpr std::string_view kNeighbours = "by what is around";
constexpr std::string_view kOther = "from one kind to another";

constexpr Kinds kN = kNodeKind, kE = kElementKind, kF = kFaceKind;
constexpr SelectKind kPreferNodes = SelectKind::kNodes, kPreferElements = SelectKind::kElements;

constexpr Condition kRows[] = {
    {kRecords, "all", kN | kE | kF, "everything there is", "all", MarkAll},
    {kRecords, "keys KEYS", kN | kE | kF,
     "nodes or elements by key; faces by element and number, as 17.3; the word may be left out",
     "keys 1,5,10:20,100:200:2", MarkKeys},
    {kRecords, "TYPE", kE | kF, "elements by type, shape, dimension or order", "hex8 or tet",
     MarkTypes},
    {kRecords, "type KEYS", kE | kF, "elements by the code of their type, as special ones have it",
     "type 46,47", MarkTypeCodes},

    {kMembers, "set NAMES [with children]", kN | kE | kF,
     "what mesh sets list, those below them too when asked for", "set \"left side\" with children",
     MarkSets},
    {kMembers, "active-set NAMES", kE | kF, "what active element sets list", "active-set any",
     MarkActiveSets},
    {kMembers, "orphan", kN | kE | kF, "what no mesh set lists", "orphan", MarkOrphans},
    {kMembers, "property NAMES", kE | kF, "elements of properties; none: without one",
     "property 3,skin", MarkProperties},
    {kMembers, "material NAMES", kE | kF,
     "elements whose property uses materials; none: those without one", "material steel",
     MarkMaterials},
    {kMembers, "geometry NAMES", kN | kE | kF,
     "what was meshed on geometry, by its mesh sets and the records of the mesher", "geometry any",
     MarkGeometry},

    {kPlaces, "box POINT POINT [in SYSTEM]", kN | kE | kF,
     "between two corners; in a system between two values of each of its coordinates",
     "box 0,0,0 10mm,10mm,2mm", MarkBox},
    {kPlaces, "sphere POINT LENGTH [in SYSTEM]", kN | kE | kF, "about a centre, within a radius",
     "sphere 0,0,0 5mm", MarkSphere},
    {kPlaces, "cylinder POINT POINT LENGTH [in SYSTEM]", kN | kE | kF,
     "about the line between two points, within a radius, not beyond its ends",
     "cylinder 0,0,0 0,0,1 5mm", MarkCylinder},
    {kPlaces, "above POINT DIRECTION [in SYSTEM]", kN | kE | kF,
     "on a plane through a point, or on the side to which its normal points", "above 0,0,5mm 0,0,1",
     MarkAbove},
    {kPlaces, "below POINT DIRECTION [in SYSTEM]", kN | kE | kF,
     "on the plane, or on its other side", "below 0,0,5mm 0,0,1", MarkBelow},
    {kPlaces, "AXIS LIMIT [in SYSTEM]", kN | kE | kF,
     "by one coordinate; in a system its first, second or third", "z >= 5mm and x = 0",
     MarkCoordinate},

    {kMeasured, "MEASURE LIMIT", kE | kF,
     "elements by a measure of their shape; what has no such measure is not selected",
     "aspect-ratio > 5", MarkMeasure},
    {kMeasured, "SIZE LIMIT", kE | kF,
     "lines by length, surfaces by area, solids by volume, from their corners", "volume < 0",
     MarkSize},

    {kNeighbours, "surface", kN | kE | kF,
     "free faces of solids, and surface elements; elements that have one; the nodes of them",
     "nodes surface", MarkSurface},
    {kNeighbours, "free-edges", kN | kE,
     "surface elements with an edge that no other has; its nodes", "nodes free-edges",
     MarkFreeEdges},
    {kNeighbours, "used", kN, "nodes that an element has", "used", MarkUsed},
    {kNeighbours, "unused", kN, "nodes that no element has", "unused", MarkUnused},
    {kNeighbours, "within COUNT rings of (SELECTION)", kN | kE,
     "a selection and its neighbours, those that share a node, so many times over",
     "within 2 rings of (keys 17)", MarkRings},
    {kNeighbours, "connected to (SELECTION)", kN | kE,
     "all that hangs together with a selection by nodes, through elements that have all theirs",
     "connected to (keys 17)", MarkConnected},
    {kNeighbours, "spread ANGLE from (SELECTION)", kF,
     "faces of the surface reached from some, over edges at which it bends by no more",
     "spread 30deg from (17.3)", MarkSpread},
    {kNeighbours, "facing DIRECTION ANGLE", kF,
     "faces whose normal is within an angle of a direction", "faces surface and facing 0,0,1 10deg",
     MarkFacing},

    {kOther, "nodes of (SELECTION)", kN, "the nodes of elements or of faces", "nodes of (hex8)",
     MarkNodesOf, kE | kF, kPreferElements},
    {kOther, "elements of (SELECTION)", kE,
     "elements all of whose nodes are selected; those that have selected faces",
     "elements of (nodes surface)", MarkElementsOf, kN | kF, kPreferNodes},
    {kOther, "elements touching (SELECTION)", kE,
     "elements any of whose nodes is selected, or a node of what is",
     "elements touching (nodes surface)", MarkElementsTouching, kN | kE | kF, kPreferNodes},
    {kOther, "faces of (SELECTION)", kF,
     "all faces of elements; faces all of whose nodes are selected", "faces of (keys 17)",
     MarkFacesOf, kN | kE, kPreferElements},
};

struct Family {
  std::string_view name;
  std::vector<std::string> (*words)();
  std::string_view what;
};

std::vector<std::string> MeasureWords() {
  std::vector<std::string> words;
  for (const MeasureInfo& info : Measures()) words.emplace_back(info.name);
  return words;
}
std::vector<std::string> SizeWords() { return {"length", "area", "volume"}; }
std::vector<std::string> AxisWords() { return {"x", "y", "z"}; }

constexpr Family kFamilies[] = {
    {"TYPE", TypeWords, ""},
    {"AXIS", AxisWords, ""},
    {"MEASURE", MeasureWords, "a measure of qxdb check: "},
    {"SIZE", SizeWords, ""},
};

struct Argument {
  std::string_view name;
  std::string_view what;
};
constexpr Argument kArguments[] = {
    {"KEYS", "1,5,10:20,100:200:2: keys, ranges and every so many of a range; 7-9 and 300- too"},
    {"NAMES",
     "keys and names, apart by commas; names of several words in double quotes; any: all "
     "there are"},
    {"POINT", "x,y,z: three lengths"},
    {"DIRECTION", "x,y,z: three numbers, of any length but 0"},
    {"LENGTH", "a number in the length unit that info shows, or with a unit of its own: 10mm"},
    {"ANGLE", "a number in degrees, or with a unit of its own: 0.5rad"},
    {"LIMIT", "< <= > >= = or != and a number, with a unit where it has one: < 5mm3"},
    {"COUNT", "a whole number"},
    {"SYSTEM", "the key of a coordinate system"},
    {"SELECTION", "a selection of its own, such as all this page tells of"},
};

const Family* FamilyOf(std::string_view head) {
  const auto* const at = std::find_if(std::begin(kFamilies), std::end(kFamilies),
                                      [&](const Family& each) { return each.name == head; });
  return at == std::end(kFamilies) ? nullptr : at;
}

std::string KindsText(Kinds kinds) {
  std::string text;
  for (const SelectKind kind : {SelectKind::kNodes, SelectKind::kElements, SelectKind::kFaces}) {
    if ((kinds & BitOf(kind)) == 0) continue;
    text += (text.empty() ? "" : ", ") + std::string(NameOf(kind));
  }
  return text;
}

std::string JoinedWords(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

}  // namespace

std::span<const Condition> ConditionRows() { return kRows; }

std::vector<std::string_view> WordsOf(std::string_view syntax) {
  std::vector<std::string_view> words;
  while (!syntax.empty()) {
    const std::size_t end = std::min(syntax.find(' '), syntax.size());
    words.push_back(syntax.substr(0, end));
    syntax.remove_prefix(std::min(end + 1, syntax.size()));
  }
  return words;
}

std::vector<std::string> HeadsOf(const Condition& condition) {
  const std::string_view head = condition.syntax.substr(0, condition.syntax.find(' '));
  const Family* const family = FamilyOf(head);
  return family ? family->words() : std::vector<std::string>{std::string(head)};
}

bool LooksAtOne(const Term& term, std::vector<std::uint16_t>& pools) {
  if (term.kind == SelectKind::kFaces) return false;
  if (term.op != Term::Op::kCondition) {
    return std::all_of(term.parts.begin(), term.parts.end(),
                       [&](const Term& part) { return LooksAtOne(part, pools); });
  }
  struct OfOne {
    Evaluate evaluate;
    std::uint16_t pools[2];
  };
  constexpr OfOne kOfOne[] = {
      {MarkAll, {}},
      {MarkKeys, {}},
      {MarkTypes, {}},
      {MarkTypeCodes, {}},
      {MarkSets, {code::kMset, code::kSetRule}},
      {MarkActiveSets, {code::kActiveElemSet}},
      {MarkProperties, {code::kProp}},
      {MarkMaterials, {code::kProp, code::kMatl}},
      {MarkBox, {}},
      {MarkSphere, {}},
      {MarkCylinder, {}},
      {MarkAbove, {}},
      {MarkBelow, {}},
      {MarkCoordinate, {}},
  };
  if (term.arguments.system != 0) return false;  // nodes and elements may define one
  for (const OfOne& row : kOfOne) {
    if (row.evaluate != term.condition->evaluate) continue;
    for (const std::uint16_t pool : row.pools) {
      if (pool != 0) pools.push_back(pool);
    }
    return true;
  }
  return false;
}

Outcome Mark(const MeshView& mesh, const Term& term, Marks& marks) {
  marks = mesh.None(term.kind);
  if (term.op == Term::Op::kCondition) return term.condition->evaluate(mesh, term, marks);
  for (std::size_t i = 0; i < term.parts.size(); ++i) {
    if (i == 0) {
      if (Outcome marked = Mark(mesh, term.parts[0], marks); !marked) return marked;
      continue;
    }
    Marks more;
    if (Outcome marked = Mark(mesh, term.parts[i], more); !marked) return marked;
    if (term.op == Term::Op::kAnd) {
      marks &= more;
    } else {
      marks |= more;
    }
  }
  if (term.op == Term::Op::kNot) marks.Complement(mesh.All(term.kind));
  return {};
}

}  // namespace qx::select

namespace qx {

using namespace select;

std::vector<ConditionInfo> Conditions() {
  std::vector<ConditionInfo> all;
  for (const Condition& row : ConditionRows()) {
    all.push_back({row.group, row.syntax, row.what, row.example, KindsText(row.kinds)});
  }
  return all;
}

std::vector<std::pair<std::string_view, std::string>> ConditionArguments() {
  std::vector<std::pair<std::string_view, std::string>> all;
  for (const Family& family : kFamilies) {
    all.emplace_back(family.name, std::string(family.what) + JoinedWords(family.words()));
  }
  for (const Argument& argument : kArguments) {
    all.emplace_back(argument.name, std::string(argument.what));
  }
  return all;
}

std::vector<std::string> ConditionWords() {
  std::vector<std::string> words;
  for (const Condition& row : ConditionRows()) {
    for (std::string& word : HeadsOf(row)) {
      if (std::find(words.begin(), words.end(), word) == words.end()) {
        words.push_back(std::move(word));
      }
    }
  }
  return words;
}

std::string ConditionTable() {
  std::string text = "| condition | selects | meaning | example |\n| --- | --- | --- | --- |\n";
  for (const ConditionInfo& each : Conditions()) {
    text += fmt::format("| `{}` | {} | {} | `{}` |\n", each.syntax, each.selects, each.what,
                        each.example);
  }
  text += "\n| in capitals | meaning |\n| --- | --- |\n";
  for (const auto& [name, what] : ConditionArguments()) {
    text += fmt::format("| `{}` | {} |\n", name, what);
  }
  return text;
}

std::string ConditionHelp() {
  std::string text;
  std::string_view group;
  for (const ConditionInfo& each : Conditions()) {
    if (each.group != group) text += fmt::format("{}{}:\n", text.empty() ? "" : "\n", each.group);
    group = each.group;
    text += fmt::format("  {}\n      {}\n", each.syntax, each.what);
  }
  text += "\nin capitals:\n";
  for (const auto& [name, what] : ConditionArguments()) {
    text += fmt::format("  {}\n      {}\n", name, what);
  }
  return text;
}

}  // namespace qx
