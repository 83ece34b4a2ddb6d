#pragma once
// How a record refers to others: by types that name the pool that they point into.
// Threads: records are values (TStructBase).

#include "qx_db/record/values.h"

namespace qx {

#pragma pack(push, 4)

/// A reference to a record in the pool of type code `Target`: its iterator, 0 for none. In images
/// and in the gateway its key stands in the same place. Converts from and to an iterator; a bare
/// 64-bit number in a record is a value, whatever it holds.
template <std::uint16_t Target>
class TRef {
 public:
  static_assert(Target != 0, "a reference points into a pool");

  constexpr TRef(ITR itr = 0) : itr_(itr) {}
  constexpr operator ITR() const { return itr_; }

 private:
  ITR itr_;
};

/// References to records of one pool: an array of iterators in every way but its type.
template <std::uint16_t Target>
class TRefArray : public TArray<ITR> {
 public:
  static_assert(Target != 0, "references point into a pool");

  using TArray<ITR>::TArray;
  TRefArray(const TArray<ITR>& itrs) : TArray<ITR>(itrs) {}
  TRefArray(TArray<ITR>&& itrs) noexcept : TArray<ITR>(std::move(itrs)) {}
};

#pragma pack(pop)

static_assert(sizeof(TRef<1>) == 8 && alignof(TRef<1>) == 4);
static_assert(sizeof(TRefArray<1>) == 16 && alignof(TRefArray<1>) == 4);

}  // namespace qx
