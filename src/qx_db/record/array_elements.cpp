#include "qx_db/record/array_elements.h"

namespace qx {

const ElementSchema& tagTElemSide::GetSchema() {
  static const ElementSchema schema(
      "tagTElemSide", sizeof(tagTElemSide),
      RowList().Add(u"_ELEM", &tagTElemSide::element).Add(u"_SIDE", &tagTElemSide::side));
  return schema;
}

const ElementSchema& tagTWeightDOF::GetSchema() {
  static const ElementSchema schema(
      "tagTWeightDOF", sizeof(tagTWeightDOF),
      RowList()
          .Add(u"_DWEIGHT", &tagTWeightDOF::weight)
          .AddParts({u"_DOF6T1", u"_DOF6T2", u"_DOF6T3", u"_DOF6R1", u"_DOF6R2", u"_DOF6R3"},
                    &tagTWeightDOF::dof),
      FieldList().Add("WEIGHT", &tagTWeightDOF::weight).Flag("bDOF", &tagTWeightDOF::dof));
  return schema;
}

const ElementSchema& tagTFuncValue::GetSchema() {
  static const ElementSchema schema(
      "tagTFuncValue", sizeof(tagTFuncValue),
      RowList().Add(u"_VAR", &tagTFuncValue::variable).Add(u"_VALUE", &tagTFuncValue::value),
      FieldList().Add("VAR", &tagTFuncValue::variable).Add("VALUE", &tagTFuncValue::value));
  return schema;
}

const ElementSchema& tagTFunc3DSet::GetSchema() {
  static const ElementSchema schema(
      "tagTFunc3DSet", sizeof(tagTFunc3DSet),
      RowList().Add(u"_dVar", &tagTFunc3DSet::variable).Add(u"_itrFunc", &tagTFunc3DSet::function));
  return schema;
}

const ElementSchema& tagTGaugingThick::GetSchema() {
  static const ElementSchema schema("tagTGaugingThick", sizeof(tagTGaugingThick),
                                    RowList()
                                        .Add(u"_DISTANCE", &tagTGaugingThick::distance)
                                        .Add(u"_THICKNESS", &tagTGaugingThick::thickness));
  return schema;
}

const ElementSchema& tagTSelectedResult::GetSchema() {
  static const ElementSchema schema("tagTSelectedResult", sizeof(tagTSelectedResult),
                                    RowList()
                                        .Add(u"_ANALNAME", &tagTSelectedResult::analysis)
                                        .Add(u"_STEPNAME", &tagTSelectedResult::step)
                                        .Add(u"_FACTOR", &tagTSelectedResult::factor));
  return schema;
}

}  // namespace qx
