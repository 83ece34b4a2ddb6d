#pragma once
// The materials of a structural model.
// Threads: records are values (TStructBase).

#include <span>
#include <string_view>

#include "qx_db/pool/ext_db_pool.h"
#include "qx_db/record/record.h"
#include "qx_db/record/unit_descriptor.h"

namespace qx {

#pragma pack(push, 4)

/// A material. Numbers are in model units; 0 where a number is not known.
struct tagTMatl final : TRecord<tagTMatl, code::kMatl> {
  /// Values of `type`.
  static constexpr std::int32_t kIsotropic = 1;
  static constexpr std::int32_t kFluid = 2;
  static constexpr std::int32_t kParticle = 3;

  Key key = 0;
  TString<64> name;
  std::int32_t type = kIsotropic;
  std::int32_t color = 0xA0A0A0;  ///< 0x00BBGGRR
  double elastic_modulus = 0;
  double shear_modulus = 0;  ///< 0: follows from the other two
  double poisson_ratio = 0;
  double density = 0;  ///< mass density
  double thermal_expansion = 0;
  double reference_temperature = 0;
  double conductivity = 0;
  double specific_heat = 0;
  double heat_generation_factor = 0;
  double structural_damping = 0;  ///< ratio
  double mass_damping = 0;        ///< proportional to mass
  double stiffness_damping = 0;   ///< proportional to stiffness
  double tensile_strength = 0;
  double compressive_strength = 0;
  double shear_strength = 0;
  double yield_stress = 0;
  double tangent_modulus = 0;  ///< beyond yield
  double endurance_limit = 0;
  double endurance_cycles = 0;
  double dynamic_viscosity = 0;
  TString<128> library;          ///< name of the library it was taken from; empty for none
  TString<64> library_category;  ///< standard or family within the library

  /// The shear modulus, derived as E / (2 (1 + nu)) when none is given.
  double ShearModulus() const;
};

#pragma pack(pop)

/// Unit categories, group by group.
using CQXMatlUnit = TUnitDescriptor<tagTMatl, 9>;
extern template class TUnitDescriptor<tagTMatl, 9>;

using DPoolMatl = DPoolPlain<tagTMatl>;

namespace host {

/// A kind of material: the number in its record, and its name.
struct MaterialKind {
  std::int32_t type;
  std::string_view name;
  bool structural;
};
std::span<const MaterialKind> MaterialKinds();
/// Null for an unknown number.
const MaterialKind* FindMaterialKind(std::int32_t type);

}  // namespace host

}  // namespace qx
