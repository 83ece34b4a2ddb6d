#include "qx_db/record/analysis_records.h"

#include <cstddef>

#include "qx_db/record/function_kinds.h"
#include "qx_db/record/record_impl.h"

namespace qx {

using GF = GatewayField;

namespace {

constexpr GatewayElementField kValueFields[] = {
    {"VAR", offsetof(tagTFuncValue, variable), Row::Number::kDouble},
    {"VALUE", offsetof(tagTFuncValue, value), Row::Number::kDouble},
};

/// A table's pairs are in the units of its variable and of the function's values.
int FunctionTable(const TStructBase& record, int number) {
  const auto& function = static_cast<const tagTFunc&>(record);
  return FunctionCategory(number == 0 ? function.variable : function.type);
}
int SecondFunctionTable(const TStructBase& record, int number) {
  const auto& function = static_cast<const tagTFunc&>(record);
  return FunctionCategory(number == 0 ? function.variable2 : function.type);
}
int Function3DVariable(const TStructBase& record, int number) {
  const auto& function = static_cast<const tagTFunc3D&>(record);
  return number == 0 ? FunctionCategory(function.variable) : unit::kNone;
}

}  // namespace

const Schema& tagTFunc::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"FVAL", GF::Type::kArray, u"_VALUE", nullptr, GF::Form::kMember, 1, kValueFields},
      {"FVALY", GF::Type::kArray, u"_VALUEY", nullptr, GF::Form::kMember, 1, kValueFields},
      {"FVALZ", GF::Type::kArray, u"_VALUEZ", nullptr, GF::Form::kMember, 1, kValueFields},
      {"TYPE", GF::Type::kInteger, u"_TYPE"},
      {"INDEPVAR", GF::Type::kInteger, u"_INDEPVAR"},
      {"REF_CORD", GF::Type::kInteger, u"_REFCORD"},
      {"NUMOFVAR", GF::Type::kInteger, u"_NUMVAR"},
      {"INDEPVAR2", GF::Type::kInteger, u"_INDEPVAR2"},
      {"FVAL2", GF::Type::kArray, u"_VALUE2", "FVA2L", GF::Form::kMember, 1, kValueFields},
      {"EXTRAPOLATION", GF::Type::kInteger, u"_EXTRAPOLATION"},
      {"VAR", GF::Type::kReal, u"_VALUE", nullptr, GF::Form::kDescribed},
      {"EXTRAPOLATIONY", GF::Type::kInteger, u"_EXTRA_Y"},
      {"VALUE", GF::Type::kReal, u"_VALUE", nullptr, GF::Form::kDescribed},
      {"EXTRAPOLATIONZ", GF::Type::kInteger, u"_EXTRA_Z"},
      {"NXINDEP", GF::Type::kInteger, u"_NXINDEP"},
      {"NXDEP", GF::Type::kInteger, u"_NXDEP"},
  };
  static const Schema schema("tagTFunc", kType, sizeof(tagTFunc),
                             RowList()
                                 .Add(u"_KEY", &tagTFunc::key)
                                 .Add(u"_NAME", &tagTFunc::name)
                                 .Add(u"_VALUE", &tagTFunc::values)
                                 .InBy(FunctionTable, unit::kLength, 0)
                                 .Add(u"_VALUEY", &tagTFunc::values_y)
                                 .InBy(FunctionTable, unit::kLength, 0)
                                 .Add(u"_VALUEZ", &tagTFunc::values_z)
                                 .InBy(FunctionTable, unit::kLength, 0)
                                 .Add(u"_TYPE", &tagTFunc::type)
                                 .Add(u"_INDEPVAR", &tagTFunc::variable)
                                 .Add(u"_REFCORD", &tagTFunc::coordinate_system)
                                 .To(code::kCord)
                                 .Add(u"_NUMVAR", &tagTFunc::variables)
                                 .Add(u"_INDEPVAR2", &tagTFunc::variable2)
                                 .Add(u"_VALUE2", &tagTFunc::values2)
                                 .InBy(SecondFunctionTable, unit::kLength, 0)
                                 .Add(u"_EXTRAPOLATION", &tagTFunc::extrapolation)
                                 .Add(u"_EXTRA_Y", &tagTFunc::extrapolation_y)
                                 .Add(u"_EXTRA_Z", &tagTFunc::extrapolation_z)
                                 .Add(u"_NXINDEP", &tagTFunc::independent_samples)
                                 .Add(u"_NXDEP", &tagTFunc::dependent_samples)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTFunc3D::GetSchema() {
  static const Schema schema("tagTFunc3D", kType, sizeof(tagTFunc3D),
                             RowList()
                                 .Add(u"_KEY", &tagTFunc3D::key)
                                 .Add(u"_NAME", &tagTFunc3D::name)
                                 .Add(u"_iFuncType", &tagTFunc3D::function_type)
                                 .Add(u"_iValType", &tagTFunc3D::variable)
                                 .Add(u"_taFunc3DSet", &tagTFunc3D::set)
                                 .InBy(Function3DVariable, unit::kLength)
                                 .InnerReference(8, code::kFunc)
                                 .Take());
  return schema;
}

const Schema& tagTCurve::GetSchema() {
  static const Schema schema(
      "tagTCurve", kType, sizeof(tagTCurve),
      RowList()
          .Add(u"_KEY", &tagTCurve::key)
          // Deliberate: a text here, an integer elsewhere.
          .Add(u"_TYPE", &tagTCurve::type)
          .Add(u"_DEFTYPE", &tagTCurve::definition)
          .AddParts({u"_POINT1X", u"_POINT1Y", u"_POINT1Z"}, &tagTCurve::point1)
          .In(unit::kLength)
          .AddParts({u"_POINT2X", u"_POINT2Y", u"_POINT2Z"}, &tagTCurve::point2)
          .In(unit::kLength)
          .AddParts({u"_POINT3X", u"_POINT3Y", u"_POINT3Z"}, &tagTCurve::point3)
          .In(unit::kLength)
          .Add(u"_EDGE", &tagTCurve::edge)
          .To(code::kGKey)
          .Add(u"_DIRECTION", &tagTCurve::direction)
          .Add(u"_DIVISION", &tagTCurve::divisions)
          .Add(u"_ONNODE", &tagTCurve::on_nodes)
          .Add(u"_ONREVERSE", &tagTCurve::reversed)
          .Add(u"_TAITRELEM", &tagTCurve::elements)
          .To(code::kElem)
          .Add(u"_TAELEMSIDE", &tagTCurve::sides)
          .InnerReference(0, code::kElem)
          .Take());
  return schema;
}

const Schema& tagTLdfs::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"ELEM_TYPE", GF::Type::kInteger, u"_ELEMTYPE"},
      {"POINT1", GF::Type::kArray, u"_POINT1X", nullptr, GF::Form::kRun, 3},
      {"POINT2", GF::Type::kArray, u"_POINT2X", nullptr, GF::Form::kRun, 3},
      {"POINT3", GF::Type::kArray, u"_POINT3X", nullptr, GF::Form::kRun, 3},
  };
  static const Schema schema(
      "tagTLdfs", kType, sizeof(tagTLdfs),
      RowList()
          .Add(u"_KEY", &tagTLdfs::key)
          .Add(u"_NAME", &tagTLdfs::name)
          .Add(u"_ELEMTYPE", &tagTLdfs::element_type)
          .AddParts({u"_POINT1X", u"_POINT1Y", u"_POINT1Z"}, &tagTLdfs::point1)
          .In(unit::kLength)
          .AddParts({u"_POINT2X", u"_POINT2Y", u"_POINT2Z"}, &tagTLdfs::point2)
          .In(unit::kLength)
          .AddParts({u"_POINT3X", u"_POINT3Y", u"_POINT3Z"}, &tagTLdfs::point3)
          .In(unit::kLength)
          .Take(),
      kFields);
  return schema;
}

const Schema& tagTInfo::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"TARGET_KEY", GF::Type::kInteger, u"_TARGET"},
      {"TYPE", GF::Type::kInteger, u"_TYPE"},
      {"SHOW", GF::Type::kBool, u"_SHOW"},
      {"MESHSHOW", GF::Type::kBool, u"_MESHSHOW"},
      {"MODE", GF::Type::kInteger, u"_MODE"},
  };
  static const Schema schema("tagTInfo", kType, sizeof(tagTInfo),
                             RowList()
                                 .Add(u"_KEY", &tagTInfo::key)
                                 .Add(u"_TARGET", &tagTInfo::target_key)
                                 .Add(u"_TYPE", &tagTInfo::type)
                                 .Add(u"_SHOW", &tagTInfo::show)
                                 .Add(u"_MESHSHOW", &tagTInfo::show_mesh)
                                 .Add(u"_MODE", &tagTInfo::mode)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTPink::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"PILE_ELEM", GF::Type::kInteger, u"_PILEELEM"},
      {"LINK_ELEM", GF::Type::kInteger, u"_LINKELEM"},
  };
  static const Schema schema("tagTPink", kType, sizeof(tagTPink),
                             RowList()
                                 .Add(u"_KEY", &tagTPink::key)
                                 .Add(u"_PILEELEM", &tagTPink::pile)
                                 .To(code::kElem)
                                 .When(OnRemoval::kDie)
                                 .Add(u"_LINKELEM", &tagTPink::link)
                                 .To(code::kElem)
                                 .When(OnRemoval::kDie)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTPFlow::GetSchema() {
  static const Schema schema("tagTPFlow", kType, sizeof(tagTPFlow),
                             RowList()
                                 .Add(u"_KEY", &tagTPFlow::key)
                                 .Add(u"_NAME", &tagTPFlow::name)
                                 .Add(u"_ARR_POS", &tagTPFlow::points)
                                 .In(unit::kLength)
                                 .Take());
  return schema;
}

const Schema& tagPOHVCase::GetSchema() {
  static const Schema schema("tagPOHVCase", kType, sizeof(tagPOHVCase),
                             RowList()
                                 .Add(u"_KEY", &tagPOHVCase::key)
                                 .Add(u"_ENABLE", &tagPOHVCase::enabled)
                                 .Add(u"_ACTIVE", &tagPOHVCase::active)
                                 .Add(u"_POHCASE", &tagPOHVCase::case_handle)
                                 .Add(u"_POHVCASE", &tagPOHVCase::virtual_case_handle)
                                 .Take());
  return schema;
}

const Schema& tagTRtcb::GetSchema() {
  static const Schema schema("tagTRtcb", kType, sizeof(tagTRtcb),
                             RowList()
                                 .Add(u"_KEY", &tagTRtcb::key)
                                 .Add(u"_NAME", &tagTRtcb::name)
                                 .Add(u"_METHOD", &tagTRtcb::method)
                                 .Add(u"_OPTION", &tagTRtcb::option)
                                 .Add(u"_SELRST", &tagTRtcb::selected)
                                 .Elements(tagTSelectedResult::GetVarIOInfo())
                                 .Take());
  return schema;
}

const Schema& tagTStlz::GetSchema() {
  static const Schema schema(
      "tagTStlz", kType, sizeof(tagTStlz),
      RowList()
          .Add(u"_KEY", &tagTStlz::key)
          .Add(u"_NAME", &tagTStlz::name)
          .Add(u"_TYPE", &tagTStlz::type)
          .Add(u"_P1TYPE", &tagTStlz::point1_type)
          .Add(u"_P2TYPE", &tagTStlz::point2_type)
          .AddParts({u"_COMP_S11", u"_COMP_S22", u"_COMP_S33", u"_COMP_S12", u"_COMP_S23",
                     u"_COMP_S13", u"_COMP_VON_MISESE"},
                    &tagTStlz::components)
          .AddParts({u"_POINT1X", u"_POINT1Y", u"_POINT1Z"}, &tagTStlz::point1)
          .In(unit::kLength)
          .AddParts({u"_POINT2X", u"_POINT2Y", u"_POINT2Z"}, &tagTStlz::point2)
          .In(unit::kLength)
          .Add(u"_RADIUS", &tagTStlz::radius)
          .In(unit::kLength)
          .Add(u"_DIVISION", &tagTStlz::divisions)
          .Take());
  return schema;
}

const Schema& tagTEvok::GetSchema() {
  static const Schema schema("tagTEvok", kType, sizeof(tagTEvok),
                             RowList()
                                 .Add(u"_KEY", &tagTEvok::key)
                                 .Add(u"_ITR_ELEM", &tagTEvok::element)
                                 .To(code::kElem)
                                 .When(OnRemoval::kDie)
                                 .Add(u"_PART_ID", &tagTEvok::part)
                                 .Add(u"_STATE", &tagTEvok::state)
                                 .Take());
  return schema;
}

const Schema& tagTNvok::GetSchema() {
  static const Schema schema("tagTNvok", kType, sizeof(tagTNvok),
                             RowList()
                                 .Add(u"_KEY", &tagTNvok::key)
                                 .Add(u"_ITR_NODE", &tagTNvok::node)
                                 .To(code::kNode)
                                 .When(OnRemoval::kDie)
                                 .Add(u"_PART_ID", &tagTNvok::part)
                                 .Add(u"_STATE", &tagTNvok::state)
                                 .Take());
  return schema;
}

const Schema& tagTFQuan::GetSchema() {
  static const Schema schema(
      "tagTFQuan", kType, sizeof(tagTFQuan),
      RowList()
          .Add(u"_KEY", &tagTFQuan::key)
          .Add(u"_NAME", &tagTFQuan::name)
          .Add(u"_MODE", &tagTFQuan::mode)
          .Add(u"_CUTTING_MODE", &tagTFQuan::cutting_mode)
          .Add(u"_CUTTING_TYPE", &tagTFQuan::cutting_type)
          .Add(u"_LIMITED_PLANE", &tagTFQuan::limited_plane)
          .Add(u"_TARR_ITR_NODE", &tagTFQuan::nodes)
          .To(code::kNode)
          .Add(u"_TARR_ITR_GEOM", &tagTFQuan::geometry)
          .To(code::kGeom)
          .AddParts({u"_POINT1X", u"_POINT1Y", u"_POINT1Z"}, &tagTFQuan::point1)
          .In(unit::kLength)
          .AddParts({u"_POINT2X", u"_POINT2Y", u"_POINT2Z"}, &tagTFQuan::point2)
          .In(unit::kLength)
          .AddParts({u"_POINT3X", u"_POINT3Y", u"_POINT3Z"}, &tagTFQuan::point3)
          .In(unit::kLength)
          .Take());
  return schema;
}

const Schema& tagTRegion::GetSchema() {
  static const Schema schema("tagTRegion", kType, sizeof(tagTRegion),
                             RowList()
                                 .Add(u"_KEY", &tagTRegion::key)
                                 .Add(u"_NAME", &tagTRegion::name)
                                 .Add(u"_TYPE", &tagTRegion::type)
                                 .Add(u"_TARR_NODE", &tagTRegion::nodes)
                                 .To(code::kNode)
                                 .Add(u"_TARR_ELEM", &tagTRegion::elements)
                                 .To(code::kElem)
                                 .Add(u"_TARR_ESID", &tagTRegion::sides)
                                 .To(code::kESid)
                                 .Beside(&tagTRegion::directions)
                                 .Add(u"_TARR_DIR", &tagTRegion::directions)
                                 .Take());
  return schema;
}

const Schema& tagTPUnit::GetSchema() {
  static const Schema schema("tagTPUnit", kType, sizeof(tagTPUnit),
                             RowList()
                                 .Add(u"_KEY", &tagTPUnit::key)
                                 .Add(u"_FORCE_INDX", &tagTPUnit::force)
                                 .Add(u"_LENGTH_INDX", &tagTPUnit::length)
                                 .Add(u"_MASS_INDX", &tagTPUnit::mass)
                                 .Add(u"_TIME_INDX", &tagTPUnit::time)
                                 .Add(u"_HEAT_INDX", &tagTPUnit::heat)
                                 .Take());
  return schema;
}

QX_RECORD(tagTFunc);
QX_RECORD(tagTFunc3D);
QX_RECORD(tagTCurve);
QX_RECORD(tagTLdfs);
QX_RECORD(tagTInfo);
QX_RECORD(tagTPink);
QX_RECORD(tagTPFlow);
QX_RECORD(tagPOHVCase);
QX_RECORD(tagTRtcb);
QX_RECORD(tagTStlz);
QX_RECORD(tagTEvok);
QX_RECORD(tagTNvok);
QX_RECORD(tagTFQuan);
QX_RECORD(tagTRegion);
QX_RECORD(tagTPUnit);

}  // namespace qx
