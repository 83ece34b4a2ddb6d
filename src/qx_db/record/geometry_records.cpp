#include "qx_db/record/geometry_records.h"

#include "qx_db/record/record_impl.h"

namespace qx {

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

QX_RECORD(tagTGeom) {
  rows.Add(u"_NAME", &tagTGeom::name)
      .Add(u"_COLOR", &tagTGeom::color)
      .Add(u"_HITEM", &tagTGeom::item_handle)
      .Add(u"_PROP", &tagTGeom::property)
      .Add(u"_TYPE", &tagTGeom::type)
      .Add(u"_GSET", &tagTGeom::set)
      .Add(u"_MATL", &tagTGeom::material);
  fields.Add("NAME", &tagTGeom::name)
      .Add("COLOR", &tagTGeom::color)
      .Add("HITEM", &tagTGeom::item_handle)
      .Add("PROP", &tagTGeom::property)
      .Add("TYPE", &tagTGeom::type)
      .Add("GSET", &tagTGeom::set)
      .Add("MATL", &tagTGeom::material);
}

QX_RECORD(tagTGKey) {
  rows.Add(u"_INSTANCE", &tagTGKey::instance)
      .Add(u"_BODY", &tagTGKey::body)
      .Add(u"_ITEM", &tagTGKey::item)
      .Add(u"_GEOM", &tagTGKey::geometry);
  fields.Add("INSTANCE", &tagTGKey::instance)
      .Add("BODY", &tagTGKey::body)
      .Low24("ITEM_ITEM", &tagTGKey::item)
      .High8("ITEM_TYPE", &tagTGKey::item)
      .Add("GEOM", &tagTGKey::geometry);
}

QX_RECORD(tagTGElem) {
  rows.Add(u"_GKEY", &tagTGElem::geometry_key)
      .AddNumbered(u"_ELEM_IDS_", &tagTGElem::elements)
      .Add(u"_NODE", &tagTGElem::node);
  fields.Add("GKEY", &tagTGElem::geometry_key)
      .Add("ELEM0", {&tagTGElem::elements, 0})
      .Add("ELEM1", {&tagTGElem::elements, 1})
      .Add("ELEM2", {&tagTGElem::elements, 2})
      .Add("ELEM3", {&tagTGElem::elements, 3})
      .Add("ELEM4", {&tagTGElem::elements, 4})
      .Add("ELEM5", {&tagTGElem::elements, 5})
      .Add("ELEM6", {&tagTGElem::elements, 6})
      .Add("ELEM7", {&tagTGElem::elements, 7})
      .Add("ELEM8", {&tagTGElem::elements, 8})
      .Add("ELEM9", {&tagTGElem::elements, 9})
      .Add("ELEM10", {&tagTGElem::elements, 10})
      .Add("ELEM11", {&tagTGElem::elements, 11})
      .Add("NODE", &tagTGElem::node);
}

QX_RECORD(tagTGElemHead) {
  rows.Add(u"_GKEY", &tagTGElemHead::geometry_key)
      .Add(u"_GEDATA", &tagTGElemHead::data)
      .Converts(ReferenceRule::kNotSaved);
  fields.Add("GKEY", &tagTGElemHead::geometry_key).Add("GEDATA", &tagTGElemHead::data);
}

QX_RECORD(tagTGset) {
  rows.Add(u"_NAME", &tagTGset::name).Add(u"_DESC", &tagTGset::description);
  fields.Add("NAME", &tagTGset::name).Add("DESC", &tagTGset::description);
}

QX_RECORD(tagTGrid) {
  rows.Add(u"_SHOW", &tagTGrid::show)
      .Add(u"_NUMTYPE", &tagTGrid::number_type)
      .Add(u"_LOCKTYPE", &tagTGrid::lock_type)
      .Add(u"_WIDTH", &tagTGrid::spacing)
      .In(unit::kLength)
      .Add(u"_NUM", &tagTGrid::lines)
      .Add(u"_SHOWWCS", &tagTGrid::show_axes);
  fields.Flag("SHOW", &tagTGrid::show)
      .Add("NUM_TYPE", &tagTGrid::number_type)
      .Add("LOC_TYPE", &tagTGrid::lock_type)
      .Add("WIDTH", &tagTGrid::spacing)
      .Add("NUM", &tagTGrid::lines)
      .Flag("SHOW_WCS", &tagTGrid::show_axes);
}

QX_RECORD(tagTWrkPl) {
  rows.Add(u"_NAME", &tagTWrkPl::name)
      .Add(u"_PLANE", &tagTWrkPl::plane)
      .InBy(PlaneOrigin, unit::kLength, 0)
      .Add(u"_ANGLE", &tagTWrkPl::angle_deg)
      .Listed(unit::kAngle, 1);
}

QX_RECORD(tagTDatum) {
  rows.Add(u"_SHOW", &tagTDatum::show)
      .Add(u"_TYPE", &tagTDatum::type)
      .Add(u"_NAME", &tagTDatum::name)
      .Add(u"_COLOR", &tagTDatum::color)
      .Add(u"_POSITION", &tagTDatum::position)
      .In(unit::kLength)
      .Add(u"_VECTOR", &tagTDatum::direction)
      .Add(u"_REF", &tagTDatum::reference);
  fields.Flag("SHOW", &tagTDatum::show)
      .Add("TYPE", &tagTDatum::type)
      .Add("NAME", &tagTDatum::name)
      .Add("COLOR", &tagTDatum::color)
      .Add("vPOSITION", &tagTDatum::position)
      .Add("VECTOR", &tagTDatum::direction)
      .Add("REF", &tagTDatum::reference);
}

QX_RECORD(tagTCord) {
  rows.Add(u"_NAME", &tagTCord::name)
      .Add(u"_METHOD", &tagTCord::method)
      .Add(u"_TYPE", &tagTCord::type);
  // Looked up even when 0, unlike other single references: a system with key 0 would be
  // found.
  rows.Add(u"_REFCORD", &tagTCord::reference)
      .Converts(ReferenceRule::kAlwaysLookUp)
      .Refuses("IDS_QX_DB_CORD_REFERENCED")
      .Add(u"_PLANE", &tagTCord::plane)
      .AddParts({u"_ORIGINX", u"_ORIGINY", u"_ORIGINZ"}, &tagTCord::origin)
      .In(unit::kLength, 0)
      .AddParts({u"_PTAXISX", u"_PTAXISY", u"_PTAXISZ"}, &tagTCord::axis_point)
      .InBy(CordPoint, unit::kLength, 1, {&tagTCord::method})
      .AddParts({u"_PTPLAINX", u"_PTPLAINY", u"_PTPLAINZ"}, &tagTCord::plane_point)
      .InBy(CordPoint, unit::kLength, 2, {&tagTCord::method})
      .Add(u"_ROTORDER", &tagTCord::rotation_order)
      .AddParts({u"_ROTANGLEX", u"_ROTANGLEY", u"_ROTANGLEZ"}, &tagTCord::rotation_deg)
      .Listed(unit::kAngle, 3);
  fields.Add("NAME", &tagTCord::name)
      .Add("METHOD", &tagTCord::method)
      .Add("TYPE", &tagTCord::type)
      .Add("REF_CORD", &tagTCord::reference)
      .Add("PLANE", &tagTCord::plane)
      .Add("ORIGIN", &tagTCord::origin)
      .Add("PT_AXIS", &tagTCord::axis_point)
      .Add("PT_PLAIN", &tagTCord::plane_point)
      .Add("ROT_ORDER", &tagTCord::rotation_order)
      .Add("ROT_ANGLE", &tagTCord::rotation_deg);
}

QX_RECORD(tagTViewPoint) {
  rows.Add(u"_TYPE", &tagTViewPoint::type)
      .Add(u"_NAME", &tagTViewPoint::name)
      .Add(u"_VER", &tagTViewPoint::version)
      .Add(u"_ZOOMFACTOR", &tagTViewPoint::zoom)
      .Add(u"_CENTER", &tagTViewPoint::center)
      .Add(u"_QUATER", &tagTViewPoint::rotation);
  fields.Add("TYPE", &tagTViewPoint::type)
      .Add("NAME", &tagTViewPoint::name)
      .Add("VER", &tagTViewPoint::version)
      .Add("ZOOM_FACTOR", &tagTViewPoint::zoom)
      .Add("CENTER", &tagTViewPoint::center)
      .Add("QUATER", &tagTViewPoint::rotation);
}

template class TUnitDescriptor<tagTGrid, 1>;
template class TUnitDescriptor<tagTWrkPl, 2>;
template class TUnitDescriptor<tagTDatum, 1>;
template class TUnitDescriptor<tagTCord, 4>;

}  // namespace qx
