#pragma once
// Geometry objects and what ties the mesh to them; grid, work planes, datums, coordinate systems,
// views.
// Threads: records are values (TStructBase).

#include "qx_db/lib/variants.h"
#include "qx_db/record/record.h"
#include "qx_db/record/unit_descriptor.h"

namespace qx {

#pragma pack(push, 4)

/// Spacing of a new display grid, by edition.
inline double GridSpacing() { return IsVariantC() ? 1.0 : 20.0; }

/// A geometry object.
struct QXDB_API tagTGeom final : TRecord<tagTGeom, code::kGeom> {
  Key key = 0;
  TString<64> name;
  std::int32_t color = 0;
  std::int32_t item_handle = 0;  ///< of the CAD session
  TRef<code::kProp> property;
  std::int32_t type = -1;  ///< none yet
  TRef<code::kGset> set;
  TRef<code::kMatl> material;
};

/// Locates one topological item of a geometry object.
struct QXDB_API tagTGKey final : TRecord<tagTGKey, code::kGKey> {
  /// `item` holds the item's number in its low 24 bits and its type in its high 8.
  static constexpr std::int32_t kVertex = 1;
  static constexpr std::int32_t kEdge = 2;
  static constexpr std::int32_t kFace = 3;
  static constexpr std::int32_t kBody = 4;

  Key key = 0;
  std::int32_t instance = 0;
  std::int32_t body = 0;
  std::int32_t item = 0;
  TRef<code::kGeom> geometry;
  std::int32_t ItemNumber() const { return item & 0xFFFFFF; }
  std::int32_t ItemType() const {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(item) >> 24);
  }
  void SetItem(std::int32_t type, std::int32_t number) {
    item = static_cast<std::int32_t>(static_cast<std::uint32_t>(type) << 24 |
                                     (static_cast<std::uint32_t>(number) & 0xFFFFFF));
  }
};

/// The elements generated on one geometry item, a list a side number.
struct QXDB_API tagTGElem final : TRecord<tagTGElem, code::kGElem> {
  Key key = 0;
  TRef<code::kGKey> geometry_key;
  TRefArray<code::kElem> elements[12]{};
  TRef<code::kNode> node;
};

/// Heads the geometry-element records of one geometry key; the last one is current.
struct QXDB_API tagTGElemHead final : TRecord<tagTGElemHead, code::kGElemHead> {
  Key key = 0;
  TRef<code::kGKey> geometry_key;
  TRefArray<code::kGElem> data;
};

/// A geometry set.
struct QXDB_API tagTGset final : TRecord<tagTGset, code::kGset> {
  Key key = 0;
  TString<64> name;
  TString<128> description;
};

/// The display grid: one record, with key 1.
struct QXDB_API tagTGrid final : TRecord<tagTGrid, code::kGrid> {
  Key key = 1;
  std::int32_t show = 1;  ///< flag
  std::int32_t number_type = 0;
  std::int32_t lock_type = 0;
  double spacing = GridSpacing();  ///< by edition: 1 in C, else 20
  std::int32_t lines = 20;
  std::int32_t show_axes = 1;  ///< flag
};

/// A work plane: origin, normal, first axis.
struct QXDB_API tagTWrkPl final : TRecord<tagTWrkPl, code::kWrkPl> {
  Key key = 0;
  TString<64> name;
  PackedDouble plane[9]{0, 0, 0, 0, 0, 1, 1, 0, 0};  ///< origin, then two directions
  double angle_deg = 0;
};

/// A datum point, axis or plane.
struct QXDB_API tagTDatum final : TRecord<tagTDatum, code::kDatum> {
  Key key = 0;
  std::int32_t show = 1;  ///< flag
  std::int32_t type = 1;  ///< 1 point, 2 axis, 3 plane
  TString<64> name;
  std::int32_t color = 0;
  tagTVector3<double> position;
  tagTVector3<double> direction{0, 0, 1};
  tagTVector3<double> reference;  ///< direction in the plane

  /// Deliberate: resets everything but the position, so that a datum stays where it is.
  void Init() override;
};

/// A coordinate system, by default the global one by three points.
struct QXDB_API tagTCord final : TRecord<tagTCord, code::kCord> {
  /// Values of `method`: three points, or an origin and angles about the axes in `rotation_order`.
  static constexpr std::int32_t kByPoints = 0;
  static constexpr std::int32_t kByAngles = 1;
  /// Values of `type`.
  static constexpr std::int32_t kRectangular = 0;
  static constexpr std::int32_t kCylindrical = 1;
  static constexpr std::int32_t kSpherical = 2;

  Key key = 0;
  TString<64> name;
  std::int32_t method = kByPoints;
  std::int32_t type = kRectangular;
  TRef<code::kCord> reference;  ///< the system this one is given in; 0 for global
  std::int32_t plane = 0;       ///< which axes the points give: 0 x and xy, 1 y and yz, 2 z and zx
  tagTVector3<double> origin;
  tagTVector3<double> axis_point{1, 0, 0};   ///< on the first axis
  tagTVector3<double> plane_point{0, 1, 0};  ///< in the first plane
  std::int32_t rotation_order = 0;           ///< 0 xyz, 1 xzy, 2 yxz, 3 yzx, 4 zxy, 5 zyx
  tagTVector3<double> rotation_deg;
};

/// A saved view.
struct QXDB_API tagTViewPoint final : TRecord<tagTViewPoint, code::kViewPoint> {
  Key key = 0;
  std::int32_t type = 1;
  TString<64> name;
  std::int32_t version = 1;
  double zoom = 0;
  PackedDouble center[2]{};    ///< on the screen
  PackedDouble rotation[4]{};  ///< quaternion; all zero, not the identity, until set
};

#pragma pack(pop)

QX_DECLARE_RECORD(tagTGeom);
QX_DECLARE_RECORD(tagTGKey);
QX_DECLARE_RECORD(tagTGElem);
QX_DECLARE_RECORD(tagTGElemHead);
QX_DECLARE_RECORD(tagTGset);
QX_DECLARE_RECORD(tagTGrid);
QX_DECLARE_RECORD(tagTWrkPl);
QX_DECLARE_RECORD(tagTDatum);
QX_DECLARE_RECORD(tagTCord);
QX_DECLARE_RECORD(tagTViewPoint);

/// Unit categories, group by group.
using CQXGridUnit = TUnitDescriptor<tagTGrid, 1>;
using CQXWrkPlUnit = TUnitDescriptor<tagTWrkPl, 2>;
using CQXDatumUnit = TUnitDescriptor<tagTDatum, 1>;
using CQXCordUnit = TUnitDescriptor<tagTCord, 4>;
extern template class TUnitDescriptor<tagTGrid, 1>;
extern template class TUnitDescriptor<tagTWrkPl, 2>;
extern template class TUnitDescriptor<tagTDatum, 1>;
extern template class TUnitDescriptor<tagTCord, 4>;

}  // namespace qx
