#pragma once
// How the element types are put together: nodes, edges and faces by type code. One constant table
// answers every question; its words are numbered because hosts read it by number.
// Threads: any; the tables never change.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "qx_db/export.h"
#include "qx_db/mesh/shape_tables.h"

namespace qx {

/// Two positions in a list of nodes.
struct NodeLine {
  std::int32_t from, to;
};

namespace topology {

inline constexpr std::int32_t kRows = 88;    ///< type codes 0 to 87
inline constexpr std::int32_t kWords = 337;  ///< words of a row

/// Values of the first word.
inline constexpr std::int32_t kPointClass = 1;
inline constexpr std::int32_t kLineClass = 2;
inline constexpr std::int32_t kSurfaceClass = 3;
inline constexpr std::int32_t kSolidClass = 4;
inline constexpr std::int32_t kSpecialClass = 5;

// Where a row keeps what. Nodes are numbered from 0 in the element's node list, corners first.
inline constexpr std::int32_t kClass = 0;
inline constexpr std::int32_t kSides = 1;  ///< faces of a solid, edges of a surface, line ends
inline constexpr std::int32_t kCorners = 2;
inline constexpr std::int32_t kNodes = 3;
inline constexpr std::int32_t kEdges = 4;
inline constexpr std::int32_t kCornersPerEdge = 5;
inline constexpr std::int32_t kNodesPerEdge = 6;
// Adjacency: lists of numbers, each list ended, and its block filled, with -1.
inline constexpr std::int32_t kFacesOfFace = 7;   ///< 6 x 5: faces across the edges of a face
inline constexpr std::int32_t kEdgesOfFace = 37;  ///< 6 x 5: its edges, in the order of its nodes
inline constexpr std::int32_t kFacesOfEdge = 67;  ///< 12 x 3: faces that contain an edge
inline constexpr std::int32_t kEdgesOfCorner = 103;    ///< 8 x 5: edges that end in a corner
inline constexpr std::int32_t kFacesOfCorner = 143;    ///< 8 x 5: faces that contain a corner
inline constexpr std::int32_t kCornersOfCorner = 183;  ///< 8 x 5: corners at the other ends
inline constexpr std::int32_t kOppositeFace = 223;     ///< 6 x 2: the face that shares no corner
inline constexpr std::int32_t kAdjacencyEnd = 235;     ///< 4 words of -1 follow
inline constexpr std::int32_t kFaceCorners = 239;      ///< 6: corners of each face
inline constexpr std::int32_t kFaceNodes = 245;        ///< 6: nodes of each face
/// 12 x 3: first corner, second corner, node between them; 0 for none.
inline constexpr std::int32_t kEdgeList = 251;
/// 6 x 8: corners in order, outwards from a solid, then the nodes between them. A linear triangle
/// of a pyramid or wedge has -1 in its fourth word.
inline constexpr std::int32_t kFaceList = 287;
inline constexpr std::int32_t kTail = 335;  ///< 2 words of -1

/// The row of a type code; a row of zeros for a code that has none.
QXDB_API const std::int32_t* RowOf(std::int32_t code);

/// What the corners of an ordinary type form; kNone for a special or unknown code: what special
/// elements are, only the application can tell. Of those, 81 and 87 have a row all the same.
QXDB_API CornerShape ShapeOf(std::int32_t code);
/// Corners of a shape, and of its face 0: all of them where it is no solid.
QXDB_API std::int32_t CornersOf(CornerShape shape);
QXDB_API std::int32_t CornersOfFirstFace(CornerShape shape);

/// How the first nodes of a special type lie, which is what its measure and its local axes are
/// taken from.
struct SpecialForm {
  std::int32_t first, last;  ///< the code, or those of the linear and the quadratic type
  CornerShape shape;
  /// Whether the nodes are those of two such sides, one after the other, as of an interface.
  bool two_sided = false;
};
/// Null for an ordinary or unknown code, and for a special one of which nothing is known.
QXDB_API const SpecialForm* FormOf(std::int32_t code);

/// The lines between corners that picture an element of so many nodes: its edges; of a special type
/// those of its first face, of both sides where it has two, and between them; lines from the first
/// node to each other one where nothing is known of the type, or the nodes are too few for it.
QXDB_API std::vector<NodeLine> OutlineOf(std::int32_t code, std::int32_t nodes);

/// Of a special type, and of a code that is none.
inline constexpr int kSpecialDimension = 4;
inline constexpr int kUnknownDimension = 5;
/// Dimension of a type: 0 to 3, or one of those above. 81 is a special type and a line.
QXDB_API int DimensionOf(std::int32_t code);
/// 0 for a point to 3 for a solid.
QXDB_API int DimensionOf(CornerShape shape);

}  // namespace topology

/// One row of the table, by name.
class ElementTopology {
 public:
  explicit ElementTopology(std::int32_t code) : row_(topology::RowOf(code)) {}

  std::int32_t Class() const { return row_[topology::kClass]; }
  std::int32_t Sides() const { return row_[topology::kSides]; }
  std::int32_t Corners() const { return row_[topology::kCorners]; }
  std::int32_t Nodes() const { return row_[topology::kNodes]; }
  std::int32_t Edges() const { return row_[topology::kEdges]; }
  std::int32_t Faces() const {
    std::int32_t count = 0;
    while (count < 6 && FaceNodes(count) > 0) ++count;
    return count;
  }
  /// Whether there is such an edge or face; required by the operations below.
  bool HasEdge(std::int32_t edge) const { return edge >= 0 && edge < Edges(); }
  bool HasFace(std::int32_t face) const { return face >= 0 && face < 6 && FaceNodes(face) > 0; }
  std::int32_t FaceCorners(std::int32_t face) const { return row_[topology::kFaceCorners + face]; }
  std::int32_t FaceNodes(std::int32_t face) const { return row_[topology::kFaceNodes + face]; }
  /// Positions of the nodes of an edge or face in the element's node list.
  std::span<const std::int32_t> Edge(std::int32_t edge, bool all_nodes) const {
    const std::int32_t count =
        row_[all_nodes ? topology::kNodesPerEdge : topology::kCornersPerEdge];
    return {row_ + topology::kEdgeList + 3 * edge, static_cast<std::size_t>(count)};
  }
  std::span<const std::int32_t> Face(std::int32_t face, bool all_nodes) const {
    const std::int32_t count = all_nodes ? FaceNodes(face) : FaceCorners(face);
    return {row_ + topology::kFaceList + 8 * face, static_cast<std::size_t>(count)};
  }

 private:
  const std::int32_t* row_;
};

}  // namespace qx
