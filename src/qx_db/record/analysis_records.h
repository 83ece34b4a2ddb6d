#pragma once
// Functions, curves, and the records of analysis and result features.

#include "qx_db/record/array_elements.h"
#include "qx_db/record/record.h"

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
  ITR coordinate_system = 0;
  std::int32_t variables = 1;
  std::int32_t variable2 = 0;      ///< kind of the second variable
  TArray<tagTFuncValue> values2;   ///< for the second variable
  std::int32_t extrapolation = 0;  ///< 0 constant, 1 linear, 2 zero
  std::int32_t extrapolation_y = 0;
  std::int32_t extrapolation_z = 0;
  std::int32_t independent_samples = 0;
  std::int32_t dependent_samples = 0;

  static const Schema& GetSchema();
};

/// A function of a variable and of the functions at its values.
struct QXDB_API tagTFunc3D final : TRecord<tagTFunc3D, code::kFunc3D> {
  Key key = 0;
  TString<64> name;
  std::int32_t function_type = 0;
  std::int32_t variable = 0;  ///< kind of the variable, a FunctionKind
  TArray<tagTFunc3DSet> set;

  static const Schema& GetSchema();
};

/// A curve by points on a geometry edge.
struct QXDB_API tagTCurve final : TRecord<tagTCurve, code::kCurve> {
  Key key = 0;
  TString<64> type;
  std::int32_t definition = 0;
  tagTVector3<double> point1;
  tagTVector3<double> point2;
  tagTVector3<double> point3;
  ITR edge = 0;
  std::int32_t direction = 0;  ///< flag
  std::int32_t divisions = 0;
  std::int32_t on_nodes = 0;  ///< flag
  std::int32_t reversed = 0;  ///< flag
  TArray<ITR> elements;
  TArray<tagTElemSide> sides;

  static const Schema& GetSchema();
};

/// A layout definition.
struct QXDB_API tagTLdfs final : TRecord<tagTLdfs, code::kLdfs> {
  Key key = 0;
  TString<64> name;
  std::int32_t element_type = 0;
  tagTVector3<double> point1;
  tagTVector3<double> point2;
  tagTVector3<double> point3;

  static const Schema& GetSchema();
};

/// How an object is displayed.
struct QXDB_API tagTInfo final : TRecord<tagTInfo, code::kInfo> {
  Key key = 0;
  Key target_key = 0;
  std::int32_t type = 0;
  std::int32_t show = 0;       ///< flag
  std::int32_t show_mesh = 0;  ///< flag
  std::int32_t mode = 0;

  static const Schema& GetSchema();
};

/// Links a pile element to the element around it.
struct QXDB_API tagTPink final : TRecord<tagTPink, code::kPink> {
  Key key = 0;
  ITR pile = 0;
  ITR link = 0;

  static const Schema& GetSchema();
};

/// A flow path.
struct QXDB_API tagTPFlow final : TRecord<tagTPFlow, code::kPFlow> {
  Key key = 0;
  TString<64> name;
  TArray<tagTVector3<double>> points;

  static const Schema& GetSchema();
};

/// Whether a case takes part.
struct QXDB_API tagPOHVCase final : TRecord<tagPOHVCase, code::kPOHVCase> {
  Key key = 0;
  std::int32_t enabled = 0;              ///< flag
  std::int32_t active = 0;               ///< flag
  std::int64_t case_handle = 0;          ///< of the host
  std::int64_t virtual_case_handle = 0;  ///< of the host

  static const Schema& GetSchema();
};

/// A selection of results and how to combine them.
struct QXDB_API tagTRtcb final : TRecord<tagTRtcb, code::kRtcb> {
  Key key = 0;
  TString<64> name;
  std::int32_t method = 0;
  std::int32_t option = 0;
  TArray<tagTSelectedResult> selected;

  static const Schema& GetSchema();
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

  static const Schema& GetSchema();
};

/// Marks an element as of a part.
struct QXDB_API tagTEvok final : TRecord<tagTEvok, code::kEvok> {
  Key key = 0;
  ITR element = 0;
  std::int32_t part = 0;
  std::int32_t state = 0;

  static const Schema& GetSchema();
};

/// Marks a node as of a part.
struct QXDB_API tagTNvok final : TRecord<tagTNvok, code::kNvok> {
  Key key = 0;
  ITR node = 0;
  std::int32_t part = 0;
  std::int32_t state = 0;

  static const Schema& GetSchema();
};

/// A probe of a quantity over nodes, geometry or a cutting plane.
struct QXDB_API tagTFQuan final : TRecord<tagTFQuan, code::kFQuan> {
  Key key = 0;
  TString<64> name;
  std::int32_t mode = 0;
  std::int32_t cutting_mode = 0;
  std::int32_t cutting_type = 0;
  std::int32_t limited_plane = 0;  ///< flag
  TArray<ITR> nodes;
  TArray<ITR> geometry;
  tagTVector3<double> point1;
  tagTVector3<double> point2;
  tagTVector3<double> point3;

  static const Schema& GetSchema();
};

/// A region of nodes, elements or element sides.
struct QXDB_API tagTRegion final : TRecord<tagTRegion, code::kRegion> {
  Key key = 0;
  TString<64> name;
  std::int32_t type = 0;
  TArray<ITR> nodes;
  TArray<ITR> elements;
  TArray<ITR> sides;
  TArray<std::int32_t> directions;  ///< one a side

  static const Schema& GetSchema();
};

/// The units chosen, by their index in each list.
struct QXDB_API tagTPUnit final : TRecord<tagTPUnit, code::kPUnit> {
  Key key = 0;
  std::int32_t force = 0;
  std::int32_t length = 0;
  std::int32_t mass = 0;
  std::int32_t time = 0;
  std::int32_t heat = 0;

  static const Schema& GetSchema();
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

}  // namespace qx
