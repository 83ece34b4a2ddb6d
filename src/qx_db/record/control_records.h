#pragma once
// What steers mesh generation and groups its results: mesh sets, size controls, seeds, layers,
// special properties.
// Threads: records are values (TStructBase).

#include "qx_db/record/array_elements.h"
#include "qx_db/record/default_name.h"
#include "qx_db/record/record.h"
#include "qx_db/record/unit_descriptor.h"

namespace qx {

#pragma pack(push, 4)

/// A mesh set: nodes and elements with a name and a colour, in a hierarchy.
struct QXDB_API tagTMset final : TRecord<tagTMset, code::kMset> {
  Key key = 0;
  TString<64> name;
  std::int32_t color = 65535;
  TRefArray<code::kNode> nodes;
  TRefArray<code::kElem> elements;
  TRef<code::kGeom> geometry;  ///< that the set was meshed from
  std::int32_t connected = 0;  ///< flag
  std::int32_t connected_nodes = 0;
  Key parent_key = 0;  ///< of a mesh set; one that names none makes this a top-level set
};

/// How to seed geometry edges.
struct QXDB_API tagTSzct final : TRecord<tagTSzct, code::kSzct> {
  /// Values of `method`.
  static constexpr std::int32_t kBySize = 1;
  static constexpr std::int32_t kByDivisions = 2;
  static constexpr std::int32_t kLinearGrading = 3;
  static constexpr std::int32_t kGeometricGrading = 4;
  static constexpr std::int32_t kHyperbolic = 5;
  static constexpr std::int32_t kByPositions = 8;

  Key key = 0;
  TString<64> name{DefaultName("IDS_QX_DB_MESH_EDGE_SET")};
  TRefArray<code::kGKey> edges;
  TRefArray<code::kGKey> reversed_edges;  ///< seeded from their end
  TRefArray<code::kGKey> bodies;
  std::int32_t method = kBySize;
  std::int32_t int_params[10]{};
  PackedDouble dbl_params[10]{};
  TArray<tagTVector3<double>> custom_seeds;  ///< points
  TArray<double> custom_ratios;              ///< fractions of the edge
  std::int32_t adaptive = 0;                 ///< flag
  std::int32_t state = 0;
  TArray<std::int32_t> locked;  ///< 1 for each edge whose seeds must stay
};

/// A seeding record. Shares the default name of the size control on purpose.
struct QXDB_API tagTSprs final : TRecord<tagTSprs, code::kSprs> {
  Key key = 0;
  TString<64> name{DefaultName("IDS_QX_DB_MESH_EDGE_SET")};
  TRefArray<code::kGKey> items;
  TRefArray<code::kGKey> bodies;
  std::int32_t state = 0;
};

/// The default element size: one record, with key 1.
struct QXDB_API tagTDefSize final : TRecord<tagTDefSize, code::kDefSize> {
  /// Values of `type`: what `value` is.
  static constexpr std::int32_t kSize = 0;
  static constexpr std::int32_t kDivisions = 1;

  Key key = 1;
  TString<64> name{DefaultName("IDS_QX_DB_MESH_DEFAULT_SIZE")};
  std::int32_t use = 0;  ///< flag
  std::int32_t type = kSize;
  double value = 0;
  std::int32_t first_show = 1;  ///< flag
};

/// Gives a property to the elements of geometry items.
struct QXDB_API tagTPropCtrl final : TRecord<tagTPropCtrl, code::kPropCtrl> {
  Key key = 0;
  TString<64> name;
  std::int32_t property_type = 0;
  TRefArray<code::kGKey> items;
  TRef<code::kProp> property;
  std::int32_t state = 0;
};

/// Assigns a coordinate system to the nodes of a mesh set.
struct QXDB_API tagTMeshCsys final : TRecord<tagTMeshCsys, code::kMeshCsys> {
  Key key = 0;
  std::int32_t type = 0;
  TRef<code::kMset> mesh_set;
  TRef<code::kCord> coordinate_system;
};

/// Layers of elements along the edges of a face.
struct QXDB_API tagTLyct final : TRecord<tagTLyct, code::kLyct> {
  Key key = 0;
  TString<64> name{DefaultName("IDS_QX_DB_NAME_LYCT")};
  TRef<code::kGKey> face;
  TRefArray<code::kGKey> edges;
  std::int32_t layers = 1;
  double first_height = 0;
  double growth_ratio = 1;
};

/// What to keep of an optimisation result.
struct QXDB_API tagTOpti final : TRecord<tagTOpti, code::kOpti> {
  Key key = 0;
  TRef<code::kAnalysisCase> analysis;
  TRef<code::kAnalysisStep> step;
  double density = 0;       ///< threshold, 0 to 1
  std::int32_t smooth = 1;  ///< flag
  double smoothing = 0;
  TString<64> name_suffix{u"_Optimzed"};
  std::int32_t model_type = 0;
  TRefArray<code::kNode> nodes;
  TRefArray<code::kElem> elements;
  TArray<tagTElemSide> sides;
};

/// Special property of one element: spring, rigid link, mass, damper, weld. Keyed by element.
struct QXDB_API tagTSprop final : TRecord<tagTSprop, code::kSprop> {
  Key key = 0;
  std::int32_t dof[6]{};             ///< flags T1 to T3, R1 to R3
  std::int32_t dof_temperature = 0;  ///< flag
  std::int32_t csys_type = 0;        ///< 0 coordinate system, 1 vector, 2 node, 3 element
  TRef<code::kNode> reference_node;
  tagTVector3<double> reference_vector;
  TRef<code::kCord> coordinate_system;
  std::int32_t large_rotation = 0;  ///< flag
  std::int32_t rigid_type = 0;
  std::int32_t dof_line1 = 0;
  std::int32_t dof_line2 = 0;
  TArray<tagTWeightDOF> weights;
  double mass = 0;
  PackedDouble inertia[6]{};    ///< lower triangle, row by row
  std::int32_t has_offset = 0;  ///< flag
  tagTVector3<double> offset;
  std::int32_t damper_location_type = 0;
  double damper_location = 0;  ///< fraction of the length
  TRef<code::kCord> location_csys;
  std::int32_t weld_method = 0;
  TRef<code::kElem> weld_first;
  TRef<code::kElem> weld_second;
  std::int32_t weld_type = 0;
  TRef<code::kNode> weld_node;
  TRef<code::kProp> weld_property_a;
  TRef<code::kProp> weld_property_b;
  TRefArray<code::kProp> weld_properties;
  std::int32_t weld_has_csys = 0;  ///< flag
  TRef<code::kCord> weld_csys;
  PackedDouble mass_by_axis[3]{};
  TRef<code::kElem> mother_element;
  TRef<code::kElem> mother_element2;
  TArray<tagTGaugingThick> gauging_thickness;
  std::int32_t infinite = 0;
  std::int32_t has_location = 0;  ///< flag
  tagTVector3<double> location;
  TRefArray<code::kElem> virtual_beam_mothers;
  std::int32_t self_weight = 0;  ///< flag
  std::int32_t fluid_boundary = 0;
};

#pragma pack(pop)

QX_DECLARE_RECORD(tagTMset);
QX_DECLARE_RECORD(tagTSzct);
QX_DECLARE_RECORD(tagTSprs);
QX_DECLARE_RECORD(tagTDefSize);
QX_DECLARE_RECORD(tagTPropCtrl);
QX_DECLARE_RECORD(tagTMeshCsys);
QX_DECLARE_RECORD(tagTLyct);
QX_DECLARE_RECORD(tagTOpti);
QX_DECLARE_RECORD(tagTSprop);

/// Unit categories, group by group.
using CQXSzctUnit = TUnitDescriptor<tagTSzct, 2>;
using CQXDefSizeUnit = TUnitDescriptor<tagTDefSize, 1>;
using CQXLyctUnit = TUnitDescriptor<tagTLyct, 1>;
using CQXSpropUnit = TUnitDescriptor<tagTSprop, 3>;
extern template class TUnitDescriptor<tagTSzct, 2>;
extern template class TUnitDescriptor<tagTDefSize, 1>;
extern template class TUnitDescriptor<tagTLyct, 1>;
extern template class TUnitDescriptor<tagTSprop, 3>;

}  // namespace qx
