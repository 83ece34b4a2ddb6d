#include "qx_db/record/verbs.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace qx {

using detail::ArrayAt;
using detail::ArrayHeader;
using detail::Bytes;

// ---- images -------------------------------------------------------------------------------------

std::uint64_t ImageSize(const Schema& schema, const TStructBase& record) {
  std::uint64_t size = static_cast<std::uint64_t>(schema.FixedImageSize());
  if (schema.HasArrays()) {
    for (const Schema::Segment& segment : schema.Segments()) {
      if (!segment.array) continue;
      size += static_cast<std::uint64_t>(ArrayAt(Bytes(record), *segment.array).count) *
              static_cast<std::uint64_t>(segment.array->element_size);
    }
  }
  return size;
}

std::string ImageFault(const Schema& schema, const TStructBase& record) {
  const std::uint64_t size = ImageSize(schema, record);
  if (size <= kMaxImageSize) return {};
  return std::string(schema.Name()) + " " + std::to_string(record.GetKey()) + " takes " +
         std::to_string(size) + " bytes where an image has at most " +
         std::to_string(kMaxImageSize);
}

std::uint64_t WriteImage(const Schema& schema, const TStructBase& record, char* out) {
  const char* bytes = Bytes(record);
  if (!schema.HasArrays()) {
    std::memcpy(out, bytes + 8, static_cast<std::size_t>(schema.FixedImageSize()));
    return static_cast<std::uint64_t>(schema.FixedImageSize());
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
  return static_cast<std::uint64_t>(at - out);
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

bool IsTerminated(const char* text, std::int32_t size) {
  for (std::int32_t i = 0; i < size; i += 2) {
    if (LoadAt<char16_t>(text + i) == 0) return true;
  }
  return false;
}

/// The name of the first text without a terminator in `count` elements; "" when there is none.
std::string CheckElementTexts(const Row& row, const char* elements, std::int64_t count) {
  for (std::int64_t i = 0; i < count; ++i, elements += row.element_size) {
    const std::string place = Utf8(row.name) + "[" + std::to_string(i) + "]";
    if (!row.elements) {
      if (!IsTerminated(elements, row.element_size)) return place;
      continue;
    }
    for (const Row& part : row.elements->Rows()) {
      if (part.number == Row::Number::kText && !IsTerminated(elements + part.offset, part.size)) {
        return place + " " + Utf8(part.name);
      }
    }
  }
  return {};
}

/// "" or the first text of an image that has no terminator.
std::string CheckTexts(const Schema& schema, const char* image) {
  std::int64_t shift = -8;
  for (const Row& row : schema.Rows()) {
    const char* member = image + row.offset + shift;
    std::string place;
    if (row.IsArray()) {
      const std::int64_t count = LoadAt<ArrayHeader>(member).count;
      const bool has_texts =
          row.elements ? row.elements->HasTexts() : row.number == Row::Number::kText;
      if (has_texts) place = CheckElementTexts(row, member + sizeof(ArrayHeader), count);
      shift += count * row.element_size;
    } else if (row.number == Row::Number::kText && !IsTerminated(member, row.size)) {
      place = Utf8(row.name);
    }
    if (!place.empty()) {
      return std::string(schema.Name()) + " " + place + ": text without a terminator";
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
  ForEachReferenceInImage(schema, image, [&](const Row& row, char* slot) {
    const ITR itr = LoadAt<ITR>(slot);
    if (itr == 0) return;
    if (row.reference_rule == ReferenceRule::kNotSaved) return StoreAt<std::int64_t>(slot, 0);
    const bool removed = IsRemoved(itr);
    removed_targets += removed;
    StoreAt<std::int64_t>(slot, removed ? 0 : KeyOf(itr));
  });
  return removed_targets;
}

// ---- references ---------------------------------------------------------------------------------

namespace {

bool IsTolerant(const Row& row) {
  return row.reference_rule == ReferenceRule::kTolerant ||
         row.reference_rule == ReferenceRule::kNotSaved;
}

}  // namespace

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
      if (!convert(slot) && !IsTolerant(*row)) return false;
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

/// Category of a number of the member, or of each element of an array member.
int CategoryOf(const Row& row, const TStructBase& record, int number) {
  return row.unit.category_at ? row.unit.category_at(record, number) : row.unit.category;
}

void ConvertUnits(const Schema& schema, TStructBase& record, const CQXUnitCtrl& units,
                  UnitDirection direction) {
  char* bytes = Bytes(record);
  for (const Row* row : schema.UnitRows()) {
    if (row->unit.listed_only) continue;
    char* element = bytes + row->offset;
    std::int64_t elements = 1;
    if (row->IsArray()) {
      const ArrayStorage& array = ArrayAt(bytes, *row);
      element = static_cast<char*>(array.data);
      elements = array.count;
    }
    for (std::int64_t e = 0; e < elements; ++e, element += row->element_size) {
      ForEachUnitNumber(*row, [&](int number, std::int32_t offset) {
        const int category = CategoryOf(*row, record, number);
        if (category <= unit::kNone) return;
        char* at = element + offset;
        StoreAt(at, Convert(units, direction, category, LoadAt<double>(at)));
      });
    }
  }
}

std::vector<const Row*> LeftUnconverted(const Schema& schema, const TStructBase& record) {
  std::vector<const Row*> rows;
  for (const Row* row : schema.UnitRows()) {
    if (!row->unit.category_at) continue;
    if (row->IsArray() && ArrayAt(Bytes(record), *row).count == 0) continue;
    bool unknown = false;
    ForEachUnitNumber(*row, [&](int number, std::int32_t) {
      unknown |= CategoryOf(*row, record, number) == unit::kUnknown;
    });
    if (unknown) rows.push_back(row);
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

namespace {

/// Whether two numbers of a category differ by no more than what a conversion to the model's units
/// and the number that came by another one may have rounded away.
bool IsRounding(const CQXUnitCtrl& units, int category, double a, double b) {
  const double zero = units.In(category, 0);
  if (zero == 0 && units.In(category, 1) == 1) return false;  // nothing is converted
  // Temperatures are counted from absolute zero in between, at most so far off.
  constexpr double kFarthestZero = 460;
  constexpr double kUnits = 8;
  double largest = std::max(std::abs(a), std::abs(b));
  if (category == unit::kTemperature) largest += kFarthestZero;
  return std::abs(a - b) <= kUnits * std::numeric_limits<double>::epsilon() * largest;
}

bool IsSameButForRounding(const Row& row, const TStructBase& a, const TStructBase& b,
                          const CQXUnitCtrl& units) {
  if ((row.unit.category <= unit::kNone && !row.unit.category_at) || row.unit.listed_only) {
    return false;
  }
  const char* x = Bytes(a) + row.offset;
  const char* y = Bytes(b) + row.offset;
  std::int64_t elements = 1;
  if (row.IsArray()) {
    elements = ArrayAt(Bytes(a), row).count;
    if (elements != ArrayAt(Bytes(b), row).count) return false;
    x = static_cast<const char*>(ArrayAt(Bytes(a), row).data);
    y = static_cast<const char*>(ArrayAt(Bytes(b), row).data);
  }
  const auto size = static_cast<std::size_t>(row.IsArray() ? row.element_size : row.size);
  std::vector<char> element(size);
  for (; elements > 0; --elements, x += size, y += size) {
    std::memcpy(element.data(), x, size);
    ForEachUnitNumber(row, [&](int number, std::int32_t offset) {
      const int category = CategoryOf(row, a, number);
      const auto there = LoadAt<double>(y + offset);
      if (category > unit::kNone &&
          IsRounding(units, category, LoadAt<double>(x + offset), there)) {
        StoreAt(element.data() + offset, there);
      }
    });
    if (std::memcmp(element.data(), y, size) != 0) return false;
  }
  return true;
}

}  // namespace

std::vector<const Row*> Differences(const Schema& schema, const TStructBase& a,
                                    const TStructBase& b, const CQXUnitCtrl& units) {
  std::vector<const Row*> rows = Differences(schema, a, b);
  std::erase_if(rows, [&](const Row* row) { return IsSameButForRounding(*row, a, b, units); });
  return rows;
}

}  // namespace qx
