#pragma once
// Mass, centre and inertia of a mesh by property.
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include <cstdint>
#include <optional>
#include <vector>

#include "qx_db/mesh/dense_mesh.h"
#include "qx_db/mesh/element_volume.h"

namespace qx {

/// What is used, in model units, where the application has no answer.
struct MassAssumptions {
  std::optional<double> density;
  std::optional<double> thickness;     ///< of surface elements
  std::optional<double> section_area;  ///< of line elements
};

/// The elements of one property, or all of them.
struct MassOfProperty {
  Key property_key = 0;  ///< 0 for none
  std::int64_t elements = 0;
  std::int64_t curved = 0;  ///< those of them whose sides bend, which are measured so
  double length = 0;        ///< of line elements
  double area = 0;          ///< of surface elements
  double volume = 0;        ///< of all, thickness and section included
  Moments mass;             ///< mass and its moments about the origin

  QXDB_API void Add(const MassOfProperty& other);
};

/// Mass, centre and the tensor of inertia about the centre, whose products are negative integrals.
struct RigidBody {
  double mass = 0;
  Point3 center;
  double xx = 0, yy = 0, zz = 0, xy = 0, yz = 0, zx = 0;
};
QXDB_API RigidBody ToRigidBody(const Moments& mass);

/// The masses of a mesh and how well they are known.
struct MassReport {
  bool has_application = false;             ///< whether an application was there to be asked
  std::vector<MassOfProperty> by_property;  ///< ascending by key
  MassOfProperty total;
  /// Elements that count for nothing because their density, or their thickness or section area, is
  /// known neither to the application nor assumed.
  std::int64_t without_density = 0;
  std::int64_t without_section = 0;
};

/// Asks the registered application for densities, thicknesses, beam volumes, the masses of elements
/// and the masses and mass centres of points and special elements; takes the assumptions where it
/// answers 0. The inertia of special properties counts, in global axes. Inverted solids count as
/// they would turned over; unusable elements do not count. Elements are measured as all their nodes
/// shape them (MeasureShape).
QXDB_API MassReport ComputeMass(CQXDBSession& session, const DenseMesh& mesh,
                                const MassAssumptions& assumptions);

}  // namespace qx
