#include "exchange/nastran/nas_properties.h"

#include "qx_db/platform/text.h"

namespace qx::exchange {

bool ReadNasMaterial(NasFieldReader& in, const NasCard& card, tagTMatl& material, bool& in_part) {
  const std::string_view kind = std::string_view(card.name).substr(3);
  if (kind != "1" && kind != "2" && kind != "8" && kind != "9" && kind != "10") return false;
  material.key = in.Number(card, 0);
  material.name.Set(Utf16(fmt::format("{} {}", card.name, material.key)));
  if (kind == "1") {
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
  } else if (kind == "8") {
    material.elastic_modulus = in.Real(card, 1);
    material.poisson_ratio = in.Real(card, 3);
    material.shear_modulus = in.Real(card, 4);
    material.density = in.Real(card, 7);
    in_part = true;
  } else {
    material.density = in.Real(card, kind == "2" ? 7 : kind == "9" ? 22 : 3);
    in_part = true;
  }
  return true;
}

bool ReadNasProperty(NasFieldReader& in, const NasCard& card, tagTProp& property, bool& in_part) {
  const std::string& name = card.name;
  const auto material = [&](std::size_t field) {
    property.material = static_cast<ITR>(in.Number(card, field));
  };
  if (name == "PSHELL") {
    property.type = tagTProp::kPlate;
    material(1);
    property.thickness = in.Real(card, 2);
    property.non_structural_mass = in.Real(card, 7);
  } else if (name == "PCOMP") {
    property.type = tagTProp::kPlate;
    property.material = static_cast<ITR>(in.Number(card, 8));
    Key last_material = 0;
    double last = 0;
    for (std::size_t ply = 8; ply + 1 < card.fields.size(); ply += 4) {
      if (in.Text(card, ply).empty() && in.Text(card, ply + 1).empty() &&
          in.Text(card, ply + 2).empty())
        continue;
      last_material = in.Number(card, ply, last_material);
      last = in.Real(card, ply + 1, last);
      property.thickness += last;
    }
    if (AsciiUpper(in.Text(card, 7)) == "SYM") property.thickness *= 2;
    property.non_structural_mass = in.Real(card, 2);
    in_part = true;
  } else if (name == "PSHEAR") {
    property.type = tagTProp::kMembrane;
    material(1);
    property.thickness = in.Real(card, 2);
    property.non_structural_mass = in.Real(card, 3);
  } else if (name == "PSOLID") {
    property.type = tagTProp::kSolid;
    material(1);
  } else if (name == "PROD") {
    property.type = tagTProp::kTruss;
    material(1);
    property.area = in.Real(card, 2);
    property.torsion = in.Real(card, 3);
    property.non_structural_mass = in.Real(card, 5);
  } else if (name == "PBAR" || name == "PBEAM") {
    property.type = tagTProp::kBeam;
    material(1);
    property.area = in.Real(card, 2);
    property.inertia_z = in.Real(card, 3);
    property.inertia_y = in.Real(card, 4);
    property.torsion = in.Real(card, name == "PBAR" ? 5 : 6);
    property.inertia_yz = name == "PBEAM" ? in.Real(card, 5) : 0;
    property.non_structural_mass = in.Real(card, name == "PBAR" ? 6 : 7);
  } else if (name == "PBARL" || name == "PBEAML" || name == "PTUBE") {
    property.type = name == "PTUBE" ? tagTProp::kTruss : tagTProp::kBeam;
    material(1);
    in_part = true;
  } else if (name == "PBUSH") {
    property.type = tagTProp::kElasticLink;
    if (AsciiUpper(in.Text(card, 1)) == "K") {
      for (std::size_t i = 0; i < 6; ++i) property.stiffness[i] = in.Real(card, 2 + i);
    }
  } else {
    return false;
  }
  property.key = in.Number(card, 0);
  property.name.Set(Utf16(fmt::format("{} {}", name, property.key)));
  return true;
}

}  // namespace qx::exchange
