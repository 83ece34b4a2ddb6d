// Sections, materials and coordinate systems of a deck.

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <numbers>

#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

#include "exchange/abaqus/inp_parser.h"

namespace qx::exchange {
namespace {

enum class SectionKind {
  kSolid,
  kShell,
  kMembrane,
  kBeam,
  kGeneralBeam,
  kSpring,
  kDashpot,
  kConnector,
  kOther,
  kMass,
  kRotaryInertia
};

struct SectionName {
  std::string_view keyword;
  SectionKind kind;
};
constexpr SectionName kSections[] = {
    {"SOLIDSECTION", SectionKind::kSolid},
    {"SHELLSECTION", SectionKind::kShell},
    {"SHELLGENERALSECTION", SectionKind::kShell},
    {"MEMBRANESECTION", SectionKind::kMembrane},
    {"BEAMSECTION", SectionKind::kBeam},
    {"BEAMGENERALSECTION", SectionKind::kGeneralBeam},
    {"SPRING", SectionKind::kSpring},
    {"DASHPOT", SectionKind::kDashpot},
    {"CONNECTORSECTION", SectionKind::kConnector},
    {"COHESIVESECTION", SectionKind::kOther},
    {"GASKETSECTION", SectionKind::kOther},
    {"SURFACESECTION", SectionKind::kOther},
    {"MASS", SectionKind::kMass},
    {"ROTARYINERTIA", SectionKind::kRotaryInertia},
};

/// Torsional constant of a rectangle, by the usual approximation (Roark, table 10.1).
double RectangleTorsion(double a, double b) {
  const double l = std::max(a, b);
  const double s = std::min(a, b);
  if (!(l > 0)) return 0;
  return l * s * s * s * (1.0 / 3 - 0.21 * s / l * (1 - s * s * s * s / (12 * l * l * l * l)));
}

Vector3 Perpendicular(const Vector3& v) {
  return std::abs(v.x) > std::abs(v.z) ? Vector3{-v.y, v.x, 0} : Vector3{0, -v.z, v.y};
}

/// A system by a point on its polar axis and another one.
void SetPolar(tagTCord& system, std::int32_t type, const Vector3& a, const Vector3& b) {
  system.type = type;
  system.plane = 2;
  system.origin = a.As<tagTVector3<double>>();
  system.axis_point = b.As<tagTVector3<double>>();
  system.plane_point = (a + Perpendicular(b - a)).As<tagTVector3<double>>();
}

bool IsGood(const tagTCord& system) {
  const Vector3 origin(system.origin);
  const Vector3 normal =
      Cross(Vector3(system.axis_point) - origin, Vector3(system.plane_point) - origin);
  return Length(normal) > 0 && IsFinite(normal);
}

}  // namespace

// ---- sections -----------------------------------------------------------------------------------

bool InpParser::ReadSection() {
  const auto kind_of =
      std::find_if(std::begin(kSections), std::end(kSections),
                   [&](const SectionName& s) { return s.keyword == block_->keyword; });
  if (kind_of == std::end(kSections)) return false;
  const SectionKind kind = kind_of->kind;
  const std::string set = Required("ELSET");
  if (set.empty()) return true;
  InpSection section;
  section.block = at_;
  section.scope = scope_;
  section.set = kNoPlace;
  section_sets_.emplace_back(model_.sections.size(), set);
  if (const auto material = Parameter("MATERIAL")) section.material = InpLabel(*material);
  if (const auto system = Parameter("ORIENTATION")) section.system = InpLabel(*system);
  std::vector<std::vector<std::string_view>> rows;
  std::size_t line = block_->data;
  InpLines lines = Lines();
  while (lines.Next() && rows.size() < 10000) {
    if (rows.empty()) line = lines.Begin();
    rows.emplace_back(lines.Fields().begin(), lines.Fields().end());
  }
  const auto row = [&](std::size_t i) {
    return i < rows.size() ? std::span<const std::string_view>(rows[i])
                           : std::span<const std::string_view>();
  };
  tagTProp& property = section.property;
  const auto simplify = [&](const char* why) { ++simplified_["*" + block_->title + why]; };
  constexpr const char* kInPart = " is held in part";
  // Numbers of the first line that the model has no place for.
  const auto tell_of_more = [&](std::size_t used) {
    bool has_more = rows.size() > 1;
    for (std::size_t i = used; i < row(0).size(); ++i) has_more = has_more || !row(0)[i].empty();
    if (has_more) simplify(kInPart);
  };
  switch (kind) {
    case SectionKind::kSolid:
      // The elements tell whether it is a thickness or an area.
      property.type = tagTProp::kSolid;
      property.thickness = Parameter("COMPOSITE") ? 0 : RealAt(row(0), 0, line);
      if (Parameter("COMPOSITE")) simplify(kInPart);
      if (!Parameter("COMPOSITE")) tell_of_more(1);
      break;
    case SectionKind::kShell:
      property.type = tagTProp::kPlate;
      if (Parameter("COMPOSITE")) {
        for (const auto& ply : rows) property.thickness += RealAt(ply, 0, line);
        if (section.material.empty() && row(0).size() > 2) section.material = InpLabel(rows[0][2]);
        simplify(kInPart);
      } else {
        property.thickness = RealAt(row(0), 0, line);
        tell_of_more(1);
      }
      if (const auto offset = Parameter("OFFSET"); offset && !offset->empty()) {
        const std::string label = InpLabel(*offset);
        section.offset = label == "SPOS"   ? 0.5
                         : label == "SNEG" ? -0.5
                                           : DeckReal(label).value_or(0);
      }
      break;
    case SectionKind::kMembrane:
      property.type = tagTProp::kMembrane;
      property.thickness = RealAt(row(0), 0, line);
      tell_of_more(1);
      break;
    case SectionKind::kBeam:
    case SectionKind::kGeneralBeam: {
      property.type = tagTProp::kBeam;
      const auto shape = Parameter("SECTION");
      const std::string label = shape                               ? InpLabel(*shape)
                                : kind == SectionKind::kGeneralBeam ? "GENERAL"
                                                                    : "";
      ReadBeamShape(section, label, row(0), line);
      if (kind == SectionKind::kGeneralBeam) simplify(kInPart);
      if (row(1).size() >= 2) section.direction = VectorAt(row(1), 0, line);
      break;
    }
    case SectionKind::kSpring:
    case SectionKind::kDashpot: {
      property.type = tagTProp::kSpring;
      // Degrees of freedom stand before the stiffness unless the elements have a line of action.
      const bool has_dofs = rows.size() > 1;
      const double value = RealAt(row(has_dofs ? 1 : 0), 0, line);
      const auto dof =
          has_dofs && !rows[0].empty() ? DeckInteger(rows[0][0]) : std::optional<std::int64_t>(1);
      const std::size_t place =
          dof && *dof > 0 && *dof < 7 ? static_cast<std::size_t>(*dof) - 1 : 0;
      (kind == SectionKind::kSpring ? property.stiffness : property.damping)[place] = value;
      if (Parameter("NONLINEAR") || rows.size() > 2) simplify(kInPart);
      break;
    }
    case SectionKind::kConnector:
      property.type = tagTProp::kElasticLink;
      simplify(kInPart);
      break;
    case SectionKind::kOther:
      property.type = tagTProp::kUndefined;
      simplify(" holds its place only");
      break;
    case SectionKind::kMass:
      section.is_mass = true;
      section.mass = RealAt(row(0), 0, line);
      tell_of_more(1);
      break;
    case SectionKind::kRotaryInertia:
      section.is_mass = true;
      for (std::size_t i = 0; i < 6; ++i) {
        // I11, I22, I33, I12, I13, I23 into a lower triangle, row by row.
        constexpr std::size_t kInTriangle[] = {0, 2, 5, 1, 3, 4};
        section.inertia[kInTriangle[i]] = RealAt(row(0), i, line);
      }
      break;
  }
  model_.sections.push_back(std::move(section));
  return true;
}

void InpParser::ReadBeamShape(InpSection& section, std::string_view shape,
                              std::span<const std::string_view> fields, std::size_t line) {
  tagTProp& p = section.property;
  std::array<double, 7> d{};
  for (std::size_t i = 0; i < d.size(); ++i) d[i] = RealAt(fields, i, line);
  const auto rectangle = [&](double a, double b, double sign) {
    p.area += sign * a * b;
    p.inertia_y += sign * a * b * b * b / 12;  // about the first axis of the section
    p.inertia_z += sign * b * a * a * a / 12;
  };
  const auto circle = [&](double r, double sign) {
    const double r2 = r * r;
    p.area += sign * std::numbers::pi * r2;
    p.inertia_y += sign * std::numbers::pi * r2 * r2 / 4;
    p.inertia_z += sign * std::numbers::pi * r2 * r2 / 4;
    p.torsion += sign * std::numbers::pi * r2 * r2 / 2;
  };
  if (shape == "GENERAL") {
    p.area = d[0];
    p.inertia_y = d[1];
    p.inertia_yz = d[2];
    p.inertia_z = d[3];
    p.torsion = d[4];
  } else if (shape == "RECT") {
    rectangle(d[0], d[1], 1);
    p.torsion = RectangleTorsion(d[0], d[1]);
  } else if (shape == "CIRC") {
    circle(d[0], 1);
  } else if (shape == "PIPE") {
    circle(d[0], 1);
    circle(d[0] - d[1], -1);
  } else if (shape == "BOX" && d[2] == d[3] && d[3] == d[4] && d[4] == d[5]) {
    rectangle(d[0], d[1], 1);
    rectangle(d[0] - 2 * d[2], d[1] - 2 * d[2], -1);
    const double a = d[0] - d[2];
    const double b = d[1] - d[2];
    // Bredt's formula for thin walls.
    if (a + b > 0) p.torsion = 2 * a * a * b * b * d[2] / (a + b);
  } else {
    ++simplified_["*" + block_->title + ", SECTION=" + std::string(shape) +
                  " is held without numbers"];
  }
}

/// Gives the elements of each section its number, and the section what depends on them.
void InpParser::AssignSections() {
  for (const auto& [index, name] : section_sets_) {
    InpSection& section = model_.sections[index];
    block_ = &text_.Blocks()[section.block];
    scope_ = section.scope;
    std::int32_t instance = -1;
    section.set = FindSet(Kind::kElements, name, instance);
    if (section.set == kNoPlace) {
      Fault(block_->begin, fmt::format("its element set '{}' is not there", name), "add the set");
      continue;
    }
    if (!section.material.empty() && !materials_.contains(section.material)) {
      model_.report.Lost("materials of sections that are not there", 1, name);
    }
    std::optional<InpFamily> family;
    std::int32_t type = 0;
    for (const InpMember& member : model_.sets[section.set].members) {
      const InpScope& of = ScopeOf(member, model_.sets[section.set].scope);
      const std::size_t e = of.element_index.Find(member.number);
      if (e == kNoPlace) continue;
      auto& element = const_cast<InpElement&>(of.elements[e]);
      element.section = static_cast<std::int32_t>(index);
      if (family) continue;
      type = element.type;
      const auto known = FindInpElement(
          AsciiUpper(model_.type_names[static_cast<std::size_t>(element.type_name)]));
      if (known) family = known->family;
    }
    tagTProp& property = section.property;
    if (!family) continue;
    if (*family == InpFamily::kTruss && property.type == tagTProp::kSolid) {
      property.type = tagTProp::kTruss;
      property.area = property.thickness;
      property.thickness = 0;
    } else if (*family == InpFamily::kPlaneStress && property.type == tagTProp::kSolid) {
      property.type = tagTProp::kPlaneStress;
    } else if (property.type == tagTProp::kSolid &&
               (*family == InpFamily::kPlaneStrain || *family == InpFamily::kAxisymmetric)) {
      property.type = tagTProp::kPlaneStrain;
      if (*family == InpFamily::kAxisymmetric) {
        ++simplified_["sections of axisymmetric elements are held as of plane strain"];
      }
    } else if (*family == InpFamily::kSolid && property.type == tagTProp::kPlate) {
      property.type = tagTProp::kSolid;  // continuum shells
    } else if (property.type == tagTProp::kSpring && type == element::kPoint) {
      property.type = tagTProp::kPointSpring;
    } else if (property.type == tagTProp::kElasticLink && type == element::kPoint) {
      property.type = tagTProp::kPointSpring;
    }
    const int dimension = FindElementType(type)->dimension;
    if (!section.is_mass && host::DimensionOf(property) >= 0 &&
        host::DimensionOf(property) != dimension) {
      property = tagTProp();
      ++simplified_["*" + block_->title + " of elements of another dimension holds its place only"];
    }
  }
  block_ = nullptr;
}

// ---- materials ----------------------------------------------------------------------------------

void InpParser::ReadMaterial() {
  const std::string name = Required("NAME");
  material_ = kNoPlace;
  if (name.empty()) return;
  if (!materials_.emplace(InpLabel(name), model_.materials.size()).second) {
    return Fault(block_->begin, fmt::format("material '{}' is there twice", name), "remove one");
  }
  material_ = model_.materials.size();
  InpMaterial material;
  material.block = at_;
  material.label = InpLabel(name);
  material.last = at_;
  material.record.name.Set(Utf16(name));
  model_.materials.push_back(std::move(material));
}

bool InpParser::ReadMaterialOption() {
  const std::string& keyword = block_->keyword;
  constexpr std::string_view kOptions[] = {"ELASTIC", "DENSITY", "EXPANSION", "CONDUCTIVITY",
                                           "SPECIFICHEAT"};
  const bool is_option =
      std::find(std::begin(kOptions), std::end(kOptions), keyword) != std::end(kOptions);
  if (!is_option) {
    const bool ends_material = keyword.ends_with("BEHAVIOR") || keyword == "STEP" ||
                               keyword == "SURFACEINTERACTION" || keyword.ends_with("SECTION");
    if (ends_material) material_ = kNoPlace;
    return false;
  }
  if (material_ == kNoPlace) return false;
  InpMaterial& material = model_.materials[material_];
  material.last = at_;
  const auto type = Parameter("TYPE");
  const std::string label = type ? InpLabel(*type) : "ISO";
  InpLines lines = Lines();
  if (!lines.Next()) return true;
  const std::vector<std::string_view> fields(lines.Fields().begin(), lines.Fields().end());
  const std::size_t line = lines.Begin();
  const bool is_isotropic = label.starts_with("ISO");
  bool is_in_part = lines.Next() || !is_isotropic;
  for (std::size_t i = keyword == "ELASTIC" ? 2 : 1; i < fields.size(); ++i) {
    is_in_part = is_in_part || !fields[i].empty();  // temperatures and further variables
  }
  if (is_in_part) ++simplified_["*" + block_->title + " of a material is held in part"];
  if (!is_isotropic || material.options.contains(keyword)) return true;
  material.options[keyword] = at_;
  tagTMatl& record = material.record;
  if (keyword == "ELASTIC") {
    record.elastic_modulus = RealAt(fields, 0, line);
    record.poisson_ratio = RealAt(fields, 1, line);
  } else if (keyword == "DENSITY") {
    record.density = RealAt(fields, 0, line);
  } else if (keyword == "EXPANSION") {
    record.thermal_expansion = RealAt(fields, 0, line);
    if (const auto zero = Parameter("ZERO"); zero && !zero->empty()) {
      record.reference_temperature = Real(*zero, block_->begin);
    }
  } else if (keyword == "CONDUCTIVITY") {
    record.conductivity = RealAt(fields, 0, line);
  } else {
    record.specific_heat = RealAt(fields, 0, line);
  }
  return true;
}

// ---- coordinate systems -------------------------------------------------------------------------

void InpParser::ReadOrientation() {
  const std::string name = Required("NAME");
  if (name.empty()) return;
  const auto definition = Parameter("DEFINITION");
  const auto given = Parameter("SYSTEM");
  const std::string system_type = given && !given->empty() ? InpLabel(*given) : "RECTANGULAR";
  InpSystem system;
  system.block = at_;
  system.label = InpLabel(name);
  system.record.name.Set(Utf16(name));
  std::vector<std::string_view> fields;
  InpLines lines = Lines();
  const std::size_t line = block_->data;
  bool has_more = false;
  if (lines.Next()) fields.assign(lines.Fields().begin(), lines.Fields().end());
  if (lines.Next()) has_more = lines.Fields().size() > 1 && DeckReal(lines.Fields()[1]) != 0.0;
  tagTCord& record = system.record;
  const bool by_coordinates = !definition || InpLabel(*definition) == "COORDINATES";
  if (by_coordinates && fields.size() >= 6) {
    const Vector3 a = VectorAt(fields, 0, line);
    const Vector3 b = VectorAt(fields, 3, line);
    const char first = system_type[0];
    if (first == 'C' || first == 'S') {
      SetPolar(record, first == 'C' ? tagTCord::kCylindrical : tagTCord::kSpherical, a, b);
    } else {
      record.plane = first == 'Z' ? 2 : 0;
      record.origin = VectorAt(fields, 6, line).As<tagTVector3<double>>();
      record.axis_point = a.As<tagTVector3<double>>();
      record.plane_point = b.As<tagTVector3<double>>();
    }
  }
  if (!by_coordinates || fields.size() < 6 || !IsGood(record)) {
    return Carry();  // it has no axes of its own in the model
  }
  if (has_more) ++simplified_["*ORIENTATION is held without its second rotation"];
  const auto same = std::find_if(model_.systems.begin(), model_.systems.end(),
                                 [&](const InpSystem& s) { return s.label == system.label; });
  if (same != model_.systems.end()) {
    if (model_.has_assembly || scope_ > 1) return Carry();  // of another part
    return Fault(block_->begin, fmt::format("orientation '{}' is there twice", name), "remove one");
  }
  model_.systems.push_back(std::move(system));
}

void InpParser::ReadTransform() {
  const std::string name = Required("NSET");
  if (name.empty()) return;
  std::int32_t instance = -1;
  InpSystem system;
  system.block = at_;
  system.set = FindSet(Kind::kNodes, name, instance);
  if (system.set == kNoPlace) {
    return Fault(block_->begin, fmt::format("its node set '{}' is not there", name),
                 "add the set before it");
  }
  const auto given = Parameter("TYPE");
  const char type = given && !given->empty() ? InpLabel(*given)[0] : 'R';
  InpLines lines = Lines();
  std::vector<std::string_view> fields;
  if (lines.Next()) fields.assign(lines.Fields().begin(), lines.Fields().end());
  if (fields.size() < 6) return Fault(block_->begin, "it has fewer than 6 numbers", "complete it");
  const Vector3 a = VectorAt(fields, 0, lines.Begin());
  const Vector3 b = VectorAt(fields, 3, lines.Begin());
  if (type == 'C' || type == 'S') {
    SetPolar(system.record, type == 'C' ? tagTCord::kCylindrical : tagTCord::kSpherical, a, b);
  } else {
    system.record.axis_point = a.As<tagTVector3<double>>();
    system.record.plane_point = b.As<tagTVector3<double>>();
  }
  if (!IsGood(system.record)) {
    return Fault(block_->begin, "its points are one or lie on a line", "correct them");
  }
  system.record.name.Set(Utf16("TRANSFORM " + name));
  model_.systems.push_back(std::move(system));
}

}  // namespace qx::exchange
