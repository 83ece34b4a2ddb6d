#include "qx_db/record/schema.h"

#include <algorithm>
#include <deque>
#include <mutex>

namespace qx {
namespace {

IO_VAR Describe(const Row& row) {
  IO_VAR var{};
  const std::u16string_view name(row.name);
  std::copy_n(name.begin(), std::min(name.size(), std::size(var.name) - 1), var.name);
  var.kind = static_cast<std::int32_t>(row.kind);
  var.offset = row.offset;
  var.size = row.size;
  var.element_size = static_cast<std::uint64_t>(row.element_size);
  var.element_schema = row.element_schema;
  return var;
}

}  // namespace

// ---- RowList ------------------------------------------------------------------------------------

RowList& RowList::Append(const char16_t* name, Row row, std::int32_t offset) {
  row.name = name;
  row.offset = offset;
  row.part = static_cast<std::int32_t>(rows_.size() - group_);
  rows_.push_back(row);
  return *this;
}

const char16_t* RowList::Numbered(std::u16string_view stem, std::size_t index) {
  static std::mutex mutex;
  static std::deque<std::u16string> names;
  const std::lock_guard lock(mutex);
  return names.emplace_back(std::u16string(stem) + Utf16(std::to_string(index))).c_str();
}

RowList& RowList::KeyOf(std::uint16_t target) {
  for (std::size_t i = group_; i < rows_.size(); ++i) rows_[i].key_of = target;
  return *this;
}

RowList& RowList::To(std::uint16_t target, ReferenceRule rule) {
  for (std::size_t i = group_; i < rows_.size(); ++i) {
    rows_[i].target = target;
    rows_[i].reference_rule = rule;
  }
  return *this;
}

RowList& RowList::When(OnRemoval rule) {
  rows_.back().on_removal = rule;
  return *this;
}

RowList& RowList::InnerReference(std::int32_t at, std::uint16_t target) {
  rows_.back().inner_reference = at;
  return To(target);
}

RowList& RowList::In(int category, int group) { return InBy(nullptr, category, group); }

RowList& RowList::InBy(int (*category_at)(const TStructBase&, int), int category, int group) {
  for (std::size_t i = group_; i < rows_.size(); ++i) {
    rows_[i].unit = {category, group, category_at, false};
  }
  return *this;
}

RowList& RowList::Listed(int category, int group) {
  for (std::size_t i = group_; i < rows_.size(); ++i) {
    rows_[i].unit = {category, group, nullptr, true};
  }
  return *this;
}

RowList& RowList::Elements(const IO_VAR* element_schema) {
  rows_.back().element_schema = element_schema;
  return *this;
}

// ---- Schema -------------------------------------------------------------------------------------

Schema::Schema(const char* record_name, std::uint16_t type, std::int32_t record_size,
               std::vector<Row> rows, std::span<const GatewayField> gateway)
    : name_(record_name),
      type_(type),
      record_size_(record_size),
      rows_(std::move(rows)),
      gateway_(gateway) {
  for (const Row& row : rows_) {
    if (row.target != 0) references_.push_back(&row);
    if (row.unit.category != unit::kNone) unit_rows_.push_back(&row);
    io_vars_.push_back(Describe(row));
    const bool joins = !row.IsArray() && !segments_.empty() && !segments_.back().array;
    if (joins) {
      segments_.back().size += row.size;
    } else {
      segments_.push_back({row.offset, row.size, row.IsArray() ? &row : nullptr});
    }
    has_arrays_ = has_arrays_ || row.IsArray();
    has_texts_ = has_texts_ || (row.number == Row::Number::kText && !row.IsArray());
  }
  io_vars_.push_back(IO_VAR{});
  for (const GatewayField& field : gateway_) gateway_rows_.push_back(Find(field.member));
}

const Row* Schema::Find(std::u16string_view name) const {
  const auto row = std::find_if(rows_.begin(), rows_.end(),
                                [&](const Row& candidate) { return candidate.name == name; });
  return row == rows_.end() ? nullptr : &*row;
}

std::string Schema::Validate() const {
  const auto fault = [&](const Row& row, const char* what) {
    return std::string(name_) + " " + Utf8(row.name) + ": " + what;
  };
  if (rows_.empty() || std::u16string_view(rows_[0].name) != u"_KEY" || rows_[0].size != 4) {
    return std::string(name_) + ": the first row is not the key";
  }
  std::int32_t expected = 8;
  for (const Row& row : rows_) {
    if (row.offset != expected) return fault(row, "leaves a gap or overlaps");
    expected += row.size;
    const bool reference =
        row.kind == MemberKind::kReference || row.kind == MemberKind::kReferenceArray;
    if (reference && row.target == 0) return fault(row, "is a reference without a target pool");
  }
  if (expected != record_size_) return std::string(name_) + ": rows do not reach the end";
  return {};
}

}  // namespace qx
