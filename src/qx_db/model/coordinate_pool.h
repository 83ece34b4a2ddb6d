#pragma once
// The coordinate systems: where they are, and points and directions in them.
//
// The points of a system are given in its reference system, in the coordinates that system counts
// in: x, y, z when it is rectangular; radius, angle and height (r, theta, z) when it is
// cylindrical; radius, angle from the z axis and angle about it (r, theta, phi) when it is
// spherical. Angles are in degrees. A chain of references ends at a null one, the global system.
// Threads: see DPoolBase.

#include "qx_db/lib/math.h"
#include "qx_db/model/plain_pools.h"

namespace qx {

/// Origin and unit axes of a coordinate system in global coordinates.
struct Frame {
  Vector3 origin;
  Triad axes;
};

/// Coordinates in a system of a type (tagTCord::kRectangular, ...) to rectangular ones along its
/// axes, and back. The angles that come back are from -180 to 180; on the axis they are 0.
QXDB_API Vector3 ToRectangular(std::int32_t type, const Vector3& coordinates);
QXDB_API Vector3 FromRectangular(std::int32_t type, const Vector3& point);

/// The frame of a system whose points are in a reference system of a type and with a frame. False,
/// with `frame` as it is or partly new, where DPoolCord::GetCoord says.
QXDB_API bool FrameIn(std::int32_t reference_type, const Frame& reference, const tagTCord& system,
                      Frame& frame);
/// The axes in which components count at a point, of a system of a type and with a frame; see
/// DPoolCord::GetAxesAt.
QXDB_API bool AxesAt(std::int32_t type, const Frame& frame, const Vector3& point, Triad& axes);

class QXDB_API DPoolCord : public DPoolPlain<tagTCord> {
 public:
  explicit DPoolCord(CQXDBSession* session) : DPoolPlain(session) {}

  // ---- the default system -----------------------------------------------------------------------

  /// Key of the default system, the global rectangular one. Orientations without a system and
  /// nodes in "system 1" count on its being that.
  static constexpr Key kDefaultKey = 1;
  /// Creates the default system unless key 1 is taken. Returns 1.
  int AddDefault() override;
  /// The default system; 0 in a model that was made without one, where it is still tagTCord's own
  /// default that counts.
  ITR GetDefaultItr() const { return Find(kDefaultKey); }

  // ---- where systems are ------------------------------------------------------------------------

  /// Origin and axes of a system in global coordinates, through its chain of references. 0,
  /// touching nothing, when its points coincide or lie on one line, when a number is not finite,
  /// or when the chain comes back to itself or leads to a removed system.
  int GetCoord(const tagTCord& system, double origin[3], double axes[3][3]) const;
  int GetCoord(ITR system, double origin[3], double axes[3][3]) const;
  /// The same as one value. A null iterator is the global system.
  bool GetFrame(const tagTCord& system, Frame& frame) const;
  bool GetFrame(ITR system, Frame& frame) const;

  /// The axes in which components count at a point: those of a rectangular system; radial,
  /// tangential and axial in a cylindrical one; radial, along theta and along phi in a spherical
  /// one. On the axis of the latter two, where no direction is radial, those for angle 0. False for
  /// a type that is none of the three.
  bool GetAxesAt(const tagTCord& system, const Vector3& point, Triad& axes) const;

  /// A point given in the coordinates of a system, in global ones, and back.
  bool ToGlobal(ITR system, const Vector3& coordinates, Vector3& point) const;
  bool FromGlobal(ITR system, const Vector3& point, Vector3& coordinates) const;

  // ---- rules ------------------------------------------------------------------------------------

  /// Refuses, with IDS_QX_DB_CORD_CYCLE (keys of the system and of the one it would follow), a
  /// reference that leads back to the system itself.
  int SetAtNU(ITR pos, const tagTCord& record) override;
  using DPool<tagTCord>::SetAtNU;

  /// To remove a system in which a remaining one is given is refused by their row, with
  /// IDS_QX_DB_CORD_REFERENCED (keys of both): that one would jump to another place. Beyond the
  /// rows this refuses, with IDS_QX_DB_CORD_DEFAULT (its key), a step that removes the default
  /// system, or makes it any but the global rectangular one; its name is free.
  int ProcessRelation() override;

 private:
  bool KeepsDefault() const;
  bool Chain(const tagTCord& system, std::vector<const tagTCord*>& chain) const;
};

template <>
struct PoolOf<tagTCord> {
  using type = DPoolCord;
};

}  // namespace qx
