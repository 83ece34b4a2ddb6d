#pragma once
// Coordinates, directions and tensors between coordinate systems.

#include "qx_db/lib/math.h"
#include "qx_db/lib/units.h"
#include "qx_db/record/types.h"

namespace qx {

class CQXDBSession;
class DPoolCord;

/// A tensor of second order by its components, rows first. Symmetric ones (stress, strain, inertia)
/// stay so.
struct Tensor3 {
  double at[3][3]{};
  friend bool operator==(const Tensor3&, const Tensor3&) = default;
};

/// Converts between the global system and the coordinate systems of a model, whatever their type
/// and the chain of systems that they are given in.
///
/// A point has the coordinates that its system counts in: x, y, z; r, theta, z in a cylindrical
/// system; r, theta, phi in a spherical one (model/coordinate_pool.h). Directions and tensors have
/// components along the axes of the system at a point, which is given in global coordinates: in a
/// cylindrical system radial, tangential, axial; in a spherical one radial, along theta, along phi.
///
/// Lengths are in the model's units or in the current ones, as the caller chose; angles are always
/// in degrees. Components keep their unit, whatever it is, unless a category is named: then those
/// of the system are in the units chosen and the global ones in the model's.
///
/// A system of 0 is the global one. All return 1; or 0, with the output untouched, for a system
/// that was removed, has no axes or is of no known type, and for a number that is not finite. The
/// session is not owned and must outlive this. Threads: that of the session.
class QXDB_API CQXAppUtil {
 public:
  enum class Units { kModel, kCurrent };

  explicit CQXAppUtil(const CQXDBSession& session, Units units = Units::kModel)
      : session_(session), units_(units) {}

  // ---- points -----------------------------------------------------------------------------------

  /// Global points are in the units chosen, too.
  int PointToGlobal(ITR system, const Vector3& coordinates, Vector3& point) const;
  int PointFromGlobal(ITR system, const Vector3& point, Vector3& coordinates) const;
  /// From one system into another.
  int ConvertPoint(ITR from, ITR to, const Vector3& coordinates, Vector3& converted) const;

  // ---- directions -------------------------------------------------------------------------------

  int DirectionToGlobal(ITR system, const Vector3& at, const Vector3& components,
                        Vector3& direction, int category = unit::kNone) const;
  int DirectionFromGlobal(ITR system, const Vector3& at, const Vector3& direction,
                          Vector3& components, int category = unit::kNone) const;

  // ---- tensors ----------------------------------------------------------------------------------

  int TensorToGlobal(ITR system, const Vector3& at, const Tensor3& components, Tensor3& tensor,
                     int category = unit::kNone) const;
  int TensorFromGlobal(ITR system, const Vector3& at, const Tensor3& tensor, Tensor3& components,
                       int category = unit::kNone) const;

  /// The unit axes that components count along at a global point.
  int AxesAt(ITR system, const Vector3& at, Triad& axes) const;

 private:
  const DPoolCord* Systems() const;
  double ToModel(int category, double value) const;
  double FromModel(int category, double value) const;
  Vector3 LengthsToModel(ITR system, const Vector3& coordinates) const;
  Vector3 LengthsFromModel(ITR system, const Vector3& coordinates) const;

  const CQXDBSession& session_;
  Units units_;
};

}  // namespace qx
