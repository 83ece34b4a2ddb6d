#include "exchange/nastran/nas_properties.h"

#include <algorithm>
#include <iterator>
#include <numbers>

#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kMaterials[] = {"MAT1"};
constexpr std::string_view kMaterialsInPart[] = {"MAT2", "MAT8", "MAT9", "MAT10"};
constexpr std::string_view kProperties[] = {"PSHELL", "PSHEAR", "PSOLID", "PROD",
                                            "PBAR",   "PBEAM",  "PBUSH"};
constexpr std::string_view kPropertiesInPart[] = {"PCOMP", "PBARL", "PBEAML", "PTUBE"};

template <class List>
bool Holds(const List& list, std::string_view name) {
  return std::find(std::begin(list), std::end(list), name) != std::end(list);
}

/// Where a material that is held in part has its density.
std::size_t DensityField(std::string_view card) {
  return card == "MAT9" ? 22 : card == "MAT10" ? 2 : 7;
}

/// Layers of a laminate: their thicknesses added, and their material where it is one.
void ReadLayers(NasFieldReader& in, const NasCard& card, tagTProp& property) {
  Key material = 0;
  double thickness = 0;
  bool is_one = true;
  for (std::size_t ply = 8; ply + 1 < card.fields.size(); ply += 4) {
    if (in.Text(card, ply).empty() && in.Text(card, ply + 1).empty() &&
        in.Text(card, ply + 2).empty())
      continue;
    const Key of_ply = in.Number(card, ply, material);
    is_one = is_one && (material == 0 || of_ply == material);
    material = of_ply;
    thickness = in.Real(card, ply + 1, thickness);
    property.thickness += thickness;
  }
  if (is_one) property.material = static_cast<ITR>(material);
  if (AsciiUpper(std::string(in.Text(card, 7))) == "SYM") property.thickness *= 2;
}

/// Section of a tube from its outer diameter and wall; none: it is full.
void ReadTube(NasFieldReader& in, const NasCard& card, tagTProp& property) {
  const double outer = in.Real(card, 2) / 2;
  const double wall = in.Real(card, 3);
  const double inner = wall > 0 ? std::max(0.0, outer - wall) : 0;
  property.area = std::numbers::pi * (outer * outer - inner * inner);
  property.torsion =
      std::numbers::pi / 2 * (outer * outer * outer * outer - inner * inner * inner * inner);
  property.non_structural_mass = in.Real(card, 4);
}

/// Points of the section that both bars and beams give from the ninth field on.
void ReadStressPoints(NasFieldReader& in, const NasCard& card, tagTProp& property) {
  for (std::size_t i = 0; i < 8; ++i) property.stress_points[i] = in.Real(card, 8 + i);
}

}  // namespace

bool IsNasCardInPart(std::string_view card) {
  return Holds(kMaterialsInPart, card) || Holds(kPropertiesInPart, card);
}
bool IsNasMaterial(std::string_view card) {
  return Holds(kMaterials, card) || Holds(kMaterialsInPart, card);
}
bool IsNasProperty(std::string_view card) {
  return Holds(kProperties, card) || Holds(kPropertiesInPart, card);
}

void ReadNasMaterial(NasFieldReader& in, const NasCard& card, tagTMatl& material) {
  material.key = in.Number(card, 0);
  material.name.Set(Utf16(fmt::format("{} {}", card.name, material.key)));
  if (card.name != "MAT1") {
    material.density = in.Real(card, DensityField(card.name));
    if (card.name == "MAT10") material.type = tagTMatl::kFluid;
    return;
  }
  material.elastic_modulus = in.Real(card, 1);
  material.shear_modulus = in.Real(card, 2);
  material.poisson_ratio = in.Real(card, 3);
  if (in.Text(card, 1).empty() && material.shear_modulus > 0) {
    material.elastic_modulus = 2 * (1 + material.poisson_ratio) * material.shear_modulus;
  }
  if (in.Text(card, 3).empty() && material.shear_modulus > 0 && material.elastic_modulus > 0) {
    material.poisson_ratio = material.elastic_modulus / (2 * material.shear_modulus) - 1;
  }
  material.density = in.Real(card, 4);
  material.thermal_expansion = in.Real(card, 5);
  material.reference_temperature = in.Real(card, 6);
  material.structural_damping = in.Real(card, 7);
  material.tensile_strength = in.Real(card, 8);
  material.compressive_strength = in.Real(card, 9);
  material.shear_strength = in.Real(card, 10);
}

NasFields NasMaterialCard(std::string_view name, const tagTMatl& m) {
  NasFields card{std::string(name)};
  card.Number(m.key);
  if (name != "MAT1") {
    card.Blank(static_cast<int>(DensityField(name)) - 1).RealOrBlank(m.density);
    return card;
  }
  card.Real(m.elastic_modulus).RealOrBlank(m.shear_modulus).Real(m.poisson_ratio);
  card.RealOrBlank(m.density).RealOrBlank(m.thermal_expansion);
  card.RealOrBlank(m.reference_temperature).RealOrBlank(m.structural_damping);
  card.RealOrBlank(m.tensile_strength).RealOrBlank(m.compressive_strength);
  card.RealOrBlank(m.shear_strength);
  return card;
}

void ReadNasProperty(NasFieldReader& in, const NasCard& card, tagTProp& property) {
  const std::string_view name = card.name;
  if (name != "PBUSH" && name != "PCOMP") property.material = static_cast<ITR>(in.Number(card, 1));
  if (name == "PSHELL") {
    const std::string_view bending = in.Text(card, 3);
    property.type = bending.empty()              ? tagTProp::kMembrane
                    : DeckInteger(bending) == -1 ? tagTProp::kPlaneStrain
                                                 : tagTProp::kPlate;
    if (property.material == 0 && property.type == tagTProp::kPlate) {
      property.material = static_cast<ITR>(in.Number(card, 3));
    }
    property.thickness = in.Real(card, 2);
    property.non_structural_mass = in.Real(card, 7);
  } else if (name == "PCOMP") {
    property.type = tagTProp::kPlate;
    property.non_structural_mass = in.Real(card, 2);
    ReadLayers(in, card, property);
  } else if (name == "PSHEAR") {
    property.type = tagTProp::kMembrane;
    property.thickness = in.Real(card, 2);
    property.non_structural_mass = in.Real(card, 3);
  } else if (name == "PSOLID") {
    property.type = tagTProp::kSolid;
    // -1 is the element's own, which the model has no word for.
    if (DeckInteger(in.Text(card, 2)) != -1) {
      property.coordinate_system = static_cast<ITR>(in.Number(card, 2));
    }
  } else if (name == "PROD") {
    property.type = tagTProp::kTruss;
    property.area = in.Real(card, 2);
    property.torsion = in.Real(card, 3);
    property.non_structural_mass = in.Real(card, 5);
  } else if (name == "PTUBE") {
    property.type = tagTProp::kTruss;
    ReadTube(in, card, property);
  } else if (name == "PBAR" || name == "PBEAM") {
    const bool is_bar = name == "PBAR";
    property.type = tagTProp::kBeam;
    property.area = in.Real(card, 2);
    property.inertia_z = in.Real(card, 3);
    property.inertia_y = in.Real(card, 4);
    property.inertia_yz = in.Real(card, is_bar ? 18 : 5);
    property.torsion = in.Real(card, is_bar ? 5 : 6);
    property.non_structural_mass = in.Real(card, is_bar ? 6 : 7);
    // The second station of a beam may follow without its points.
    if (is_bar || DeckReal(in.Text(card, 8)) || in.Text(card, 8).empty()) {
      ReadStressPoints(in, card, property);
    }
    if (is_bar) {
      property.shear_area_y = property.area * in.Real(card, 16);
      property.shear_area_z = property.area * in.Real(card, 17);
    }
  } else if (name == "PBARL" || name == "PBEAML") {
    property.type = tagTProp::kBeam;
  } else if (name == "PBUSH") {
    property.type = tagTProp::kElasticLink;
    for (std::size_t f = 1; f < card.fields.size(); f += 8) {
      const std::string what = AsciiUpper(std::string(in.Text(card, f)));
      for (std::size_t i = 0; i < 6; ++i) {
        if (what == "K") property.stiffness[i] = in.Real(card, f + 1 + i);
        if (what == "B") property.damping[i] = in.Real(card, f + 1 + i);
      }
    }
  }
  property.key = in.Number(card, 0);
  property.name.Set(Utf16(fmt::format("{} {}", name, property.key)));
}

NasFields NasPropertyCard(std::string_view name, const tagTProp& p) {
  NasFields card{std::string(name)};
  const auto material = static_cast<Key>(p.material);
  card.Number(p.key);
  if (name == "PCOMP") return std::move(card.Blank().RealOrBlank(p.non_structural_mass));
  if (name == "PBUSH") {
    const auto row = [&](const char* what, const PackedDouble(&numbers)[6]) {
      const bool any = std::any_of(std::begin(numbers), std::end(numbers),
                                   [](double number) { return number != 0; });
      if (!any) return;
      if (card.Count() > 1) card.Blank(static_cast<int>(9 - card.Count()));
      card.Word(what);
      for (const double number : numbers) card.RealOrBlank(number);
    };
    row("K", p.stiffness);
    row("B", p.damping);
    return card;
  }
  card.Number(material);
  if (name == "PSHELL") {
    const bool is_plate = p.type == tagTProp::kPlate;
    card.Real(p.thickness);
    if (p.type == tagTProp::kPlaneStrain) {
      card.Word("-1");
    } else {
      card.Number(is_plate ? material : 0);
    }
    card.Blank().Number(is_plate ? material : 0).Blank().RealOrBlank(p.non_structural_mass);
  } else if (name == "PSHEAR") {
    card.Real(p.thickness).RealOrBlank(p.non_structural_mass);
  } else if (name == "PSOLID") {
    card.Number(static_cast<Key>(p.coordinate_system));
  } else if (name == "PROD") {
    card.Real(p.area).RealOrBlank(p.torsion).Blank().RealOrBlank(p.non_structural_mass);
  } else if (name == "PTUBE") {
    card.Blank(2).RealOrBlank(p.non_structural_mass);
  } else if (name == "PBAR" || name == "PBEAM") {
    const bool is_bar = name == "PBAR";
    card.Real(p.area).Real(p.inertia_z).Real(p.inertia_y);
    if (!is_bar) card.RealOrBlank(p.inertia_yz);
    card.RealOrBlank(p.torsion).RealOrBlank(p.non_structural_mass);
    if (is_bar) card.Blank();
    for (const double point : p.stress_points) card.RealOrBlank(point);
    if (is_bar) {
      const double area = p.area != 0 ? p.area : 1;
      card.RealOrBlank(p.shear_area_y / area).RealOrBlank(p.shear_area_z / area);
      card.RealOrBlank(p.inertia_yz);
    }
  }
  return card;
}

std::string_view NasWholeCard(std::string_view card) {
  if (card == "PBARL") return "PBAR";
  if (card == "PBEAML") return "PBEAM";
  if (card == "PCOMP") return "PSHELL";
  if (card == "PTUBE") return "PROD";
  return card.starts_with("MAT") ? "MAT1" : card;
}

bool NasCardFits(std::string_view card, const tagTProp& property) {
  const std::string_view own = NasCardOfProperty(property);
  if (card == "PSHEAR") return property.type == tagTProp::kMembrane;
  const std::string_view whole = NasWholeCard(card);
  return own == whole || (own == "PBAR" && whole == "PBEAM");
}

std::string_view NasCardOfProperty(const tagTProp& property) {
  switch (property.type) {
    case tagTProp::kPlate:
    case tagTProp::kMembrane:
    case tagTProp::kPlaneStress:
    case tagTProp::kPlaneStrain:
      return "PSHELL";
    case tagTProp::kSolid:
      return "PSOLID";
    case tagTProp::kTruss:
      return "PROD";
    case tagTProp::kBeam:
      return "PBAR";
    case tagTProp::kSpring:
    case tagTProp::kPointSpring:
    case tagTProp::kElasticLink:
      return "PBUSH";
    default:
      return {};
  }
}

}  // namespace qx::exchange
