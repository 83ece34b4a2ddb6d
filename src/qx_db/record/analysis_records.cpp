#include "qx_db/record/analysis_records.h"

#include <cstddef>

#include "qx_db/record/function_kinds.h"
#include "qx_db/record/record_impl.h"

namespace qx {

using GF = GatewayField;

namespace {

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

QX_RECORD(tagTFunc) {
  rows.Add(u"_NAME", &tagTFunc::name)
      .Add(u"_VALUE", &tagTFunc::values)
      .InBy(FunctionTable, unit::kLength, 0, {&tagTFunc::variable, &tagTFunc::type})
      .Add(u"_VALUEY", &tagTFunc::values_y)
      .InBy(FunctionTable, unit::kLength, 0, {&tagTFunc::variable, &tagTFunc::type})
      .Add(u"_VALUEZ", &tagTFunc::values_z)
      .InBy(FunctionTable, unit::kLength, 0, {&tagTFunc::variable, &tagTFunc::type})
      .Add(u"_TYPE", &tagTFunc::type)
      .Add(u"_INDEPVAR", &tagTFunc::variable)
      .Add(u"_REFCORD", &tagTFunc::coordinate_system)
      .Add(u"_NUMVAR", &tagTFunc::variables)
      .Add(u"_INDEPVAR2", &tagTFunc::variable2)
      .Add(u"_VALUE2", &tagTFunc::values2)
      .InBy(SecondFunctionTable, unit::kLength, 0, {&tagTFunc::variable2, &tagTFunc::type})
      .Add(u"_EXTRAPOLATION", &tagTFunc::extrapolation)
      .Add(u"_EXTRA_Y", &tagTFunc::extrapolation_y)
      .Add(u"_EXTRA_Z", &tagTFunc::extrapolation_z)
      .Add(u"_NXINDEP", &tagTFunc::independent_samples)
      .Add(u"_NXDEP", &tagTFunc::dependent_samples);
  fields.Add("NAME", &tagTFunc::name)
      .Add("FVAL", &tagTFunc::values)
      .Add("FVALY", &tagTFunc::values_y)
      .Add("FVALZ", &tagTFunc::values_z)
      .Add("TYPE", &tagTFunc::type)
      .Add("INDEPVAR", &tagTFunc::variable)
      .Add("REF_CORD", &tagTFunc::coordinate_system)
      .Add("NUMOFVAR", &tagTFunc::variables)
      .Add("INDEPVAR2", &tagTFunc::variable2)
      .Add("FVAL2", &tagTFunc::values2, "FVA2L")
      .Add("EXTRAPOLATION", &tagTFunc::extrapolation)
      .Described("VAR", GF::Type::kReal, &tagTFunc::values)
      .Add("EXTRAPOLATIONY", &tagTFunc::extrapolation_y)
      .Described("VALUE", GF::Type::kReal, &tagTFunc::values)
      .Add("EXTRAPOLATIONZ", &tagTFunc::extrapolation_z)
      .Add("NXINDEP", &tagTFunc::independent_samples)
      .Add("NXDEP", &tagTFunc::dependent_samples);
}

QX_RECORD(tagTFunc3D) {
  rows.Add(u"_NAME", &tagTFunc3D::name)
      .Add(u"_iFuncType", &tagTFunc3D::function_type)
      .Add(u"_iValType", &tagTFunc3D::variable)
      .Add(u"_taFunc3DSet", &tagTFunc3D::set)
      .InBy(Function3DVariable, unit::kLength, 0, {&tagTFunc3D::variable});
}

QX_RECORD(tagTCurve) {
  // Deliberate: a text here, an integer elsewhere.
  rows.Add(u"_TYPE", &tagTCurve::type)
      .Add(u"_DEFTYPE", &tagTCurve::definition)
      .AddParts({u"_POINT1X", u"_POINT1Y", u"_POINT1Z"}, &tagTCurve::point1)
      .In(unit::kLength)
      .AddParts({u"_POINT2X", u"_POINT2Y", u"_POINT2Z"}, &tagTCurve::point2)
      .In(unit::kLength)
      .AddParts({u"_POINT3X", u"_POINT3Y", u"_POINT3Z"}, &tagTCurve::point3)
      .In(unit::kLength)
      .Add(u"_EDGE", &tagTCurve::edge)
      .Add(u"_DIRECTION", &tagTCurve::direction)
      .Add(u"_DIVISION", &tagTCurve::divisions)
      .Add(u"_ONNODE", &tagTCurve::on_nodes)
      .Add(u"_ONREVERSE", &tagTCurve::reversed)
      .Add(u"_TAITRELEM", &tagTCurve::elements)
      .Add(u"_TAELEMSIDE", &tagTCurve::sides);
}

QX_RECORD(tagTLdfs) {
  rows.Add(u"_NAME", &tagTLdfs::name)
      .Add(u"_ELEMTYPE", &tagTLdfs::element_type)
      .AddParts({u"_POINT1X", u"_POINT1Y", u"_POINT1Z"}, &tagTLdfs::point1)
      .In(unit::kLength)
      .AddParts({u"_POINT2X", u"_POINT2Y", u"_POINT2Z"}, &tagTLdfs::point2)
      .In(unit::kLength)
      .AddParts({u"_POINT3X", u"_POINT3Y", u"_POINT3Z"}, &tagTLdfs::point3)
      .In(unit::kLength);
  fields.Add("NAME", &tagTLdfs::name)
      .Add("ELEM_TYPE", &tagTLdfs::element_type)
      .Add("POINT1", &tagTLdfs::point1)
      .Add("POINT2", &tagTLdfs::point2)
      .Add("POINT3", &tagTLdfs::point3);
}

QX_RECORD(tagTInfo) {
  rows.Add(u"_TARGET", &tagTInfo::target_key)
      .Add(u"_TYPE", &tagTInfo::type)
      .Add(u"_SHOW", &tagTInfo::show)
      .Add(u"_MESHSHOW", &tagTInfo::show_mesh)
      .Add(u"_MODE", &tagTInfo::mode);
  fields.Add("TARGET_KEY", &tagTInfo::target_key)
      .Add("TYPE", &tagTInfo::type)
      .Flag("SHOW", &tagTInfo::show)
      .Flag("MESHSHOW", &tagTInfo::show_mesh)
      .Add("MODE", &tagTInfo::mode);
}

QX_RECORD(tagTPink) {
  rows.Add(u"_PILEELEM", &tagTPink::pile)
      .When(OnRemoval::kDie)
      .Add(u"_LINKELEM", &tagTPink::link)
      .When(OnRemoval::kDie);
  fields.Add("PILE_ELEM", &tagTPink::pile).Add("LINK_ELEM", &tagTPink::link);
}

QX_RECORD(tagTPFlow) {
  rows.Add(u"_NAME", &tagTPFlow::name).Add(u"_ARR_POS", &tagTPFlow::points).In(unit::kLength);
}

QX_RECORD(tagPOHVCase) {
  rows.Add(u"_ENABLE", &tagPOHVCase::enabled)
      .Add(u"_ACTIVE", &tagPOHVCase::active)
      .Add(u"_POHCASE", &tagPOHVCase::case_handle)
      .Add(u"_POHVCASE", &tagPOHVCase::virtual_case_handle);
}

QX_RECORD(tagTRtcb) {
  rows.Add(u"_NAME", &tagTRtcb::name)
      .Add(u"_METHOD", &tagTRtcb::method)
      .Add(u"_OPTION", &tagTRtcb::option)
      .Add(u"_SELRST", &tagTRtcb::selected)
      .DescribesElements();
}

QX_RECORD(tagTStlz) {
  rows.Add(u"_NAME", &tagTStlz::name)
      .Add(u"_TYPE", &tagTStlz::type)
      .Add(u"_P1TYPE", &tagTStlz::point1_type)
      .Add(u"_P2TYPE", &tagTStlz::point2_type)
      .AddParts({u"_COMP_S11", u"_COMP_S22", u"_COMP_S33", u"_COMP_S12", u"_COMP_S23", u"_COMP_S13",
                 u"_COMP_VON_MISESE"},
                &tagTStlz::components)
      .AddParts({u"_POINT1X", u"_POINT1Y", u"_POINT1Z"}, &tagTStlz::point1)
      .In(unit::kLength)
      .AddParts({u"_POINT2X", u"_POINT2Y", u"_POINT2Z"}, &tagTStlz::point2)
      .In(unit::kLength)
      .Add(u"_RADIUS", &tagTStlz::radius)
      .In(unit::kLength)
      .Add(u"_DIVISION", &tagTStlz::divisions);
}

QX_RECORD(tagTEvok) {
  rows.Add(u"_ITR_ELEM", &tagTEvok::element)
      .When(OnRemoval::kDie)
      .Add(u"_PART_ID", &tagTEvok::part)
      .Add(u"_STATE", &tagTEvok::state);
}

QX_RECORD(tagTNvok) {
  rows.Add(u"_ITR_NODE", &tagTNvok::node)
      .When(OnRemoval::kDie)
      .Add(u"_PART_ID", &tagTNvok::part)
      .Add(u"_STATE", &tagTNvok::state);
}

QX_RECORD(tagTFQuan) {
  rows.Add(u"_NAME", &tagTFQuan::name)
      .Add(u"_MODE", &tagTFQuan::mode)
      .Add(u"_CUTTING_MODE", &tagTFQuan::cutting_mode)
      .Add(u"_CUTTING_TYPE", &tagTFQuan::cutting_type)
      .Add(u"_LIMITED_PLANE", &tagTFQuan::limited_plane)
      .Add(u"_TARR_ITR_NODE", &tagTFQuan::nodes)
      .Add(u"_TARR_ITR_GEOM", &tagTFQuan::geometry)
      .AddParts({u"_POINT1X", u"_POINT1Y", u"_POINT1Z"}, &tagTFQuan::point1)
      .In(unit::kLength)
      .AddParts({u"_POINT2X", u"_POINT2Y", u"_POINT2Z"}, &tagTFQuan::point2)
      .In(unit::kLength)
      .AddParts({u"_POINT3X", u"_POINT3Y", u"_POINT3Z"}, &tagTFQuan::point3)
      .In(unit::kLength);
}

QX_RECORD(tagTRegion) {
  rows.Add(u"_NAME", &tagTRegion::name)
      .Add(u"_TYPE", &tagTRegion::type)
      .Add(u"_TARR_NODE", &tagTRegion::nodes)
      .Add(u"_TARR_ELEM", &tagTRegion::elements)
      .Add(u"_TARR_ESID", &tagTRegion::sides)
      .Beside(&tagTRegion::directions)
      .Add(u"_TARR_DIR", &tagTRegion::directions);
}

QX_RECORD(tagTPUnit) {
  rows.Add(u"_FORCE_INDX", &tagTPUnit::force)
      .Add(u"_LENGTH_INDX", &tagTPUnit::length)
      .Add(u"_MASS_INDX", &tagTPUnit::mass)
      .Add(u"_TIME_INDX", &tagTPUnit::time)
      .Add(u"_HEAT_INDX", &tagTPUnit::heat);
}

template class TUnitDescriptor<tagTFunc, 1>;
template class TUnitDescriptor<tagTFunc3D, 1>;
template class TUnitDescriptor<tagTCurve, 1>;
template class TUnitDescriptor<tagTLdfs, 1>;
template class TUnitDescriptor<tagTPFlow, 1>;
template class TUnitDescriptor<tagTStlz, 1>;
template class TUnitDescriptor<tagTFQuan, 1>;

}  // namespace qx
