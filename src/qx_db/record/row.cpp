#include "qx_db/record/row.h"

#include <deque>
#include <mutex>

#include "qx_db/record/schema.h"

namespace qx {
namespace {

/// A name that lives as long as the process.
const char16_t* Numbered(std::u16string_view stem, std::size_t index) {
  static std::mutex mutex;
  static std::deque<std::u16string> names;
  const std::lock_guard lock(mutex);
  return names.emplace_back(std::u16string(stem) + Utf16(std::to_string(index))).c_str();
}

}  // namespace

void detail::TakeElements(Row& row, const ElementSchema& elements) {
  row.elements = &elements;
  row.number = Row::Number::kDouble;
  for (const Row& part : elements.Rows()) {
    if (part.number != Row::Number::kDouble) row.number = Row::Number::kBytes;
    if (!part.IsReference()) continue;
    row.inner_reference = part.offset;
    row.target = part.target;
  }
}

Member Member::Part(std::int32_t part) const {
  Member one = *this;
  one.row_.size = part_size_;
  one.row_.offset += part * part_size_;
  one.row_.part = part;
  return one;
}

void RowList::Append(const char16_t* name, Row row) {
  row.name = name;
  rows_.push_back(row);
}

RowList& RowList::Add(const char16_t* name, const Member& member) {
  Begin();
  Append(name, member.AsRow());
  return *this;
}

RowList& RowList::AddParts(std::initializer_list<const char16_t*> names, const Member& member) {
  Begin();
  std::int32_t part = 0;
  for (const char16_t* name : names) Append(name, member.Part(part++).AsRow());
  return *this;
}

RowList& RowList::AddNumbered(std::u16string_view stem, const Member& member) {
  Begin();
  const std::int32_t count = member.AsRow().size / member.Part(0).AsRow().size;
  for (std::int32_t part = 0; part < count; ++part) {
    Append(Numbered(stem, static_cast<std::size_t>(part)), member.Part(part).AsRow());
  }
  return *this;
}

RowList& RowList::Converts(ReferenceRule rule) {
  for (Row& row : Group()) row.reference_rule = rule;
  return *this;
}

RowList& RowList::KeyOf(std::uint16_t target) {
  for (Row& row : Group()) row.key_of = target;
  return *this;
}

RowList& RowList::When(OnRemoval rule) {
  for (Row& row : Group()) row.on_removal = rule;
  return *this;
}

RowList& RowList::Refuses(const char* text_key) {
  for (Row& row : Group()) row.refusal = text_key;
  return When(OnRemoval::kRefuse);
}

RowList& RowList::Resets(const ResetRule& rule) {
  for (Row& row : Group()) row.reset = rule;
  return When(OnRemoval::kReset);
}

RowList& RowList::GoesWithOwner(bool (*taken_along)(const TStructBase& owner)) {
  for (Row& row : Group()) row.taken_along = taken_along;
  return When(OnRemoval::kDie);
}

RowList& RowList::DiesWithLastUnless(const Member& lock) {
  for (Row& row : Group()) row.lock = lock.AsRow().offset;
  return When(OnRemoval::kDieWithLast);
}

RowList& RowList::Beside(const Member& other) {
  for (Row& row : Group()) row.beside = other.AsRow().offset;
  return *this;
}

RowList& RowList::In(int category, int group) { return InBy(nullptr, category, group); }

RowList& RowList::InBy(int (*category_at)(const TStructBase&, int), int category, int group,
                       std::initializer_list<Member> by) {
  UnitRule rule{category, group, category_at, false, {0, 0}};
  std::int32_t* asked = rule.by;
  for (const Member& member : by) {
    if (asked != std::end(rule.by)) *asked++ = member.AsRow().offset;
  }
  for (Row& row : Group()) row.unit = rule;
  return *this;
}

RowList& RowList::Listed(int category, int group) {
  for (Row& row : Group()) row.unit = {category, group, nullptr, true, {0, 0}};
  return *this;
}

RowList& RowList::DescribesElements() {
  for (Row& row : Group()) row.describes_elements = true;
  return *this;
}

}  // namespace qx
