#pragma once
// The hash table of a keyed set: chains of items by key mod size, with their heads in cache lines.
// Threads: as KeyedSetBase, of which it is a part.

#include <bit>
#include <cstdint>
#include <string>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#endif

#include "qx_db/platform/pages.h"
#include "qx_db/pool/item_store.h"
#include "qx_db/record/types.h"

namespace qx {

#pragma pack(push, 4)
/// The links of an item: its hash chain and the set's list. 0 at both ends.
struct ItemLinks {
  char* hash_prev;
  char* hash_next;
  char* list_prev;
  char* list_next;
};
#pragma pack(pop)

/// A chained hash table: the chain of bucket b holds the items whose key mod size is b, linked
/// through the items, newest first.
///
/// Walking a chain costs a cache miss an item, each known only after the one before, so the table
/// answers without it: six neighbouring buckets share a cache line of eight entries, an entry
/// naming an item by slot number and its key by quotient (with the bucket that is the whole key).
/// A line always has the first item of each of its buckets, and the others as long as there is
/// room; a bucket that lacks some is marked incomplete, and only there a lookup walks the chain.
///
/// Invariants: (1) a chain holds the items of its bucket, linked both ways; (2) an entry marked
/// first names the first item of its bucket, and a bucket with items has one; (3) every entry
/// names an item of its chain, none twice; (4) an item without an entry has its bucket marked.
///
/// A tag keeps 18 bits of the quotient, so that a table has at least kMinSize buckets: with fewer,
/// two keys would have one name.
class QXDB_API ChainTable {
  static constexpr int kLocalBits = 3;
  static constexpr int kQuotientBits = 18;

 public:
  /// The fewest buckets with which the quotient of every key fits into a tag.
  static constexpr std::int32_t kMinSize =
      static_cast<std::int32_t>((std::uint32_t{kMaxKey} >> kQuotientBits) + 1);

  /// Items of `store` have their key at byte 12 and their links at `links_offset`.
  ChainTable(const ItemStore& store, std::uint32_t links_offset)
      : store_(&store), links_offset_(links_offset) {}

  /// Replaces the table by an empty one of n buckets, or of kMinSize. Throws std::bad_alloc,
  /// leaving everything as it was.
  void Allocate(std::int32_t n);
  /// Gives the memory back. Allocate comes before any other use then, as after construction.
  void Release() {
    memory_ = AddressRange();
    lines_ = nullptr;
    size_ = 0;
  }
  /// Calls visit(key, slot) for every item: in the order of its chain where that is asked for,
  /// which costs a look at every item, else in no order.
  template <class F>
  void ForEach(bool in_chain_order, F&& visit) const;
  /// Empties all chains without touching the items.
  void Clear();
  std::int32_t Size() const { return size_; }
  std::size_t Footprint() const { return LineCount(size_) * sizeof(Line); }

  /// Where a key belongs: key = quotient * size + bucket, bucket = line * width + local.
  struct Place {
    std::uint32_t bucket;
    std::uint32_t quotient;
    std::uint32_t line;
    std::uint32_t local;
    std::uint32_t Tag() const { return kUsed | quotient << kLocalBits | local; }
  };
  /// By multiplication with 2^64 / size, rounded up; exact for all 31-bit keys (Lemire, Kaser,
  /// Kurz: Faster remainder by direct computation, 2019). Valid until the table is resized.
  Place PlaceOf(Key key) const {
    const auto k = static_cast<std::uint64_t>(static_cast<std::uint32_t>(key));
    const std::uint64_t low = (reciprocal_ & 0xFFFFFFFF) * k;
    const auto quotient = static_cast<std::uint32_t>(((reciprocal_ >> 32) * k + (low >> 32)) >> 32);
    const auto bucket =
        static_cast<std::uint32_t>(k) - quotient * static_cast<std::uint32_t>(size_);
    return {bucket, quotient, bucket / kWidth, bucket % kWidth};
  }

  /// First item with this key (>= 0) in chain order; null when there is none. `shared` tells that
  /// several items may have one key.
  char* Find(Key key, bool shared) const { return Find(key, PlaceOf(key), shared); }
  char* Find(Key key, const Place& place, bool shared) const {
    const Line& line = lines_[place.line];
    const unsigned found = line.Matching(place.Tag(), kNameMask);
    if (found && !shared) return store_->At(line.slot[std::countr_zero(found)]);
    if (found || line.IsIncomplete(place.local)) return Walk(place.bucket, key);
    return nullptr;
  }
  /// Starts loading the line that a lookup of the key will need.
  void Prefetch(Key key) const;
  /// First item of a chain; null for an empty one.
  char* First(std::uint32_t bucket) const {
    const Line& line = lines_[bucket / kWidth];
    const unsigned first = line.Matching(kUsed | kFirst | bucket % kWidth, kFirstMask);
    return first ? store_->At(line.slot[std::countr_zero(first)]) : nullptr;
  }

  /// Puts an item at the front of its chain, the place of its key.
  void PushFront(char* item, const Place& place);
  void PushFront(char* item) { PushFront(item, PlaceOf(KeyAt(item))); }
  /// Takes an item out of its chain; its own links keep naming its former neighbours.
  void Unlink(char* item);
  /// Puts an unlinked item back between the neighbours that its links name.
  void Relink(char* item);
  /// Moves the chains of `old`, a table of half the size, over in their order.
  void TakeOver(const ChainTable& old);

  /// "" or the first broken invariant; `count` is the number of linked items. The message starts
  /// with the invariant's number.
  std::string Validate(std::int32_t count) const;

  /// Exchanges the contents of two tables whose stores are exchanged as well.
  void Swap(ChainTable& other);

 private:
  // A line is eight entries for six buckets: with an item a bucket 5 % of the items go without an
  // entry, at the usual load below 2 %. Eight buckets a line would be 14 % and 6 %.
  static constexpr std::uint32_t kEntries = 8;
  static constexpr std::uint32_t kWidth = 6;

  // A tag: local bucket, quotient, marks.
  static constexpr std::uint32_t kFirst = 1u << 29;
  static constexpr std::uint32_t kUsed = 1u << 30;
  static constexpr std::uint32_t kIncomplete = 1u << 31;  // of the bucket with the tag's place
  static constexpr std::uint32_t kLocalMask = (1u << kLocalBits) - 1;
  static constexpr std::uint32_t kNameMask = kUsed | ((1u << (kLocalBits + kQuotientBits)) - 1);
  static_assert(kWidth <= kLocalMask + 1 && (kNameMask & kFirst) == 0);
  static_assert(std::uint32_t{kMaxKey} / kMinSize < 1u << kQuotientBits);
  static constexpr std::uint32_t kFirstMask = kUsed | kFirst | kLocalMask;

  struct alignas(64) Line {
    std::uint32_t tag[kEntries];
    std::uint32_t slot[kEntries];

    /// A bit for each entry whose tag, under the mask, is `wanted`.
    unsigned Matching(std::uint32_t wanted, std::uint32_t mask) const {
      return Equal(tag, wanted, mask);
    }
    /// The bit of the entry that names a slot.
    unsigned Naming(std::uint32_t number) const {
      return Equal(slot, number, ~0u) & Matching(kUsed, kUsed);
    }
    bool IsIncomplete(std::uint32_t local) const { return (tag[local] & kIncomplete) != 0; }

   private:
    static unsigned Equal(const std::uint32_t* numbers, std::uint32_t wanted, std::uint32_t mask) {
#if defined(__SSE2__) || defined(_M_X64)
      const __m128i w = _mm_set1_epi32(static_cast<int>(wanted));
      const __m128i m = _mm_set1_epi32(static_cast<int>(mask));
      const auto* at = reinterpret_cast<const __m128i*>(numbers);
      const __m128i low = _mm_cmpeq_epi32(_mm_and_si128(_mm_load_si128(at), m), w);
      const __m128i high = _mm_cmpeq_epi32(_mm_and_si128(_mm_load_si128(at + 1), m), w);
      return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(low)) |
                                   _mm_movemask_ps(_mm_castsi128_ps(high)) << 4);
#else
      unsigned found = 0;
      for (std::uint32_t i = 0; i < kEntries; ++i) {
        found |= unsigned{(numbers[i] & mask) == wanted} << i;
      }
      return found;
#endif
    }
  };
  static_assert(sizeof(Line) == 64);

  static std::size_t LineCount(std::int32_t n) {
    return (static_cast<std::size_t>(n) + kWidth - 1) / kWidth;
  }
  static Key KeyAt(const char* item) { return LoadAt<Key>(item + 12); }
  ItemLinks& LinksOf(char* item) const {
    return *reinterpret_cast<ItemLinks*>(item + links_offset_);
  }
  char* Walk(std::uint32_t bucket, Key key) const;
  /// The entries that an item may have, a bit each: free ones; for the first of a bucket, where
  /// none is free, those of items that are not first.
  static unsigned EntriesFor(const Line& line, bool first) {
    const unsigned free = line.Matching(0, kUsed);
    return free || !first ? free : line.Matching(kUsed, kUsed | kFirst);
  }
  /// Gives an item the entry that `choice` offers first; without an offer the item goes without,
  /// and its bucket is marked. So is the bucket of an item that loses its entry.
  static void AddEntry(Line& line, const Place& place, std::uint32_t slot, bool first,
                       unsigned choice) {
    if (!choice) {
      line.tag[place.local] |= kIncomplete;
      return;
    }
    const int entry = std::countr_zero(choice);
    const std::uint32_t former = line.tag[entry];
    line.tag[entry] = (former & kIncomplete) | place.Tag() | (first ? kFirst : 0);
    line.slot[entry] = slot;
    if (former & kUsed) line.tag[former & kLocalMask] |= kIncomplete;
  }
  std::string ValidateEntries(std::uint32_t bucket, std::int32_t chained) const;

  const ItemStore* store_;
  std::uint32_t links_offset_;
  std::int32_t size_ = 0;
  std::uint64_t reciprocal_ = 0;
  Line* lines_ = nullptr;
  AddressRange memory_;
};

template <class F>
void ChainTable::ForEach(bool in_chain_order, F&& visit) const {
  for (std::uint32_t l = 0; l < LineCount(size_); ++l) {
    const Line& line = lines_[l];
    const unsigned used = line.Matching(kUsed, kUsed);
    unsigned walked = 0;  // entries of buckets that have to be walked
    for (std::uint32_t local = 0; used && local < kWidth; ++local) {
      if (!in_chain_order && !line.IsIncomplete(local)) continue;
      walked |= line.Matching(kUsed | local, kUsed | kLocalMask);
      for (char* item = First(l * kWidth + local); item; item = LinksOf(item).hash_next) {
        visit(KeyAt(item), store_->NumberOf(item));
      }
    }
    for (unsigned left = used & ~walked; left; left &= left - 1) {
      const int entry = std::countr_zero(left);
      const std::uint32_t tag = line.tag[entry];
      const std::uint32_t quotient = (tag & kNameMask & ~kUsed) >> kLocalBits;
      const std::uint32_t bucket = l * kWidth + (tag & kLocalMask);
      visit(static_cast<Key>(quotient * static_cast<std::uint32_t>(size_) + bucket),
            line.slot[entry]);
    }
  }
}

inline void ChainTable::PushFront(char* item, const Place& place) {
  Line& line = lines_[place.line];
  // All reading comes before all writing: a wide read just after a narrow write of the same line
  // would wait for it.
  const unsigned first = line.Matching(kUsed | kFirst | place.local, kFirstMask);
  const unsigned choice = EntriesFor(line, true);
  ItemLinks& links = LinksOf(item);
  links.hash_prev = links.hash_next = nullptr;
  if (first) {
    const int entry = std::countr_zero(first);
    links.hash_next = store_->At(line.slot[entry]);
    LinksOf(links.hash_next).hash_prev = item;
    line.tag[entry] &= ~kFirst;
  }
  // With all entries first ones, that of this bucket has just become free to give up.
  AddEntry(line, place, store_->NumberOf(item), true, choice ? choice : first);
}

}  // namespace qx
