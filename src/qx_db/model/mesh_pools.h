#pragma once
// The pools of the finite-element mesh. docs/local-axes.md shows the axes of every element family.
// Threads: see DPoolBase.

#include <memory>
#include <set>
#include <vector>

#include "qx_db/lib/math.h"
#include "qx_db/model/coordinate_pool.h"
#include "qx_db/model/corners.h"
#include "qx_db/model/orientation_pool.h"

namespace qx {

class ReferenceIndex;

/// The nodes. Operations with NU take and give numbers as they are stored, in model units; those
/// without, in current units.
class QXDB_API DPoolNode : public DPoolPlain<tagTNode> {
 public:
  explicit DPoolNode(CQXDBSession* session) : DPoolPlain(session) {}

  /// 0 for a null position or a removed node.
  int Get(ITR pos, tagTNode& out) const;
  int SetAt(ITR pos, const tagTNode& node);
  using DPool<tagTNode>::SetAtNU;
  int SetAtNU(ITR pos, const tagTNode& node) override;
  Vector3 Position(ITR pos) const { return Vector3(GetAtNU(pos).position); }

  /// Deletions are refused, with a message, where an element that stays is oriented by the node.
  bool ReadAPI(dbgateway::DataBase* from, int remove) override;
};

/// Element type codes that the rules of elements tell apart. The sets overlap and differ on
/// purpose; none may be derived from another.
namespace element_rule {
QXDB_API bool IsWithEcrdType(std::int32_t type);         ///< loses its orientation when removed
QXDB_API bool KeepsOrientation(std::int32_t type);       ///< keeps it when overwritten
QXDB_API bool HasDefaultOrientation(std::int32_t type);  ///< is turned as by default without one
QXDB_API bool IsInterfaceLine(std::int32_t type);
}  // namespace element_rule

/// The elements. An element takes along what is keyed by it when it is removed: its orientation,
/// special property, solid material axes and scale factors. At the end of a step it dies with any
/// of its nodes; with its property in a step that removes nodes too, otherwise it loses the
/// property (docs/local-axes.md tells it in full).
///
/// An int result is 1 for success and 0 for failure; an element that is null or removed is a
/// failure that changes nothing. Local axes are the rows of a 3x3 array: unit vectors of local x, y
/// and z in global coordinates.
class QXDB_API DPoolElem : public DPoolPlain<tagTElem> {
 public:
  explicit DPoolElem(CQXDBSession* session);
  ~DPoolElem() override;

  // ---- storing ----------------------------------------------------------------------------------

  /// The smallest key >= start that no element uses. A negative start comes back as it is; a
  /// search past the largest key gives a negative number. Expected constant time on dense keys.
  Key GetNewKeyUp(Key start) const { return Set().GetNewKeyUp(start); }
  using DPool<tagTElem>::InsertNU;
  ITR InsertNU(const tagTElem& element) override;
  /// Overwrites an element; what belongs to it by its key follows to a new one (Belongings).
  using DPool<tagTElem>::SetAtNU;
  int SetAtNU(ITR pos, const tagTElem& element) override;
  /// Overwrites an element and keeps its orientation and special property as far as its new type
  /// has any, making default ones where they are missing. Other types are stored alone.
  int SetAtWithKeepData(ITR pos, const tagTElem& element);
  /// Overwrites an element together with its orientation or special property, whose key (and
  /// element type) are set to the element's. With `check` not 0 the orientation must be one that
  /// IsValidEcrd accepts.
  int SetAtNUwCsys(ITR pos, const tagTElem& element, tagTEcrd& orientation, int check);
  int SetAtNUwSprop(ITR pos, const tagTElem& element, tagTSprop& property, int unused);
  /// Stores the special property of an element, given in current units.
  int SetAtSprop(ITR pos, const tagTSprop& property);
  /// The orientation or special property stored for an element; 0 when there is none. GetElemSprop
  /// gives it in current units, GetElemNUSprop as it is stored.
  int GetElemCSys(ITR pos, tagTEcrd& out) const;
  int GetElemSprop(ITR pos, tagTSprop& out) const;
  int GetElemNUSprop(ITR pos, tagTSprop& out) const;

  // ---- removing ---------------------------------------------------------------------------------

  int Remove(const ITR& pos) override;
  int RemoveNext(ITR& pos) override;
  void RemoveAll() override;

  // ---- reacting ---------------------------------------------------------------------------------

  int ProcessRelation() override;
  /// Brings the orientation records of a loaded model into line: a line element whose axes follow
  /// the default gets a record that says so, a record without an element goes, and one of another
  /// element type takes over its element's. No axes turn. Recorded when a step is open.
  void OnAfterActive(unsigned long flags, void* context) override;
  void OnAfterUndoRedo() override;
  /// Gives every line element group of one property its own copy of a node that it shares with
  /// line elements of another property; the elements of the property met first keep the node, and
  /// with it every orientation that refers to it. Elements without a property are of no group and
  /// keep their nodes. The copies join the mesh sets of the elements that got them. One step of its
  /// own, or part of an open one.
  int SplitMergedTendonNode();

  // ---- local axes of any element (element_axes.cpp) ---------------------------------------------

  /// 0 leaves zeros, or what was filled so far.
  int GetElemLocalVector(const tagTElem& element, double axes[3][3]) const;
  int GetElemLocalVector(ITR pos, double axes[3][3]) const;

  // ---- line elements ----------------------------------------------------------------------------

  int Calc1DElemLocalVector(const tagTElem& element, const tagTEcrd& orientation,
                            double axes[3][3]) const;
  /// By a reference node; its foot on the line gives the reference direction.
  int Calc1DElemLocalVector(const double p1[3], const double p2[3], ITR reference_node,
                            double axes[3][3]) const;
  int Calc1DElemLocalVector(const double p1[3], const double p2[3],
                            const double reference_vector[3], double axes[3][3]) const;
  /// By an angle about the line. `vertical`: 1 and 0 say whether to take it as vertical, any other
  /// value lets the geometry decide.
  int Calc1DElemLocalVector(const double p1[3], const double p2[3], double beta_deg,
                            double axes[3][3], int vertical) const;
  int IsVerticalFrame(const double p1[3], const double p2[3]) const;
  /// Whether an orientation fits the element. Refuses, with a message, a reference node on the
  /// element's line and a reference vector along it.
  int IsValidEcrd(const tagTElem& element, const tagTEcrd& orientation) const;
  /// The local system of a line element with a stored orientation, as three points.
  int Get1DElemCord(ITR pos, tagTCord& out) const;

  // ---- plane elements ---------------------------------------------------------------------------

  /// x along the first edge, z normal to the diagonals (of a triangle, to its plane).
  int Calc2DElemLocalVector(const tagTElem& element, double axes[3][3]) const;
  /// x along the projection of a reference direction onto the element.
  int Calc2DElemLocalVector(const tagTElem& element, const double reference[3],
                            double axes[3][3]) const;
  /// Angle in degrees, against the element's normal, from its x axis to the projection of `v`; or
  /// from the projection of `from` to that of `to`. Above -180, up to 180.
  int Calc2DElemVectorAngle(const tagTElem& element, const double v[3], double& angle_deg) const;
  int Calc2DElemVectorAngle(const tagTElem& element, const double from[3], const double to[3],
                            double& angle_deg) const;

  // ---- special elements (special_axes.cpp) ------------------------------------------------------

  int CalcSpecialElemLocalVector(const tagTElem& element, double axes[3][3]) const;
  int CalcIntfcLocalVectorLine(const tagTElem& element, double axes[3][3]) const;
  int CalcIntfcLocalVectorLine(const tagTElem& element, const tagTEcrd& orientation,
                               double axes[3][3]) const;
  int CalcIntfcLocalVectorLine(const double p1[3], const double p2[3], const double along[3],
                               double axes[3][3]) const;
  int CalcIntfcLocalVectorPlane(const tagTElem& element, double axes[3][3]) const;
  int CalcFreeFieldLocalVectorLine(const tagTElem& element, double axes[3][3]) const;
  int CalcFreeFieldLocalVectorPlane(const tagTElem& element, double axes[3][3]) const;
  int CalcFluidBndLocalVectorLine(const tagTElem& element, double axes[3][3]) const;
  int CalcFluidBndLocalVectorPlane(const tagTElem& element, double axes[3][3]) const;

  // ---- material axes (special_axes.cpp) ---------------------------------------------------------

  /// Axes of the material: of plates by the material system that lists them, of solids by their
  /// stored triad; without one, the element's axes and the global ones. Others: the element's.
  int GetElemMatlVector(const tagTElem& element, double axes[3][3]) const;
  int GetElemMatlVector(ITR pos, double axes[3][3]) const;
  int Calc2DElemMatlVector(const tagTElem& element, const tagTE2DMatlCsys& system,
                           double axes[3][3]) const;
  int Calc3DElemMatlVector(const tagTE3DMatlCsys& system, double axes[3][3]) const;

  // ---- points and nodal systems -----------------------------------------------------------------

  /// Mean of the element's node positions; 0 for an element without nodes.
  int GetElemCenter(const tagTElem& element, double center[3]) const;
  int GetElemCenter(ITR pos, double center[3]) const;
  /// Turns a global vector at a node into the components of the node's nodal system; of a
  /// cylindrical or spherical one, those along its directions at the node. 0 when the node has
  /// none.
  int GetElemAxisByNodalCSys(ITR node, double v[3]) const;

  // ---- queries ----------------------------------------------------------------------------------

  /// The elements of a property, in list order; returns their number. Constant time and the
  /// answer, after a walk over the elements when these have changed.
  std::int32_t GetItrPropList(ITR property, TArray<ITR>& out) const;
  int IsUsedItrProp(const ITR& property) const;
  /// Adds the elements that have one of the properties.
  int GetItrSetByItrPropSet(const std::set<ITR>& properties, std::set<ITR>& elements) const;
  /// Gives the elements a property, within the open step.
  int Private_ApplyProp(const TArray<ITR>& elements, ITR property);
  /// Whether a record of line attributes (offset, release) or plate attributes (thickness, offset,
  /// material axes, release, property switches) lists the element.
  int Is1DParamExist(ITR pos) const;
  int Is2DParamExist(ITR pos) const;
  /// The elements of a node, each once; returns their number. The association is built by a walk
  /// over the elements when first asked for and follows single edits from then on.
  std::int32_t GetElemListByNodeItr(ITR node, TArray<ITR>& out) const;

  /// Where each record of the session is used. Kept for the life of the pool.
  ReferenceIndex& References() const;

 private:
  /// Keep the elements of the nodes right when one element changes or goes.
  void UpdateDataAssoc(ITR pos, const tagTElem& before, const tagTElem& after);
  void RemoveDataAssoc(ITR pos);
  bool AssociationIsCurrent() const;
  template <class T>
  int StoreAttached(ITR pos, const T& record);
  bool IsPositionOf(const tagTElem& element, int index, Vector3& p) const;
  bool EndsOf(const tagTElem& element, Vector3& p1, Vector3& p2) const;
  Corners CornersOf(const tagTElem& element) const;
  int CalcSpringLocalVector(const tagTElem& element, double axes[3][3]) const;
  const DPoolNode& Nodes() const;

  mutable std::unique_ptr<ReferenceIndex> references_;
  /// Elements by node, as far as edits since the index was built have changed them.
  struct NodeAssociation;
  mutable std::unique_ptr<NodeAssociation> by_node_;
};

template <>
struct PoolOf<tagTNode> {
  using type = DPoolNode;
};
template <>
struct PoolOf<tagTElem> {
  using type = DPoolElem;
};

}  // namespace qx
