#include "qx_db/record/attribute_records.h"

#include "qx_db/record/record_impl.h"

namespace qx {

using GF = GatewayField;

namespace {

// Partial releases are factors between 0 and 1, or stiffnesses.
int TranslationRelease(const TStructBase& record, int) {
  const bool stiff =
      static_cast<const tagTE1DRelease&>(record).type == tagTE1DRelease::kStiffnesses;
  return stiff ? unit::kStiffness : unit::kNone;
}
int RotationRelease(const TStructBase& record, int) {
  const bool stiff =
      static_cast<const tagTE1DRelease&>(record).type == tagTE1DRelease::kStiffnesses;
  return stiff ? unit::kRotationalStiffness : unit::kNone;
}

}  // namespace

const Schema& tagTE1DOffset::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"ELEM_KEY_ARRAY", GF::Type::kArray, u"_ARGKEY"},
      {"END_A_OFFSET", GF::Type::kBool, u"_BENDAOF"},
      {"A_W1", GF::Type::kReal, u"_DAW1"},
      {"A_W2", GF::Type::kReal, u"_DAW2"},
      {"A_W3", GF::Type::kReal, u"_DAW3"},
      {"END_B_OFFSET", GF::Type::kBool, u"_BENDBOF"},
      {"B_W1", GF::Type::kReal, u"_DBW1"},
      {"B_W2", GF::Type::kReal, u"_DBW2"},
      {"B_W3", GF::Type::kReal, u"_DBW3"},
      {"CSYS_TYPE", GF::Type::kInteger, u"_UICSYSTYPE"},
      {"REF_SECTION", GF::Type::kBool, u"_BREFSECTION"},
  };
  static const Schema schema("tagTE1DOffset", kType, sizeof(tagTE1DOffset),
                             RowList()
                                 .Add(u"_KEY", &tagTE1DOffset::key)
                                 .Add(u"_NAME", &tagTE1DOffset::name)
                                 .Add(u"_ARGKEY", &tagTE1DOffset::elements)
                                 .To(code::kElem)
                                 .When(OnRemoval::kDieWithLast)
                                 .Add(u"_BENDAOF", &tagTE1DOffset::end_a)
                                 .AddParts({u"_DAW1", u"_DAW2", u"_DAW3"}, &tagTE1DOffset::offset_a)
                                 .In(unit::kLength)
                                 .Add(u"_BENDBOF", &tagTE1DOffset::end_b)
                                 .AddParts({u"_DBW1", u"_DBW2", u"_DBW3"}, &tagTE1DOffset::offset_b)
                                 .In(unit::kLength)
                                 .Add(u"_UICSYSTYPE", &tagTE1DOffset::csys_type)
                                 .Add(u"_BREFSECTION", &tagTE1DOffset::from_section)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTE1DRelease::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},      {"ELEM_KEY_ARRAY", GF::Type::kArray, u"_ARGKEY"},
      {"bENDA_T1", GF::Type::kBool, u"_BENDAT1"}, {"bENDA_T2", GF::Type::kBool, u"_BENDAT2"},
      {"bENDA_T3", GF::Type::kBool, u"_BENDAT3"}, {"bENDA_R1", GF::Type::kBool, u"_BENDAR1"},
      {"bENDA_R2", GF::Type::kBool, u"_BENDAR2"}, {"bENDA_R3", GF::Type::kBool, u"_BENDAR3"},
      {"bENDB_T1", GF::Type::kBool, u"_BENDBT1"}, {"bENDB_T2", GF::Type::kBool, u"_BENDBT2"},
      {"bENDB_T3", GF::Type::kBool, u"_BENDBT3"}, {"bENDB_R1", GF::Type::kBool, u"_BENDBR1"},
      {"bENDB_R2", GF::Type::kBool, u"_BENDBR2"}, {"bENDB_R3", GF::Type::kBool, u"_BENDBR3"},
      {"TYPE", GF::Type::kInteger, u"_TYPE"},     {"dENDA_T1", GF::Type::kReal, u"_DENDAT1"},
      {"dENDA_T2", GF::Type::kReal, u"_DENDAT2"}, {"dENDA_T3", GF::Type::kReal, u"_DENDAT3"},
      {"dENDA_R1", GF::Type::kReal, u"_DENDAR1"}, {"dENDA_R2", GF::Type::kReal, u"_DENDAR2"},
      {"dENDA_R3", GF::Type::kReal, u"_DENDAR3"}, {"dENDB_T1", GF::Type::kReal, u"_DENDBT1"},
      {"dENDB_T2", GF::Type::kReal, u"_DENDBT2"}, {"dENDB_T3", GF::Type::kReal, u"_DENDBT3"},
      {"dENDB_R1", GF::Type::kReal, u"_DENDBR1"}, {"dENDB_R2", GF::Type::kReal, u"_DENDBR2"},
      {"dENDB_R3", GF::Type::kReal, u"_DENDBR3"},
  };
  static const Schema schema(
      "tagTE1DRelease", kType, sizeof(tagTE1DRelease),
      RowList()
          .Add(u"_KEY", &tagTE1DRelease::key)
          .Add(u"_NAME", &tagTE1DRelease::name)
          .Add(u"_ARGKEY", &tagTE1DRelease::elements)
          .To(code::kElem)
          .When(OnRemoval::kDieWithLast)
          .AddParts({u"_BENDAT1", u"_BENDAT2", u"_BENDAT3", u"_BENDAR1", u"_BENDAR2", u"_BENDAR3",
                     u"_BENDBT1", u"_BENDBT2", u"_BENDBT3", u"_BENDBR1", u"_BENDBR2", u"_BENDBR3"},
                    &tagTE1DRelease::released)
          .Add(u"_TYPE", &tagTE1DRelease::type)
          .AddParts({u"_DENDAT1", u"_DENDAT2", u"_DENDAT3"}, &tagTE1DRelease::partial_translation_a)
          .InBy(TranslationRelease, unit::kStiffness, 0)
          .AddParts({u"_DENDAR1", u"_DENDAR2", u"_DENDAR3"}, &tagTE1DRelease::partial_rotation_a)
          .InBy(RotationRelease, unit::kRotationalStiffness, 1)
          .AddParts({u"_DENDBT1", u"_DENDBT2", u"_DENDBT3"}, &tagTE1DRelease::partial_translation_b)
          .InBy(TranslationRelease, unit::kStiffness, 0)
          .AddParts({u"_DENDBR1", u"_DENDBR2", u"_DENDBR3"}, &tagTE1DRelease::partial_rotation_b)
          .InBy(RotationRelease, unit::kRotationalStiffness, 1)
          .Take(),
      kFields);
  return schema;
}

const Schema& tagTE2DThick::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"ELEM_KEY_ARRAY", GF::Type::kArray, u"_ARGKEY"},
      {"UNIFORM", GF::Type::kInteger, u"_BUNIFORM"},
      {"FUNC", GF::Type::kInteger, u"_ITRFUNC"},
      {"T1", GF::Type::kReal, u"_DT1"},
      {"T2", GF::Type::kReal, u"_DT2"},
      {"T3", GF::Type::kReal, u"_DT3"},
      {"T4", GF::Type::kReal, u"_DT4"},
  };
  static const Schema schema(
      "tagTE2DThick", kType, sizeof(tagTE2DThick),
      RowList()
          .Add(u"_KEY", &tagTE2DThick::key)
          .Add(u"_NAME", &tagTE2DThick::name)
          .Add(u"_ARGKEY", &tagTE2DThick::elements)
          .To(code::kElem)
          .When(OnRemoval::kDieWithLast)
          .Add(u"_BUNIFORM", &tagTE2DThick::uniform)
          .Add(u"_ITRFUNC", &tagTE2DThick::function)
          .To(code::kFunc)
          .AddParts({u"_DT1", u"_DT2", u"_DT3", u"_DT4"}, &tagTE2DThick::thickness)
          .In(unit::kLength)
          .Take(),
      kFields);
  return schema;
}

const Schema& tagTE2DOffset::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"ELEM_KEY_ARRAY", GF::Type::kArray, u"_ARGKEY"},
      {"FUNC", GF::Type::kInteger, u"_ITRFUNC"},
      {"OFFSET_DISTANCE", GF::Type::kReal, u"_DOFFSET"},
  };
  static const Schema schema("tagTE2DOffset", kType, sizeof(tagTE2DOffset),
                             RowList()
                                 .Add(u"_KEY", &tagTE2DOffset::key)
                                 .Add(u"_NAME", &tagTE2DOffset::name)
                                 .Add(u"_ARGKEY", &tagTE2DOffset::elements)
                                 .To(code::kElem)
                                 .When(OnRemoval::kDieWithLast)
                                 .Add(u"_ITRFUNC", &tagTE2DOffset::function)
                                 .To(code::kFunc)
                                 .Add(u"_DOFFSET", &tagTE2DOffset::offset)
                                 .In(unit::kLength)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTE2DMatlCsys::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"ELEM_KEY_ARRAY", GF::Type::kArray, u"_ARGKEY"},
      {"TYPE", GF::Type::kInteger, u"_TYPE"},
      {"COORDINATE", GF::Type::kInteger, u"_ITRCORD"},
      {"CSYS_TYPE", GF::Type::kInteger, u"_CSYSTYPE"},
      {"ANGLE", GF::Type::kReal, u"_DANGLE"},
      {"REF_VECTOR", GF::Type::kArray, u"_VREFVEC"},
  };
  static const Schema schema("tagTE2DMatlCsys", kType, sizeof(tagTE2DMatlCsys),
                             RowList()
                                 .Add(u"_KEY", &tagTE2DMatlCsys::key)
                                 .Add(u"_NAME", &tagTE2DMatlCsys::name)
                                 .Add(u"_ARGKEY", &tagTE2DMatlCsys::elements)
                                 .To(code::kElem)
                                 .When(OnRemoval::kDieWithLast)
                                 .Add(u"_TYPE", &tagTE2DMatlCsys::type)
                                 .Add(u"_ITRCORD", &tagTE2DMatlCsys::coordinate_system)
                                 .To(code::kCord)
                                 .Add(u"_CSYSTYPE", &tagTE2DMatlCsys::csys_axis)
                                 .Add(u"_DANGLE", &tagTE2DMatlCsys::angle_deg)
                                 .Listed(unit::kAngle)
                                 .Add(u"_VREFVEC", &tagTE2DMatlCsys::reference_vector)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTE2DRelease::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"ELEM_KEY_ARRAY", GF::Type::kArray, u"_ARGELEM"},
      {"NODE_KEY_ARRAY", GF::Type::kArray, u"_ARGNODE"},
      {"CORD", GF::Type::kInteger, u"_CORD"},
      {"FX", GF::Type::kBool, u"_BFX"},
      {"FY", GF::Type::kBool, u"_BFY"},
      {"FZ", GF::Type::kBool, u"_BFZ"},
      {"MX", GF::Type::kBool, u"_BMX"},
      {"MY", GF::Type::kBool, u"_BMY"},
      {"MZ", GF::Type::kBool, u"_BMZ"},
  };
  static const Schema schema("tagTE2DRelease", kType, sizeof(tagTE2DRelease),
                             RowList()
                                 .Add(u"_KEY", &tagTE2DRelease::key)
                                 .Add(u"_NAME", &tagTE2DRelease::name)
                                 .Add(u"_ARGELEM", &tagTE2DRelease::elements)
                                 .To(code::kElem)
                                 .When(OnRemoval::kDieWithLast)
                                 .Add(u"_ARGNODE", &tagTE2DRelease::nodes)
                                 .To(code::kNode)
                                 .When(OnRemoval::kDieWithLast)
                                 .Add(u"_CORD", &tagTE2DRelease::coordinate_system)
                                 .To(code::kCord)
                                 .AddParts({u"_BFX", u"_BFY", u"_BFZ", u"_BMX", u"_BMY", u"_BMZ"},
                                           &tagTE2DRelease::released)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTE3DMatlCsys::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"LOCAL_VECTOR_X", GF::Type::kArray, u"_LOCVECXX", nullptr, GF::Form::kRun, 3},
      {"LOCAL_VECTOR_Y", GF::Type::kArray, u"_LOCVECYX", nullptr, GF::Form::kRun, 3},
      {"LOCAL_VECTOR_Z", GF::Type::kArray, u"_LOCVECZX", nullptr, GF::Form::kRun, 3},
  };
  static const Schema schema(
      "tagTE3DMatlCsys", kType, sizeof(tagTE3DMatlCsys),
      RowList()
          .Add(u"_KEY", &tagTE3DMatlCsys::key)
          .KeyOf(code::kElem)
          // Deliberate: the default is not the identity; hosts tell an unset record by it.
          .AddParts({u"_LOCVECXX", u"_LOCVECXY", u"_LOCVECXZ"}, &tagTE3DMatlCsys::x_axis)
          .AddParts({u"_LOCVECYX", u"_LOCVECYY", u"_LOCVECYZ"}, &tagTE3DMatlCsys::y_axis)
          .AddParts({u"_LOCVECZX", u"_LOCVECZY", u"_LOCVECZZ"}, &tagTE3DMatlCsys::z_axis)
          .Take(),
      kFields);
  return schema;
}

const Schema& tagTE3DScaleFac::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"TENSILE_MOD", GF::Type::kArray, u"_TENSMOD11", nullptr, GF::Form::kRun, 3},
      {"THERMAL_EXP", GF::Type::kArray, u"_THEREXP11", nullptr, GF::Form::kRun, 3},
      {"NU", GF::Type::kArray, u"_NU12", nullptr, GF::Form::kRun, 3},
      {"RHO", GF::Type::kReal, u"_RHO"},
  };
  static const Schema schema(
      "tagTE3DScaleFac", kType, sizeof(tagTE3DScaleFac),
      RowList()
          .Add(u"_KEY", &tagTE3DScaleFac::key)
          .KeyOf(code::kElem)
          .AddParts({u"_TENSMOD11", u"_TENSMOD22", u"_TENSMOD33"},
                    &tagTE3DScaleFac::elastic_modulus)
          .AddParts({u"_THEREXP11", u"_THEREXP22", u"_THEREXP33"},
                    &tagTE3DScaleFac::thermal_expansion)
          .AddParts({u"_NU12", u"_NU23", u"_NU31"}, &tagTE3DScaleFac::poisson_ratio)
          .Add(u"_RHO", &tagTE3DScaleFac::density)
          .Take(),
      kFields);
  return schema;
}

const Schema& tagTE2DSatUnsat::GetSchema() {
  static const Schema schema("tagTE2DSatUnsat", kType, sizeof(tagTE2DSatUnsat),
                             RowList()
                                 .Add(u"_KEY", &tagTE2DSatUnsat::key)
                                 .Add(u"_NAME", &tagTE2DSatUnsat::name)
                                 .Add(u"_ARGKEY", &tagTE2DSatUnsat::elements)
                                 .To(code::kElem)
                                 .When(OnRemoval::kDieWithLast)
                                 .Add(u"_SAT_PROP", &tagTE2DSatUnsat::saturated)
                                 .To(code::kProp)
                                 .Add(u"_UNSAT_PROP", &tagTE2DSatUnsat::unsaturated)
                                 .To(code::kProp)
                                 .Take());
  return schema;
}

const Schema& tagTE3DSatUnsat::GetSchema() {
  static const Schema schema("tagTE3DSatUnsat", kType, sizeof(tagTE3DSatUnsat),
                             RowList()
                                 .Add(u"_KEY", &tagTE3DSatUnsat::key)
                                 .Add(u"_NAME", &tagTE3DSatUnsat::name)
                                 .Add(u"_ARGKEY", &tagTE3DSatUnsat::elements)
                                 .To(code::kElem)
                                 .When(OnRemoval::kDieWithLast)
                                 .Add(u"_SAT_PROP", &tagTE3DSatUnsat::saturated)
                                 .To(code::kProp)
                                 .Add(u"_UNSAT_PROP", &tagTE3DSatUnsat::unsaturated)
                                 .To(code::kProp)
                                 .Take());
  return schema;
}

const Schema& tagTE2DAutoTemp::GetSchema() {
  static const Schema schema("tagTE2DAutoTemp", kType, sizeof(tagTE2DAutoTemp),
                             RowList()
                                 .Add(u"_KEY", &tagTE2DAutoTemp::key)
                                 .Add(u"_NAME", &tagTE2DAutoTemp::name)
                                 .Add(u"_ARGKEY", &tagTE2DAutoTemp::elements)
                                 .To(code::kElem)
                                 .When(OnRemoval::kDieWithLast)
                                 .Add(u"_ABOVE_TEMP_PROP", &tagTE2DAutoTemp::above)
                                 .To(code::kProp)
                                 .Add(u"_BELOW_TEMP_PROP", &tagTE2DAutoTemp::below)
                                 .To(code::kProp)
                                 .Add(u"_REF_TEMP", &tagTE2DAutoTemp::reference_temperature)
                                 .In(unit::kTemperature)
                                 .Take());
  return schema;
}

const Schema& tagTE3DAutoTemp::GetSchema() {
  static const Schema schema("tagTE3DAutoTemp", kType, sizeof(tagTE3DAutoTemp),
                             RowList()
                                 .Add(u"_KEY", &tagTE3DAutoTemp::key)
                                 .Add(u"_NAME", &tagTE3DAutoTemp::name)
                                 .Add(u"_ARGKEY", &tagTE3DAutoTemp::elements)
                                 .To(code::kElem)
                                 .When(OnRemoval::kDieWithLast)
                                 .Add(u"_ABOVE_TEMP_PROP", &tagTE3DAutoTemp::above)
                                 .To(code::kProp)
                                 .Add(u"_BELOW_TEMP_PROP", &tagTE3DAutoTemp::below)
                                 .To(code::kProp)
                                 .Add(u"_REF_TEMP", &tagTE3DAutoTemp::reference_temperature)
                                 .In(unit::kTemperature)
                                 .Take());
  return schema;
}

QX_RECORD(tagTE1DOffset);
QX_RECORD(tagTE1DRelease);
QX_RECORD(tagTE2DThick);
QX_RECORD(tagTE2DOffset);
QX_RECORD(tagTE2DMatlCsys);
QX_RECORD(tagTE2DRelease);
QX_RECORD(tagTE3DMatlCsys);
QX_RECORD(tagTE3DScaleFac);
QX_RECORD(tagTE2DSatUnsat);
QX_RECORD(tagTE3DSatUnsat);
QX_RECORD(tagTE2DAutoTemp);
QX_RECORD(tagTE3DAutoTemp);

}  // namespace qx
