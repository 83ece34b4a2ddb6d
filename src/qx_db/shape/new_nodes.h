#pragma once
// Nodes that come between others when elements are given more of them, or are divided.
// Threads: the one that drives the session.

#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

#include "qx_db/mesh/point3.h"
#include "qx_db/record/types.h"
#include "qx_db/shape/next_key.h"

namespace qx {

class CQXDBSession;

/// Nodes by the two between which they lie: each once, whichever way round.
class NewNodes {
 public:
  explicit NewNodes(CQXDBSession& session);

  /// The node between two is one that there is.
  void Know(ITR a, ITR b, ITR between);
  /// The node that lies between two, 0 for none.
  ITR Find(ITR a, ITR b) const;
  /// The node between two, made at a point where there is none. 0 where the pool refuses, or has no
  /// key left: new ones follow the largest.
  ITR Make(ITR a, ITR b, const Point3& at);

  /// The mesh sets and blocks that list an element with nodes of its own list these nodes of it,
  /// too; those that list only nodes list every one both of whose ends they have. Call it when the
  /// elements are as they shall be; false when a pool refused a change.
  bool JoinSets();

 private:
  struct Ends {
    ITR a, b;
    friend bool operator==(const Ends&, const Ends&) = default;
  };
  struct Hash {
    std::size_t operator()(const Ends& ends) const {
      return static_cast<std::size_t>((ends.a * 0x9E3779B97F4A7C15u) ^ (ends.b >> 3));
    }
  };
  static Ends EndsOf(ITR a, ITR b) { return a < b ? Ends{a, b} : Ends{b, a}; }
  template <class T>
  bool JoinSets();

  CQXDBSession& session_;
  NextKey next_key_;
  std::unordered_map<Ends, ITR, Hash> between_;
  std::unordered_map<ITR, Ends> made_;
  std::vector<ITR> in_order_;
};

}  // namespace qx
