#pragma once
// Material axes of plates that are given by an angle from the element's first edge: kept where they
// are in space while elements get other edges.
// Threads: the one that drives the session.

#include <functional>
#include <span>
#include <unordered_map>

#include "qx_db/mesh/point3.h"
#include "qx_db/record/types.h"

namespace qx {

class CQXDBSession;

class MaterialDirections {
 public:
  explicit MaterialDirections(CQXDBSession& session) : session_(session) {}

  /// Takes down the directions for these elements, as far as an angle gives them one.
  void Take(std::span<const ITR> elements);
  /// Of an element the direction of another.
  void Inherit(ITR of, ITR made);
  void Turn(const std::function<Vector3(const Vector3&)>& map);
  /// Gives the elements the angles that lead to their directions now, in records of their own where
  /// the angle differs. Call it in a transaction; false when a pool refused a change.
  bool Put();

 private:
  CQXDBSession& session_;
  std::unordered_map<ITR, Vector3> directions_;
};

}  // namespace qx
