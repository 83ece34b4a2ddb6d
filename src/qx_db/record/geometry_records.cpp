#include "qx_db/record/geometry_records.h"

#include "qx_db/record/record_impl.h"

namespace qx {

using GF = GatewayField;

namespace {

/// Of the plane's nine numbers the origin is a point; the others are directions.
int PlaneOrigin(const TStructBase&, int number) { return number < 3 ? unit::kLength : unit::kNone; }

/// The axis and plane points of a system count only when it is defined by them.
int CordPoint(const TStructBase& record, int) {
  const bool by_points = static_cast<const tagTCord&>(record).method == tagTCord::kByPoints;
  return by_points ? unit::kLength : unit::kNone;
}

}  // namespace

void tagTDatum::Init() {
  const tagTVector3<double> kept = position;
  TRecord::Init();
  position = kept;
}

const Schema& tagTGeom::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},    {"COLOR", GF::Type::kInteger, u"_COLOR"},
      {"HITEM", GF::Type::kInteger, u"_HITEM"}, {"PROP", GF::Type::kInteger, u"_PROP"},
      {"TYPE", GF::Type::kInteger, u"_TYPE"},   {"GSET", GF::Type::kInteger, u"_GSET"},
      {"MATL", GF::Type::kInteger, u"_MATL"},
  };
  static const Schema schema("tagTGeom", kType, sizeof(tagTGeom),
                             RowList()
                                 .Add(u"_KEY", &tagTGeom::key)
                                 .Add(u"_NAME", &tagTGeom::name)
                                 .Add(u"_COLOR", &tagTGeom::color)
                                 .Add(u"_HITEM", &tagTGeom::item_handle)
                                 .Add(u"_PROP", &tagTGeom::property)
                                 .To(code::kProp)
                                 .Add(u"_TYPE", &tagTGeom::type)
                                 .Add(u"_GSET", &tagTGeom::set)
                                 .To(code::kGset)
                                 .Add(u"_MATL", &tagTGeom::material)
                                 .To(code::kMatl)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTGKey::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"INSTANCE", GF::Type::kInteger, u"_INSTANCE"},
      {"BODY", GF::Type::kInteger, u"_BODY"},
      {"ITEM_ITEM", GF::Type::kInteger, u"_ITEM", nullptr, GF::Form::kLow24},
      {"ITEM_TYPE", GF::Type::kInteger, u"_ITEM", nullptr, GF::Form::kHigh8},
      {"GEOM", GF::Type::kInteger, u"_GEOM"},
  };
  static const Schema schema("tagTGKey", kType, sizeof(tagTGKey),
                             RowList()
                                 .Add(u"_KEY", &tagTGKey::key)
                                 .Add(u"_INSTANCE", &tagTGKey::instance)
                                 .Add(u"_BODY", &tagTGKey::body)
                                 .Add(u"_ITEM", &tagTGKey::item)
                                 .Add(u"_GEOM", &tagTGKey::geometry)
                                 .To(code::kGeom)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTGElem::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"GKEY", GF::Type::kInteger, u"_GKEY"},        {"ELEM0", GF::Type::kArray, u"_ELEM_IDS_0"},
      {"ELEM1", GF::Type::kArray, u"_ELEM_IDS_1"},   {"ELEM2", GF::Type::kArray, u"_ELEM_IDS_2"},
      {"ELEM3", GF::Type::kArray, u"_ELEM_IDS_3"},   {"ELEM4", GF::Type::kArray, u"_ELEM_IDS_4"},
      {"ELEM5", GF::Type::kArray, u"_ELEM_IDS_5"},   {"ELEM6", GF::Type::kArray, u"_ELEM_IDS_6"},
      {"ELEM7", GF::Type::kArray, u"_ELEM_IDS_7"},   {"ELEM8", GF::Type::kArray, u"_ELEM_IDS_8"},
      {"ELEM9", GF::Type::kArray, u"_ELEM_IDS_9"},   {"ELEM10", GF::Type::kArray, u"_ELEM_IDS_10"},
      {"ELEM11", GF::Type::kArray, u"_ELEM_IDS_11"}, {"NODE", GF::Type::kInteger, u"_NODE"},
  };
  static const Schema schema("tagTGElem", kType, sizeof(tagTGElem),
                             RowList()
                                 .Add(u"_KEY", &tagTGElem::key)
                                 .Add(u"_GKEY", &tagTGElem::geometry_key)
                                 .To(code::kGKey)
                                 .AddNumbered(u"_ELEM_IDS_", &tagTGElem::elements)
                                 .To(code::kElem)
                                 .Add(u"_NODE", &tagTGElem::node)
                                 .To(code::kNode)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTGElemHead::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"GKEY", GF::Type::kInteger, u"_GKEY"},
      {"GEDATA", GF::Type::kArray, u"_GEDATA"},
  };
  static const Schema schema("tagTGElemHead", kType, sizeof(tagTGElemHead),
                             RowList()
                                 .Add(u"_KEY", &tagTGElemHead::key)
                                 .Add(u"_GKEY", &tagTGElemHead::geometry_key)
                                 .To(code::kGKey)
                                 .Add(u"_GEDATA", &tagTGElemHead::data)
                                 .To(code::kGElem)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTGset::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"DESC", GF::Type::kString, u"_DESC"},
  };
  static const Schema schema("tagTGset", kType, sizeof(tagTGset),
                             RowList()
                                 .Add(u"_KEY", &tagTGset::key)
                                 .Add(u"_NAME", &tagTGset::name)
                                 .Add(u"_DESC", &tagTGset::description)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTGrid::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"SHOW", GF::Type::kBool, u"_SHOW"},
      {"NUM_TYPE", GF::Type::kInteger, u"_NUMTYPE"},
      {"LOC_TYPE", GF::Type::kInteger, u"_LOCKTYPE"},
      {"WIDTH", GF::Type::kReal, u"_WIDTH"},
      {"NUM", GF::Type::kInteger, u"_NUM"},
      {"SHOW_WCS", GF::Type::kBool, u"_SHOWWCS"},
  };
  static const Schema schema("tagTGrid", kType, sizeof(tagTGrid),
                             RowList()
                                 .Add(u"_KEY", &tagTGrid::key)
                                 .Add(u"_SHOW", &tagTGrid::show)
                                 .Add(u"_NUMTYPE", &tagTGrid::number_type)
                                 .Add(u"_LOCKTYPE", &tagTGrid::lock_type)
                                 .Add(u"_WIDTH", &tagTGrid::spacing)
                                 .In(unit::kLength)
                                 .Add(u"_NUM", &tagTGrid::lines)
                                 .Add(u"_SHOWWCS", &tagTGrid::show_axes)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTWrkPl::GetSchema() {
  static const Schema schema("tagTWrkPl", kType, sizeof(tagTWrkPl),
                             RowList()
                                 .Add(u"_KEY", &tagTWrkPl::key)
                                 .Add(u"_NAME", &tagTWrkPl::name)
                                 .Add(u"_PLANE", &tagTWrkPl::plane)
                                 .InBy(PlaneOrigin, unit::kLength, 0)
                                 .Add(u"_ANGLE", &tagTWrkPl::angle_deg)
                                 .Listed(unit::kAngle, 1)
                                 .Take());
  return schema;
}

const Schema& tagTDatum::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"SHOW", GF::Type::kBool, u"_SHOW"},
      {"TYPE", GF::Type::kInteger, u"_TYPE"},
      {"NAME", GF::Type::kString, u"_NAME"},
      {"COLOR", GF::Type::kInteger, u"_COLOR"},
      {"vPOSITION", GF::Type::kArray, u"_POSITION"},
      {"VECTOR", GF::Type::kArray, u"_VECTOR"},
      {"REF", GF::Type::kArray, u"_REF"},
  };
  static const Schema schema("tagTDatum", kType, sizeof(tagTDatum),
                             RowList()
                                 .Add(u"_KEY", &tagTDatum::key)
                                 .Add(u"_SHOW", &tagTDatum::show)
                                 .Add(u"_TYPE", &tagTDatum::type)
                                 .Add(u"_NAME", &tagTDatum::name)
                                 .Add(u"_COLOR", &tagTDatum::color)
                                 .Add(u"_POSITION", &tagTDatum::position)
                                 .In(unit::kLength)
                                 .Add(u"_VECTOR", &tagTDatum::direction)
                                 .Add(u"_REF", &tagTDatum::reference)
                                 .Take(),
                             kFields);
  return schema;
}

const Schema& tagTCord::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"METHOD", GF::Type::kInteger, u"_METHOD"},
      {"TYPE", GF::Type::kInteger, u"_TYPE"},
      {"REF_CORD", GF::Type::kInteger, u"_REFCORD"},
      {"PLANE", GF::Type::kInteger, u"_PLANE"},
      {"ORIGIN", GF::Type::kArray, u"_ORIGINX", nullptr, GF::Form::kRun, 3},
      {"PT_AXIS", GF::Type::kArray, u"_PTAXISX", nullptr, GF::Form::kRun, 3},
      {"PT_PLAIN", GF::Type::kArray, u"_PTPLAINX", nullptr, GF::Form::kRun, 3},
      {"ROT_ORDER", GF::Type::kInteger, u"_ROTORDER"},
      {"ROT_ANGLE", GF::Type::kArray, u"_ROTANGLEX", nullptr, GF::Form::kRun, 3},
  };
  static const Schema schema(
      "tagTCord", kType, sizeof(tagTCord),
      RowList()
          .Add(u"_KEY", &tagTCord::key)
          .Add(u"_NAME", &tagTCord::name)
          .Add(u"_METHOD", &tagTCord::method)
          .Add(u"_TYPE", &tagTCord::type)
          // Looked up even when 0, unlike other single references: a system with key 0 would be
          // found.
          .Add(u"_REFCORD", &tagTCord::reference)
          .To(code::kCord, ReferenceRule::kAlwaysLookUp)
          .When(OnRemoval::kRefuse)
          .Add(u"_PLANE", &tagTCord::plane)
          .AddParts({u"_ORIGINX", u"_ORIGINY", u"_ORIGINZ"}, &tagTCord::origin)
          .In(unit::kLength, 0)
          .AddParts({u"_PTAXISX", u"_PTAXISY", u"_PTAXISZ"}, &tagTCord::axis_point)
          .InBy(CordPoint, unit::kLength, 1)
          .AddParts({u"_PTPLAINX", u"_PTPLAINY", u"_PTPLAINZ"}, &tagTCord::plane_point)
          .InBy(CordPoint, unit::kLength, 2)
          .Add(u"_ROTORDER", &tagTCord::rotation_order)
          .AddParts({u"_ROTANGLEX", u"_ROTANGLEY", u"_ROTANGLEZ"}, &tagTCord::rotation_deg)
          .Listed(unit::kAngle, 3)
          .Take(),
      kFields);
  return schema;
}

const Schema& tagTViewPoint::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"TYPE", GF::Type::kInteger, u"_TYPE"},   {"NAME", GF::Type::kString, u"_NAME"},
      {"VER", GF::Type::kInteger, u"_VER"},     {"ZOOM_FACTOR", GF::Type::kReal, u"_ZOOMFACTOR"},
      {"CENTER", GF::Type::kArray, u"_CENTER"}, {"QUATER", GF::Type::kArray, u"_QUATER"},
  };
  static const Schema schema("tagTViewPoint", kType, sizeof(tagTViewPoint),
                             RowList()
                                 .Add(u"_KEY", &tagTViewPoint::key)
                                 .Add(u"_TYPE", &tagTViewPoint::type)
                                 .Add(u"_NAME", &tagTViewPoint::name)
                                 .Add(u"_VER", &tagTViewPoint::version)
                                 .Add(u"_ZOOMFACTOR", &tagTViewPoint::zoom)
                                 .Add(u"_CENTER", &tagTViewPoint::center)
                                 .Add(u"_QUATER", &tagTViewPoint::rotation)
                                 .Take(),
                             kFields);
  return schema;
}

QX_RECORD(tagTGeom);
QX_RECORD(tagTGKey);
QX_RECORD(tagTGElem);
QX_RECORD(tagTGElemHead);
QX_RECORD(tagTGset);
QX_RECORD(tagTGrid);
QX_RECORD(tagTWrkPl);
QX_RECORD(tagTDatum);
QX_RECORD(tagTCord);
QX_RECORD(tagTViewPoint);

}  // namespace qx
