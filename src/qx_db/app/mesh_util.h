#pragma once
// Questions about the elements of a mesh: sides, nodes, measures, orientation, grouping.

#include <cstdint>
#include <list>
#include <set>

#include "qx_db/export.h"
#include "qx_db/platform/c_array.h"
#include "qx_db/record/array_elements.h"

namespace qx {

class CQXDBSession;

/// Answers questions about the mesh of one session; keeps nothing but the session's address.
///
/// Conventions:
/// - Coordinates and measures are in model units.
/// - A side is an element and a number; its *kind* says what the number names: 3 a face, 4 an
///   edge. Any other kind names nothing.
/// - `all` is 0 for corner nodes only, anything else for all nodes.
/// - Outputs are emptied first; counts are returned.
/// - A null or removed iterator, a missing record, an unknown type code, or an element with fewer
///   nodes than its type wants gives 0 or 0.0 and empty outputs; nothing is reported.
/// - Of a coordinate that is no number no measure is a number, and there is no normal and no
///   collapse; the minimum length and the bounding box go by the other coordinates.
/// - An output may be the array that was passed in.
/// Threads: on the one that drives the session, or, on a snapshot, on any number at once; those
/// that change elements on the first only.
class QXDB_API CQXMeshUtil {
 public:
  static constexpr int kFaceSide = 3;
  static constexpr int kEdgeSide = 4;

  explicit CQXMeshUtil(CQXDBSession* session) : session_(session) {}

  // ---- sides on geometry ------------------------------------------------------------------------
  // A geometry-element head stands for a geometry item; its last data record lists elements by
  // side number. The trailing number of the overloads is accepted and has no effect.

  std::int32_t GetElemSideListByGKeyItr(ITR gkey, TArray<tagTElemSide>& sides) const;
  std::int32_t GetElemSideListByGKeyItr(ITR gkey, TArray<tagTElemSide>& sides, unsigned int) const {
    return GetElemSideListByGKeyItr(gkey, sides);
  }
  /// In the order of side numbers.
  std::int32_t GetElemSideListByGElemItr(ITR gelem, TArray<tagTElemSide>& sides) const;
  std::int32_t GetElemSideListByGElemItr(ITR gelem, TArray<tagTElemSide>& sides,
                                         unsigned int) const {
    return GetElemSideListByGElemItr(gelem, sides);
  }
  std::int32_t GetElemSideListByGKeyItrArray(const TArray<ITR>& gkeys,
                                             TArray<tagTElemSide>& sides) const;
  std::int32_t GetElemSideListByGElemItrArray(const TArray<ITR>& gelems,
                                              TArray<tagTElemSide>& sides) const;

  // ---- elements and nodes: each once, in the order they are met ---------------------------------

  std::int32_t GetElemListByMsetItrArray(const TArray<ITR>& msets, TArray<ITR>& out) const;
  std::int32_t GetElemListByGKeyItr(ITR gkey, TArray<ITR>& out) const;
  std::int32_t GetElemListByGKeyItrArray(const TArray<ITR>& gkeys, TArray<ITR>& out) const;
  std::int32_t GetElemListByGElemItr(ITR gelem, TArray<ITR>& out) const;
  /// Of all geometry items of the body that the key's item belongs to.
  std::int32_t GetBodyElemListByGKeyItr(ITR gkey, TArray<ITR>& out) const;

  /// The nodes that mesh sets list.
  std::int32_t GetNodeListByMsetItrArray(const TArray<ITR>& msets, TArray<ITR>& out) const;
  /// The nodes that lie on a geometry item: of faces on a face, of edges on an edge, the one node
  /// of a vertex; all nodes of the elements when the item's type is another.
  std::int32_t GetNodeListByGKeyItr(ITR gkey, TArray<ITR>& out, int all) const;
  std::int32_t GetNodeListByGKeyItrArray(const TArray<ITR>& gkeys, TArray<ITR>& out, int all) const;
  std::int32_t GetNodeListByGElemItr(ITR gelem, TArray<ITR>& out, int all) const;
  std::int32_t GetBodyNodeListByGKeyItr(ITR gkey, TArray<ITR>& out, int all) const;
  std::int32_t GetBodyNodeListByGKeyItrArray(const TArray<ITR>& gkeys, TArray<ITR>& out,
                                             int all) const;
  std::int32_t GetNodeListByElemItrArray(const TArray<ITR>& elems, TArray<ITR>& out, int all) const;
  /// The nodes that every element has, in the first one's order.
  std::int32_t GetCommonNodeListByElemItrArray(const TArray<ITR>& elems, TArray<ITR>& out,
                                               int all) const;
  /// Nodes of the element's type.
  std::int32_t GetNodeCountByElem(ITR elem) const;

  // ---- nodes of sides ---------------------------------------------------------------------------

  /// The nodes of one edge or face, in the order of the topology table.
  std::int32_t GetEdgeNodeList(const tagTElemSide& side, TArray<ITR>& out, int all) const;
  std::int32_t GetFaceNodeList(const tagTElemSide& side, TArray<ITR>& out, int all) const;
  std::int32_t GetNodeListByElemSide(int kind, const tagTElemSide& side, TArray<ITR>& out,
                                     int all) const;
  /// The distinct nodes of many sides.
  std::int32_t GetNodeListByElemSideArray(int kind, const TArray<tagTElemSide>& sides,
                                          TArray<ITR>& out, int all) const;
  std::int32_t GetFaceNodeListByElemSideArray(const TArray<tagTElemSide>& sides, TArray<ITR>& out,
                                              int all) const {
    return GetNodeListByElemSideArray(kFaceSide, sides, out, all);
  }
  std::int32_t GetEdgeNodeListByElemSideArray(const TArray<tagTElemSide>& sides, TArray<ITR>& out,
                                              int all) const {
    return GetNodeListByElemSideArray(kEdgeSide, sides, out, all);
  }
  /// The node sequences of many sides, one after the other, repeats kept.
  std::int32_t GetSequenceNodeListByElemSideArray(int kind, const TArray<tagTElemSide>& sides,
                                                  TArray<ITR>& out, int all) const;
  std::int32_t GetFaceSequenceNodeListByElemSideArray(const TArray<tagTElemSide>& sides,
                                                      TArray<ITR>& out, int all) const {
    return GetSequenceNodeListByElemSideArray(kFaceSide, sides, out, all);
  }
  std::int32_t GetEdgeSequenceNodeListByElemSideArray(const TArray<tagTElemSide>& sides,
                                                      TArray<ITR>& out, int all) const {
    return GetSequenceNodeListByElemSideArray(kEdgeSide, sides, out, all);
  }
  /// The element type code of the edge (2 or 3) or face (4 to 7) by itself.
  int GetEdgeType(const tagTElemSide& side) const;
  int GetFaceType(const tagTElemSide& side) const;

  // ---- measures ---------------------------------------------------------------------------------

  /// Between the edge's two corners.
  double GetEdgeLength(const tagTElemSide& side) const;
  /// The shortest distance between neighbours in the element's node list, taken as a closed
  /// polygon. Deliberate: mid-side nodes take part where the list has them. Only the side's
  /// element is used. 1e20 when no neighbours have coordinates.
  double GetElemMinLength(const tagTElemSide& side) const;
  /// Unit normal of a face, from its first three corners. 0, with zeros, when it has none.
  int GetElemSideNormal(const tagTElemSide& side, double normal[3]) const;
  /// Unit normal of an edge, from its first three nodes: that of the plane a curved edge lies in.
  /// 0, with zeros, for an edge of two nodes, or of three on a line.
  int GetElemEdgeSideNormal(const tagTElemSide& side, double normal[3]) const;
  /// The direction in which an edge of a surface element faces: in the element's plane, square to
  /// the edge, outwards. 0, with zeros, when there is none.
  int GetElemEdgeSideOutward(const tagTElemSide& side, double direction[3]) const;
  /// Unit normal of three nodes, of which coordinates in current units are taken.
  int GetNormalVecByNodes(ITR node0, ITR node1, ITR node2, double normal[3]) const;
  /// Mean of all nodes.
  int GetElemCenter(ITR elem, double center[3]) const;
  /// Mean of the side's corners.
  int GetElemCenter(int kind, const tagTElemSide& side, double center[3]) const;
  /// Sum of the triangles of the face by its number of nodes, mid-side nodes included.
  double GetFaceArea(const tagTElemSide& side) const;
  /// Sum of the triangles of a surface element by its type. Deliberately cut otherwise.
  double GetFaceArea(ITR elem) const;
  /// Length, area or signed volume from the corners; 0.0 for types without one, 81 among them.
  double GetElemQuantity(ITR elem) const;
  /// Length of the edge by the thickness of a surface element, or by the perimeter of a line
  /// element's section; asks the application.
  double GetEdgeArea(const tagTElemSide& side) const;
  /// Perimeter of a line element's section; asks the application.
  double Get1DElemPerimeter(ITR elem) const;
  /// Signed volume of a solid; for surfaces and lines, special ones too, what the application says.
  double GetElemVolume(ITR elem) const;
  /// Dimension of a type: 0 to 3; 4 for special types, 5 for unknown codes.
  static int GetElemDim(std::int32_t type);
  int IsQuadratic(ITR elem) const;
  static int IsQuadratic(std::int32_t type);
  /// Whether some quadratic line element has the node between its ends. Walks all elements.
  int IsNodeQuadraticFor1D(ITR node) const;
  double GetNodeDist(ITR node0, ITR node1) const;
  static double GetNodeDist(const tagTVector3<double>& a, const tagTVector3<double>& b);
  /// Fills `box` with the smallest x, y, z, then the largest. 0, leaving it, without a node that
  /// is somewhere.
  int GetNodeBoundingBox(const CQXDBSession* session, const std::set<ITR>& nodes,
                         double* box) const;
  /// What governs the material axes of a surface element: `kind` is a tagTE2DMatlCsys type and
  /// `cord` the coordinate system it names. The property's system where no attribute names the
  /// element; 0 when there is neither.
  int Get2DShellCordItrByElem(ITR elem, int& kind, ITR& cord) const;

  // ---- orientation and repair -------------------------------------------------------------------

  /// Whether a solid is the right way out; 1 for all that is not a solid. With `flip` an inverted
  /// one is turned, and the answer is still 0, on purpose: it was inverted.
  int IsValidNormalSolid(ITR elem, int flip) const;
  /// Turns an element over by exchanging nodes, and stores it. 1 at once for points and lines; 0
  /// for codes outside 1 to 15.
  int FlipElement(ITR elem) const;
  /// How far a tetrahedron is from flat: 1 for a regular one, 0 for a flat one. `face` receives
  /// the number of the corner whose height is smallest; may be null.
  double CalcCollapseTetra(ITR elem, int* face) const;
  static void Swap(ITR& a, ITR& b);

  // ---- grouping ---------------------------------------------------------------------------------

  /// Divides sides into those within 90 degrees of a reference normal (of the first side when
  /// null) and the others. Sides without a normal go to neither. 0, with empty outputs, without
  /// sides and without a reference normal.
  int ConvertStartEndElem(int kind, const TArray<tagTElemSide>& sides, TArray<tagTElemSide>& start,
                          TArray<tagTElemSide>& end, const double* reference_normal) const;
  /// Groups sides that hang together by corner nodes: lists of positions in `sides`, each in the
  /// order of a breadth-first walk; a side without nodes is a group of its own. Returns the number
  /// of groups, 0 for an unknown kind. Linear in the number of sides.
  std::int32_t GroupElemSide(int kind, const TArray<tagTElemSide>& sides,
                             std::list<std::list<int>>& groups) const;

  // ---- dividing polylines -----------------------------------------------------------------------

  /// `n` points that divide a polyline into n + 1 parts of one length; returns their number.
  std::int32_t GetPosListBtwManyNode(const CArray<tagTVector3<double>>& points, std::int32_t n,
                                     CArray<tagTVector3<double>>& out) const;
  std::int32_t GetPosListBtwManyNode(const TArray<tagTVector3<double>>& points, std::int32_t n,
                                     TArray<tagTVector3<double>>& out) const;

  // ---- answered by the application; 0.0 or 0 when there is none ---------------------------------

  double GetBeamVolume(ITR elem) const;
  double GetFaceVolume(ITR elem) const;
  double GetFaceVolume(ITR elem, double area) const;
  double GetSpecialElemMass(ITR elem) const;
  double GetMSetMass(const TArray<ITR>& elems) const;
  void GetMSetMass(const TArray<ITR>& elems, double& mass_x, double& mass_y, double& mass_z) const;
  int GetMassCenter(const TArray<ITR>& elems, double center[3]) const;
  double GetElemMatlDensity(ITR elem) const;
  double GetMatlDensity(ITR matl) const;

 private:
  CQXDBSession* session_;
};

}  // namespace qx
