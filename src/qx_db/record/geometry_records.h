#pragma once
// Geometry objects and what ties the mesh to them; grid, work planes, datums, coordinate systems,
// views.

#include "qx_db/lib/variants.h"
#include "qx_db/record/record.h"

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
  ITR property = 0;
  std::int32_t type = -1;  ///< none yet
  ITR set = 0;
  ITR material = 0;

  static const Schema& GetSchema();
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
  ITR geometry = 0;

  static const Schema& GetSchema();
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
  ITR geometry_key = 0;
  TArray<ITR> elements[12]{};
  ITR node = 0;

  static const Schema& GetSchema();
};

/// Heads the geometry-element records of one geometry key; the last one is current.
struct QXDB_API tagTGElemHead final : TRecord<tagTGElemHead, code::kGElemHead> {
  Key key = 0;
  ITR geometry_key = 0;
  TArray<ITR> data;

  static const Schema& GetSchema();
};

/// A geometry set.
struct QXDB_API tagTGset final : TRecord<tagTGset, code::kGset> {
  Key key = 0;
  TString<64> name;
  TString<128> description;

  static const Schema& GetSchema();
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

  static const Schema& GetSchema();
};

/// A work plane: origin, normal, first axis.
struct QXDB_API tagTWrkPl final : TRecord<tagTWrkPl, code::kWrkPl> {
  Key key = 0;
  TString<64> name;
  double plane[9]{0, 0, 0, 0, 0, 1, 1, 0, 0};  ///< origin, then two directions
  double angle_deg = 0;

  static const Schema& GetSchema();
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

  static const Schema& GetSchema();

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
  ITR reference = 0;       ///< the system this one is given in; 0 for global
  std::int32_t plane = 0;  ///< which axes the points give: 0 x and xy, 1 y and yz, 2 z and zx
  tagTVector3<double> origin;
  tagTVector3<double> axis_point{1, 0, 0};   ///< on the first axis
  tagTVector3<double> plane_point{0, 1, 0};  ///< in the first plane
  std::int32_t rotation_order = 0;           ///< 0 xyz, 1 xzy, 2 yxz, 3 yzx, 4 zxy, 5 zyx
  tagTVector3<double> rotation_deg;

  static const Schema& GetSchema();
};

/// A saved view.
struct QXDB_API tagTViewPoint final : TRecord<tagTViewPoint, code::kViewPoint> {
  Key key = 0;
  std::int32_t type = 1;
  TString<64> name;
  std::int32_t version = 1;
  double zoom = 0;
  double center[2]{};    ///< on the screen
  double rotation[4]{};  ///< quaternion; all zero, not the identity, until set

  static const Schema& GetSchema();
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

}  // namespace qx
