#include "qx_db/record/describe.h"

#include <fmt/format.h>

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
