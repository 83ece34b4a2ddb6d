#pragma once
// Functions, curves, and the records of analysis and result features.
// Threads: records are values (TStructBase).

#include "qx_db/record/array_elements.h"
#include "qx_db/record/record.h"
#include "qx_db/record/unit_descriptor.h"

namespace qx {

#pragma pack(push, 4)

/// A function: tables of values against one or two variables.
struct QXDB_API tagTFunc final : TRecord<tagTFunc, code::kFunc> {
  Key key = 0;
  TString<64> name;
  TArray<tagTFuncValue> values;
  TArray<tagTFuncValue> values_y;  ///< second component
  TArray<tagTFuncValue> values_z;  ///< third component
  std::int32_t type = 0;           ///< kind of the values, a FunctionKind
  std::int32_t variable = 0;       ///< kind of the variable, a FunctionKind
  TRef<code::kCord> coordinate_system;
  std::int32_t variables = 1;
  std::int32_t variable2 = 0;      ///< kind of the second variable
  TArray<tagTFuncValue> values2;   ///< for the second variable
  std::int32_t extrapolation = 0;  ///< 0 constant, 1 linear, 2 zero
  std::int32_t extrapolation_y = 0;
  std::int32_t extrapolation_z = 0;
  std::int32_t independent_samples = 0;
  std::int32_t dependent_samples = 0;
};

/// A function of a variable and of the functions at its values.
struct QXDB_API tagTFunc3D final : TRecord<tagTFunc3D, code::kFunc3D> {
  Key key = 0;
  TString<64> name;
  std::int32_t function_type = 0;
  std::int32_t variable = 0;  ///< kind of the variable, a FunctionKind
  TArray<tagTFunc3DSet> set;
};

/// A curve by points on a geometry edge.
struct QXDB_API tagTCurve final : TRecord<tagTCurve, code::kCurve> {
  Key key = 0;
  TString<64> type;
  std::int32_t definition = 0;
  tagTVector3<double> point1;
  tagTVector3<double> point2;
  tagTVector3<double> point3;
  TRef<code::kGKey> edge;
  std::int32_t direction = 0;  ///< flag
  std::int32_t divisions = 0;
  std::int32_t on_nodes = 0;  ///< flag
  std::int32_t reversed = 0;  ///< flag
  TRefArray<code::kElem> elements;
  TArray<tagTElemSide> sides;
};

/// A layout definition.
struct QXDB_API tagTLdfs final : TRecord<tagTLdfs, code::kLdfs> {
  Key key = 0;
  TString<64> name;
  std::int32_t element_type = 0;
  tagTVector3<double> point1;
  tagTVector3<double> point2;
  tagTVector3<double> point3;
};

/// How an object is displayed.
struct QXDB_API tagTInfo final : TRecord<tagTInfo, code::kInfo> {
  Key key = 0;
  Key target_key = 0;
  std::int32_t type = 0;
  std::int32_t show = 0;       ///< flag
  std::int32_t show_mesh = 0;  ///< flag
  std::int32_t mode = 0;
};

/// Links a pile element to the element around it.
struct QXDB_API tagTPink final : TRecord<tagTPink, code::kPink> {
  Key key = 0;
  TRef<code::kElem> pile;
  TRef<code::kElem> link;
};

/// A flow path.
struct QXDB_API tagTPFlow final : TRecord<tagTPFlow, code::kPFlow> {
  Key key = 0;
  TString<64> name;
  TArray<tagTVector3<double>> points;
};

/// Whether a case takes part.
struct QXDB_API tagPOHVCase final : TRecord<tagPOHVCase, code::kPOHVCase> {
  Key key = 0;
  std::int32_t enabled = 0;              ///< flag
  std::int32_t active = 0;               ///< flag
  std::int64_t case_handle = 0;          ///< of the host
  std::int64_t virtual_case_handle = 0;  ///< of the host
};

/// A selection of results and how to combine them.
struct QXDB_API tagTRtcb final : TRecord<tagTRtcb, code::kRtcb> {
  Key key = 0;
  TString<64> name;
  std::int32_t method = 0;
  std::int32_t option = 0;
  TArray<tagTSelectedResult> selected;
};

/// A line along which stresses are linearised.
struct QXDB_API tagTStlz final : TRecord<tagTStlz, code::kStlz> {
  Key key = 0;
  TString<64> name;
  std::int32_t type = 0;
  std::int32_t point1_type = 0;
  std::int32_t point2_type = 0;
  std::int32_t components[7]{};  ///< flags
  tagTVector3<double> point1;
  tagTVector3<double> point2;
  double radius = 0;
  std::int32_t divisions = 0;
};

/// Marks an element as of a part.
struct QXDB_API tagTEvok final : TRecord<tagTEvok, code::kEvok> {
  Key key = 0;
  TRef<code::kElem> element;
  std::int32_t part = 0;
  std::int32_t state = 0;
};

/// Marks a node as of a part.
struct QXDB_API tagTNvok final : TRecord<tagTNvok, code::kNvok> {
  Key key = 0;
  TRef<code::kNode> node;
  std::int32_t part = 0;
  std::int32_t state = 0;
};

/// A probe of a quantity over nodes, geometry or a cutting plane.
struct QXDB_API tagTFQuan final : TRecord<tagTFQuan, code::kFQuan> {
  Key key = 0;
  TString<64> name;
  std::int32_t mode = 0;
  std::int32_t cutting_mode = 0;
  std::int32_t cutting_type = 0;
  std::int32_t limited_plane = 0;  ///< flag
  TRefArray<code::kNode> nodes;
  TRefArray<code::kGeom> geometry;
  tagTVector3<double> point1;
  tagTVector3<double> point2;
  tagTVector3<double> point3;
};

/// A region of nodes, elements or element sides.
struct QXDB_API tagTRegion final : TRecord<tagTRegion, code::kRegion> {
  Key key = 0;
  TString<64> name;
  std::int32_t type = 0;
  TRefArray<code::kNode> nodes;
  TRefArray<code::kElem> elements;
  TRefArray<code::kESid> sides;
  TArray<std::int32_t> directions;  ///< one a side
};

/// The units chosen, by their index in each list.
struct QXDB_API tagTPUnit final : TRecord<tagTPUnit, code::kPUnit> {
  Key key = 0;
  std::int32_t force = 0;
  std::int32_t length = 0;
  std::int32_t mass = 0;
  std::int32_t time = 0;
  std::int32_t heat = 0;
};

#pragma pack(pop)

QX_DECLARE_RECORD(tagTFunc);
QX_DECLARE_RECORD(tagTFunc3D);
QX_DECLARE_RECORD(tagTCurve);
QX_DECLARE_RECORD(tagTLdfs);
QX_DECLARE_RECORD(tagTInfo);
QX_DECLARE_RECORD(tagTPink);
QX_DECLARE_RECORD(tagTPFlow);
QX_DECLARE_RECORD(tagPOHVCase);
QX_DECLARE_RECORD(tagTRtcb);
QX_DECLARE_RECORD(tagTStlz);
QX_DECLARE_RECORD(tagTEvok);
QX_DECLARE_RECORD(tagTNvok);
QX_DECLARE_RECORD(tagTFQuan);
QX_DECLARE_RECORD(tagTRegion);
QX_DECLARE_RECORD(tagTPUnit);

/// Unit categories, group by group.
using CQXFuncUnit = TUnitDescriptor<tagTFunc, 1>;
using CQXFunc3DUnit = TUnitDescriptor<tagTFunc3D, 1>;
using CQXCurveUnit = TUnitDescriptor<tagTCurve, 1>;
using CQXLdfsUnit = TUnitDescriptor<tagTLdfs, 1>;
using CQXPFlowUnit = TUnitDescriptor<tagTPFlow, 1>;
using CQXStlzUnit = TUnitDescriptor<tagTStlz, 1>;
using CQXFQuanUnit = TUnitDescriptor<tagTFQuan, 1>;
extern template class TUnitDescriptor<tagTFunc, 1>;
extern template class TUnitDescriptor<tagTFunc3D, 1>;
extern template class TUnitDescriptor<tagTCurve, 1>;
extern template class TUnitDescriptor<tagTLdfs, 1>;
extern template class TUnitDescriptor<tagTPFlow, 1>;
extern template class TUnitDescriptor<tagTStlz, 1>;
extern template class TUnitDescriptor<tagTFQuan, 1>;

}  // namespace qx
