#include "qx_db/record/describe.h"

#include <fmt/format.h>
#include <vector>

namespace qx {
namespace {

constexpr std::int32_t Width(Row::Number number) {
  switch (number) {
    case Row::Number::kInt32:
      return 4;
    case Row::Number::kInt64:
    case Row::Number::kDouble:
      return 8;
    case Row::Number::kText:
      return 2;
    case Row::Number::kBytes:
      return 1;
  }
  return 1;
}

std::string NumbersKind(Row::Number number, std::int32_t size) {
  constexpr const char* kNames[] = {"i32", "i64", "f64", "text", "bytes"};
  const std::int32_t count = size / Width(number);
  const char* name = kNames[static_cast<int>(number)];
  return count == 1 ? name : fmt::format("{}[{}]", name, count);
}

std::string NumbersText(Row::Number number, const char* at, std::int32_t size) {
  if (number == Row::Number::kText) {
    const std::u16string_view all(reinterpret_cast<const char16_t*>(at),
                                  static_cast<std::size_t>(size) / 2);
    return '"' + Utf8(all.substr(0, all.find(u'\0'))) + '"';
  }
  std::string text;
  for (std::int32_t i = 0; i < size; i += Width(number), at += Width(number)) {
    if (i) text += ',';
    switch (number) {
      case Row::Number::kInt32:
        text += std::to_string(LoadAt<std::int32_t>(at));
        break;
      case Row::Number::kInt64:
        text += std::to_string(LoadAt<std::int64_t>(at));
        break;
      case Row::Number::kDouble:
        text += fmt::format("{}", LoadAt<double>(at));
        break;
      default:
        text += fmt::format("{:02x}", static_cast<unsigned char>(*at));
    }
  }
  return text;
}

}  // namespace

std::string MemberKindText(const Row& row) {
  switch (row.kind) {
    case MemberKind::kReference:
      return "reference";
    case MemberKind::kReferenceArray:
      return "array of references";
    case MemberKind::kValueArray:
      return "array of " + NumbersKind(row.number, row.element_size);
    case MemberKind::kValue:
      break;
  }
  return NumbersKind(row.number, row.size);
}

namespace {

/// Codes of methods, types and kinds lie below this.
constexpr std::int32_t kMostCodes = 64;

std::string CategoryName(int category) {
  const UnitCategory* found = category > unit::kNone ? FindUnitCategory(category) : nullptr;
  return found ? std::string(found->name) : std::string();
}

/// What the values of one member make of a number's unit: "_METHOD 1: length, 3: time"; "" when
/// the number does not depend on it.
std::string CasesBy(const Row& by, const Row& row, TStructBase& record, int number) {
  char* at = detail::Bytes(record) + by.offset;
  const auto kept = LoadAt<std::int32_t>(at);
  std::string cases;
  bool varies = false;
  StoreAt<std::int32_t>(at, 0);
  const int first = CategoryOf(row, record, number);
  for (std::int32_t code = 0; code < kMostCodes; ++code) {
    StoreAt(at, code);
    const int category = CategoryOf(row, record, number);
    varies |= category != first && category != unit::kUnknown;
    const std::string name = CategoryName(category);
    if (!name.empty()) cases += fmt::format("{}{}: {}", cases.empty() ? " " : ", ", code, name);
  }
  StoreAt(at, kept);
  return varies ? Utf8(by.name) + cases : std::string();
}

}  // namespace

std::string UnitCasesText(const Schema& schema, const Row& row, TStructBase& fresh) {
  if (!row.unit.category_at) return {};
  std::vector<std::string> numbers;
  ForEachUnitNumber(row, [&](int number, std::int32_t) {
    std::string& text = numbers.emplace_back();
    for (const std::int32_t offset : row.unit.by) {
      const Row* by = offset ? schema.At(offset) : nullptr;
      const std::string cases = by ? CasesBy(*by, row, fresh, number) : std::string();
      if (!cases.empty()) text += (text.empty() ? "" : "; or ") + cases;
    }
    if (text.empty()) text = CategoryName(CategoryOf(row, fresh, number));
    if (text.empty()) text = "none";
  });
  std::string text;
  for (std::size_t i = 0; i < numbers.size();) {
    std::size_t end = i + 1;
    while (end < numbers.size() && numbers[end] == numbers[i]) ++end;
    if (end - i == numbers.size()) return numbers[i];
    const std::string place =
        end - i == 1 ? fmt::format("[{}]", i) : fmt::format("[{}-{}]", i, end - 1);
    text += fmt::format("{}{} {}", text.empty() ? "" : "; ", place, numbers[i]);
    i = end;
  }
  return text;
}

std::string MemberValueText(const Row& row, const TStructBase& record) {
  const char* bytes = detail::Bytes(record);
  if (row.kind == MemberKind::kReference) {
    return std::to_string(KeyOf(LoadAt<ITR>(bytes + row.offset)));
  }
  if (!row.IsArray()) return NumbersText(row.number, bytes + row.offset, row.size);
  const ArrayStorage& array = detail::ArrayAt(bytes, row);
  std::string text = "[";
  const char* at = static_cast<const char*>(array.data);
  for (std::int32_t i = 0; i < array.count; ++i, at += row.element_size) {
    if (i) text += "; ";
    text += row.kind == MemberKind::kReferenceArray ? std::to_string(KeyOf(LoadAt<ITR>(at)))
                                                    : NumbersText(row.number, at, row.element_size);
  }
  return text + "]";
}

}  // namespace qx
