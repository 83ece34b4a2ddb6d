#pragma once
// The container under every record pool, typed.
// Threads: see KeyedSetBase.

#include "qx_db/pool/keyed_set_base.h"
#include "qx_db/record/verbs.h"

namespace qx {

/// A keyed set of records of type T. All behaviour is KeyedSetBase's; this adds the type. Sets
/// are neither copied nor assigned.
template <class T>
class CKeySet : public KeyedSetBase {
 public:
#pragma pack(push, 4)
  /// One item, as it lies in memory.
  struct tagITEM {
    std::uint32_t state;
    T record;
    tagITEM* hash_prev;
    tagITEM* hash_next;
    tagITEM* list_prev;
    tagITEM* list_next;
  };
#pragma pack(pop)
  static_assert(sizeof(tagITEM) == 4 + sizeof(T) + 32);

  CKeySet() : CKeySet(kDefaultHashSize) {}
  /// With n buckets, but never fewer than the default size.
  explicit CKeySet(std::int32_t n) : KeyedSetBase(Ops(), n) {}

  ITR InsertNU(const T& record) { return Insert(record); }
  int SetAtNU(ITR pos, const T& record) { return SetAt(pos, record); }
  /// No check of the position.
  T& GetAtNU(ITR pos) { return reinterpret_cast<tagITEM*>(pos)->record; }
  const T& GetAtNU(ITR pos) const { return reinterpret_cast<const tagITEM*>(pos)->record; }
  /// The record at `pos`, which moves on. The usual walk: pos = head; while (pos) GetNextNU(pos).
  T& GetNextNU(ITR& pos) {
    auto* item = reinterpret_cast<tagITEM*>(pos);
    pos = reinterpret_cast<ITR>(item->list_next);
    return item->record;
  }
  T& GetPrevNU(ITR& pos) {
    auto* item = reinterpret_cast<tagITEM*>(pos);
    pos = reinterpret_cast<ITR>(item->list_prev);
    return item->record;
  }

 private:
  static RecordOps Ops() {
    return {sizeof(T),
            !T::GetSchema().HasArrays(),
            [](const TStructBase* from) -> TStructBase* {
              return from ? new T(static_cast<const T&>(*from)) : new T();
            },
            [](char* at, const TStructBase& from) { new (at) T(static_cast<const T&>(from)); },
            [](char* at) { reinterpret_cast<T*>(at)->~T(); },
            [](char* to, const TStructBase& from) {
              T& record = *reinterpret_cast<T*>(to);
              ReserveArrays(T::GetSchema(), record, from);  // all that can fail of the assignment
              record = static_cast<const T&>(from);
            }};
  }
};

}  // namespace qx
