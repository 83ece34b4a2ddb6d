#pragma once
// What is done to records in general, each once, over the rows of their schema.
// Threads: any, for records that no other changes.

#include <span>
#include <string>
#include <vector>

#include "qx_db/record/schema.h"

namespace qx {

// ---- images -------------------------------------------------------------------------------------

/// The largest image that the format and the interfaces of records can carry. Whoever writes one
/// asks first.
inline constexpr std::uint64_t kMaxImageSize = 0x7FFFFFFF - 8;

/// Bytes of the record's image, be they too many.
QXDB_API std::uint64_t ImageSize(const Schema& schema, const TStructBase& record);

/// "" or why the record has no image: that its size exceeds the format.
QXDB_API std::string ImageFault(const Schema& schema, const TStructBase& record);

/// Writes the image to `out`, which has room for ImageSize bytes; returns the bytes written.
QXDB_API std::uint64_t WriteImage(const Schema& schema, const TStructBase& record, char* out);

/// Fills the record from a trusted image; returns the image's size as its own counts tell it.
QXDB_API std::uint64_t ReadImage(const Schema& schema, const char* image, TStructBase& record);

/// Checks an untrusted image against the schema: every length inside `size` and none negative,
/// element sizes as declared, texts terminated. Returns "" or what is wrong and where.
/// ReadImage is safe on an image that passes.
QXDB_API std::string CheckImage(const Schema& schema, const char* image, std::uint64_t size);

/// Gives the arrays of `to` room for what those of `from` hold. Throws std::bad_alloc; the contents
/// stay.
QXDB_API void ReserveArrays(const Schema& schema, TStructBase& to, const TStructBase& from);

/// The place of each stored member in an image that has passed CheckImage, and the image's size
/// after the last.
QXDB_API std::vector<std::size_t> MemberOffsets(const Schema& schema, const char* image);

/// Calls `visit(row, address)` for every 64-bit reference slot of an image that has passed
/// CheckImage, in image order; LoadAt and StoreAt reach the slot.
template <class Visit>
void ForEachReferenceInImage(const Schema& schema, char* image, Visit&& visit);

/// Replaces the iterators in an image by the keys of their targets. A null iterator, or one whose
/// target has been removed, becomes key 0. The number of the latter is returned.
QXDB_API int ImageIteratorsToKeys(const Schema& schema, char* image);

// ---- references ---------------------------------------------------------------------------------

/// Which references a conversion covers.
enum class ReferenceScope {
  kOwn,  ///< those that the record's own operations convert
  kAll,  ///< also those that they deliberately leave alone, as a model file needs
};

/// Keys to iterators through the session's pools. Unknown keys become 0; returns their number.
QXDB_API int KeysToIterators(const Schema& schema, TStructBase& record, CQXDBSession& session,
                             ReferenceScope scope);

/// The record of a key in the pool of a type code; 0 when there is no such pool or record.
QXDB_API ITR FindRecord(CQXDBSession& session, std::uint16_t type, Key key);

/// The key of the record at an iterator; 0 for a null one.
inline Key KeyOf(ITR itr) {
  return itr == 0 ? 0 : LoadAt<Key>(reinterpret_cast<const char*>(itr) + 12);
}

/// Iterators to keys; false at a null entry of a reference array that tolerates none.
QXDB_API bool IteratorsToKeys(const Schema& schema, TStructBase& record);

/// Calls `visit(row, address)` for every 64-bit reference slot of the record, as above.
template <class Visit>
void ForEachReference(const Schema& schema, TStructBase& record, Visit&& visit);

// ---- units --------------------------------------------------------------------------------------

enum class UnitDirection { kIn, kOut, kPreviousIn };

/// Converts the members that carry a unit: current to model, model to current, previous to model.
QXDB_API void ConvertUnits(const Schema& schema, TStructBase& record, const CQXUnitCtrl& units,
                           UnitDirection direction);

/// Unit category of a number of the member, or of each element of an array member, by its index as
/// UnitRule counts them.
QXDB_API int CategoryOf(const Row& row, const TStructBase& record, int number);

/// Calls `visit(number, offset)` for every number with a unit in the member, or in each element of
/// an array member.
template <class Visit>
void ForEachUnitNumber(const Row& row, Visit&& visit) {
  const std::int32_t size = row.IsArray() ? row.element_size : row.size;
  if (row.number == Row::Number::kDouble) {
    for (std::int32_t i = 0; i < size / 8; ++i) visit(row.part + i, i * 8);
  } else if (row.elements) {
    int number = 0;
    for (const Row& part : row.elements->Rows()) {
      if (part.number != Row::Number::kDouble) continue;
      for (std::int32_t i = 0; i < part.size / 8; ++i) visit(number++, part.offset + i * 8);
    }
  }
}

/// Rows whose numbers no conversion touches, because what they measure is not known.
QXDB_API std::vector<const Row*> LeftUnconverted(const Schema& schema, const TStructBase& record);

// ---- comparison ---------------------------------------------------------------------------------

/// Rows in which two records of one type differ, in member order. References compare as iterators.
QXDB_API std::vector<const Row*> Differences(const Schema& schema, const TStructBase& a,
                                             const TStructBase& b);

/// The same of records of which one has been converted In by `units`: numbers that this converts
/// are equal where they differ by no more than a few units of its rounding, all others bit for bit.
QXDB_API std::vector<const Row*> Differences(const Schema& schema, const TStructBase& a,
                                             const TStructBase& b, const CQXUnitCtrl& units);

// ---- gateway (defined in gateway/) --------------------------------------------------------------

QXDB_API bool GatewayWrite(const Schema& schema, const TStructBase& record, dbgateway::Record& to);
QXDB_API bool GatewayRead(const Schema& schema, CQXDBSession* session, dbgateway::Record& from,
                          TStructBase& record);
QXDB_API bool GatewayDescribe(const Schema& schema, dbgateway::Field& to);

// ---- definitions of the templates ---------------------------------------------------------------

namespace detail {

inline char* Bytes(TStructBase& record) { return reinterpret_cast<char*>(&record); }
inline const char* Bytes(const TStructBase& record) {
  return reinterpret_cast<const char*>(&record);
}
inline ArrayStorage& ArrayAt(char* bytes, const Row& row) {
  return *reinterpret_cast<ArrayStorage*>(bytes + row.offset);
}
inline const ArrayStorage& ArrayAt(const char* bytes, const Row& row) {
  return *reinterpret_cast<const ArrayStorage*>(bytes + row.offset);
}

template <class Visit>
void ForEachSlot(const Row& row, char* elements, std::int64_t count, Visit&& visit) {
  if (count == 0) return;  // and there may be no elements to step into
  char* slot = elements + (row.inner_reference >= 0 ? row.inner_reference : 0);
  for (std::int64_t i = 0; i < count; ++i, slot += row.element_size) visit(row, slot);
}

/// The header that stands before an array's elements in an image.
struct ArrayHeader {
  std::uint32_t element_size;
  std::uint32_t unused;
  std::int64_t count;
};
static_assert(sizeof(ArrayHeader) == 16);

}  // namespace detail

template <class Visit>
void ForEachReference(const Schema& schema, TStructBase& record, Visit&& visit) {
  char* bytes = detail::Bytes(record);
  for (const Row* row : schema.References()) {
    if (!row->IsArray()) {
      visit(*row, bytes + row->offset);
      continue;
    }
    ArrayStorage& array = detail::ArrayAt(bytes, *row);
    detail::ForEachSlot(*row, static_cast<char*>(array.data), array.count, visit);
  }
}

template <class Visit>
void ForEachReferenceInImage(const Schema& schema, char* image, Visit&& visit) {
  // `shift` turns a record offset into an image offset: the vptr is absent, arrays are inline.
  std::int64_t shift = -8;
  auto reference = schema.References().begin();
  const auto end = schema.References().end();
  for (const Schema::Segment& segment : schema.Segments()) {
    const std::int32_t segment_end = segment.offset + segment.size;
    if (!segment.array) {
      for (; reference != end && (*reference)->offset < segment_end; ++reference) {
        visit(**reference, image + (*reference)->offset + shift);
      }
      continue;
    }
    const auto header = LoadAt<detail::ArrayHeader>(image + segment.offset + shift);
    if (reference != end && *reference == segment.array) {
      detail::ForEachSlot(**reference, image + segment_end + shift, header.count, visit);
      ++reference;
    }
    shift += header.count * header.element_size;
  }
}

}  // namespace qx
