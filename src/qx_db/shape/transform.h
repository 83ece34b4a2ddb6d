#pragma once
// Moving, turning, scaling and reflecting parts of a mesh, in place or as copies, with what records
// tell of them.
// Threads: the one that drives the session.

#include <span>

#include "qx_db/export.h"
#include "qx_db/mesh/affine_map.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/shape/attached_data.h"
#include "qx_db/shape/shape_report.h"

namespace qx {

/// What to transform: nodes, and elements with theirs. Positions in the session, each once.
struct ShapeParts {
  std::span<const ITR> nodes;
  std::span<const ITR> elements;
};

/// Gives nodes, and the nodes of elements, the place that the map leads them to, in model units.
/// With elements all of whose nodes move go the directions that records give of them: orientations
/// of lines, whichever way they are said, global offsets of beams, material axes of solids and,
/// by vector or angle, of plates, directions of special elements. A reflection turns these elements
/// back right, so that volumes stay positive and the upper side of a plate is the image of what it
/// was; sides are renumbered with them. Thicknesses and offsets keep their lengths when a map
/// scales. What stays as it was is in the notes. Call it in a transaction; fails, with the step to
/// be rolled back, where a coordinate would be no finite number, the map is flat, or a pool refuses
/// a change.
QXDB_API Outcome Transform(CQXDBSession& session, const ShapeParts& parts, const AffineMap& map,
                           ShapeReport& report);

/// The same for `copies` of them: the first by the map, the second by the map done twice, and so
/// on. New keys follow the largest of the pool, copy after copy, each in the order of the parts.
/// Attributes, belongings, sides and blocks tell of the copies too, mesh sets and active sets as
/// `sets` says; geometry, fields and carried text do not.
QXDB_API Outcome TransformCopies(CQXDBSession& session, const ShapeParts& parts,
                                 const AffineMap& map, int copies, SetsOfMade sets,
                                 ShapeReport& report);

}  // namespace qx
