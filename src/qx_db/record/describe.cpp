#include "qx_db/record/describe.h"

#include <algorithm>
#include <fmt/format.h>
#include <set>

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

/// Lists with more runs of codes than this are told once.
constexpr int kShortList = 6;

std::string InLists(const std::string& list, UnitLists& to) {
  auto found = std::find(to.lists.begin(), to.lists.end(), list);
  if (found == to.lists.end()) found = to.lists.insert(found, list);
  return ": see " + UnitLists::Letter(static_cast<std::size_t>(found - to.lists.begin()));
}

/// What the values of one member make of a number's unit: "_METHOD 1: length, 3-5: time"; "" when
/// the number does not depend on it.
std::string CasesBy(const Row& by, const Row& row, TStructBase& record, int number,
                    std::set<int>& categories, UnitLists* lists) {
  char* at = detail::Bytes(record) + by.offset;
  const auto kept = LoadAt<std::int32_t>(at);
  std::vector<int> of_code;
  for (std::int32_t code = 0; code < kMostCodes; ++code) {
    StoreAt(at, code);
    of_code.push_back(CategoryOf(row, record, number));
  }
  StoreAt(at, kept);
  std::string list;
  int runs = 0;
  bool varies = false;
  for (std::size_t code = 0; code < of_code.size();) {
    const std::size_t first = code;
    const int category = of_code[first];
    while (code < of_code.size() && of_code[code] == category) ++code;
    varies |= category != of_code[0] && category != unit::kUnknown;
    const std::string name = CategoryName(category);
    if (name.empty()) continue;
    const std::string codes =
        code - first == 1 ? std::to_string(first) : fmt::format("{}-{}", first, code - 1);
    list += fmt::format("{}{}: {}", list.empty() ? "" : ", ", codes, name);
    ++runs;
  }
  if (!varies) return {};
  for (const int category : of_code) {
    if (category > unit::kNone) categories.insert(category);
  }
  return Utf8(by.name) + (lists && runs > kShortList ? InLists(list, *lists) : " " + list);
}

/// The members of an element of an array, one behind the other.
std::string ElementText(const ElementSchema& schema, const char* element) {
  std::string text;
  for (const Row& member : schema.Rows()) {
    if (!text.empty()) text += ' ';
    const char* at = element + member.offset;
    text += member.kind == MemberKind::kReference ? std::to_string(KeyOf(LoadAt<ITR>(at)))
                                                  : NumbersText(member.number, at, member.size);
  }
  return text;
}

}  // namespace

UnitCases UnitCasesOf(const Schema& schema, const Row& row, TStructBase& fresh, UnitLists* lists) {
  if (!row.unit.category_at) return {"", {row.unit.category}};
  std::set<int> categories;
  std::vector<std::string> numbers;
  ForEachUnitNumber(row, [&](int number, std::int32_t) {
    std::string& text = numbers.emplace_back();
    for (const std::int32_t offset : row.unit.by) {
      const Row* by = offset ? schema.At(offset) : nullptr;
      const std::string cases =
          by ? CasesBy(*by, row, fresh, number, categories, lists) : std::string();
      if (!cases.empty()) text += (text.empty() ? "" : "; or ") + cases;
    }
    const int fixed = CategoryOf(row, fresh, number);
    if (text.empty() && fixed > unit::kNone) categories.insert(fixed);
    if (text.empty()) text = CategoryName(fixed);
    if (text.empty()) text = "none";
  });
  UnitCases found{"", {categories.begin(), categories.end()}};
  for (std::size_t i = 0; i < numbers.size();) {
    std::size_t end = i + 1;
    while (end < numbers.size() && numbers[end] == numbers[i]) ++end;
    if (end - i == numbers.size()) {
      found.text = numbers[i];
      break;
    }
    const std::string place =
        end - i == 1 ? fmt::format("[{}]", i) : fmt::format("[{}-{}]", i, end - 1);
    found.text += fmt::format("{}{} {}", found.text.empty() ? "" : "; ", place, numbers[i]);
    i = end;
  }
  return found;
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
    if (row.elements) {
      text += ElementText(*row.elements, at);
      continue;
    }
    text += row.kind == MemberKind::kReferenceArray ? std::to_string(KeyOf(LoadAt<ITR>(at)))
                                                    : NumbersText(row.number, at, row.element_size);
  }
  return text + "]";
}

}  // namespace qx
