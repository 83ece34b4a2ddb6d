#pragma once
// Elements of another order, and elements divided into triangles and tetrahedra.
// Threads: the one that drives the session.

#include <span>

#include "qx_db/export.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/shape/shape_report.h"

namespace qx {

class CQXDBSession;

/// Makes elements of lines, surfaces and solids quadratic: a node in the middle of every edge, one
/// for all elements that share it, in the node order of the topology table. Elements keep their
/// keys and all that records tell of them. Mesh sets take the new nodes as NewNodes::JoinSets says.
/// Others that are among the elements stay as they are. Call it in a transaction; fails where none
/// can be made quadratic, or the model refuses.
QXDB_API Outcome ToQuadratic(CQXDBSession& session, std::span<const ITR> elements,
                             ShapeReport& report);

/// The reverse: the nodes between corners leave the elements, and the model where nothing else has
/// them. Fails where no element is quadratic.
QXDB_API Outcome ToLinear(CQXDBSession& session, std::span<const ITR> elements,
                          ShapeReport& report);

/// Divides quadrilaterals into two triangles, and pyramids, wedges and hexahedra into 2, 3 and 6
/// tetrahedra (DivisionOf): every quadrilateral is cut from its node of the smallest key, so that
/// neighbours fit. Quadratic elements become quadratic ones; a node in the middle of a diagonal
/// lies where the element's shape functions have it. The parts take the place of the whole in sets,
/// attributes, blocks, sides and on geometry, under keys that follow the largest; thicknesses by
/// corner and material angles stay what they are in space. Others that are among the elements stay
/// as they are. Call it in a transaction; fails where there is nothing to divide, or the model
/// refuses.
QXDB_API Outcome SplitElements(CQXDBSession& session, std::span<const ITR> elements,
                               ShapeReport& report);

}  // namespace qx
