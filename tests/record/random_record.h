#pragma once
// Random contents for any record, over the rows of its schema.

#include <rapidcheck.h>
#include <vector>

#include "qx_db/qx_db.h"
#include "qx_db/record/verbs.h"

namespace qx {

/// Numbers that tell a faulty conversion: exact in decimal and binary, both signs, some large.
inline double RandomNumber() { return *rc::gen::inRange(-4000000, 4000000) / 64.0; }

/// Fills every member but the key. References take iterators out of `targets(type code)`, which
/// may be empty, or stay 0.
template <class Targets>
void FillRandomly(const Schema& schema, TStructBase& record, Targets&& targets) {
  char* bytes = reinterpret_cast<char*>(&record);
  const auto reference = [&](const Row& row) -> ITR {
    const std::vector<ITR>& choice = targets(row.target);
    return choice.empty() ? 0 : choice[*rc::gen::inRange<std::size_t>(0, choice.size())];
  };
  const auto fill = [&](const Row& row, char* at, std::int32_t size) {
    switch (row.number) {
      case Row::Number::kDouble:
        for (std::int32_t i = 0; i + 8 <= size; i += 8) StoreAt(at + i, RandomNumber());
        break;
      case Row::Number::kText: {
        const auto text = *rc::gen::container<std::vector<char16_t>>(
            rc::gen::element(u'a', u'Z', u'0', u'é', u'漢', u'-'));
        std::memset(at, 0, static_cast<std::size_t>(size));
        const std::size_t units = std::min(text.size(), static_cast<std::size_t>(size) / 2 - 1);
        if (units) std::memcpy(at, text.data(), units * 2);
        break;
      }
      default:
        for (std::int32_t i = 0; i + 4 <= size; i += 4) {
          StoreAt(at + i, *rc::gen::inRange<std::int32_t>(0, 1000000));
        }
    }
  };
  for (const Row& row : schema.Rows().subspan(1)) {
    char* member = bytes + row.offset;
    if (row.kind == MemberKind::kReference) {
      StoreAt(member, reference(row));
    } else if (!row.IsArray()) {
      fill(row, member, row.size);
    } else {
      auto& array = *reinterpret_cast<ArrayStorage*>(member);
      array.Resize(*rc::gen::inRange(0, 6), static_cast<std::size_t>(row.element_size));
      char* element = static_cast<char*>(array.data);
      for (std::int32_t i = 0; i < array.count; ++i, element += row.element_size) {
        if (row.kind == MemberKind::kReferenceArray) {
          StoreAt(element, reference(row));
          continue;
        }
        if (!row.elements) fill(row, element, row.element_size);
        for (const Row& part : row.elements ? row.elements->Rows() : std::span<const Row>()) {
          if (part.IsReference()) {
            StoreAt(element + part.offset, reference(part));
          } else {
            fill(part, element + part.offset, part.size);
          }
        }
      }
    }
  }
}

}  // namespace qx
