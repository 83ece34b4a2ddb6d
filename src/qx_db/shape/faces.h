#pragma once
// Shells and solids made on faces: the skin of a mesh, and layers extruded from faces.
// Threads: the one that drives the session.

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "qx_db/export.h"
#include "qx_db/mesh/point3.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/record/array_elements.h"
#include "qx_db/shape/shape_report.h"

namespace qx {

class CQXDBSession;

/// The faces of these solids that no other of them has, in their order, by the topology table.
QXDB_API std::vector<tagTElemSide> FacesAround(std::span<const ITR> solids);

struct SkinPlan {
  std::string set;   ///< UTF-8 name of the mesh set for the shells; a copy name where it is in use
  ITR property = 0;  ///< of the shells
};
/// Makes a shell of every face of a solid, on its nodes, seen from outside, quadratic where the
/// solid is; a face on which there is a surface element already is left out and noted. Keys follow
/// the largest. Call it in a transaction; fails where none is made, or the model refuses.
QXDB_API Outcome MakeSkin(CQXDBSession& session, std::span<const tagTElemSide> faces,
                          const SkinPlan& plan, ShapeReport& report);

struct ExtrusionPlan {
  /// The whole way of every node, in model units; without it `height` along the normal of the faces
  /// around the node, a mean by their areas.
  std::optional<Vector3> by;
  double height = 0;
  int layers = 1;
  ITR property = 0;  ///< of the solids
  /// UTF-8 name of the mesh set of the solids; sets of the nodes at the bottom, at the top and
  /// along the sides have it with " bottom", " top" and " sides". Copy names where they are in use.
  std::string set;
};
/// Makes layers of solids on faces of solids and surface elements: wedges on triangles, hexahedra
/// on quadrilaterals, quadratic ones on quadratic faces. The bottom has the nodes of the faces, so
/// that what is extruded from a solid hangs together with it. Keys follow the largest. Call it in a
/// transaction; fails, naming the face or the node, where there is no height, and where the model
/// refuses.
QXDB_API Outcome Extrude(CQXDBSession& session, std::span<const tagTElemSide> faces,
                         const ExtrusionPlan& plan, ShapeReport& report);

}  // namespace qx
