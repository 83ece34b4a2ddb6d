#include "qx_db/record/deck_records.h"

#include "qx_db/record/record_impl.h"

namespace qx {
namespace {

/// The first number of an entry is the value, the second its target.
int FieldCategory(const TStructBase& record, int number) {
  return number == 0 ? static_cast<const tagTField&>(record).category : unit::kNone;
}

}  // namespace

const ElementSchema& tagTNodeValue::GetSchema() {
  static const ElementSchema schema(
      "tagTNodeValue", sizeof(tagTNodeValue),
      RowList().Add(u"_VALUE", &tagTNodeValue::value).Add(u"_NODE", &tagTNodeValue::target));
  return schema;
}

const ElementSchema& tagTElemValue::GetSchema() {
  static const ElementSchema schema(
      "tagTElemValue", sizeof(tagTElemValue),
      RowList().Add(u"_VALUE", &tagTElemValue::value).Add(u"_ELEM", &tagTElemValue::target));
  return schema;
}

const ElementSchema& tagTTextPlace::GetSchema() {
  static const ElementSchema schema(
      "tagTTextPlace", sizeof(tagTTextPlace),
      RowList().Add(u"_AT", &tagTTextPlace::at).Add(u"_LENGTH", &tagTTextPlace::length));
  return schema;
}

const ElementSchema& tagTNodeInText::GetSchema() {
  static const ElementSchema schema(
      "tagTNodeInText", sizeof(tagTNodeInText),
      RowList().Add(u"_PLACE", &tagTNodeInText::place).Add(u"_NODE", &tagTNodeInText::target));
  return schema;
}

const ElementSchema& tagTElemInText::GetSchema() {
  static const ElementSchema schema(
      "tagTElemInText", sizeof(tagTElemInText),
      RowList().Add(u"_PLACE", &tagTElemInText::place).Add(u"_ELEM", &tagTElemInText::target));
  return schema;
}

const ElementSchema& tagTCordInText::GetSchema() {
  static const ElementSchema schema(
      "tagTCordInText", sizeof(tagTCordInText),
      RowList().Add(u"_PLACE", &tagTCordInText::place).Add(u"_CORD", &tagTCordInText::target));
  return schema;
}

QX_RECORD(tagTField) {
  rows.Add(u"_NAME", &tagTField::name)
      .Add(u"_PLACE", &tagTField::place)
      .Add(u"_COMPONENTS", &tagTField::components)
      .Add(u"_CATEGORY", &tagTField::category)
      .Add(u"_INTEGERS", &tagTField::integers)
      .Add(u"_STEP", &tagTField::step)
      .Add(u"_TIME", &tagTField::time)
      .Add(u"_NODE_VALUES", &tagTField::node_values)
      .InBy(FieldCategory, unit::kUnknown, 0, {&tagTField::category})
      .Add(u"_ELEM_VALUES", &tagTField::element_values)
      .InBy(FieldCategory, unit::kUnknown, 1, {&tagTField::category});
}

template class TUnitDescriptor<tagTField, 2>;

QX_RECORD(tagTSetTag) {
  rows.Add(u"_FORMAT", &tagTSetTag::format)
      .Add(u"_MSET", &tagTSetTag::set)
      .When(OnRemoval::kDie)
      .Add(u"_KIND", &tagTSetTag::kind)
      .Add(u"_DIMENSION", &tagTSetTag::dimension)
      .Add(u"_TAG", &tagTSetTag::tag)
      .Add(u"_NAMED", &tagTSetTag::named)
      .Add(u"_SIDES", &tagTSetTag::sides);
  fields.Add("FORMAT", &tagTSetTag::format)
      .Add("MSET_KEY", &tagTSetTag::set)
      .Add("KIND", &tagTSetTag::kind)
      .Add("DIMENSION", &tagTSetTag::dimension)
      .Add("TAG", &tagTSetTag::tag)
      .Flag("NAMED", &tagTSetTag::named);
}

QX_RECORD(tagTBlock) {
  rows.Add(u"_FORMAT", &tagTBlock::format)
      .Add(u"_NAME", &tagTBlock::name)
      .Add(u"_DIMENSION", &tagTBlock::dimension)
      .Add(u"_TAG", &tagTBlock::tag)
      .Add(u"_PARENT_DIM", &tagTBlock::parent_dimension)
      .Add(u"_PARENT_TAG", &tagTBlock::parent_tag)
      .Add(u"_NODE_IDS", &tagTBlock::nodes)
      .Add(u"_ELEM_IDS", &tagTBlock::elements)
      .Add(u"_BOUNDARY", &tagTBlock::boundary)
      .Add(u"_PARTITIONS", &tagTBlock::partitions);
  fields.Add("FORMAT", &tagTBlock::format)
      .Add("NAME", &tagTBlock::name)
      .Add("DIMENSION", &tagTBlock::dimension)
      .Add("TAG", &tagTBlock::tag)
      .Add("PARENT_DIMENSION", &tagTBlock::parent_dimension)
      .Add("PARENT_TAG", &tagTBlock::parent_tag)
      .Add("NODE_KEY_ARRAY", &tagTBlock::nodes)
      .Add("ELEM_KEY_ARRAY", &tagTBlock::elements)
      .Add("BOUNDARY", &tagTBlock::boundary)
      .Add("PARTITIONS", &tagTBlock::partitions);
}

QX_RECORD(tagTCarried) {
  rows.Add(u"_FORMAT", &tagTCarried::format)
      .Add(u"_KEYWORD", &tagTCarried::keyword)
      .Add(u"_PART", &tagTCarried::part)
      .Add(u"_ORDER", &tagTCarried::order)
      .Add(u"_CHECKED", &tagTCarried::checked)
      .Add(u"_BSET", &tagTCarried::owner)
      .Add(u"_TEXT", &tagTCarried::text)
      .Add(u"_PLACES", &tagTCarried::places)
      .Add(u"_NODE_KEYS", &tagTCarried::node_keys)
      .Add(u"_ELEM_KEYS", &tagTCarried::element_keys)
      .Add(u"_CORD_KEYS", &tagTCarried::system_keys);
}

QX_RECORD(tagTOrigin) {
  rows.Add(u"_FORMAT", &tagTOrigin::format)
      .Add(u"_VERSION", &tagTOrigin::version)
      .Add(u"_FILE", &tagTOrigin::file)
      .Add(u"_TITLE", &tagTOrigin::title)
      .Add(u"_UNITS", &tagTOrigin::units)
      .Add(u"_ASSUMED", &tagTOrigin::units_assumed);
  fields.Add("FORMAT", &tagTOrigin::format)
      .Add("VERSION", &tagTOrigin::version)
      .Add("FILE", &tagTOrigin::file)
      .Add("TITLE", &tagTOrigin::title)
      .Add("UNITS", &tagTOrigin::units)
      .Flag("UNITS_ASSUMED", &tagTOrigin::units_assumed);
}

}  // namespace qx
