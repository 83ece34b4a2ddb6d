#include "exchange/abaqus/inp_parser.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <numbers>

#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

std::string_view WithoutLineEnd(std::string_view text) {
  const std::size_t last = text.find_last_not_of(" \t\r\n");
  return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

/// The name in a comment "** Name: Fixed-1 Type: ..." before a keyword; empty when there is none.
std::string_view NameBefore(std::string_view text, std::size_t at) {
  if (at < 2) return {};
  const std::size_t before = text.rfind('\n', at - 2);
  const std::size_t begin = before == std::string_view::npos ? 0 : before + 1;
  std::string_view line = WithoutLineEnd(text.substr(begin, at - begin));
  constexpr std::string_view kMark = "** Name: ";
  if (!line.starts_with(kMark)) return {};
  line.remove_prefix(kMark.size());
  return WithoutLineEnd(line.substr(0, line.find(" Type:")));
}

}  // namespace

bool InpRotation(const Vector3& shift, const Vector3& a, const Vector3& b, double angle_deg,
                 InpFrame& frame) {
  frame.is_identity = false;
  frame.origin = shift;
  const Vector3 axis = b - a;
  const double length = Length(axis);
  if (!(length > 0) || !std::isfinite(length) || !std::isfinite(angle_deg)) return false;
  const Vector3 k = (1 / length) * axis;
  const double angle = angle_deg * std::numbers::pi / 180;
  const auto turned = [&](const Vector3& v) {
    return std::cos(angle) * v + std::sin(angle) * Cross(k, v) +
           (1 - std::cos(angle)) * Dot(k, v) * k;
  };
  frame.x = turned({1, 0, 0});
  frame.y = turned({0, 1, 0});
  frame.z = turned({0, 0, 1});
  frame.origin = a + turned(shift - a);
  return true;
}

bool InpFrameOf(const Vector3& origin, const Vector3& along, const Vector3& in_plane,
                InpFrame& frame) {
  const Vector3 normal = Cross(along, in_plane);
  const double x = Length(along);
  const double z = Length(normal);
  if (!(x > 0) || !(z > 0) || !std::isfinite(x) || !std::isfinite(z)) return false;
  frame.is_identity = false;
  frame.origin = origin;
  frame.x = (1 / x) * along;
  frame.z = (1 / z) * normal;
  frame.y = Cross(frame.z, frame.x);
  return true;
}

// ---- faults and fields --------------------------------------------------------------------------

bool InpParser::GoesOn() {
  if (++asked_ % 65536 == 0) {
    if (options_.progress) options_.progress(told_);  // a block may be most of the deck
    if (options_.is_cancelled && options_.is_cancelled()) is_cancelled_ = true;
  }
  return !is_cancelled_ && !IsFull();
}

void InpParser::Fault(std::size_t at, std::string what, std::string remedy) {
  if (IsFull()) return;
  std::string file;
  std::string place = text_.Place(at, file);
  if (block_) place += ", *" + block_->title;
  faults_.push_back(
      {file.empty() ? file_ : file, std::move(place), std::move(what), std::move(remedy)});
}

Key InpParser::Number(std::string_view field, std::size_t line, const char* of_what) {
  const auto value = DeckInteger(field);
  if (value && *value > 0 && *value <= kMaxKey) return static_cast<Key>(*value);
  Fault(line, fmt::format("'{}' is no number of {} from 1 to {}", field, of_what, kMaxKey),
        "correct it");
  return 0;
}

double InpParser::Real(std::string_view field, std::size_t line) {
  if (field.empty()) return 0;
  const auto value = DeckReal(field);
  if (value && std::isfinite(*value)) return *value;
  Fault(line, fmt::format("'{}' is not a number", field), "correct it");
  return 0;
}

double InpParser::RealAt(std::span<const std::string_view> fields, std::size_t place,
                         std::size_t line) {
  return place < fields.size() ? Real(fields[place], line) : 0;
}

Vector3 InpParser::VectorAt(std::span<const std::string_view> fields, std::size_t place,
                            std::size_t line) {
  return {RealAt(fields, place, line), RealAt(fields, place + 1, line),
          RealAt(fields, place + 2, line)};
}

std::string InpParser::Required(const char* parameter) {
  const auto value = Parameter(parameter);
  if (value && !value->empty()) return std::string(*value);
  Fault(block_->begin, fmt::format("there is no {}=", parameter), "add it");
  return {};
}

// ---- structure ----------------------------------------------------------------------------------

Result<InpModel> InpParser::Parse() {
  model_.scopes.resize(2);
  model_.inputs.emplace_back();
  const std::string& text = text_.Text();
  model_.model_end = text.size();
  if (text.size() > static_cast<std::size_t>(kMaxKey)) {
    return Failure{file_, "", "the deck is larger than two gigabytes", "divide it"};
  }
  const auto& blocks = text_.Blocks();
  for (at_ = 0; at_ < blocks.size() && !IsFull() && !is_cancelled_; ++at_) {
    block_ = &blocks[at_];
    minded_.clear();
    is_carried_ = false;
    ReadBlock();
    TellOfUnminded();
    if (options_.progress && blocks.size() > 0 && at_ % (blocks.size() / 50 + 1) == 0) {
      told_ = 0.2 + 0.4 * static_cast<double>(block_->end) / static_cast<double>(text.size());
      options_.progress(told_);
    }
  }
  if (scope_ > kAssembly || in_instance_) {
    Fault(model_.scopes[scope_].end, "the part or instance does not end", "complete the deck");
  }
  block_ = nullptr;
  for (const std::size_t scope : {kModel, kAssembly}) {
    if (model_.scopes[scope].end == 0) model_.scopes[scope].end = model_.model_end;
  }
  CheckElements();
  FinishSets();
  AssignSections();
  PlaceParts();
  ShiftNumbers();
  if (is_cancelled_) return Failure{file_, "", "reading was cancelled", ""};
  if (!faults_.empty()) return faults_.front();
  for (const auto& [name, count] : reduced_) {
    model_.report.Changed(name + " elements were read without the nodes that their kind lacks here",
                          count);
  }
  for (const auto& [name, count] : unknown_types_) {
    model_.report.Assumed(fmt::format("{} elements of type {} are carried as text", count, name),
                          "the model has no such element");
  }
  for (const auto& [name, count] : simplified_) {
    model_.report.Assumed(fmt::format("{}: {}; the keywords are carried whole", name, count));
  }
  if (missing_in_ranges_ > 0) {
    model_.report.Assumed(
        fmt::format("{} numbers in generated sets are of nothing", missing_in_ranges_));
  }
  return std::move(model_);
}

/// Parameters that nobody asked for have no place in the model.
void InpParser::TellOfUnminded() {
  if (is_carried_) return;
  for (const InpParameter& parameter : text_.Parameters(*block_)) {
    // They say nothing of the mesh: where lines stood, and who made a set.
    if (parameter.name == "INPUT" || parameter.name == "INTERNAL") continue;
    if (minded_.contains(parameter.name)) continue;
    ++simplified_[fmt::format("*{} is held without {}", block_->title, parameter.name)];
  }
}

void InpParser::ReadBlock() {
  if (ReadStructure()) return;
  if (is_skipping_) return Carry();
  const std::string& keyword = block_->keyword;
  if (keyword == "NODE") return ReadNodes();
  if (keyword == "ELEMENT") return ReadElements();
  if (keyword == "NSET") return ReadSet(Kind::kNodes);
  if (keyword == "ELSET") return ReadSet(Kind::kElements);
  if (keyword == "SURFACE") return ReadSurface();
  if (keyword == "NGEN") return GenerateNodes();
  if (keyword == "NFILL") return FillNodes();
  if (keyword == "NCOPY") return CopyNodes();
  if (keyword == "ELGEN") return GenerateElements();
  if (keyword == "ELCOPY") return CopyElements();
  if (keyword == "SYSTEM") return ReadSystem();
  if (keyword == "ORIENTATION") return ReadOrientation();
  if (keyword == "TRANSFORM") return ReadTransform();
  if (keyword == "MATERIAL") return ReadMaterial();
  if (ReadMaterialOption() || ReadSection()) return;
  Carry();
}

/// What the deck is divided into. True when the keyword is of that kind.
bool InpParser::ReadStructure() {
  const std::string& keyword = block_->keyword;
  if (keyword == "PART") {
    if (scope_ != kModel) Fault(block_->begin, "the part before it does not end", "add *END PART");
    const std::string name = Required("NAME");
    if (!scopes_.emplace(InpLabel(name), model_.scopes.size()).second) {
      Fault(block_->begin, fmt::format("part '{}' is there twice", name), "remove one");
    }
    BeginScope(name);
  } else if (keyword == "ENDPART") {
    if (scope_ <= kAssembly || in_instance_) {
      Fault(block_->begin, "no part begins before it", "add *PART");
    }
    EndScope();
    scope_ = kModel;
  } else if (keyword == "ASSEMBLY") {
    model_.has_assembly = true;
    scope_ = kAssembly;
    Scope().begin_block = at_;
  } else if (keyword == "ENDASSEMBLY") {
    if (scope_ != kAssembly) Fault(block_->begin, "no assembly begins before it", "add *ASSEMBLY");
    EndScope();
    scope_ = kModel;
  } else if (keyword == "INSTANCE") {
    ReadInstance();
  } else if (keyword == "ENDINSTANCE") {
    EndInstance();
  } else if (keyword == "STEP") {
    ++steps_;
    if (model_.model_end == text_.Text().size()) model_.model_end = block_->begin;
    const auto name = Parameter("NAME");
    step_ = name && !name->empty() ? std::string(*name) : fmt::format("Step-{}", steps_);
    Carry();
  } else if (keyword == "HEADING") {
    InpLines lines = Lines();
    const std::string_view text(text_.Text());
    if (lines.Next()) {
      model_.title = WithoutLineEnd(text.substr(lines.Begin(), lines.End() - lines.Begin()));
    }
  } else {
    return false;
  }
  return true;
}

void InpParser::BeginScope(std::string name) {
  scope_ = model_.scopes.size();
  model_.scopes.emplace_back();
  Scope().name = std::move(name);
  Scope().begin_block = at_;
  Scope().end = block_->end;
  input_ = 0;
}

void InpParser::EndScope() {
  Scope().end = block_->begin;
  input_ = 0;
}

void InpParser::ReadInstance() {
  if (scope_ != kAssembly || in_instance_) {
    Fault(block_->begin, "it stands outside of the assembly", "add *ASSEMBLY before it");
    return;
  }
  const std::string name = Required("NAME");
  const std::string part = Required("PART");
  if (FindInstance(name) >= 0) {
    Fault(block_->begin, fmt::format("instance '{}' is there twice", name), "remove one");
  }
  const auto scope = scopes_.find(InpLabel(part));
  if (scope == scopes_.end()) {
    if (!part.empty()) {
      Fault(block_->begin, fmt::format("its part '{}' is not there", part), "add the part");
    }
    return;
  }
  InpPlacement placement;
  placement.name = name;
  placement.scope = scope->second;
  placement.block = at_;
  Vector3 shift;
  InpLines lines = Lines();
  if (lines.Next()) {
    shift = VectorAt(lines.Fields(), 0, lines.Begin());
    placement.frame.origin = shift;
    placement.frame.is_identity = shift == Vector3();
  }
  if (lines.Next()) {
    const std::size_t line = lines.Begin();
    const double angle = RealAt(lines.Fields(), 6, line);
    const Vector3 a = VectorAt(lines.Fields(), 0, line);
    const Vector3 b = VectorAt(lines.Fields(), 3, line);
    if (angle != 0 && !InpRotation(shift, a, b, angle, placement.frame)) {
      Fault(line, "the two points of the rotation's axis are one", "correct them");
    }
  }
  in_instance_ = true;
  model_.placements.push_back(std::move(placement));
  instances_[InpLabel(name)] = static_cast<std::int32_t>(model_.placements.size()) - 1;
  const bool has_own =
      at_ + 1 < text_.Blocks().size() && text_.Blocks()[at_ + 1].keyword != "ENDINSTANCE";
  if (!has_own) return;
  const InpScope& of_part = model_.scopes[scope->second];
  if (!of_part.numbers.empty() || !of_part.elements.empty()) {
    is_skipping_ = true;
    model_.report.Assumed(
        fmt::format("what instance {} adds to its part is carried as text", name));
    return;
  }
  BeginScope(name);
  model_.placements.back().scope = scope_;
}

void InpParser::EndInstance() {
  if (!in_instance_) {
    Fault(block_->begin, "no instance begins before it", "add *INSTANCE");
    return;
  }
  if (scope_ > kAssembly) EndScope();
  in_instance_ = false;
  is_skipping_ = false;
  scope_ = kAssembly;
}

std::int32_t InpParser::FindInstance(std::string_view name) const {
  const auto found = instances_.find(InpLabel(name));
  return found == instances_.end() ? -1 : found->second;
}

/// Model and assembly stand where they are, and so do parts of a deck without an assembly.
void InpParser::PlaceParts() {
  for (std::size_t i = 0; i < model_.scopes.size(); ++i) {
    const InpScope& scope = model_.scopes[i];
    if (scope.numbers.empty() && scope.elements.empty()) continue;
    const bool is_placed =
        std::any_of(model_.placements.begin(), model_.placements.end(),
                    [&](const InpPlacement& placement) { return placement.scope == i; });
    if (is_placed) continue;
    if (i > kAssembly && model_.has_assembly) {
      model_.report.Assumed(fmt::format("part {} is carried as text", scope.name),
                            "the assembly has no instance of it");
      continue;
    }
    InpPlacement placement;
    placement.scope = i;
    model_.placements.push_back(std::move(placement));
  }
}

/// Gives the numbers of placements that collide with those before them others.
void InpParser::ShiftNumbers() {
  std::int64_t last_node = 0;
  std::int64_t last_element = 0;
  for (InpPlacement& placement : model_.placements) {
    const InpScope& scope = model_.scopes[placement.scope];
    std::int64_t most_node = 0;
    std::int64_t most_element = 0;
    for (const Key number : scope.numbers) most_node = std::max<std::int64_t>(most_node, number);
    for (const InpElement& element : scope.elements) {
      most_element = std::max<std::int64_t>(most_element, element.number);
    }
    if (last_node + most_node > kMaxKey || last_element + most_element > kMaxKey) {
      faults_.push_back({file_, fmt::format("instance {}", placement.name),
                         "the numbers of all instances together are too large",
                         "renumber its part"});
      return;
    }
    placement.node_shift = static_cast<Key>(last_node);
    placement.element_shift = static_cast<Key>(last_element);
    last_node += most_node;
    last_element += most_element;
    if (placement.node_shift == 0 && placement.element_shift == 0) continue;
    model_.report.Assumed(fmt::format(
        "instance {}: nodes are numbered from {} on, elements from {} on",
        placement.name.empty() ? "of the assembly" : placement.name,
        std::int64_t{placement.node_shift} + 1, std::int64_t{placement.element_shift} + 1));
  }
}

/// A keyword that has no place in the model: its text is carried.
void InpParser::Carry() {
  is_carried_ = true;
  const std::string& keyword = block_->keyword;
  ++model_.carried[block_->title];
  InpKeys keys = InpKeysOf(keyword);
  if (keys == InpKeys::kByType) {
    const auto type = Parameter("TYPE");
    keys = InpKeysOfType(keyword, type ? InpLabel(*type) : std::string());
  }
  if (keys == InpKeys::kUnknown) ++model_.unchecked[block_->title];
  if (!IsInpCondition(keyword)) return;
  std::string name = fmt::format("{}: {}", step_, block_->title);
  if (const auto own = NameBefore(text_.Text(), block_->begin); !own.empty()) {
    name += fmt::format(" {}", own);
  }
  auto& names = model_.conditions;
  if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
}

Result<InpModel> ParseInp(const InpText& text, const std::string& file, const ReadOptions& options,
                          std::vector<Failure>& faults) {
  return InpParser(text, file, options, faults).Parse();
}

}  // namespace qx::exchange
