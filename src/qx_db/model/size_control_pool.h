#pragma once
// The size controls of a model: which edges are seeded how.
// Threads: see DPoolBase.

#include <list>

#include "qx_db/model/edge_seeding.h"
#include "qx_db/model/plain_pools.h"
#include "qx_db/pool/value_array.h"

namespace qx {

/// The size controls. An edge belongs to a control that lists it in `edges` or `reversed_edges`.
/// A control is locked when an entry of `locked` is not 0; while `locked` has an entry for each of
/// `edges`, entries leave with their edges. A control that loses its last edge or body with removed
/// geometry keys is removed at the end of the step, unless it was locked.
class QXDB_API DPoolSzct : public DPoolPlain<tagTSzct> {
 public:
  explicit DPoolSzct(CQXDBSession* session) : DPoolPlain(session) {}

  /// The geometry that edges are sought in; null for none. Not owned.
  void SetCadSession(ICADSession* cad) { cad_ = cad; }
  ICADSession* CadSession() const { return cad_; }

  /// The seeds of an edge by a control, from its start to its end, as floats: by the iterator of
  /// its geometry key, or by its number in the CAD session. 0, `points` untouched, when there is no
  /// CAD session or no such edge, when the control cannot seed it (SeedEdge says why), or when a
  /// coordinate is beyond what a float holds. An iterator seeds a reversed edge in reverse; a
  /// number does so when a reversed edge of the control has it.
  int GetPointsOnSzct(ITR edge, const tagTSzct& control,
                      std::vector<tagTVector3<float>>& points) const;
  int GetPointsOnSzct(int edge, const tagTSzct& control,
                      std::vector<tagTVector3<float>>& points) const;

  /// Appends the controls of an edge, in list order; 1 when there are any.
  int GetItrByGKeyItr(ITR edge, std::list<ITR>& out) const;
  /// Copies of the controls of any of the edges, in list order, each once.
  TVArray<tagTSzct> GetSzctByEdgeArrayItr(const TArray<ITR>& edges) const;
  /// Whether an edge has a control; the first one, in list order.
  int Exist(ITR edge, ITR& control) const;

  /// Take edges out of all controls; the other edges keep their order. A control that becomes empty
  /// stays, to be given other edges. 0 when the pool is empty or refuses a change, otherwise 1.
  int DeleteGKeyExist(ITR edge);
  int DeleteGKeyArrayExist(const TArray<ITR>& edges);

  /// Drops edges that the model does not hold. Controls without edges are removed, unless locked.
  void OnAfterLoad(unsigned long flags, void* context) override;

 private:
  enum class Empty { kStay, kLeave };
  template <class Leaves>
  int Drop(Leaves&& leaves, Empty empty);

  ICADSession* cad_ = nullptr;
  mutable EdgeSeeds seeds_;  // storage used again from edge to edge
};

template <>
struct PoolOf<tagTSzct> {
  using type = DPoolSzct;
};

}  // namespace qx
