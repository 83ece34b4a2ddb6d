#pragma once
// Numbers that name records in a file of steps.
//
// A key cannot: a step may give it to another record, or two records may share it for a moment,
// and a removed record has none. A number belongs to one record as long as the file is continued:
// the records of the file's model have 0, 1, 2 ... in list order, later ones follow.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <map>
#include <vector>

#include "qx_db/core/session.h"

namespace qx {

/// Numbers and records of the saved pools of a session.
class StepNumbers {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  StepNumbers() = default;
  StepNumbers(StepNumbers&&) = default;
  StepNumbers& operator=(StepNumbers&&) = default;

  /// Starts anew: numbers the records that the pools hold.
  void Reset(const CQXDBSession& session);
  /// The record's number; kNone for one that has none.
  std::uint32_t Of(const DPoolBase& pool, ITR item) const;
  /// Gives the pool's next number to a record that is new.
  std::uint32_t Give(const DPoolBase& pool, ITR item);
  /// Takes the last number given in the pool back.
  void TakeBack(const DPoolBase& pool);
  /// Gives a record a number that a file names. False for one that the file cannot mean: used, or
  /// further on than `spare` new records reach.
  bool Assign(const DPoolBase& pool, std::uint32_t number, ITR item, std::uint64_t spare);
  /// The record of a number; 0 when there is none.
  ITR At(std::uint16_t type, std::uint32_t number) const;
  /// The record is about to be freed.
  void Forget(const DPoolBase& pool, ITR item);

 private:
  struct PoolNumbers {
    std::vector<std::uint32_t> of_slot;
    std::vector<ITR> items;
  };
  /// Of a pool; null for one that is not numbered.
  const PoolNumbers* Find(std::uint16_t type) const;

  std::map<std::uint16_t, PoolNumbers> pools_;
  // The pool last asked for; nodes of a map stay where they are, also when it is moved.
  mutable const PoolNumbers* last_ = nullptr;
  mutable std::uint16_t last_type_ = 0;
};

}  // namespace qx
