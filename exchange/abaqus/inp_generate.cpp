// Nodes and elements that keywords generate from others.

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <numbers>

#include "qx_db/record/element_types.h"

#include "exchange/abaqus/inp_parser.h"

namespace qx::exchange {
namespace {

/// Generated things for each byte of a deck, and in any deck: what is above is a slip of the pen.
constexpr std::uint64_t kMostPerByte = 1000;
constexpr std::uint64_t kMostInAny = 2'000'000;

}  // namespace

bool InpParser::MayGenerate(std::int64_t count, std::size_t line) {
  generated_ += static_cast<std::uint64_t>(std::max<std::int64_t>(count, 0));
  if (generated_ <= kMostInAny + kMostPerByte * text_.Text().size()) return true;
  Fault(line, fmt::format("it generates {} nodes or elements, too many for such a deck", count),
        "correct the numbers");
  return false;
}

Key InpParser::Generated(std::int64_t number, std::size_t line, const char* of_what) {
  if (number > 0 && number <= kMaxKey) return static_cast<Key>(number);
  Fault(line,
        fmt::format("it generates {} {}, which is not between 1 and {}", of_what, number, kMaxKey),
        "correct the numbers");
  return 0;
}

void InpParser::AddGenerated(std::int64_t number, const Vector3& point, std::size_t line) {
  AddNode(Generated(number, line, "node"), point, {line, 0});
}

/// n1, n2, step: nodes between two on a line, or on an arc or a parabola through a third point.
void InpParser::GenerateNodes() {
  const auto shape = Parameter("LINE");
  const char kind = shape && !shape->empty() ? InpLabel(*shape)[0] : 'L';
  const InpInput input = model_.inputs[GivenInput()];
  BeginNodeRun();
  const std::size_t first = Scope().numbers.size();
  InpLines lines = Lines();
  while (lines.Next() && GoesOn()) {
    const auto fields = lines.Fields();
    const std::size_t line = lines.Begin();
    if (fields.size() < 2) {
      Fault(line, "it needs two nodes", "complete it");
      continue;
    }
    const Key low = Number(fields[0], line, "a node");
    const Key high = Number(fields[1], line, "a node");
    const Key step =
        fields.size() > 2 && !fields[2].empty() ? Number(fields[2], line, "a step") : 1;
    if (low == 0 || high == 0 || step == 0) continue;
    const std::size_t at_low = Scope().nodes.Find(low);
    const std::size_t at_high = Scope().nodes.Find(high);
    if (at_low == kNoPlace || at_high == kNoPlace) {
      Fault(line, fmt::format("node {} is not there", at_low == kNoPlace ? low : high),
            "add it before");
      continue;
    }
    const std::int64_t span = std::abs(std::int64_t{high} - low);
    const std::int64_t sign = high < low ? -1 : 1;
    if (span % step != 0) {
      Fault(line, fmt::format("steps of {} do not lead from {} to {}", step, low, high),
            "correct the step");
      continue;
    }
    const std::int64_t count = span / step;
    if (!MayGenerate(count, line)) continue;
    const Vector3 a = Scope().Point(at_low);
    const Vector3 b = Scope().Point(at_high);
    Vector3 extra;
    if (kind != 'L') {
      extra = input.To(VectorAt(fields, 4, line));
      if (fields.size() > 3 && !fields[3].empty()) {
        const Key node = Number(fields[3], line, "a node");
        const std::size_t at = Scope().nodes.Find(node);
        if (at == kNoPlace) {
          if (node > 0) Fault(line, fmt::format("node {} is not there", node), "add it before");
          continue;
        }
        extra = Scope().Point(at);
      }
    }
    const Vector3 from = a - extra;
    const Vector3 to = b - extra;
    Vector3 normal = Cross(from, to);
    double angle = 0;
    if (kind == 'C') {
      const Vector3 given = VectorAt(fields, 7, line);
      angle = std::atan2(Length(normal), Dot(from, to));
      if (Length(given) > 0) {
        if (Dot(given, normal) < 0) angle = 2 * std::numbers::pi - angle;
        normal = given;
      }
      if (angle <= 0 && Length(given) > 0) angle = 2 * std::numbers::pi;
      if (!(Length(normal) > 0)) {
        Fault(line, "the arc has no plane", "give its normal");
        continue;
      }
    }
    for (std::int64_t k = 1; k < count && !IsFull(); ++k) {
      const double t = static_cast<double>(k) / static_cast<double>(count);
      Vector3 point = (1 - t) * a + t * b;
      if (kind == 'P') {
        point = (2 * (t - 0.5) * (t - 1)) * a + (4 * t * (1 - t)) * extra + (2 * t * (t - 0.5)) * b;
      } else if (kind == 'C') {
        InpFrame turn;
        InpRotation({}, {}, normal, t * angle * 180 / std::numbers::pi, turn);
        const double radius = (1 - t) * Length(from) + t * Length(to);
        point = extra + (radius / Length(from)) * turn.To(from);
      }
      AddGenerated(low + sign * k * step, point, line);
    }
  }
  AddToParameterSet("NSET", Kind::kNodes, first);
  // The ends are part of the set as well.
  const auto name = Parameter("NSET");
  if (!name || name->empty()) return;
  const std::size_t set = SetOf(Kind::kNodes, *name);
  InpLines again = Lines();
  while (again.Next() && !IsFull()) {
    for (std::size_t i = 0; i < 2 && i < again.Fields().size(); ++i) {
      const Key node = Number(again.Fields()[i], again.Begin(), "a node");
      if (node > 0 && Scope().nodes.Find(node) != kNoPlace) {
        model_.sets[set].members.push_back({node});
      }
    }
  }
}

/// set, set, intervals, step: nodes on lines between the nodes of two sets, pair by pair.
void InpParser::FillNodes() {
  if (Parameter("SINGULAR") || Parameter("TWOSTEP")) {
    return Fault(block_->begin, "SINGULAR and TWO STEP are not known here", "write the nodes out");
  }
  const auto given_bias = Parameter("BIAS");
  const double bias = given_bias && !given_bias->empty() ? Real(*given_bias, block_->begin) : 1;
  if (!(bias > 0)) return Fault(block_->begin, "BIAS is not above 0", "correct it");
  BeginNodeRun();
  const std::size_t first = Scope().numbers.size();
  InpLines lines = Lines();
  while (lines.Next() && GoesOn()) {
    const auto fields = lines.Fields();
    const std::size_t line = lines.Begin();
    if (fields.size() < 3) {
      Fault(line, "it needs two sets and a number of intervals", "complete it");
      continue;
    }
    std::vector<InpMember> ends[2];
    for (std::size_t i = 0; i < 2; ++i) {
      std::int32_t instance = -1;
      const std::size_t set = FindSet(Kind::kNodes, fields[i], instance);
      if (set != kNoPlace && instance < 0 && model_.sets[set].scope == scope_) {
        Compact(model_.sets[set]);
        ends[i] = model_.sets[set].members;
      } else if (const auto number = DeckInteger(fields[i]);
                 number && *number > 0 && *number <= kMaxKey) {
        ends[i].push_back({static_cast<Key>(*number)});
      } else {
        Fault(line, fmt::format("node set '{}' is not there", fields[i]), "add it before");
      }
    }
    if (ends[0].empty() || ends[1].empty()) continue;
    if (ends[0].size() != ends[1].size()) {
      Fault(line, fmt::format("the sets have {} and {} nodes", ends[0].size(), ends[1].size()),
            "make them equal");
      continue;
    }
    const Key intervals = Number(fields[2], line, "intervals");
    const Key step =
        fields.size() > 3 && !fields[3].empty() ? Number(fields[3], line, "a step") : 1;
    if (intervals == 0 || step == 0) continue;
    if (!MayGenerate(static_cast<std::int64_t>(ends[0].size()) * intervals, line)) continue;
    double whole = 0;
    for (Key k = 0; k < intervals; ++k) whole += std::pow(bias, -k);
    for (std::size_t i = 0; i < ends[0].size() && !IsFull(); ++i) {
      const std::size_t a = Scope().nodes.Find(ends[0][i].number);
      const std::size_t b = Scope().nodes.Find(ends[1][i].number);
      if (a == kNoPlace || b == kNoPlace) {
        Fault(line, "a node of its sets is not there", "add it before");
        break;
      }
      const Vector3 from = Scope().Point(a);
      const Vector3 to = Scope().Point(b);
      double done = 0;
      for (Key k = 1; k < intervals && !IsFull(); ++k) {
        done += std::pow(bias, -(k - 1));
        const double t = bias == 1   ? static_cast<double>(k) / intervals
                         : whole > 0 ? done / whole
                                     : 0;
        AddGenerated(std::int64_t{ends[0][i].number} + std::int64_t{k} * step,
                     (1 - t) * from + t * to, line);
      }
    }
  }
  AddToParameterSet("NSET", Kind::kNodes, first);
}

/// The set that the block's OLD SET names; kNoPlace, and a fault, where the scope has none.
std::size_t InpParser::CopiedSet(Kind kind) {
  const std::string old = Required("OLDSET");
  std::int32_t instance = -1;
  const std::size_t set = FindSet(kind, old, instance);
  if (set != kNoPlace && instance < 0 && model_.sets[set].scope == scope_) return set;
  if (!old.empty()) {
    Fault(block_->begin,
          fmt::format("{} set '{}' is not there", kind == Kind::kNodes ? "node" : "element", old),
          "add it before");
  }
  return kNoPlace;
}

/// Nodes of a set moved, turned or reflected, with other numbers.
void InpParser::CopyNodes() {
  const std::size_t set = CopiedSet(Kind::kNodes);
  if (set == kNoPlace) return;
  const Key change = Number(Required("CHANGENUMBER"), block_->begin, "a change");
  const auto times = Parameter("MULTIPLE");
  const Key multiple = times && !times->empty() ? Number(*times, block_->begin, "copies") : 1;
  std::vector<Vector3> points;
  double angle = 0;
  InpLines lines = Lines();
  for (std::size_t line = 0; lines.Next() && line < 2; ++line) {
    const auto fields = lines.Fields();
    points.push_back(VectorAt(fields, 0, lines.Begin()));
    if (fields.size() > 3) points.push_back(VectorAt(fields, 3, lines.Begin()));
    if (line == 1 && fields.size() > 6 && Parameter("SHIFT")) {
      angle = RealAt(fields, 6, lines.Begin());
    }
  }
  const std::size_t needed = points.size();
  points.resize(std::max<std::size_t>(needed, 4));
  InpFrame step;
  Vector3 mirror;  // unit normal of the plane to reflect in
  bool through_point = false;
  const auto reflect = Parameter("REFLECT");
  if (Parameter("SHIFT")) {
    step.is_identity = false;
    step.origin = points[0];
    if (angle != 0 && !InpRotation(points[0], points[1], points[2], angle, step)) {
      return Fault(block_->begin, "the two points of its axis are one", "correct them");
    }
  } else if (reflect && InpLabel(*reflect) == "LINE") {
    if (!InpRotation({}, points[0], points[1], 180, step)) {
      return Fault(block_->begin, "the two points of its line are one", "correct them");
    }
  } else if (reflect && InpLabel(*reflect) == "MIRROR") {
    const Vector3 normal = Cross(points[1] - points[0], points[2] - points[0]);
    if (!(Length(normal) > 0)) {
      return Fault(block_->begin, "the three points of its plane lie on a line", "correct them");
    }
    mirror = (1 / Length(normal)) * normal;
  } else if (reflect && InpLabel(*reflect) == "POINT") {
    through_point = true;
  } else {
    return Fault(block_->begin, "it has neither SHIFT nor REFLECT=LINE, MIRROR or POINT",
                 "add one");
  }
  if (change == 0 || multiple == 0) return;
  const std::vector<InpMember> members = model_.sets[set].members;
  if (!MayGenerate(static_cast<std::int64_t>(members.size()) * multiple, block_->begin)) return;
  BeginNodeRun();
  const std::size_t first = Scope().numbers.size();
  for (const InpMember& member : members) {
    const std::size_t at = Scope().nodes.Find(member.number);
    if (at == kNoPlace || IsFull()) continue;
    Vector3 point = Scope().Point(at);
    for (Key k = 1; k <= multiple; ++k) {
      if (through_point) {
        point = 2 * points[0] - point;
      } else if (Length(mirror) > 0) {
        point = point - 2 * Dot(point - points[0], mirror) * mirror;
      } else {
        point = step.To(point);
      }
      AddGenerated(std::int64_t{member.number} + std::int64_t{k} * change, point, block_->begin);
    }
  }
  AddToParameterSet("NEWSET", Kind::kNodes, first);
}

// ---- elements -----------------------------------------------------------------------------------

void InpParser::CopyElement(std::size_t element, std::int64_t number, std::int64_t node_shift,
                            bool is_reflected, std::size_t line) {
  const InpElement of = Scope().elements[element];
  const std::size_t count = InpModel::NodesOf(of);
  std::array<InpMember, 32> nodes{};
  for (std::size_t i = 0; i < count; ++i) {
    nodes[i].number = Scope().connectivity[of.first + i];
    if (scope_ == 1) nodes[i].instance = Scope().instances[of.first + i];
    if (nodes[i].number > 0 && node_shift != 0) {
      nodes[i].number = Generated(nodes[i].number + node_shift, line, "node");
    }
  }
  if (is_reflected && (of.type == element::kTri3 || of.type == element::kQuad4)) {
    std::reverse(nodes.begin() + 1, nodes.begin() + static_cast<std::ptrdiff_t>(count));
  } else if (is_reflected && (of.type == element::kHex8 || of.type == element::kWedge6)) {
    const auto half = static_cast<std::ptrdiff_t>(count / 2);
    std::reverse(nodes.begin() + 1, nodes.begin() + half);
    std::reverse(nodes.begin() + half + 1, nodes.begin() + 2 * half);
  } else if (is_reflected && of.type == element::kTet4) {
    std::swap(nodes[1], nodes[2]);
  } else if (is_reflected && FindElementType(of.type)->dimension > 1) {
    return Fault(line, "quadratic elements are not reflected here", "write the elements out");
  }
  AddElement(Generated(number, line, "element"), of.type, of.type_name,
             std::span(nodes).first(count), {line, 0});
}

/// element, then number, node step and element step of a row, of rows, and of layers.
void InpParser::GenerateElements() {
  BeginElementRun();
  const std::size_t first = Scope().elements.size();
  std::vector<Key> masters;
  InpLines lines = Lines();
  while (lines.Next() && GoesOn()) {
    const auto fields = lines.Fields();
    const std::size_t line = lines.Begin();
    const Key master = Number(fields[0], line, "an element");
    const std::size_t at = Scope().element_index.Find(master);
    if (at == kNoPlace) {
      if (master > 0) Fault(line, fmt::format("element {} is not there", master), "add it before");
      continue;
    }
    std::array<std::int64_t, 9> row{1, 1, 1, 1, 1, 1, 1, 1, 1};
    bool is_good = true;
    for (std::size_t i = 0; i < 9 && i + 1 < fields.size(); ++i) {
      if (fields[i + 1].empty()) continue;
      const auto number = DeckInteger(fields[i + 1]);
      const bool fits = number && std::abs(*number) <= kMaxKey && (i % 3 != 0 || *number > 0);
      if (!fits) Fault(line, fmt::format("'{}' is no count or step", fields[i + 1]), "correct it");
      is_good = is_good && fits;
      if (fits) row[i] = *number;
    }
    if (!is_good) continue;
    const bool is_small = row[0] < kMaxKey / row[3] && row[0] * row[3] < kMaxKey / row[6];
    if (!is_small || !MayGenerate(row[0] * row[3] * row[6], line)) {
      if (!is_small) Fault(line, "it generates too many elements", "correct the numbers");
      continue;
    }
    masters.push_back(master);
    for (std::int64_t layer = 0; layer < row[6]; ++layer) {
      for (std::int64_t r = 0; r < row[3]; ++r) {
        for (std::int64_t i = 0; i < row[0] && !IsFull(); ++i) {
          if (layer == 0 && r == 0 && i == 0) continue;
          CopyElement(at, master + i * row[2] + r * row[5] + layer * row[8],
                      i * row[1] + r * row[4] + layer * row[7], false, line);
        }
      }
    }
  }
  AddToParameterSet("ELSET", Kind::kElements, first);
  const auto name = Parameter("ELSET");
  if (!name || name->empty()) return;
  auto& members = model_.sets[SetOf(Kind::kElements, *name)].members;
  for (const Key master : masters) members.push_back({master});
}

void InpParser::CopyElements() {
  const std::size_t set = CopiedSet(Kind::kElements);
  if (set == kNoPlace) return;
  const Key shift = Number(Required("ELEMENTSHIFT"), block_->begin, "a change");
  const std::string given = Required("SHIFTNODES");
  const auto nodes = DeckInteger(given);
  if (!nodes || std::abs(*nodes) > kMaxKey) {
    return Fault(block_->begin, fmt::format("'{}' is no change of nodes", given), "correct it");
  }
  if (shift == 0) return;
  const std::vector<InpMember> members = model_.sets[set].members;
  if (!MayGenerate(static_cast<std::int64_t>(members.size()), block_->begin)) return;
  BeginElementRun();
  const std::size_t first = Scope().elements.size();
  for (const InpMember& member : members) {
    const std::size_t at = Scope().element_index.Find(member.number);
    if (at == kNoPlace || IsFull()) continue;
    CopyElement(at, std::int64_t{member.number} + shift, *nodes, Parameter("REFLECT").has_value(),
                block_->begin);
  }
  AddToParameterSet("NEWSET", Kind::kElements, first);
}

}  // namespace qx::exchange
