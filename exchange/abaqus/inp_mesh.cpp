// Nodes, elements, sets and surfaces of a deck.

#include <algorithm>
#include <fmt/format.h>

#include "qx_db/mesh/topology_table.h"
#include "qx_db/model/coordinate_pool.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

#include "exchange/abaqus/inp_parser.h"

namespace qx::exchange {
namespace {

/// Side of an element of a type that a surface names: S1 to S6, E1 to E4, SPOS, SNEG, END1, END2.
/// Shells have a bottom and a top before their edges where those are named S1 and S2.
std::optional<std::int32_t> SideOf(std::string_view name, const ElementType& type, bool is_shell) {
  if (name.empty() || name == "SPOS") return kInpTop;
  if (name == "SNEG") return kInpBottom;
  const bool is_end = name.starts_with("END");
  const std::string_view digits = name.substr(is_end ? 3 : 1);
  const bool is_known = is_end || name[0] == 'S' || name[0] == 'E';
  if (!is_known || digits.size() != 1 || !IsInpNumber(digits)) return std::nullopt;
  std::int32_t side = digits[0] - '1';
  if (is_shell && name[0] == 'S') {
    if (side < 2) return side == 0 ? kInpBottom : kInpTop;
    side -= 2;
  }
  const ElementTopology topology(type.code);
  return side < topology.Sides() ? std::optional(side) : std::nullopt;
}

}  // namespace

// ---- nodes --------------------------------------------------------------------------------------

void InpParser::BeginNodeRun() { Scope().node_runs.push_back({Scope().numbers.size(), at_, 0}); }

void InpParser::BeginElementRun() {
  Scope().element_runs.push_back({Scope().elements.size(), at_, 0});
}

void InpParser::AddNode(Key number, const Vector3& point, InpSpot spot) {
  InpScope& scope = Scope();
  if (number <= 0) return;
  if (!scope.nodes.Add(number, scope.numbers.size())) {
    return Fault(spot.at, fmt::format("node {} is there twice", number), "remove one");
  }
  if (!IsFinite(point)) {
    return Fault(spot.at, fmt::format("node {} is too far away", number), "correct its place");
  }
  scope.numbers.push_back(number);
  scope.points.insert(scope.points.end(), {point.x, point.y, point.z});
  scope.node_at.push_back(spot);
}

/// Index of the input that the block's coordinates are given in: that of *SYSTEM, in the
/// coordinates that SYSTEM= of the block itself tells.
std::size_t InpParser::GivenInput() {
  const auto system = Parameter("SYSTEM");
  if (!system || system->empty()) return input_;
  const std::string label = InpLabel(*system);
  const std::int32_t type = label.starts_with('C')   ? tagTCord::kCylindrical
                            : label.starts_with('S') ? tagTCord::kSpherical
                                                     : tagTCord::kRectangular;
  if (type == tagTCord::kRectangular) return input_;
  if (type == tagTCord::kSpherical) {
    model_.report.Assumed(
        "the third spherical coordinate of nodes is their angle from the equator");
  }
  model_.inputs.push_back({type, model_.inputs[input_].frame});
  return model_.inputs.size() - 1;
}

void InpParser::ReadNodes() {
  const std::size_t input = GivenInput();
  BeginNodeRun();
  Scope().node_runs.back().input = input;
  const std::size_t first = Scope().numbers.size();
  const InpInput in = model_.inputs[input];
  const bool is_plain = in.type == 0 && in.frame.is_identity;
  InpLines lines = Lines();
  while (lines.Next() && GoesOn()) {
    const auto fields = lines.Fields();
    const Key number = Number(fields[0], lines.Begin(), "a node");
    const Vector3 given = VectorAt(fields, 1, lines.Begin());
    AddNode(number, is_plain ? given : in.To(given),
            {lines.Begin(), static_cast<std::uint32_t>(lines.End() - lines.Begin())});
  }
  AddToParameterSet("NSET", Kind::kNodes, first);
}

void InpParser::ReadSystem() {
  InpLines lines = Lines();
  std::vector<double> numbers;
  while (lines.Next() && numbers.size() < 9) {
    const auto fields = lines.Fields();
    for (std::size_t i = 0; i < fields.size(); ++i) {
      numbers.push_back(Real(fields[i], lines.Begin()));
    }
  }
  input_ = 0;
  if (numbers.empty()) return;
  const std::size_t given = numbers.size();
  numbers.resize(9);
  const Vector3 origin(&numbers[0]);
  InpInput input;
  input.frame.origin = origin;
  input.frame.is_identity = origin == Vector3();
  if (given > 3) {
    const Vector3 along = Vector3(&numbers[3]) - origin;
    // Without a third point the system is turned about the global z axis.
    const Vector3 flat{along.x, along.y, 0};
    const Vector3 in_plane =
        given > 6 ? Vector3(&numbers[6]) - origin : Vector3{-flat.y, flat.x, 0};
    if (!InpFrameOf(origin, given > 6 ? along : flat, in_plane, input.frame)) {
      return Fault(block_->begin, "its points are one or lie on a line", "correct them");
    }
  }
  model_.inputs.push_back(input);
  input_ = model_.inputs.size() - 1;
}

// ---- elements -----------------------------------------------------------------------------------

/// A node by its number, or in the assembly as Instance.number or as a set of one node.
InpMember InpParser::NodeOf(std::string_view field, std::size_t line) {
  if (IsInpNumber(field) || scope_ != 1) return {Number(field, line, "a node")};
  const std::size_t point = field.rfind('.');
  if (point != std::string_view::npos && IsInpNumber(field.substr(point + 1))) {
    const std::int32_t instance = FindInstance(field.substr(0, point));
    if (instance >= 0) return {Number(field.substr(point + 1), line, "a node"), instance};
  }
  std::int32_t instance = -1;
  const std::size_t set = FindSet(Kind::kNodes, field, instance);
  if (set != kNoPlace && model_.sets[set].members.size() == 1) {
    InpMember member = model_.sets[set].members[0];
    if (member.instance < 0) member.instance = instance;
    return member;
  }
  return {Number(field, line, "a node")};
}

void InpParser::ReadElements() {
  const std::string name = Required("TYPE");
  const std::string label = AsciiUpper(name);
  const auto type = FindInpElement(label);
  BeginElementRun();
  InpScope& scope = Scope();
  const std::size_t first = scope.elements.size();
  if (!type) {
    if (!name.empty()) ++unknown_types_[label];
    if (!name.empty()) --unknown_types_[label];
    InpLines lines = Lines();
    for (bool goes_on = false; lines.Next(); goes_on = lines.GoesOn()) {
      const auto number = DeckInteger(lines.Fields()[0]);
      if (goes_on || !number || *number < 1 || *number > kMaxKey) continue;
      scope.unknown_elements.insert(static_cast<Key>(*number));
      ++unknown_types_[label];
    }
    return AddToParameterSet("ELSET", Kind::kElements, first);
  }
  const auto [known, is_new] = type_names_.emplace(label, model_.type_names.size());
  if (is_new) model_.type_names.push_back(name);
  const auto ours = static_cast<std::size_t>(FindElementType(type->type)->nodes);
  const auto type_name = static_cast<std::int32_t>(known->second);
  std::array<InpMember, 32> nodes{};
  InpLines lines = Lines();
  while (lines.Next() && GoesOn()) {
    const std::size_t begin = lines.Begin();
    const Key number = Number(lines.Fields()[0], begin, "an element");
    std::size_t count = 0;
    std::size_t from = 1;
    for (;;) {
      const auto fields = lines.Fields();
      for (std::size_t i = from; i < fields.size() && count < type->most_nodes; ++i) {
        const bool is_ground =
            type->family == InpFamily::kConnector || type->family == InpFamily::kSpring;
        const bool is_open = is_ground && (fields[i].empty() || fields[i] == "0");
        nodes[count++] = is_open ? InpMember{0} : NodeOf(fields[i], begin);
      }
      // Lines hold sixteen numbers; some programs begin another one without a comma.
      const bool goes_on = count < type->nodes && (lines.GoesOn() || type->nodes > 9);
      const bool more = count < type->most_nodes && lines.GoesOn();
      if ((!goes_on && !more) || !lines.Next()) break;
      from = 0;
    }
    std::int32_t our_type = type->type;
    std::size_t our_count = ours;
    if (our_type == element::kLine2 && type->family != InpFamily::kTruss && count > 0 &&
        (count == 1 || nodes[1].number == 0 || nodes[0].number == 0) &&
        (type->family == InpFamily::kConnector || type->family == InpFamily::kSpring)) {
      if (nodes[0].number == 0) std::swap(nodes[0], nodes[1]);
      our_type = element::kPoint;  // to the ground
      our_count = 1;
    } else if (count < type->nodes) {
      Fault(begin, fmt::format("element {} has {} nodes and needs {}", number, count, type->nodes),
            "complete it");
      continue;
    }
    std::array<InpMember, 32> in_order{};
    for (std::size_t i = 0; i < our_count; ++i) in_order[InpNode(our_type, i)] = nodes[i];
    if (count > our_count && our_type == type->type) ++reduced_[label];
    AddElement(number, our_type, type_name, std::span(in_order).first(our_count),
               {begin, static_cast<std::uint32_t>(lines.End() - begin)});
  }
  AddToParameterSet("ELSET", Kind::kElements, first);
}

void InpParser::AddElement(Key number, std::int32_t type, std::int32_t type_name,
                           std::span<const InpMember> nodes, InpSpot spot) {
  InpScope& scope = Scope();
  if (number <= 0) return;
  if (!scope.element_index.Add(number, scope.elements.size())) {
    return Fault(spot.at, fmt::format("element {} is there twice", number), "remove one");
  }
  scope.elements.push_back({number, type, scope.connectivity.size(), -1, type_name});
  scope.element_at.push_back(spot);
  for (const InpMember& node : nodes) {
    scope.connectivity.push_back(node.number);
    if (scope_ == 1) scope.instances.push_back(node.instance);
  }
}

/// Every node of every element must be there; nodes may be given behind them.
void InpParser::CheckElements() {
  for (std::size_t s = 0; s < model_.scopes.size(); ++s) {
    const InpScope& scope = model_.scopes[s];
    for (std::size_t e = 0; e < scope.elements.size() && !IsFull(); ++e) {
      const InpElement& element = scope.elements[e];
      for (std::size_t i = 0; i < InpModel::NodesOf(element); ++i) {
        const Key node = scope.connectivity[element.first + i];
        const std::int32_t instance = s == 1 ? scope.instances[element.first + i] : -1;
        const InpScope& of = ScopeOf({node, instance}, s);
        if (of.nodes.Find(node) != kNoPlace) continue;
        if (node > 0) {
          block_ = &text_.Blocks()[model_.RunOf(scope.element_runs, e).block];
          Fault(scope.element_at[e].at,
                fmt::format("node {} of element {} is not there", node, element.number),
                "add the node or remove the element");
          block_ = nullptr;
        }
        break;
      }
    }
  }
}

// ---- sets ---------------------------------------------------------------------------------------

InpParser::SetNames InpParser::NamesOf(Kind kind) const {
  if (kind == Kind::kNodes) return &InpScope::node_sets;
  return kind == Kind::kElements ? &InpScope::element_sets : &InpScope::surfaces;
}

std::size_t InpParser::SetOf(Kind kind, std::string_view name) {
  auto& names = Scope().*NamesOf(kind);
  const auto [found, is_new] = names.emplace(InpLabel(name), model_.sets.size());
  if (is_new) {
    InpSet set;
    set.kind = kind;
    set.name = name;
    set.scope = scope_;
    model_.sets.push_back(std::move(set));
  }
  return found->second;
}

std::size_t InpParser::FindSet(Kind kind, std::string_view name, std::int32_t& instance) const {
  const auto in = [&](std::size_t scope, std::string_view of) {
    const auto& names = model_.scopes[scope].*NamesOf(kind);
    const auto found = names.find(InpLabel(of));
    return found == names.end() ? kNoPlace : found->second;
  };
  const auto of_instance = [&](std::int32_t i, std::string_view of) {
    return in(model_.placements[static_cast<std::size_t>(i)].scope, of);
  };
  if (instance >= 0) {
    const std::size_t set = of_instance(instance, name);
    if (set != kNoPlace) return set;
  }
  if (const std::size_t set = in(scope_, name); set != kNoPlace) {
    instance = -1;
    return set;
  }
  for (std::size_t point = name.find('.'); point != std::string_view::npos;
       point = name.find('.', point + 1)) {
    const std::int32_t of = FindInstance(name.substr(0, point));
    if (of < 0) continue;
    const std::size_t set = of_instance(of, name.substr(point + 1));
    if (set == kNoPlace) continue;
    instance = of;
    return set;
  }
  // Sections and transformations of a deck without an assembly may name sets of its parts.
  instance = -1;
  for (std::size_t scope = 0; !model_.has_assembly && scope < model_.scopes.size(); ++scope) {
    if (const std::size_t set = in(scope, name); set != kNoPlace) return set;
  }
  return kNoPlace;
}

/// Makes a set a part of another one; those of an instance as members of that instance.
void InpParser::AddPart(std::size_t set, std::size_t part, std::int32_t instance) {
  InpSet& to = model_.sets[set];
  if (set == part) return;
  const std::vector<InpMember> members = model_.sets[part].members;
  for (InpMember member : members) {
    if (member.instance < 0) member.instance = instance;
    to.members.push_back(member);
  }
  if (instance < 0 && (to.parts.empty() || to.parts.back() != part)) to.parts.push_back(part);
  if (to.members.size() > 4 * members.size() + 65536) Compact(to);
}

void InpParser::AddToParameterSet(const char* parameter, Kind kind, std::size_t first_new) {
  const auto name = Parameter(parameter);
  if (!name || name->empty()) return;
  const std::size_t set = SetOf(kind, *name);
  InpSet& to = model_.sets[set];
  to.parameters.push_back(at_);
  const InpScope& scope = Scope();
  if (kind == Kind::kNodes) {
    for (std::size_t i = first_new; i < scope.numbers.size(); ++i) {
      to.members.push_back({scope.numbers[i]});
    }
  } else {
    for (std::size_t i = first_new; i < scope.elements.size(); ++i) {
      to.members.push_back({scope.elements[i].number});
    }
  }
}

void InpParser::ReadSet(Kind kind) {
  const bool is_nodes = kind == Kind::kNodes;
  const std::string name = Required(is_nodes ? "NSET" : "ELSET");
  if (name.empty()) return;
  std::int32_t instance = -1;
  if (const auto of = Parameter("INSTANCE"); of && !of->empty()) {
    instance = FindInstance(*of);
    if (instance < 0) {
      return Fault(block_->begin, fmt::format("its instance '{}' is not there", *of),
                   "add the instance");
    }
  }
  const std::size_t set = SetOf(kind, name);
  model_.sets[set].blocks.push_back(at_);
  const InpScope& of = ScopeOf({1, instance}, scope_);
  const auto is_there = [&](Key number) {
    return is_nodes ? of.nodes.Find(number) != kNoPlace : of.element_index.Find(number) != kNoPlace;
  };
  // The nodes of the elements of a set.
  if (const auto elements = Parameter("ELSET"); is_nodes && elements && !elements->empty()) {
    std::int32_t in = instance;
    const std::size_t from = FindSet(Kind::kElements, *elements, in);
    if (from == kNoPlace) {
      return Fault(block_->begin, fmt::format("element set '{}' is not there", *elements),
                   "add the set before it");
    }
    const InpScope& elements_of = model_.scopes[model_.sets[from].scope];
    for (const InpMember& member : model_.sets[from].members) {
      const std::size_t e = elements_of.element_index.Find(member.number);
      if (e == kNoPlace || member.instance >= 0) continue;
      const InpElement& element = elements_of.elements[e];
      for (std::size_t i = 0; i < InpModel::NodesOf(element); ++i) {
        const Key node = elements_of.connectivity[element.first + i];
        if (node > 0) model_.sets[set].members.push_back({node, in});
      }
    }
    return;
  }
  const bool generate = Parameter("GENERATE").has_value();
  InpLines lines = Lines();
  while (lines.Next() && GoesOn()) {
    const auto fields = lines.Fields();
    const std::size_t line = lines.Begin();
    if (generate) {
      const Key low = Number(fields[0], line, "the first member");
      const Key high = fields.size() > 1 && !fields[1].empty()
                           ? Number(fields[1], line, "the last member")
                           : low;
      const Key step =
          fields.size() > 2 && !fields[2].empty() ? Number(fields[2], line, "the step") : 1;
      if (low == 0 || high == 0 || step == 0) continue;
      const std::size_t most = is_nodes ? of.numbers.size() : of.elements.size();
      const std::int64_t wanted = high < low ? 0 : (std::int64_t{high} - low) / step + 1;
      auto& members = model_.sets[set].members;
      if (wanted > static_cast<std::int64_t>(4 * most + 1024)) {
        // Far more numbers than there are things: go by those.
        const std::size_t before = members.size();
        const auto add = [&](Key number) {
          if (number >= low && number <= high && (number - low) % step == 0) {
            members.push_back({number, instance});
          }
        };
        for (std::size_t i = 0; is_nodes && i < most; ++i) add(of.numbers[i]);
        for (std::size_t i = 0; !is_nodes && i < most; ++i) add(of.elements[i].number);
        missing_in_ranges_ += static_cast<std::uint64_t>(wanted) - (members.size() - before);
        continue;
      }
      for (std::int64_t n = low; n <= high; n += step) {
        const auto number = static_cast<Key>(n);
        if (is_there(number)) {
          members.push_back({number, instance});
        } else if (is_nodes || !of.unknown_elements.contains(number)) {
          ++missing_in_ranges_;
        }
      }
      continue;
    }
    for (const std::string_view field : fields) {
      if (field.empty()) continue;
      if (IsInpNumber(field)) {
        const Key number = Number(field, line, is_nodes ? "a node" : "an element");
        if (number == 0) continue;
        model_.sets[set].members.push_back({number, instance});
        if (!is_there(number)) late_.push_back({set, {number, instance}, at_, line});
        continue;
      }
      std::int32_t in = instance;
      const std::size_t part = FindSet(kind, field, in);
      if (part != kNoPlace) {
        AddPart(set, part, in);
        continue;
      }
      const std::size_t point = field.rfind('.');
      const std::int32_t named =
          point == std::string_view::npos ? -1 : FindInstance(field.substr(0, point));
      if (named >= 0 && IsInpNumber(field.substr(point + 1))) {
        const InpScope& there = ScopeOf({1, named}, scope_);
        const Key number = Number(field.substr(point + 1), line, "a member");
        const bool found = is_nodes ? there.nodes.Find(number) != kNoPlace
                                    : there.element_index.Find(number) != kNoPlace;
        if (found) {
          model_.sets[set].members.push_back({number, named});
          continue;
        }
      }
      Fault(line, fmt::format("'{}' is no number and no set before this one", field),
            "correct it or define the set before");
    }
  }
}

void InpParser::ReadSurface() {
  const std::string name = Required("NAME");
  if (name.empty()) return;
  const auto given = Parameter("TYPE");
  const std::string type = given ? InpLabel(*given) : "ELEMENT";
  const bool is_nodes = type == "NODE";
  if ((!is_nodes && type != "ELEMENT") || Parameter("COMBINE")) return Carry();
  const Kind kind = is_nodes ? Kind::kSurfaceNodes : Kind::kSides;
  const std::size_t set = SetOf(kind, name);
  model_.sets[set].blocks.push_back(at_);
  InpLines lines = Lines();
  while (lines.Next() && GoesOn()) {
    const auto fields = lines.Fields();
    const std::size_t line = lines.Begin();
    if (fields[0].empty()) {
      // The outside of the whole model has no list of sides.
      ++simplified_["surfaces of everything that lies outside have no members here"];
      continue;
    }
    std::vector<InpMember> from;
    std::int32_t instance = -1;
    if (IsInpNumber(fields[0])) {
      from.push_back({Number(fields[0], line, is_nodes ? "a node" : "an element")});
    } else if (const std::size_t of =
                   FindSet(is_nodes ? Kind::kNodes : Kind::kElements, fields[0], instance);
               of != kNoPlace) {
      from = model_.sets[of].members;
    } else {
      const std::size_t point = fields[0].rfind('.');
      instance = point == std::string_view::npos ? -1 : FindInstance(fields[0].substr(0, point));
      if (instance < 0 || !IsInpNumber(fields[0].substr(point + 1))) {
        Fault(line, fmt::format("'{}' is no number and no set before this one", fields[0]),
              "correct it or define the set before");
        continue;
      }
      from.push_back({Number(fields[0].substr(point + 1), line, "a member")});
    }
    const std::string side_name = fields.size() > 1 ? InpLabel(fields[1]) : std::string();
    for (InpMember member : from) {
      if (member.instance < 0) member.instance = instance;
      const InpScope& of = ScopeOf(member, scope_);
      if (is_nodes) {
        if (of.nodes.Find(member.number) != kNoPlace) {
          model_.sets[set].members.push_back(member);
        } else if (member.number > 0) {
          Fault(line, fmt::format("node {} is not there", member.number), "add it");
        }
        continue;
      }
      const std::size_t e = of.element_index.Find(member.number);
      if (e == kNoPlace) {
        if (member.number > 0 && !of.unknown_elements.contains(member.number)) {
          Fault(line, fmt::format("element {} is not there", member.number), "add it");
        }
        continue;
      }
      const ElementType& shape = *FindElementType(of.elements[e].type);
      const auto kind_of = FindInpElement(
          AsciiUpper(model_.type_names[static_cast<std::size_t>(of.elements[e].type_name)]));
      const bool is_shell = kind_of && (kind_of->family == InpFamily::kShell ||
                                        kind_of->family == InpFamily::kMembrane);
      const auto side = SideOf(side_name, shape, is_shell);
      if (!side) {
        Fault(line, fmt::format("element {} has no side '{}'", member.number, side_name),
              "correct the name of the side");
        break;
      }
      member.side = *side;
      model_.sets[set].members.push_back(member);
    }
  }
}

/// Members may be given behind the set; those that never come are faults.
void InpParser::CheckLate(const Late& late, std::set<std::pair<std::size_t, InpMember>>& gone) {
  const InpSet& set = model_.sets[late.set];
  const bool is_nodes = set.kind == Kind::kNodes;
  const InpScope& of = ScopeOf(late.member, set.scope);
  const Key number = late.member.number;
  if ((is_nodes ? of.nodes : of.element_index).Find(number) != kNoPlace) return;
  gone.insert({late.set, late.member});
  if (!is_nodes && of.unknown_elements.contains(number)) return;
  block_ = &text_.Blocks()[late.block];
  Fault(late.line, fmt::format("{} {} is not there", is_nodes ? "node" : "element", number),
        "add it or remove it from the set");
  block_ = nullptr;
}

const InpScope& InpParser::ScopeOf(const InpMember& member, std::size_t scope) const {
  if (member.instance < 0) return model_.scopes[scope];
  return model_.scopes[model_.placements[static_cast<std::size_t>(member.instance)].scope];
}

void InpParser::Compact(InpSet& set) {
  auto& members = set.members;
  if (!std::is_sorted(members.begin(), members.end())) std::sort(members.begin(), members.end());
  members.erase(std::unique(members.begin(), members.end()), members.end());
}

void InpParser::FinishSets() {
  std::set<std::pair<std::size_t, InpMember>> gone;
  for (const Late& late : late_) CheckLate(late, gone);
  for (InpSet& set : model_.sets) Compact(set);
  if (gone.empty()) return;
  // A set that another one was made of may have handed them on.
  for (InpSet& set : model_.sets) {
    const bool is_nodes = set.kind == Kind::kNodes || set.kind == Kind::kSurfaceNodes;
    std::erase_if(set.members, [&](const InpMember& member) {
      const InpScope& of = ScopeOf(member, set.scope);
      return (is_nodes ? of.nodes : of.element_index).Find(member.number) == kNoPlace;
    });
  }
}

}  // namespace qx::exchange
