#include "qx_db/record/control_records.h"

#include <cstddef>

#include "qx_db/record/record_impl.h"

namespace qx {

using GF = GatewayField;

namespace {

constexpr GatewayElementField kWeightFields[] = {
    {"WEIGHT", offsetof(tagTWeightDOF, weight), Row::Number::kDouble},
    {"bDOF", offsetof(tagTWeightDOF, dof), Row::Number::kInt32, 6, true},
};

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

const Schema& tagTMset::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"NODE_KEY_ARRAY", GF::Type::kArray, u"_NODE_IDS"},
      {"ELEM_KEY_ARRAY", GF::Type::kArray, u"_ELEM_IDS"},
      {"COLOR", GF::Type::kInteger, u"_COLOR"},
      {"CONNECT_NODE_SIZE", GF::Type::kInteger, u"_CONNECTNSIZE"},
      {"PARENT_MSET_KEY", GF::Type::kInteger, u"_PARENTMSETK"},
      {"CONNECT", GF::Type::kBool, u"_CONNECT"},
      {"GEOM_KEY", GF::Type::kInteger, u"_GEOMITR"},
  };
  static const Schema schema("tagTMset", kType, sizeof(tagTMset),
                             RowList()
                                 .Add(u"_KEY", &tagTMset::key)
                                 .Add(u"_NAME", &tagTMset::name)
                                 .Add(u"_COLOR", &tagTMset::color)
                                 .Add(u"_NODE_IDS", &tagTMset::nodes)
                                 .To(code::kNode)
                                 .Add(u"_ELEM_IDS", &tagTMset::elements)
                                 .To(code::kElem)
                                 .Add(u"_GEOMITR", &tagTMset::geometry)
                                 .To(code::kGeom)
                                 .Add(u"_CONNECT", &tagTMset::connected)
                                 .Add(u"_CONNECTNSIZE", &tagTMset::connected_nodes)
                                 .Add(u"_PARENTMSETK", &tagTMset::parent_key)
                                 .KeyOf(code::kMset)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTSzct::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"GKEY", GF::Type::kArray, u"_ARGKEY"},
      {"GKEY_REV", GF::Type::kArray, u"_ARGKEY_REV", "GKEYREV"},
      {"BODY_GKEY", GF::Type::kArray, u"_ARBODYGKEY"},
      {"METHOD", GF::Type::kInteger, u"_METHOD"},
      {"INT_PARAM", GF::Type::kArray, u"_INT_PARAM0", nullptr, GF::Form::kRun, 10},
      {"DBL_PARAM", GF::Type::kArray, u"_DBL_PARAM0", nullptr, GF::Form::kRun, 10},
      {"CUSTOM_SEED", GF::Type::kArray, u"_CUSTOM_SEED"},
      {"CUSTOM_RATIO", GF::Type::kArray, u"_CUSTOM_RATIO"},
      {"ADAPTIVE", GF::Type::kBool, u"_BADAPTIVE"},
      {"STATE", GF::Type::kInteger, u"_DBSTATE"},
      {"LOCKED", GF::Type::kArray, u"_ALOCKED"},
  };
  static const Schema schema("tagTSzct", kType, sizeof(tagTSzct),
                             RowList()
                                 .Add(u"_KEY", &tagTSzct::key)
                                 .Add(u"_NAME", &tagTSzct::name)
                                 .Add(u"_ARGKEY", &tagTSzct::edges)
                                 .To(code::kGKey)
                                 .Beside(&tagTSzct::locked)
                                 .Add(u"_ARGKEY_REV", &tagTSzct::reversed_edges)
                                 .To(code::kGKey)
                                 .Add(u"_ARBODYGKEY", &tagTSzct::bodies)
                                 .To(code::kGKey)
                                 .Add(u"_METHOD", &tagTSzct::method)
                                 .AddNumbered(u"_INT_PARAM", &tagTSzct::int_params)
                                 .AddNumbered(u"_DBL_PARAM", &tagTSzct::dbl_params)
                                 .InBy(SeedParameter, unit::kLength, 0)
                                 .Add(u"_CUSTOM_SEED", &tagTSzct::custom_seeds)
                                 .In(unit::kLength, 1)
                                 .Add(u"_CUSTOM_RATIO", &tagTSzct::custom_ratios)
                                 .Add(u"_BADAPTIVE", &tagTSzct::adaptive)
                                 .Add(u"_DBSTATE", &tagTSzct::state)
                                 .Add(u"_ALOCKED", &tagTSzct::locked)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTSprs::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"GKEY", GF::Type::kArray, u"_ARGKEY"},
      {"BODY_GKEY", GF::Type::kArray, u"_ARBODYGKEY"},
      {"STATE", GF::Type::kInteger, u"_LSTATE"},
  };
  static const Schema schema("tagTSprs", kType, sizeof(tagTSprs),
                             RowList()
                                 .Add(u"_KEY", &tagTSprs::key)
                                 .Add(u"_NAME", &tagTSprs::name)
                                 .Add(u"_ARGKEY", &tagTSprs::items)
                                 .To(code::kGKey)
                                 .Add(u"_ARBODYGKEY", &tagTSprs::bodies)
                                 .To(code::kGKey)
                                 .Add(u"_LSTATE", &tagTSprs::state)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTDefSize::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_STRNAME"},        {"USE", GF::Type::kBool, u"_BUSE"},
      {"TYPE", GF::Type::kInteger, u"_UITYPE"},        {"VALUE", GF::Type::kReal, u"_DEFVALUE"},
      {"FIRST_SHOW", GF::Type::kBool, u"_BFIRSTSHOW"},
  };
  static const Schema schema("tagTDefSize", kType, sizeof(tagTDefSize),
                             RowList()
                                 .Add(u"_KEY", &tagTDefSize::key)
                                 .Add(u"_STRNAME", &tagTDefSize::name)
                                 .Add(u"_BUSE", &tagTDefSize::use)
                                 .Add(u"_UITYPE", &tagTDefSize::type)
                                 .Add(u"_DEFVALUE", &tagTDefSize::value)
                                 .InBy(DefaultSizeValue, unit::kLength)
                                 .Add(u"_BFIRSTSHOW", &tagTDefSize::first_show)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTPropCtrl::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},     {"TYPE", GF::Type::kInteger, u"_PROPTYPE"},
      {"GKEY", GF::Type::kArray, u"_ARGKEY"},    {"PROP", GF::Type::kInteger, u"_PROPERTY"},
      {"STATE", GF::Type::kInteger, u"_LSTATE"},
  };
  static const Schema schema("tagTPropCtrl", kType, sizeof(tagTPropCtrl),
                             RowList()
                                 .Add(u"_KEY", &tagTPropCtrl::key)
                                 .Add(u"_NAME", &tagTPropCtrl::name)
                                 .Add(u"_PROPTYPE", &tagTPropCtrl::property_type)
                                 .Add(u"_ARGKEY", &tagTPropCtrl::items)
                                 .To(code::kGKey)
                                 .When(OnRemoval::kDieWithLast)
                                 .Add(u"_PROPERTY", &tagTPropCtrl::property)
                                 .To(code::kProp)
                                 .When(OnRemoval::kDie)
                                 .Add(u"_LSTATE", &tagTPropCtrl::state)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTMeshCsys::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"TYPE", GF::Type::kInteger, u"_UITYPE", "UI_TYPE"},
      {"MESH_KEY", GF::Type::kInteger, u"_MESHKEY"},
      {"CSYS_KEY", GF::Type::kInteger, u"_MESHCSYS"},
  };
  static const Schema schema("tagTMeshCsys", kType, sizeof(tagTMeshCsys),
                             RowList()
                                 .Add(u"_KEY", &tagTMeshCsys::key)
                                 .Add(u"_UITYPE", &tagTMeshCsys::type)
                                 .Add(u"_MESHKEY", &tagTMeshCsys::mesh_set)
                                 .To(code::kMset)
                                 .When(OnRemoval::kDie)
                                 .Add(u"_MESHCSYS", &tagTMeshCsys::coordinate_system)
                                 .To(code::kCord)
                                 .When(OnRemoval::kDie)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTLyct::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},   {"FACE", GF::Type::kInteger, u"_FACE"},
      {"EDGE", GF::Type::kArray, u"_ARGEDGE"}, {"LAYER", GF::Type::kInteger, u"_LAYER"},
      {"H", GF::Type::kReal, u"_H"},           {"RHO", GF::Type::kReal, u"_RHO"},
  };
  static const Schema schema("tagTLyct", kType, sizeof(tagTLyct),
                             RowList()
                                 .Add(u"_KEY", &tagTLyct::key)
                                 .Add(u"_NAME", &tagTLyct::name)
                                 .Add(u"_FACE", &tagTLyct::face)
                                 .To(code::kGKey)
                                 .Add(u"_ARGEDGE", &tagTLyct::edges)
                                 .To(code::kGKey)
                                 .Add(u"_LAYER", &tagTLyct::layers)
                                 .Add(u"_H", &tagTLyct::first_height)
                                 .In(unit::kLength)
                                 .Add(u"_RHO", &tagTLyct::growth_ratio)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTOpti::GetSchema() {
  static const Schema schema(
      "tagTOpti", kType, sizeof(tagTOpti),
      RowList()
          .Add(u"_KEY", &tagTOpti::key)
          .Add(u"_ANAL", &tagTOpti::analysis)
          .To(code::kAnalysisCase)
          .Add(u"_STEP", &tagTOpti::step)
          .To(code::kAnalysisStep)
          .Add(u"_DENSITY", &tagTOpti::density)
          .Add(u"_BSMOOTH", &tagTOpti::smooth)
          .Add(u"_DSMOOTH", &tagTOpti::smoothing)
          // Deliberate: the spelling of the default is part of models that exist.
          .Add(u"_NAMEADD", &tagTOpti::name_suffix)
          .Add(u"_MODELTYPE", &tagTOpti::model_type)
          .Add(u"_ARNODE", &tagTOpti::nodes)
          .To(code::kNode)
          .Add(u"_ARELEM", &tagTOpti::elements)
          .To(code::kElem)
          .Add(u"_ELEMSIDE", &tagTOpti::sides)
          .InnerReference(0, code::kElem)
          .Take());
  return schema;
}

const Schema& tagTSprop::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"bDOF", GF::Type::kArray, u"_BDOF0", nullptr, GF::Form::kRun, 6, {}, true},
      {"bTEMP", GF::Type::kBool, u"_BDOFTEMP"},
      {"CORD_TYPE", GF::Type::kInteger, u"_CORDTYPE"},
      {"REF_NODE", GF::Type::kInteger, u"_ITRREFNODE"},
      {"POS_DIR", GF::Type::kArray, u"_VREFVEC"},
      {"CORD", GF::Type::kInteger, u"_ITRCORD"},
      {"bLARGE_ROT", GF::Type::kBool, u"_BLARGEROT"},
      {"RIGID_TYPE", GF::Type::kInteger, u"_IRIGIDTYPE"},
      {"DOF_LINE1", GF::Type::kInteger, u"_DOFLINE1"},
      {"DOF_LINE2", GF::Type::kInteger, u"_DOFLINE2"},
      {"WIEGHT_DOF", GF::Type::kArray, u"_WEIGHTDOF", nullptr, GF::Form::kMember, 1, kWeightFields},
      {"MASS_VALUE", GF::Type::kReal, u"_DMASSVALUE"},
      {"DI11", GF::Type::kReal, u"_DI11"},
      {"DI21", GF::Type::kReal, u"_DI21"},
      {"DI22", GF::Type::kReal, u"_DI22"},
      {"DI31", GF::Type::kReal, u"_DI31"},
      {"DI32", GF::Type::kReal, u"_DI32"},
      {"DI33", GF::Type::kReal, u"_DI33"},
      {"NODE_OFFSET", GF::Type::kBool, u"_NODEOFFSET", "bNODE OFFSET"},
      {"POS_OFFSET", GF::Type::kArray, u"_OFFSETVEC"},
      {"WEIGHT", GF::Type::kReal, u"_WEIGHTDOF", nullptr, GF::Form::kDescribed},
      {"DAMP_LOC_TYPE", GF::Type::kInteger, u"_DAMPTYPE"},
      {"bDOF", GF::Type::kArray, u"_WEIGHTDOF", nullptr, GF::Form::kDescribed},
      {"DAMP_LOCATE", GF::Type::kReal, u"_DAMPLOCATE"},
      {"LOC_CORD", GF::Type::kInteger, u"_ITRLOCCORD"},
      {"METHOD", GF::Type::kInteger, u"_WELDMETHOD"},
      {"ELEM_FIRST", GF::Type::kInteger, u"_WELDELEMFIRST"},
      {"ELEM_SECOND", GF::Type::kInteger, u"_WELDELEMSECOND"},
      {"WELD_TYPE", GF::Type::kInteger, u"_WELDTYPE"},
      {"WELD_NODE", GF::Type::kInteger, u"_WELDNODE"},
      {"WELD_PROP_A", GF::Type::kInteger, u"_WELDPROPA"},
      {"WELD_PROP_B", GF::Type::kInteger, u"_WELDPROPB"},
      {"bWELD_CSYS", GF::Type::kBool, u"_WELDBCSYS", "dWELD CSYS"},
      {"WELD_CSYS", GF::Type::kInteger, u"_WELDITRCSYS", "WELDC SYS"},
      {"MASS_X", GF::Type::kReal, u"_DMASSX"},
      {"MASS_Y", GF::Type::kReal, u"_DMASSY"},
      {"MASS_Z", GF::Type::kReal, u"_DMASSZ"},
      {"MOTHER_ELEM", GF::Type::kInteger, u"_MOMELEM"},
      {"MOTHER_ELEM2", GF::Type::kInteger, u"_MOMELEM2"},
      {"GAUTHINK", GF::Type::kArray, u"_TAGAUTHICK"},
      {"nINFINITE", GF::Type::kInteger, u"_N_INFINITE"},
      {"bLOCATION", GF::Type::kBool, u"_B_LOCATION"},
      {"LOCATION", GF::Type::kArray, u"_V_LOCATION"},
      {"ELEM_VBAR_MOTHER", GF::Type::kArray, u"_ELEMVBARMOTHER"},
      {"bSELF_WEIGHT", GF::Type::kBool, u"_B_SELFWEHGHT"},
      {"FLUID_BND", GF::Type::kInteger, u"_FLUID_BND"},
  };
  static const Schema schema(
      "tagTSprop", kType, sizeof(tagTSprop),
      RowList()
          .Add(u"_KEY", &tagTSprop::key)
          .KeyOf(code::kElem)
          .AddParts({u"_BDOF0", u"_BDOF1", u"_BDOF2", u"_BDOF3", u"_BDOF4", u"_BDOF5"},
                    &tagTSprop::dof)
          .Add(u"_BDOFTEMP", &tagTSprop::dof_temperature)
          .Add(u"_CORDTYPE", &tagTSprop::csys_type)
          .Add(u"_ITRREFNODE", &tagTSprop::reference_node)
          .To(code::kNode)
          .Add(u"_VREFVEC", &tagTSprop::reference_vector)
          .Add(u"_ITRCORD", &tagTSprop::coordinate_system)
          .To(code::kCord)
          .Add(u"_BLARGEROT", &tagTSprop::large_rotation)
          .Add(u"_IRIGIDTYPE", &tagTSprop::rigid_type)
          .Add(u"_DOFLINE1", &tagTSprop::dof_line1)
          .Add(u"_DOFLINE2", &tagTSprop::dof_line2)
          .Add(u"_WEIGHTDOF", &tagTSprop::weights)
          .Add(u"_DMASSVALUE", &tagTSprop::mass)
          .In(unit::kMass, 0)
          .AddParts({u"_DI11", u"_DI21", u"_DI22", u"_DI31", u"_DI32", u"_DI33"},
                    &tagTSprop::inertia)
          .In(unit::kMassMomentOfInertia, 1)
          .Add(u"_NODEOFFSET", &tagTSprop::has_offset)
          .Add(u"_OFFSETVEC", &tagTSprop::offset)
          .In(unit::kLength, 2)
          .Add(u"_DAMPTYPE", &tagTSprop::damper_location_type)
          .Add(u"_DAMPLOCATE", &tagTSprop::damper_location)
          .Add(u"_ITRLOCCORD", &tagTSprop::location_csys)
          .To(code::kCord)
          .Add(u"_WELDMETHOD", &tagTSprop::weld_method)
          .Add(u"_WELDELEMFIRST", &tagTSprop::weld_first)
          .To(code::kElem)
          .Add(u"_WELDELEMSECOND", &tagTSprop::weld_second)
          .To(code::kElem)
          .Add(u"_WELDTYPE", &tagTSprop::weld_type)
          .Add(u"_WELDNODE", &tagTSprop::weld_node)
          .To(code::kNode)
          .Add(u"_WELDPROPA", &tagTSprop::weld_property_a)
          .To(code::kProp)
          .Add(u"_WELDPROPB", &tagTSprop::weld_property_b)
          .To(code::kProp)
          .Add(u"_WELDPROPS", &tagTSprop::weld_properties)
          .To(code::kProp)
          .Add(u"_WELDBCSYS", &tagTSprop::weld_has_csys)
          .Add(u"_WELDITRCSYS", &tagTSprop::weld_csys)
          .To(code::kCord)
          .AddParts({u"_DMASSX", u"_DMASSY", u"_DMASSZ"}, &tagTSprop::mass_by_axis)
          .In(unit::kMass, 0)
          .Add(u"_MOMELEM", &tagTSprop::mother_element)
          .To(code::kElem)
          .Add(u"_MOMELEM2", &tagTSprop::mother_element2)
          .To(code::kElem)
          .Add(u"_TAGAUTHICK", &tagTSprop::gauging_thickness)
          .In(unit::kLength, 2)
          .Add(u"_N_INFINITE", &tagTSprop::infinite)
          .Add(u"_B_LOCATION", &tagTSprop::has_location)
          .Add(u"_V_LOCATION", &tagTSprop::location)
          .In(unit::kLength, 2)
          .Add(u"_ELEMVBARMOTHER", &tagTSprop::virtual_beam_mothers)
          .To(code::kElem)
          // Deliberate: the spelling is that of the files.
          .Add(u"_B_SELFWEHGHT", &tagTSprop::self_weight)
          .Add(u"_FLUID_BND", &tagTSprop::fluid_boundary)
          .Take(),
      kFields);
  return schema;
}

QX_RECORD(tagTMset);
QX_RECORD(tagTSzct);
QX_RECORD(tagTSprs);
QX_RECORD(tagTDefSize);
QX_RECORD(tagTPropCtrl);
QX_RECORD(tagTMeshCsys);
QX_RECORD(tagTLyct);
QX_RECORD(tagTOpti);
QX_RECORD(tagTSprop);

}  // namespace qx
