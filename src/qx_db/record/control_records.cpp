#include "qx_db/record/control_records.h"

#include <cstddef>

#include "qx_db/record/element_types.h"
#include "qx_db/record/mesh_records.h"
#include "qx_db/record/record_impl.h"

namespace qx {

using GF = GatewayField;

namespace {

/// Which of a size control's ten numbers are lengths depends on its method.
int SeedParameter(const TStructBase& record, int number) {
  using S = tagTSzct;
  bool length = false;
  switch (static_cast<const S&>(record).method) {
    case S::kBySize:
      length = number == 0;
      break;
    case S::kLinearGrading:
      length = number == 1 || number == 2;
      break;
    case S::kHyperbolic:
      length = number == 4 || number == 5;
      break;
    default:
      break;
  }
  return length ? unit::kLength : unit::kNone;
}

int DefaultSizeValue(const TStructBase& record, int) {
  const bool size = static_cast<const tagTDefSize&>(record).type == tagTDefSize::kSize;
  return size ? unit::kLength : unit::kNone;
}

}  // namespace

QX_RECORD(tagTMset) {
  rows.Add(u"_NAME", &tagTMset::name)
      .Add(u"_COLOR", &tagTMset::color)
      .Add(u"_NODE_IDS", &tagTMset::nodes)
      .Add(u"_ELEM_IDS", &tagTMset::elements)
      .Add(u"_GEOMITR", &tagTMset::geometry)
      .Add(u"_CONNECT", &tagTMset::connected)
      .Add(u"_CONNECTNSIZE", &tagTMset::connected_nodes)
      .Add(u"_PARENTMSETK", &tagTMset::parent_key)
      .KeyOf(code::kMset)
      .When(OnRemoval::kPassUp);
  fields.Add("NAME", &tagTMset::name)
      .Add("NODE_KEY_ARRAY", &tagTMset::nodes)
      .Add("ELEM_KEY_ARRAY", &tagTMset::elements)
      .Add("COLOR", &tagTMset::color)
      .Add("CONNECT_NODE_SIZE", &tagTMset::connected_nodes)
      .Add("PARENT_MSET_KEY", &tagTMset::parent_key)
      .Flag("CONNECT", &tagTMset::connected)
      .Add("GEOM_KEY", &tagTMset::geometry);
}

QX_RECORD(tagTSzct) {
  rows.Add(u"_NAME", &tagTSzct::name)
      .Add(u"_ARGKEY", &tagTSzct::edges)
      .Beside(&tagTSzct::locked)
      .DiesWithLastUnless(&tagTSzct::locked)
      .Add(u"_ARGKEY_REV", &tagTSzct::reversed_edges)
      .DiesWithLastUnless(&tagTSzct::locked)
      .Add(u"_ARBODYGKEY", &tagTSzct::bodies)
      .DiesWithLastUnless(&tagTSzct::locked)
      .Add(u"_METHOD", &tagTSzct::method)
      .AddNumbered(u"_INT_PARAM", &tagTSzct::int_params)
      .AddNumbered(u"_DBL_PARAM", &tagTSzct::dbl_params)
      .InBy(SeedParameter, unit::kLength, 0, {&tagTSzct::method})
      .Add(u"_CUSTOM_SEED", &tagTSzct::custom_seeds)
      .In(unit::kLength, 1)
      .Add(u"_CUSTOM_RATIO", &tagTSzct::custom_ratios)
      .Add(u"_BADAPTIVE", &tagTSzct::adaptive)
      .Add(u"_DBSTATE", &tagTSzct::state)
      .Add(u"_ALOCKED", &tagTSzct::locked);
  fields.Add("NAME", &tagTSzct::name)
      .Add("GKEY", &tagTSzct::edges)
      .Add("GKEY_REV", &tagTSzct::reversed_edges, "GKEYREV")
      .Add("BODY_GKEY", &tagTSzct::bodies)
      .Add("METHOD", &tagTSzct::method)
      .Add("INT_PARAM", &tagTSzct::int_params)
      .Add("DBL_PARAM", &tagTSzct::dbl_params)
      .Add("CUSTOM_SEED", &tagTSzct::custom_seeds)
      .Add("CUSTOM_RATIO", &tagTSzct::custom_ratios)
      .Flag("ADAPTIVE", &tagTSzct::adaptive)
      .Add("STATE", &tagTSzct::state)
      .Add("LOCKED", &tagTSzct::locked);
}

QX_RECORD(tagTSprs) {
  rows.Add(u"_NAME", &tagTSprs::name)
      .Add(u"_ARGKEY", &tagTSprs::items)
      .Add(u"_ARBODYGKEY", &tagTSprs::bodies)
      .Add(u"_LSTATE", &tagTSprs::state);
  fields.Add("NAME", &tagTSprs::name)
      .Add("GKEY", &tagTSprs::items)
      .Add("BODY_GKEY", &tagTSprs::bodies)
      .Add("STATE", &tagTSprs::state);
}

QX_RECORD(tagTDefSize) {
  rows.Add(u"_STRNAME", &tagTDefSize::name)
      .Add(u"_BUSE", &tagTDefSize::use)
      .Add(u"_UITYPE", &tagTDefSize::type)
      .Add(u"_DEFVALUE", &tagTDefSize::value)
      .InBy(DefaultSizeValue, unit::kLength, 0, {&tagTDefSize::type})
      .Add(u"_BFIRSTSHOW", &tagTDefSize::first_show);
  fields.Add("NAME", &tagTDefSize::name)
      .Flag("USE", &tagTDefSize::use)
      .Add("TYPE", &tagTDefSize::type)
      .Add("VALUE", &tagTDefSize::value)
      .Flag("FIRST_SHOW", &tagTDefSize::first_show);
}

QX_RECORD(tagTPropCtrl) {
  rows.Add(u"_NAME", &tagTPropCtrl::name)
      .Add(u"_PROPTYPE", &tagTPropCtrl::property_type)
      .Add(u"_ARGKEY", &tagTPropCtrl::items)
      .When(OnRemoval::kDieWithLast)
      .Add(u"_PROPERTY", &tagTPropCtrl::property)
      .When(OnRemoval::kDie)
      .Add(u"_LSTATE", &tagTPropCtrl::state);
  fields.Add("NAME", &tagTPropCtrl::name)
      .Add("TYPE", &tagTPropCtrl::property_type)
      .Add("GKEY", &tagTPropCtrl::items)
      .Add("PROP", &tagTPropCtrl::property)
      .Add("STATE", &tagTPropCtrl::state);
}

QX_RECORD(tagTMeshCsys) {
  rows.Add(u"_UITYPE", &tagTMeshCsys::type)
      .Add(u"_MESHKEY", &tagTMeshCsys::mesh_set)
      .When(OnRemoval::kDie)
      .Add(u"_MESHCSYS", &tagTMeshCsys::coordinate_system)
      .When(OnRemoval::kDie);
  fields.Add("TYPE", &tagTMeshCsys::type, "UI_TYPE")
      .Add("MESH_KEY", &tagTMeshCsys::mesh_set)
      .Add("CSYS_KEY", &tagTMeshCsys::coordinate_system);
}

QX_RECORD(tagTLyct) {
  rows.Add(u"_NAME", &tagTLyct::name)
      .Add(u"_FACE", &tagTLyct::face)
      .Add(u"_ARGEDGE", &tagTLyct::edges)
      .Add(u"_LAYER", &tagTLyct::layers)
      .Add(u"_H", &tagTLyct::first_height)
      .In(unit::kLength)
      .Add(u"_RHO", &tagTLyct::growth_ratio);
  fields.Add("NAME", &tagTLyct::name)
      .Add("FACE", &tagTLyct::face)
      .Add("EDGE", &tagTLyct::edges)
      .Add("LAYER", &tagTLyct::layers)
      .Add("H", &tagTLyct::first_height)
      .Add("RHO", &tagTLyct::growth_ratio);
}

QX_RECORD(tagTOpti) {
  rows.Add(u"_ANAL", &tagTOpti::analysis)
      .Add(u"_STEP", &tagTOpti::step)
      .Add(u"_DENSITY", &tagTOpti::density)
      .Add(u"_BSMOOTH", &tagTOpti::smooth)
      .Add(u"_DSMOOTH", &tagTOpti::smoothing);
  // Deliberate: the spelling of the default is part of models that exist.
  rows.Add(u"_NAMEADD", &tagTOpti::name_suffix)
      .Add(u"_MODELTYPE", &tagTOpti::model_type)
      .Add(u"_ARNODE", &tagTOpti::nodes)
      .Add(u"_ARELEM", &tagTOpti::elements)
      .Add(u"_ELEMSIDE", &tagTOpti::sides);
}

namespace {

bool TakesSpecialProperty(const TStructBase& element) {
  return element::CarriesSpecialProperty(static_cast<const tagTElem&>(element).type);
}

}  // namespace

QX_RECORD(tagTSprop) {
  rows.KeyOf(code::kElem)
      .GoesWithOwner(TakesSpecialProperty)
      .AddParts({u"_BDOF0", u"_BDOF1", u"_BDOF2", u"_BDOF3", u"_BDOF4", u"_BDOF5"}, &tagTSprop::dof)
      .Add(u"_BDOFTEMP", &tagTSprop::dof_temperature)
      .Add(u"_CORDTYPE", &tagTSprop::csys_type)
      .Add(u"_ITRREFNODE", &tagTSprop::reference_node)
      .Add(u"_VREFVEC", &tagTSprop::reference_vector)
      .Add(u"_ITRCORD", &tagTSprop::coordinate_system)
      .Add(u"_BLARGEROT", &tagTSprop::large_rotation)
      .Add(u"_IRIGIDTYPE", &tagTSprop::rigid_type)
      .Add(u"_DOFLINE1", &tagTSprop::dof_line1)
      .Add(u"_DOFLINE2", &tagTSprop::dof_line2)
      .Add(u"_WEIGHTDOF", &tagTSprop::weights)
      .Add(u"_DMASSVALUE", &tagTSprop::mass)
      .In(unit::kMass, 0)
      .AddParts({u"_DI11", u"_DI21", u"_DI22", u"_DI31", u"_DI32", u"_DI33"}, &tagTSprop::inertia)
      .In(unit::kMassMomentOfInertia, 1)
      .Add(u"_NODEOFFSET", &tagTSprop::has_offset)
      .Add(u"_OFFSETVEC", &tagTSprop::offset)
      .In(unit::kLength, 2)
      .Add(u"_DAMPTYPE", &tagTSprop::damper_location_type)
      .Add(u"_DAMPLOCATE", &tagTSprop::damper_location)
      .Add(u"_ITRLOCCORD", &tagTSprop::location_csys)
      .Add(u"_WELDMETHOD", &tagTSprop::weld_method)
      .Add(u"_WELDELEMFIRST", &tagTSprop::weld_first)
      .Add(u"_WELDELEMSECOND", &tagTSprop::weld_second)
      .Add(u"_WELDTYPE", &tagTSprop::weld_type)
      .Add(u"_WELDNODE", &tagTSprop::weld_node)
      .Add(u"_WELDPROPA", &tagTSprop::weld_property_a)
      .Add(u"_WELDPROPB", &tagTSprop::weld_property_b)
      .Add(u"_WELDPROPS", &tagTSprop::weld_properties)
      .Add(u"_WELDBCSYS", &tagTSprop::weld_has_csys)
      .Add(u"_WELDITRCSYS", &tagTSprop::weld_csys)
      .AddParts({u"_DMASSX", u"_DMASSY", u"_DMASSZ"}, &tagTSprop::mass_by_axis)
      .In(unit::kMass, 0)
      .Add(u"_MOMELEM", &tagTSprop::mother_element)
      .Add(u"_MOMELEM2", &tagTSprop::mother_element2)
      .Add(u"_TAGAUTHICK", &tagTSprop::gauging_thickness)
      .In(unit::kLength, 2)
      .Add(u"_N_INFINITE", &tagTSprop::infinite)
      .Add(u"_B_LOCATION", &tagTSprop::has_location)
      .Add(u"_V_LOCATION", &tagTSprop::location)
      .In(unit::kLength, 2)
      .Add(u"_ELEMVBARMOTHER", &tagTSprop::virtual_beam_mothers);
  // Deliberate: the spelling is that of the files.
  rows.Add(u"_B_SELFWEHGHT", &tagTSprop::self_weight)
      .Add(u"_FLUID_BND", &tagTSprop::fluid_boundary);
  fields.Flag("bDOF", &tagTSprop::dof)
      .Flag("bTEMP", &tagTSprop::dof_temperature)
      .Add("CORD_TYPE", &tagTSprop::csys_type)
      .Add("REF_NODE", &tagTSprop::reference_node)
      .Add("POS_DIR", &tagTSprop::reference_vector)
      .Add("CORD", &tagTSprop::coordinate_system)
      .Flag("bLARGE_ROT", &tagTSprop::large_rotation)
      .Add("RIGID_TYPE", &tagTSprop::rigid_type)
      .Add("DOF_LINE1", &tagTSprop::dof_line1)
      .Add("DOF_LINE2", &tagTSprop::dof_line2)
      .Add("WIEGHT_DOF", &tagTSprop::weights)
      .Add("MASS_VALUE", &tagTSprop::mass)
      .Add("DI11", {&tagTSprop::inertia, 0})
      .Add("DI21", {&tagTSprop::inertia, 1})
      .Add("DI22", {&tagTSprop::inertia, 2})
      .Add("DI31", {&tagTSprop::inertia, 3})
      .Add("DI32", {&tagTSprop::inertia, 4})
      .Add("DI33", {&tagTSprop::inertia, 5})
      .Flag("NODE_OFFSET", &tagTSprop::has_offset, "bNODE OFFSET")
      .Add("POS_OFFSET", &tagTSprop::offset)
      .Described("WEIGHT", GF::Type::kReal, &tagTSprop::weights)
      .Add("DAMP_LOC_TYPE", &tagTSprop::damper_location_type)
      .Described("bDOF", GF::Type::kArray, &tagTSprop::weights)
      .Add("DAMP_LOCATE", &tagTSprop::damper_location)
      .Add("LOC_CORD", &tagTSprop::location_csys)
      .Add("METHOD", &tagTSprop::weld_method)
      .Add("ELEM_FIRST", &tagTSprop::weld_first)
      .Add("ELEM_SECOND", &tagTSprop::weld_second)
      .Add("WELD_TYPE", &tagTSprop::weld_type)
      .Add("WELD_NODE", &tagTSprop::weld_node)
      .Add("WELD_PROP_A", &tagTSprop::weld_property_a)
      .Add("WELD_PROP_B", &tagTSprop::weld_property_b)
      .Flag("bWELD_CSYS", &tagTSprop::weld_has_csys, "dWELD CSYS")
      .Add("WELD_CSYS", &tagTSprop::weld_csys, "WELDC SYS")
      .Add("MASS_X", {&tagTSprop::mass_by_axis, 0})
      .Add("MASS_Y", {&tagTSprop::mass_by_axis, 1})
      .Add("MASS_Z", {&tagTSprop::mass_by_axis, 2})
      .Add("MOTHER_ELEM", &tagTSprop::mother_element)
      .Add("MOTHER_ELEM2", &tagTSprop::mother_element2)
      .Add("GAUTHINK", &tagTSprop::gauging_thickness)
      .Add("nINFINITE", &tagTSprop::infinite)
      .Flag("bLOCATION", &tagTSprop::has_location)
      .Add("LOCATION", &tagTSprop::location)
      .Add("ELEM_VBAR_MOTHER", &tagTSprop::virtual_beam_mothers)
      .Flag("bSELF_WEIGHT", &tagTSprop::self_weight)
      .Add("FLUID_BND", &tagTSprop::fluid_boundary);
}

template class TUnitDescriptor<tagTSzct, 2>;
template class TUnitDescriptor<tagTDefSize, 1>;
template class TUnitDescriptor<tagTLyct, 1>;
template class TUnitDescriptor<tagTSprop, 3>;

}  // namespace qx
