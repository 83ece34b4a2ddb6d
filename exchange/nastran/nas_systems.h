#pragma once
// The coordinate systems of a deck, by their numbers, and points and directions in them.
// Threads: shares nothing; one at a time for each object.

#include <optional>
#include <unordered_map>

#include "qx_db/model/coordinate_pool.h"

#include "exchange/deck.h"

namespace qx::exchange {

/// Systems whose references are numbers of others. Number 0 is the basic system.
class NasSystems {
 public:
  NasSystems() = default;
  /// All systems of a deck that rest on each other; those that do not are not known.
  explicit NasSystems(const std::vector<tagTCord>& systems);

  /// Adds a system under its key; false when the one it refers to is not known, or when its points
  /// give no axes.
  bool Add(const tagTCord& system);
  bool Knows(Key number) const { return number == 0 || known_.contains(number); }
  bool IsRectangular(Key number) const;
  /// Origin and axes in the basic system; none for a system that is not known.
  std::optional<Frame> FrameOf(Key number) const;
  /// A point in the coordinates that a system counts in, in basic ones, and back.
  std::optional<Vector3> ToBasic(Key number, const Vector3& at) const;
  std::optional<Vector3> FromBasic(Key number, const Vector3& point) const;
  /// The directions in which a system counts at a basic point.
  std::optional<Triad> AxesAt(Key number, const Vector3& point) const;

 private:
  struct Known {
    std::int32_t type;
    Frame frame;
  };
  std::unordered_map<Key, Known> known_;
};

}  // namespace qx::exchange
