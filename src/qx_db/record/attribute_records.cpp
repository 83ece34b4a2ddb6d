#include "qx_db/record/attribute_records.h"

#include "qx_db/record/record_impl.h"

namespace qx {

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

QX_RECORD(tagTE1DOffset) {
  rows.Add(u"_NAME", &tagTE1DOffset::name)
      .Add(u"_ARGKEY", &tagTE1DOffset::elements)
      .When(OnRemoval::kDieWithLast)
      .Add(u"_BENDAOF", &tagTE1DOffset::end_a)
      .AddParts({u"_DAW1", u"_DAW2", u"_DAW3"}, &tagTE1DOffset::offset_a)
      .In(unit::kLength)
      .Add(u"_BENDBOF", &tagTE1DOffset::end_b)
      .AddParts({u"_DBW1", u"_DBW2", u"_DBW3"}, &tagTE1DOffset::offset_b)
      .In(unit::kLength)
      .Add(u"_UICSYSTYPE", &tagTE1DOffset::csys_type)
      .Add(u"_BREFSECTION", &tagTE1DOffset::from_section);
  fields.Add("NAME", &tagTE1DOffset::name)
      .Add("ELEM_KEY_ARRAY", &tagTE1DOffset::elements)
      .Flag("END_A_OFFSET", &tagTE1DOffset::end_a)
      .Add("A_W1", {&tagTE1DOffset::offset_a, 0})
      .Add("A_W2", {&tagTE1DOffset::offset_a, 1})
      .Add("A_W3", {&tagTE1DOffset::offset_a, 2})
      .Flag("END_B_OFFSET", &tagTE1DOffset::end_b)
      .Add("B_W1", {&tagTE1DOffset::offset_b, 0})
      .Add("B_W2", {&tagTE1DOffset::offset_b, 1})
      .Add("B_W3", {&tagTE1DOffset::offset_b, 2})
      .Add("CSYS_TYPE", &tagTE1DOffset::csys_type)
      .Flag("REF_SECTION", &tagTE1DOffset::from_section);
}

QX_RECORD(tagTE1DRelease) {
  rows.Add(u"_NAME", &tagTE1DRelease::name)
      .Add(u"_ARGKEY", &tagTE1DRelease::elements)
      .When(OnRemoval::kDieWithLast)
      .AddParts({u"_BENDAT1", u"_BENDAT2", u"_BENDAT3", u"_BENDAR1", u"_BENDAR2", u"_BENDAR3",
                 u"_BENDBT1", u"_BENDBT2", u"_BENDBT3", u"_BENDBR1", u"_BENDBR2", u"_BENDBR3"},
                &tagTE1DRelease::released)
      .Add(u"_TYPE", &tagTE1DRelease::type)
      .AddParts({u"_DENDAT1", u"_DENDAT2", u"_DENDAT3"}, &tagTE1DRelease::partial_translation_a)
      .InBy(TranslationRelease, unit::kStiffness, 0, {&tagTE1DRelease::type})
      .AddParts({u"_DENDAR1", u"_DENDAR2", u"_DENDAR3"}, &tagTE1DRelease::partial_rotation_a)
      .InBy(RotationRelease, unit::kRotationalStiffness, 1, {&tagTE1DRelease::type})
      .AddParts({u"_DENDBT1", u"_DENDBT2", u"_DENDBT3"}, &tagTE1DRelease::partial_translation_b)
      .InBy(TranslationRelease, unit::kStiffness, 0, {&tagTE1DRelease::type})
      .AddParts({u"_DENDBR1", u"_DENDBR2", u"_DENDBR3"}, &tagTE1DRelease::partial_rotation_b)
      .InBy(RotationRelease, unit::kRotationalStiffness, 1, {&tagTE1DRelease::type});
  fields.Add("NAME", &tagTE1DRelease::name)
      .Add("ELEM_KEY_ARRAY", &tagTE1DRelease::elements)
      .Flag("bENDA_T1", {&tagTE1DRelease::released, 0})
      .Flag("bENDA_T2", {&tagTE1DRelease::released, 1})
      .Flag("bENDA_T3", {&tagTE1DRelease::released, 2})
      .Flag("bENDA_R1", {&tagTE1DRelease::released, 3})
      .Flag("bENDA_R2", {&tagTE1DRelease::released, 4})
      .Flag("bENDA_R3", {&tagTE1DRelease::released, 5})
      .Flag("bENDB_T1", {&tagTE1DRelease::released, 6})
      .Flag("bENDB_T2", {&tagTE1DRelease::released, 7})
      .Flag("bENDB_T3", {&tagTE1DRelease::released, 8})
      .Flag("bENDB_R1", {&tagTE1DRelease::released, 9})
      .Flag("bENDB_R2", {&tagTE1DRelease::released, 10})
      .Flag("bENDB_R3", {&tagTE1DRelease::released, 11})
      .Add("TYPE", &tagTE1DRelease::type)
      .Add("dENDA_T1", {&tagTE1DRelease::partial_translation_a, 0})
      .Add("dENDA_T2", {&tagTE1DRelease::partial_translation_a, 1})
      .Add("dENDA_T3", {&tagTE1DRelease::partial_translation_a, 2})
      .Add("dENDA_R1", {&tagTE1DRelease::partial_rotation_a, 0})
      .Add("dENDA_R2", {&tagTE1DRelease::partial_rotation_a, 1})
      .Add("dENDA_R3", {&tagTE1DRelease::partial_rotation_a, 2})
      .Add("dENDB_T1", {&tagTE1DRelease::partial_translation_b, 0})
      .Add("dENDB_T2", {&tagTE1DRelease::partial_translation_b, 1})
      .Add("dENDB_T3", {&tagTE1DRelease::partial_translation_b, 2})
      .Add("dENDB_R1", {&tagTE1DRelease::partial_rotation_b, 0})
      .Add("dENDB_R2", {&tagTE1DRelease::partial_rotation_b, 1})
      .Add("dENDB_R3", {&tagTE1DRelease::partial_rotation_b, 2});
}

QX_RECORD(tagTE2DThick) {
  rows.Add(u"_NAME", &tagTE2DThick::name)
      .Add(u"_ARGKEY", &tagTE2DThick::elements)
      .When(OnRemoval::kDieWithLast)
      .Add(u"_BUNIFORM", &tagTE2DThick::uniform)
      .Add(u"_ITRFUNC", &tagTE2DThick::function)
      .AddParts({u"_DT1", u"_DT2", u"_DT3", u"_DT4"}, &tagTE2DThick::thickness)
      .In(unit::kLength);
  fields.Add("NAME", &tagTE2DThick::name)
      .Add("ELEM_KEY_ARRAY", &tagTE2DThick::elements)
      .Add("UNIFORM", &tagTE2DThick::uniform)
      .Add("FUNC", &tagTE2DThick::function)
      .Add("T1", {&tagTE2DThick::thickness, 0})
      .Add("T2", {&tagTE2DThick::thickness, 1})
      .Add("T3", {&tagTE2DThick::thickness, 2})
      .Add("T4", {&tagTE2DThick::thickness, 3});
}

QX_RECORD(tagTE2DOffset) {
  rows.Add(u"_NAME", &tagTE2DOffset::name)
      .Add(u"_ARGKEY", &tagTE2DOffset::elements)
      .When(OnRemoval::kDieWithLast)
      .Add(u"_ITRFUNC", &tagTE2DOffset::function)
      .Add(u"_DOFFSET", &tagTE2DOffset::offset)
      .In(unit::kLength);
  fields.Add("NAME", &tagTE2DOffset::name)
      .Add("ELEM_KEY_ARRAY", &tagTE2DOffset::elements)
      .Add("FUNC", &tagTE2DOffset::function)
      .Add("OFFSET_DISTANCE", &tagTE2DOffset::offset);
}

QX_RECORD(tagTE2DMatlCsys) {
  rows.Add(u"_NAME", &tagTE2DMatlCsys::name)
      .Add(u"_ARGKEY", &tagTE2DMatlCsys::elements)
      .When(OnRemoval::kDieWithLast)
      .Add(u"_TYPE", &tagTE2DMatlCsys::type)
      .Add(u"_ITRCORD", &tagTE2DMatlCsys::coordinate_system)
      .Add(u"_CSYSTYPE", &tagTE2DMatlCsys::csys_axis)
      .Add(u"_DANGLE", &tagTE2DMatlCsys::angle_deg)
      .Listed(unit::kAngle)
      .Add(u"_VREFVEC", &tagTE2DMatlCsys::reference_vector);
  fields.Add("NAME", &tagTE2DMatlCsys::name)
      .Add("ELEM_KEY_ARRAY", &tagTE2DMatlCsys::elements)
      .Add("TYPE", &tagTE2DMatlCsys::type)
      .Add("COORDINATE", &tagTE2DMatlCsys::coordinate_system)
      .Add("CSYS_TYPE", &tagTE2DMatlCsys::csys_axis)
      .Add("ANGLE", &tagTE2DMatlCsys::angle_deg)
      .Add("REF_VECTOR", &tagTE2DMatlCsys::reference_vector);
}

QX_RECORD(tagTE2DRelease) {
  rows.Add(u"_NAME", &tagTE2DRelease::name)
      .Add(u"_ARGELEM", &tagTE2DRelease::elements)
      .When(OnRemoval::kDieWithLast)
      .Add(u"_ARGNODE", &tagTE2DRelease::nodes)
      .When(OnRemoval::kDieWithLast)
      .Add(u"_CORD", &tagTE2DRelease::coordinate_system)
      .AddParts({u"_BFX", u"_BFY", u"_BFZ", u"_BMX", u"_BMY", u"_BMZ"}, &tagTE2DRelease::released);
  fields.Add("NAME", &tagTE2DRelease::name)
      .Add("ELEM_KEY_ARRAY", &tagTE2DRelease::elements)
      .Add("NODE_KEY_ARRAY", &tagTE2DRelease::nodes)
      .Add("CORD", &tagTE2DRelease::coordinate_system)
      .Flag("FX", {&tagTE2DRelease::released, 0})
      .Flag("FY", {&tagTE2DRelease::released, 1})
      .Flag("FZ", {&tagTE2DRelease::released, 2})
      .Flag("MX", {&tagTE2DRelease::released, 3})
      .Flag("MY", {&tagTE2DRelease::released, 4})
      .Flag("MZ", {&tagTE2DRelease::released, 5});
}

QX_RECORD(tagTE3DMatlCsys) {
  rows.KeyOf(code::kElem).GoesWithOwner();
  // Deliberate: the default is not the identity; hosts tell an unset record by it.
  rows.AddParts({u"_LOCVECXX", u"_LOCVECXY", u"_LOCVECXZ"}, &tagTE3DMatlCsys::x_axis)
      .AddParts({u"_LOCVECYX", u"_LOCVECYY", u"_LOCVECYZ"}, &tagTE3DMatlCsys::y_axis)
      .AddParts({u"_LOCVECZX", u"_LOCVECZY", u"_LOCVECZZ"}, &tagTE3DMatlCsys::z_axis);
  fields.Add("LOCAL_VECTOR_X", &tagTE3DMatlCsys::x_axis)
      .Add("LOCAL_VECTOR_Y", &tagTE3DMatlCsys::y_axis)
      .Add("LOCAL_VECTOR_Z", &tagTE3DMatlCsys::z_axis);
}

QX_RECORD(tagTE3DScaleFac) {
  rows.KeyOf(code::kElem)
      .GoesWithOwner()
      .AddParts({u"_TENSMOD11", u"_TENSMOD22", u"_TENSMOD33"}, &tagTE3DScaleFac::elastic_modulus)
      .AddParts({u"_THEREXP11", u"_THEREXP22", u"_THEREXP33"}, &tagTE3DScaleFac::thermal_expansion)
      .AddParts({u"_NU12", u"_NU23", u"_NU31"}, &tagTE3DScaleFac::poisson_ratio)
      .Add(u"_RHO", &tagTE3DScaleFac::density);
  fields.Add("TENSILE_MOD", &tagTE3DScaleFac::elastic_modulus)
      .Add("THERMAL_EXP", &tagTE3DScaleFac::thermal_expansion)
      .Add("NU", &tagTE3DScaleFac::poisson_ratio)
      .Add("RHO", &tagTE3DScaleFac::density);
}

QX_RECORD(tagTE2DSatUnsat) {
  rows.Add(u"_NAME", &tagTE2DSatUnsat::name)
      .Add(u"_ARGKEY", &tagTE2DSatUnsat::elements)
      .When(OnRemoval::kDieWithLast)
      .Add(u"_SAT_PROP", &tagTE2DSatUnsat::saturated)
      .Add(u"_UNSAT_PROP", &tagTE2DSatUnsat::unsaturated);
}

QX_RECORD(tagTE3DSatUnsat) {
  rows.Add(u"_NAME", &tagTE3DSatUnsat::name)
      .Add(u"_ARGKEY", &tagTE3DSatUnsat::elements)
      .When(OnRemoval::kDieWithLast)
      .Add(u"_SAT_PROP", &tagTE3DSatUnsat::saturated)
      .Add(u"_UNSAT_PROP", &tagTE3DSatUnsat::unsaturated);
}

QX_RECORD(tagTE2DAutoTemp) {
  rows.Add(u"_NAME", &tagTE2DAutoTemp::name)
      .Add(u"_ARGKEY", &tagTE2DAutoTemp::elements)
      .When(OnRemoval::kDieWithLast)
      .Add(u"_ABOVE_TEMP_PROP", &tagTE2DAutoTemp::above)
      .Add(u"_BELOW_TEMP_PROP", &tagTE2DAutoTemp::below)
      .Add(u"_REF_TEMP", &tagTE2DAutoTemp::reference_temperature)
      .In(unit::kTemperature);
}

QX_RECORD(tagTE3DAutoTemp) {
  rows.Add(u"_NAME", &tagTE3DAutoTemp::name)
      .Add(u"_ARGKEY", &tagTE3DAutoTemp::elements)
      .When(OnRemoval::kDieWithLast)
      .Add(u"_ABOVE_TEMP_PROP", &tagTE3DAutoTemp::above)
      .Add(u"_BELOW_TEMP_PROP", &tagTE3DAutoTemp::below)
      .Add(u"_REF_TEMP", &tagTE3DAutoTemp::reference_temperature)
      .In(unit::kTemperature);
}

template class TUnitDescriptor<tagTE1DOffset, 1>;
template class TUnitDescriptor<tagTE1DRelease, 2>;
template class TUnitDescriptor<tagTE2DThick, 1>;
template class TUnitDescriptor<tagTE2DOffset, 1>;
template class TUnitDescriptor<tagTE2DMatlCsys, 1>;
template class TUnitDescriptor<tagTE2DAutoTemp, 1>;
template class TUnitDescriptor<tagTE3DAutoTemp, 1>;

}  // namespace qx
