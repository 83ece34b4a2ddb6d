#include "qx_db/record/verbs.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace qx {

using detail::ArrayAt;
using detail::ArrayHeader;
using detail::Bytes;

// ---- images -------------------------------------------------------------------------------------

std::uint32_t ImageSize(const Schema& schema, const TStructBase& record) {
  std::uint64_t size = static_cast<std::uint64_t>(schema.FixedImageSize());
  if (schema.HasArrays()) {
    for (const Schema::Segment& segment : schema.Segments()) {
      if (!segment.array) continue;
      size += static_cast<std::uint64_t>(ArrayAt(Bytes(record), *segment.array).count) *
              static_cast<std::uint64_t>(segment.array->element_size);
    }
  }
  return static_cast<std::uint32_t>(size);
}

std::uint32_t WriteImage(const Schema& schema, const TStructBase& record, char* out) {
  const char* bytes = Bytes(record);
  if (!schema.HasArrays()) {
    std::memcpy(out, bytes + 8, static_cast<std::size_t>(schema.FixedImageSize()));
    return static_cast<std::uint32_t>(schema.FixedImageSize());
  }
  char* at = out;
  for (const Schema::Segment& segment : schema.Segments()) {
    const auto size = static_cast<std::size_t>(segment.size);
    if (!segment.array) {
      std::memcpy(at, bytes + segment.offset, size);
      at += size;
      continue;
    }
    const ArrayStorage& array = ArrayAt(bytes, *segment.array);
    const auto element_size = static_cast<std::uint32_t>(segment.array->element_size);
    StoreAt(at, ArrayHeader{element_size, 0, array.count});
    at += sizeof(ArrayHeader);
    const std::size_t length = static_cast<std::size_t>(array.count) * element_size;
    if (length) std::memcpy(at, array.data, length);
    at += length;
  }
  return static_cast<std::uint32_t>(at - out);
}

void ReserveArrays(const Schema& schema, TStructBase& to, const TStructBase& from) {
  if (!schema.HasArrays()) return;
  for (const Schema::Segment& segment : schema.Segments()) {
    if (!segment.array) continue;
    ArrayAt(Bytes(to), *segment.array)
        .Reserve(ArrayAt(Bytes(from), *segment.array).count,
                 static_cast<std::size_t>(segment.array->element_size));
  }
}

std::uint64_t ReadImage(const Schema& schema, const char* image, TStructBase& record) {
  char* bytes = Bytes(record);
  const char* at = image;
  for (const Schema::Segment& segment : schema.Segments()) {
    const auto size = static_cast<std::size_t>(segment.size);
    if (!segment.array) {
      std::memcpy(bytes + segment.offset, at, size);
      at += size;
      continue;
    }
    const auto header = LoadAt<ArrayHeader>(at);
    at += sizeof(ArrayHeader);
    // 32-bit arithmetic from the header's element size and the low half of the count: the
    // contract of the image format. A count or size that lies is CheckImage's business.
    const auto count = static_cast<std::int32_t>(header.count);
    const std::uint32_t length = static_cast<std::uint32_t>(count) * header.element_size;
    ArrayStorage& array = ArrayAt(bytes, *segment.array);
    array.count = 0;  // nothing worth keeping when the storage grows
    array.Reserve(count, static_cast<std::size_t>(segment.array->element_size));
    array.count = std::max(count, 0);
    if (length) std::memcpy(array.data, at, length);
    at += length;
  }
  return static_cast<std::uint64_t>(at - image);
}

namespace {

/// "" or the first text member of an image that has no terminator.
std::string CheckTexts(const Schema& schema, const char* image) {
  std::int64_t shift = -8;
  for (const Row& row : schema.Rows()) {
    const char* member = image + row.offset + shift;
    if (row.IsArray()) {
      shift += LoadAt<ArrayHeader>(member).count * row.element_size;
    } else if (row.number == Row::Number::kText) {
      std::int32_t i = 0;
      while (i < row.size && LoadAt<char16_t>(member + i) != 0) i += 2;
      if (i == row.size) {
        return std::string(schema.Name()) + " " + Utf8(row.name) + ": text without a terminator";
      }
    }
  }
  return {};
}

}  // namespace

std::string CheckImage(const Schema& schema, const char* image, std::uint64_t size) {
  const auto fault = [&](const Row* row, const std::string& what) {
    return std::string(schema.Name()) + (row ? " " + Utf8(row->name) : "") + ": " + what;
  };
  const auto fixed = static_cast<std::uint64_t>(schema.FixedImageSize());
  if (size < fixed || (!schema.HasArrays() && size != fixed)) {
    return fault(nullptr, "image of " + std::to_string(size) + " bytes where " +
                              std::to_string(fixed) + " are needed");
  }
  std::uint64_t at = 0;
  std::uint64_t pending = fixed;  // bytes that the members still to come need at least
  for (const Schema::Segment& segment : schema.Segments()) {
    if (segment.array) {
      const auto header = LoadAt<ArrayHeader>(image + at);
      if (header.element_size != static_cast<std::uint32_t>(segment.array->element_size)) {
        return fault(segment.array, "element size " + std::to_string(header.element_size) +
                                        " where " + std::to_string(segment.array->element_size) +
                                        " is declared");
      }
      const std::uint64_t room = (size - at - pending) / header.element_size;
      if (header.count < 0 || header.count > kMaxKey ||
          static_cast<std::uint64_t>(header.count) > room) {
        return fault(segment.array, "count " + std::to_string(header.count) +
                                        " in an image with room for " + std::to_string(room));
      }
      at += static_cast<std::uint64_t>(header.count) * header.element_size;
    }
    at += static_cast<std::uint64_t>(segment.size);
    pending -= static_cast<std::uint64_t>(segment.size);
  }
  if (at != size) {
    return fault(nullptr, std::to_string(size - at) + " bytes too many in the image");
  }
  return schema.HasTexts() ? CheckTexts(schema, image) : std::string();
}

namespace {

/// Set in the state word, at the start of an item, when its record has been removed.
constexpr std::uint32_t kRemovedBit = 0x20000000;

bool IsRemoved(ITR itr) {
  return (LoadAt<std::uint32_t>(reinterpret_cast<const char*>(itr)) & kRemovedBit) != 0;
}

}  // namespace

std::vector<std::size_t> MemberOffsets(const Schema& schema, const char* image) {
  std::vector<std::size_t> offsets;
  offsets.reserve(schema.Rows().size() + 1);
  std::size_t at = 0;
  for (const Row& row : schema.Rows()) {
    offsets.push_back(at);
    if (row.IsArray()) {
      const auto count = static_cast<std::size_t>(LoadAt<ArrayHeader>(image + at).count);
      at += count * static_cast<std::size_t>(row.element_size);
    }
    at += static_cast<std::size_t>(row.size);
  }
  offsets.push_back(at);
  return offsets;
}

int ImageIteratorsToKeys(const Schema& schema, char* image) {
  int removed_targets = 0;
  ForEachReferenceInImage(schema, image, [&](const Row&, char* slot) {
    const ITR itr = LoadAt<ITR>(slot);
    if (itr == 0) return;
    const bool removed = IsRemoved(itr);
    removed_targets += removed;
    StoreAt<std::int64_t>(slot, removed ? 0 : KeyOf(itr));
  });
  return removed_targets;
}

// ---- references ---------------------------------------------------------------------------------

bool IteratorsToKeys(const Schema& schema, TStructBase& record) {
  const auto convert = [](char* slot) {
    const ITR itr = LoadAt<ITR>(slot);
    if (itr != 0) StoreAt<std::int64_t>(slot, KeyOf(itr));
    return itr != 0;
  };
  char* bytes = Bytes(record);
  for (const Row* row : schema.References()) {
    if (row->reference_rule == ReferenceRule::kLeftAlone) continue;
    if (!row->IsArray()) {
      convert(bytes + row->offset);
      continue;
    }
    const ArrayStorage& array = ArrayAt(bytes, *row);
    if (array.count == 0) continue;
    char* slot = static_cast<char*>(array.data) + std::max(row->inner_reference, 0);
    for (std::int32_t i = 0; i < array.count; ++i, slot += row->element_size) {
      if (!convert(slot) && row->reference_rule != ReferenceRule::kTolerant) return false;
    }
  }
  return true;
}

// ---- units --------------------------------------------------------------------------------------

namespace {

double Convert(const CQXUnitCtrl& units, UnitDirection direction, int category, double value) {
  switch (direction) {
    case UnitDirection::kIn:
      return units.In(category, value);
    case UnitDirection::kOut:
      return units.Out(category, value);
    case UnitDirection::kPreviousIn:
      return units.InPrevious(category, value);
  }
  return value;
}

}  // namespace

void ConvertUnits(const Schema& schema, TStructBase& record, const CQXUnitCtrl& units,
                  UnitDirection direction) {
  char* bytes = Bytes(record);
  for (const Row* row : schema.UnitRows()) {
    if (row->unit.listed_only) continue;
    char* number = bytes + row->offset;
    int in_element = row->size / 8;
    std::int64_t elements = 1;
    if (row->IsArray()) {
      const ArrayStorage& array = ArrayAt(bytes, *row);
      number = static_cast<char*>(array.data);
      in_element = row->element_size / 8;
      elements = array.count;
    }
    for (std::int64_t e = 0; e < elements; ++e) {
      for (int i = 0; i < in_element; ++i, number += 8) {
        const int category = row->unit.category_at ? row->unit.category_at(record, row->part + i)
                                                   : row->unit.category;
        if (category <= unit::kNone) continue;
        StoreAt(number, Convert(units, direction, category, LoadAt<double>(number)));
      }
    }
  }
}

std::vector<const Row*> LeftUnconverted(const Schema& schema, const TStructBase& record) {
  std::vector<const Row*> rows;
  for (const Row* row : schema.UnitRows()) {
    if (!row->unit.category_at) continue;
    if (row->IsArray() && ArrayAt(Bytes(record), *row).count == 0) continue;
    const int numbers = (row->IsArray() ? row->element_size : row->size) / 8;
    for (int i = 0; i < numbers; ++i) {
      if (row->unit.category_at(record, row->part + i) != unit::kUnknown) continue;
      rows.push_back(row);
      break;
    }
  }
  return rows;
}

// ---- comparison ---------------------------------------------------------------------------------

std::vector<const Row*> Differences(const Schema& schema, const TStructBase& a,
                                    const TStructBase& b) {
  std::vector<const Row*> rows;
  for (const Row& row : schema.Rows()) {
    bool equal = false;
    if (row.IsArray()) {
      const ArrayStorage& x = ArrayAt(Bytes(a), row);
      const ArrayStorage& y = ArrayAt(Bytes(b), row);
      equal = x.count == y.count &&
              (x.count == 0 || std::memcmp(x.data, y.data,
                                           static_cast<std::size_t>(x.count) *
                                               static_cast<std::size_t>(row.element_size)) == 0);
    } else {
      equal = std::memcmp(Bytes(a) + row.offset, Bytes(b) + row.offset,
                          static_cast<std::size_t>(row.size)) == 0;
    }
    if (!equal) rows.push_back(&row);
  }
  return rows;
}

}  // namespace qx
