#pragma once
// Attributes of elements: offsets, releases, thicknesses, material axes, property switches. Most
// name their elements in a list; those of solids are keyed by the element.
// Threads: records are values (TStructBase).

#include "qx_db/record/default_name.h"
#include "qx_db/record/record.h"
#include "qx_db/record/unit_descriptor.h"

namespace qx {

#pragma pack(push, 4)

/// Offsets of the ends of beams. End A is on and end B off by default, on purpose.
struct QXDB_API tagTE1DOffset final : TRecord<tagTE1DOffset, code::kE1DOffset> {
  Key key = 0;
  TString<64> name{DefaultName("IDS_QXMESH_FEPARAM_NAME_OFFSET")};
  TRefArray<code::kElem> elements;
  std::int32_t end_a = 1;  ///< flag
  PackedDouble offset_a[3]{};
  std::int32_t end_b = 0;  ///< flag
  PackedDouble offset_b[3]{};
  std::int32_t csys_type = 1;     ///< 0 global, 1 element
  std::int32_t from_section = 1;  ///< flag
};

/// Releases of the ends of beams: T1 to T3, R1 to R3 at A, then at B.
struct QXDB_API tagTE1DRelease final : TRecord<tagTE1DRelease, code::kE1DRelease> {
  /// Values of `type`: what the partial releases are.
  static constexpr std::int32_t kFactors = 0;
  static constexpr std::int32_t kStiffnesses = 1;

  Key key = 0;
  TString<64> name{DefaultName("IDS_QXMESH_FEPARAM_NAME_RELEASE")};
  TRefArray<code::kElem> elements;
  std::int32_t released[12]{};  ///< flags
  std::int32_t type = kFactors;
  PackedDouble partial_translation_a[3]{};
  PackedDouble partial_rotation_a[3]{};
  PackedDouble partial_translation_b[3]{};
  PackedDouble partial_rotation_b[3]{};
};

/// Thickness of plates, uniform or by corner.
struct QXDB_API tagTE2DThick final : TRecord<tagTE2DThick, code::kE2DThick> {
  Key key = 0;
  TString<64> name{DefaultName("IDS_QXMESH_FEPARAM_NAME_THICK")};
  TRefArray<code::kElem> elements;
  std::int32_t uniform = 1;               ///< flag
  TRef<code::kFunc> function;             ///< varies the thickness
  PackedDouble thickness[4]{1, 1, 1, 1};  ///< at the corners
};

/// Offset of plates. Shares the default name of the beam offset on purpose.
struct QXDB_API tagTE2DOffset final : TRecord<tagTE2DOffset, code::kE2DOffset> {
  Key key = 0;
  TString<64> name{DefaultName("IDS_QXMESH_FEPARAM_NAME_OFFSET")};
  TRefArray<code::kElem> elements;
  TRef<code::kFunc> function;  ///< varies the offset
  double offset = 0;
};

/// Material coordinate system of plates.
struct QXDB_API tagTE2DMatlCsys final : TRecord<tagTE2DMatlCsys, code::kE2DMatlCsys> {
  /// Values of `type`: how the material axis is given.
  static constexpr std::int32_t kByAngle = 0;
  static constexpr std::int32_t kByCoordinateSystem = 1;
  static constexpr std::int32_t kByVector = 2;

  Key key = 0;
  TString<64> name{DefaultName("IDS_QXMESH_FEPARAM_NAME_MATLCSYS")};
  TRefArray<code::kElem> elements;
  std::int32_t type = kByAngle;
  TRef<code::kCord> coordinate_system;
  std::int32_t csys_axis = 0;  ///< axis of the system to project: 0 x, 1 y, 2 z
  double angle_deg = 0;        ///< from the element's x axis
  tagTVector3<double> reference_vector{1, 0, 0};
};

/// Releases along the edges of plates.
struct QXDB_API tagTE2DRelease final : TRecord<tagTE2DRelease, code::kE2DRelease> {
  Key key = 0;
  TString<64> name{DefaultName("IDS_QXMESH_FEPARAM_NAME_RELEASE_2D")};
  TRefArray<code::kElem> elements;
  TRefArray<code::kNode> nodes;
  TRef<code::kCord> coordinate_system;
  std::int32_t released[6]{};  ///< flags
};

/// Material axes of one solid element, keyed by it.
struct QXDB_API tagTE3DMatlCsys final : TRecord<tagTE3DMatlCsys, code::kE3DMatlCsys> {
  Key key = 0;
  tagTVector3<double> x_axis{0, 0, 0};
  tagTVector3<double> y_axis{1, 0, 0};
  tagTVector3<double> z_axis{0, 1, 0};
};

/// Factors on the material of one solid element, keyed by it.
struct QXDB_API tagTE3DScaleFac final : TRecord<tagTE3DScaleFac, code::kE3DScaleFac> {
  Key key = 0;
  PackedDouble elastic_modulus[3]{};
  PackedDouble thermal_expansion[3]{};
  PackedDouble poisson_ratio[3]{};
  double density = 0;
};

/// Properties of plates below and above the water table.
struct QXDB_API tagTE2DSatUnsat final : TRecord<tagTE2DSatUnsat, code::kE2DSatUnsat> {
  Key key = 0;
  TString<64> name{DefaultName("IDS_QXMESH_FEPARAM_2D_SAT_UNSAT")};
  TRefArray<code::kElem> elements;
  TRef<code::kProp> saturated;
  TRef<code::kProp> unsaturated;
};

/// Properties of solids below and above the water table.
struct QXDB_API tagTE3DSatUnsat final : TRecord<tagTE3DSatUnsat, code::kE3DSatUnsat> {
  Key key = 0;
  TString<64> name{DefaultName("IDS_QXMESH_FEPARAM_3D_SAT_UNSAT")};
  TRefArray<code::kElem> elements;
  TRef<code::kProp> saturated;
  TRef<code::kProp> unsaturated;
};

/// Properties of plates above and below a temperature.
struct QXDB_API tagTE2DAutoTemp final : TRecord<tagTE2DAutoTemp, code::kE2DAutoTemp> {
  Key key = 0;
  TString<64> name{DefaultName("IDS_QXMESH_FEPARAM_2D_AUTO_TEMP")};
  TRefArray<code::kElem> elements;
  TRef<code::kProp> above;
  TRef<code::kProp> below;
  double reference_temperature = 0;
};

/// Properties of solids above and below a temperature.
struct QXDB_API tagTE3DAutoTemp final : TRecord<tagTE3DAutoTemp, code::kE3DAutoTemp> {
  Key key = 0;
  TString<64> name{DefaultName("IDS_QXMESH_FEPARAM_3D_AUTO_TEMP")};
  TRefArray<code::kElem> elements;
  TRef<code::kProp> above;
  TRef<code::kProp> below;
  double reference_temperature = 0;
};

#pragma pack(pop)

QX_DECLARE_RECORD(tagTE1DOffset);
QX_DECLARE_RECORD(tagTE1DRelease);
QX_DECLARE_RECORD(tagTE2DThick);
QX_DECLARE_RECORD(tagTE2DOffset);
QX_DECLARE_RECORD(tagTE2DMatlCsys);
QX_DECLARE_RECORD(tagTE2DRelease);
QX_DECLARE_RECORD(tagTE3DMatlCsys);
QX_DECLARE_RECORD(tagTE3DScaleFac);
QX_DECLARE_RECORD(tagTE2DSatUnsat);
QX_DECLARE_RECORD(tagTE3DSatUnsat);
QX_DECLARE_RECORD(tagTE2DAutoTemp);
QX_DECLARE_RECORD(tagTE3DAutoTemp);

/// Unit categories, group by group.
using CQXE1DOffsetUnit = TUnitDescriptor<tagTE1DOffset, 1>;
using CQXE1DReleaseUnit = TUnitDescriptor<tagTE1DRelease, 2>;
using CQXE2DThickUnit = TUnitDescriptor<tagTE2DThick, 1>;
using CQXE2DOffsetUnit = TUnitDescriptor<tagTE2DOffset, 1>;
using CQXE2DMatlCsysUnit = TUnitDescriptor<tagTE2DMatlCsys, 1>;
using CQXE2DAutoTempUnit = TUnitDescriptor<tagTE2DAutoTemp, 1>;
using CQXE3DAutoTempUnit = TUnitDescriptor<tagTE3DAutoTemp, 1>;
extern template class TUnitDescriptor<tagTE1DOffset, 1>;
extern template class TUnitDescriptor<tagTE1DRelease, 2>;
extern template class TUnitDescriptor<tagTE2DThick, 1>;
extern template class TUnitDescriptor<tagTE2DOffset, 1>;
extern template class TUnitDescriptor<tagTE2DMatlCsys, 1>;
extern template class TUnitDescriptor<tagTE2DAutoTemp, 1>;
extern template class TUnitDescriptor<tagTE3DAutoTemp, 1>;

}  // namespace qx
