#include "exchange/abaqus/inp_pieces.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>

#include "qx_db/model/coordinate_pool.h"

namespace qx::exchange {
namespace {

constexpr std::size_t kPerLine = 16;

template <class... Numbers>
std::string Line(int digits, Numbers... numbers) {
  std::string text;
  ((text += (text.empty() ? "" : ", ") + InpReal(numbers, digits)), ...);
  return text + "\n";
}

std::string Points(const Vector3& a, const Vector3& b) {
  return Line(0, a.x, a.y, a.z, b.x, b.y, b.z);
}

}  // namespace

std::string InpReal(double value, int digits) {
  if (value == 0) value = 0;  // no sign
  std::string text = digits > 0 ? fmt::format("{:.{}g}", value, digits) : fmt::format("{}", value);
  if (text.find_first_of(".e") == std::string::npos) text += '.';
  return text;
}

std::string InpName(std::string_view name) {
  std::string out;
  bool is_plain = !name.empty() && !(name[0] >= '0' && name[0] <= '9') && name[0] != '*';
  for (const char c : name) {
    const auto u = static_cast<unsigned char>(c);
    const bool is_plain_char = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                               (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '+' ||
                               c == '/' || c == '(' || c == ')' || c == '~' || c == '#';
    is_plain = is_plain && is_plain_char;
    out += c == '"' || u < 0x20 ? '_' : c;
  }
  return is_plain ? out : '"' + out + '"';
}

void AppendNode(std::string& text, Key number, const Vector3& point) {
  fmt::format_to(std::back_inserter(text), "{}, {}, {}, {}\n", number, InpReal(point.x),
                 InpReal(point.y), InpReal(point.z));
}

void AppendElement(std::string& text, Key number, std::span<const std::string> nodes) {
  text += fmt::format("{}", number);
  std::size_t on_line = 1;
  for (const std::string& node : nodes) {
    text += on_line == kPerLine ? ",\n" : ", ";
    on_line = on_line == kPerLine ? 0 : on_line;
    text += node;
    ++on_line;
  }
  text += '\n';
}

void AppendList(std::string& text, std::span<const Key> numbers) {
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const bool ends = i + 1 == numbers.size() || i % kPerLine == kPerLine - 1;
    fmt::format_to(std::back_inserter(text), "{}{}", numbers[i], ends ? "\n" : ", ");
  }
}

std::string SetText(bool is_nodes, std::string_view name, std::span<const Key> numbers,
                    std::string_view instance) {
  std::string text =
      fmt::format("*{}set, {}set={}", is_nodes ? "N" : "El", is_nodes ? "n" : "el", InpName(name));
  if (!instance.empty()) text += ", instance=" + InpName(instance);
  const bool is_range = numbers.size() > 2 && numbers.back() - numbers.front() ==
                                                  static_cast<std::int64_t>(numbers.size()) - 1;
  if (is_range) {
    return text + fmt::format(", generate\n{}, {}, 1\n", numbers.front(), numbers.back());
  }
  text += '\n';
  AppendList(text, numbers);
  return text;
}

std::string SideName(std::int32_t side, bool is_shell) {
  if (side == kInpTop) return "SPOS";
  if (side == kInpBottom) return "SNEG";
  return fmt::format("{}{}", is_shell ? 'E' : 'S', side + 1);
}

// ---- materials ----------------------------------------------------------------------------------

std::string MaterialOption(const tagTMatl& m, std::string_view option, int digits) {
  if (option == "ELASTIC") {
    return m.elastic_modulus == 0 ? "" : Line(digits, m.elastic_modulus, m.poisson_ratio);
  }
  const double value = option == "DENSITY"        ? m.density
                       : option == "EXPANSION"    ? m.thermal_expansion
                       : option == "CONDUCTIVITY" ? m.conductivity
                                                  : m.specific_heat;
  return value == 0 ? "" : Line(digits, value);
}

std::string MaterialOptionHead(const tagTMatl& material, std::string_view option,
                               std::string_view title) {
  if (option == "EXPANSION" && material.reference_temperature != 0) {
    return fmt::format("*{}, zero={}\n", title, InpReal(material.reference_temperature));
  }
  return fmt::format("*{}\n", title);
}

std::string MaterialText(const tagTMatl& material, std::string_view name) {
  std::string text = fmt::format("*Material, name={}\n", InpName(name));
  for (const auto& [option, title] : kInpMaterialOptions) {
    const std::string data = MaterialOption(material, option);
    if (!data.empty()) text += MaterialOptionHead(material, option, title) + data;
  }
  return text;
}

std::string UnwrittenPartsOf(const tagTMatl& m) {
  tagTMatl said;
  if (m.elastic_modulus != 0) {
    said.elastic_modulus = m.elastic_modulus;
    said.poisson_ratio = m.poisson_ratio;
  }
  if (m.thermal_expansion != 0) said.reference_temperature = m.reference_temperature;
  said.thermal_expansion = m.thermal_expansion;
  said.density = m.density;
  said.conductivity = m.conductivity;
  said.specific_heat = m.specific_heat;
  return UnsaidMembers(tagTMatl::GetSchema(), m, said);
}

// ---- sections -----------------------------------------------------------------------------------

std::string SectionText(const tagTProp& p, std::string_view set, std::string_view material,
                        double elastic, double shear, std::string_view orientation,
                        const std::optional<Vector3>& direction) {
  std::string tail = fmt::format(", elset={}", InpName(set));
  if (!material.empty()) tail += fmt::format(", material={}", InpName(material));
  if (!orientation.empty()) tail += fmt::format(", orientation={}", InpName(orientation));
  tail += '\n';
  switch (p.type) {
    case tagTProp::kSolid:
      return "*Solid Section" + tail + ",\n";
    case tagTProp::kPlaneStress:
    case tagTProp::kPlaneStrain:
      return "*Solid Section" + tail + (p.thickness == 0 ? ",\n" : Line(0, p.thickness));
    case tagTProp::kTruss:
      return "*Solid Section" + tail + Line(0, p.area);
    case tagTProp::kPlate:
      return "*Shell Section" + tail + Line(0, p.thickness);
    case tagTProp::kMembrane:
      return "*Membrane Section" + tail + Line(0, p.thickness);
    case tagTProp::kBeam: {
      const Vector3 axis = direction.value_or(Vector3{0, 0, -1});
      return fmt::format("*Beam General Section, elset={}, section=GENERAL\n", InpName(set)) +
             Line(0, p.area, p.inertia_y, p.inertia_yz, p.inertia_z, p.torsion) +
             Line(0, axis.x, axis.y, axis.z) + Line(0, elastic, shear);
    }
    case tagTProp::kSpring:
    case tagTProp::kPointSpring: {
      const auto dof =
          static_cast<std::size_t>(std::find_if(std::begin(p.stiffness), std::end(p.stiffness),
                                                [](double k) { return k != 0; }) -
                                   std::begin(p.stiffness));
      if (dof == 6) return {};
      const std::string head =
          p.type == tagTProp::kSpring ? std::string("\n") : fmt::format("{}\n", dof + 1);
      return fmt::format("*Spring, elset={}\n", InpName(set)) + head + Line(0, p.stiffness[dof]);
    }
    default:
      return {};
  }
}

std::string UnwrittenPartsOf(const tagTProp& p) {
  tagTProp said;
  said.type = p.type;
  said.material = p.material;
  said.coordinate_system = p.coordinate_system;
  switch (p.type) {
    case tagTProp::kPlate:
    case tagTProp::kMembrane:
    case tagTProp::kPlaneStress:
    case tagTProp::kPlaneStrain:
      said.thickness = p.thickness;
      break;
    case tagTProp::kTruss:
      said.area = p.area;
      break;
    case tagTProp::kBeam:
      said.area = p.area;
      said.inertia_y = p.inertia_y;
      said.inertia_z = p.inertia_z;
      said.inertia_yz = p.inertia_yz;
      said.torsion = p.torsion;
      break;
    case tagTProp::kSpring:
    case tagTProp::kPointSpring:
      for (std::size_t dof = 0; dof < 6; ++dof) {
        if (p.stiffness[dof] == 0) continue;
        said.stiffness[dof] = p.stiffness[dof];
        break;
      }
      break;
    default:
      break;
  }
  return UnsaidMembers(tagTProp::GetSchema(), p, said);
}

// ---- systems ------------------------------------------------------------------------------------

std::string OrientationText(const SystemFrame& s, std::string_view name) {
  const std::string head = fmt::format("*Orientation, name={}", InpName(name));
  if (s.type != tagTCord::kRectangular) {
    return head +
           (s.type == tagTCord::kCylindrical ? ", system=CYLINDRICAL\n" : ", system=SPHERICAL\n") +
           Points(s.origin, s.origin + s.z);
  }
  const Vector3 a = s.origin + s.x;
  const Vector3 b = s.origin + s.y;
  return head + "\n" + Line(0, a.x, a.y, a.z, b.x, b.y, b.z, s.origin.x, s.origin.y, s.origin.z);
}

std::string TransformText(const SystemFrame& s, std::string_view set) {
  const std::string head = fmt::format("*Transform, nset={}", InpName(set));
  if (s.type == tagTCord::kRectangular) return head + "\n" + Points(s.x, s.y);
  return head + (s.type == tagTCord::kCylindrical ? ", type=C\n" : ", type=S\n") +
         Points(s.origin, s.origin + s.z);
}

}  // namespace qx::exchange
