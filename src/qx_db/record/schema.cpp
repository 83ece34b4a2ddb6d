#include "qx_db/record/schema.h"

#include <algorithm>

namespace qx {
namespace {

using Number = Row::Number;

constexpr std::size_t kMaxName = std::size(IO_VAR{}.name) - 1;

IO_VAR Describe(const Row& row) {
  IO_VAR var{};
  const std::u16string_view name(row.name);
  std::copy_n(name.begin(), std::min(name.size(), kMaxName), var.name);
  var.kind = static_cast<std::int32_t>(row.kind);
  var.offset = row.offset;
  var.size = row.size;
  var.element_size = static_cast<std::uint64_t>(row.element_size);
  if (row.describes_elements && row.elements) var.element_schema = row.elements->IoVars();
  return var;
}

std::vector<IO_VAR> DescribeAll(const std::vector<Row>& rows) {
  std::vector<IO_VAR> vars;
  for (const Row& row : rows) vars.push_back(Describe(row));
  vars.push_back(IO_VAR{});
  return vars;
}

std::string Fault(const char* record, const Row& row, const char* what) {
  return std::string(record) + " " + Utf8(row.name ? row.name : u"(no name)") + ": " + what;
}

const char* NameFault(std::span<const Row> rows, const Row& row) {
  const std::u16string_view name(row.name ? row.name : u"");
  if (name.size() < 2 || name[0] != u'_') return "a name starts with an underscore";
  if (name.size() > kMaxName) return "the name is longer than 19 characters";
  const auto same = [&](const Row& other) { return other.name && name == other.name; };
  return std::count_if(rows.begin(), rows.end(), same) > 1 ? "the name stands twice" : nullptr;
}

/// Where the rows of a structure of that size leave it untiled from `start` on; "" when nowhere.
std::string TilingFault(const char* record, std::span<const Row> rows, std::int32_t start,
                        std::int32_t size) {
  std::int32_t expected = start;
  for (const Row& row : rows) {
    if (row.offset != expected) {
      return Fault(record, row, "stands after a member that has no row, or one out of order");
    }
    expected += row.size;
  }
  if (expected == size) return {};
  return std::string(record) + ": the rows end at byte " + std::to_string(expected) + " of " +
         std::to_string(size);
}

bool HoldsDoubles(const Row& row) {
  if (row.number == Number::kDouble) return true;
  if (!row.elements) return false;
  const auto rows = row.elements->Rows();
  return std::any_of(rows.begin(), rows.end(),
                     [](const Row& part) { return part.number == Number::kDouble; });
}

}  // namespace

// ---- ElementSchema ------------------------------------------------------------------------------

ElementSchema::ElementSchema(const char* name, std::int32_t size, RowList rows, FieldList fields)
    : name_(name), rows_(rows.Take()), io_vars_(DescribeAll(rows_)) {
  fault_ = FirstFault(size);
  for (const GatewayField& field : fields.Take()) {
    const auto row = std::find_if(rows_.begin(), rows_.end(),
                                  [&](const Row& one) { return one.offset == field.offset; });
    if (row == rows_.end() || row->IsReference()) {
      fault_ = std::string(name_) + ": the field " + field.name + " names no number";
      continue;
    }
    const std::int32_t width = row->number == Number::kInt32 ? 4 : 8;
    fields_.push_back({field.name, field.offset, row->number, field.size / width,
                       field.booleans || field.type == GatewayField::Type::kBool});
  }
}

std::string ElementSchema::FirstFault(std::int32_t size) const {
  int references = 0;
  for (const Row& row : rows_) {
    if (const char* what = NameFault(rows_, row)) return Fault(name_, row, what);
    if (row.IsArray()) return Fault(name_, row, "is an array inside an array element");
    references += row.IsReference();
    if (references > 1) return Fault(name_, row, "is a second reference in an array element");
    if (row.IsReference() && row.size != sizeof(ITR)) return Fault(name_, row, "is no reference");
  }
  return TilingFault(name_, rows_, 0, size);
}

bool ElementSchema::HasTexts() const {
  return std::any_of(rows_.begin(), rows_.end(),
                     [](const Row& row) { return row.number == Number::kText; });
}

// ---- Schema -------------------------------------------------------------------------------------

Schema::Schema(const char* record_name, std::uint16_t type, std::int32_t record_size,
               const Member& key, void (*declare)(RowList& rows, FieldList& fields))
    : name_(record_name), type_(type), record_size_(record_size) {
  RowList rows(key);
  FieldList fields;
  declare(rows, fields);
  rows_ = rows.Take();
  TakeAll(fields.Take());
}

Schema::Schema(const char* record_name, std::uint16_t type, std::int32_t record_size,
               std::vector<Row> rows)
    : name_(record_name), type_(type), record_size_(record_size), rows_(std::move(rows)) {
  TakeAll({});
}

void Schema::TakeAll(std::vector<GatewayField> fields) {
  fault_ = FirstFault();
  if (fault_.empty()) fault_ = TakeFields(std::move(fields));
  if (fault_.empty()) {
    TakeRows();
  } else {
    rows_.clear();
    gateway_.clear();
    gateway_rows_.clear();
  }
  io_vars_ = DescribeAll(rows_);
}

void Schema::TakeRows() {
  for (const Row& row : rows_) {
    if (row.target != 0) references_.push_back(&row);
    if (row.unit.category != unit::kNone) unit_rows_.push_back(&row);
    const bool joins = !row.IsArray() && !segments_.empty() && !segments_.back().array;
    if (joins) {
      segments_.back().size += row.size;
    } else {
      segments_.push_back({row.offset, row.size, row.IsArray() ? &row : nullptr});
    }
    has_arrays_ = has_arrays_ || row.IsArray();
    has_texts_ =
        has_texts_ || row.number == Number::kText || (row.elements && row.elements->HasTexts());
  }
}

const Row* Schema::Find(std::u16string_view name) const {
  const auto row = std::find_if(rows_.begin(), rows_.end(),
                                [&](const Row& candidate) { return candidate.name == name; });
  return row == rows_.end() ? nullptr : &*row;
}

const Row* Schema::At(std::int32_t offset) const {
  const auto row = std::lower_bound(
      rows_.begin(), rows_.end(), offset,
      [](const Row& candidate, std::int32_t wanted) { return candidate.offset < wanted; });
  return row == rows_.end() || row->offset != offset ? nullptr : &*row;
}

// ---- checks -------------------------------------------------------------------------------------

std::string Schema::FirstFault() const {
  if (rows_.empty() || !rows_[0].name || std::u16string_view(rows_[0].name) != u"_KEY" ||
      rows_[0].offset != 8 || rows_[0].size != 4 || rows_[0].number != Number::kInt32) {
    return std::string(name_) + ": the first row is not the key";
  }
  if (std::string fault = TilingFault(name_, rows_, 8, record_size_); !fault.empty()) return fault;
  for (const Row& row : rows_) {
    if (std::string fault = RowFault(row); !fault.empty()) return fault;
  }
  return {};
}

std::string Schema::RowFault(const Row& row) const {
  const auto fault = [&](const char* what) { return Fault(name_, row, what); };
  if (const char* what = NameFault(rows_, row)) return fault(what);
  if (row.IsReference() && row.target == 0) return fault("is a reference without a target pool");
  if (row.IsArray() && row.size != sizeof(ArrayStorage)) {
    return fault("is several arrays; add them as parts");
  }
  if (row.kind == MemberKind::kReference && row.size != sizeof(ITR)) {
    return fault("is several references; add them as parts");
  }
  if (row.elements && !row.elements->Validate().empty()) {
    return fault(row.elements->Validate().c_str());
  }
  const bool refers = row.target != 0;
  const bool is_key = row.key_of != 0 && row.on_removal != OnRemoval::kDieWithLast &&
                      row.on_removal != OnRemoval::kReset && row.on_removal != OnRemoval::kRefuse;
  const bool falls = row.on_removal != OnRemoval::kClear && !is_key;
  if (!refers && (falls || row.reference_rule != ReferenceRule::kCommon || row.beside != 0)) {
    return fault("has rules for references but is none");
  }
  if (row.beside != 0) {
    const Row* other = At(row.beside);
    if (!row.IsArray() || !other || other->kind != MemberKind::kValueArray ||
        other->element_size != sizeof(std::int32_t)) {
      return fault("names no array of 32-bit values beside it");
    }
  }
  if (row.on_removal == OnRemoval::kReset && (!row.reset.counts || !row.reset.reset)) {
    return fault("is not said what it is reset to");
  }
  if (row.on_removal == OnRemoval::kPassUp && (row.key_of != type_ || row.offset == 8)) {
    return fault("passes up to what is not above it");
  }
  if (row.lock != 0) {
    const Row* lock = At(row.lock);
    if (!lock || lock->kind != MemberKind::kValueArray ||
        lock->element_size != sizeof(std::int32_t)) {
      return fault("is locked by no array of 32-bit flags");
    }
  }
  if (row.key_of != 0 && (row.IsArray() || row.size != sizeof(Key))) {
    return fault("is said to be a key but has not 32 bits");
  }
  if (row.unit.category != unit::kNone && !HoldsDoubles(row)) {
    return fault("has a unit but no number with a fraction");
  }
  for (const std::int32_t by : row.unit.by) {
    const Row* asked = by ? At(by) : nullptr;
    if (by != 0 && (!asked || asked->size != 4)) return fault("takes its unit from no integer");
  }
  return {};
}

std::string Schema::FieldFault(const GatewayField& field, const Row* first) const {
  using Form = GatewayField::Form;
  const auto fault = [&](const char* what) {
    return std::string(name_) + ": the field " + field.name + " " + what;
  };
  if (!first) return fault("names no member that has a row");
  if (field.form == Form::kDescribed) return {};
  std::int32_t end = first->offset;
  for (const Row* row = first; end < field.offset + field.size; ++row) {
    if (row == rows_.data() + rows_.size() || row->kind != first->kind ||
        row->number != first->number) {
      return fault("does not carry whole members of one kind");
    }
    end += row->size;
  }
  if (end != field.offset + field.size) return fault("does not carry whole members of one kind");
  const bool integer = !first->IsReference() && first->number == Number::kInt32;
  if ((field.form == Form::kLow24 || field.form == Form::kHigh8 || field.booleans ||
       field.type == GatewayField::Type::kBool) &&
      !integer) {
    return fault("carries a part or a Boolean of what is no 32-bit integer");
  }
  if (field.form == Form::kLookUp && first->kind != MemberKind::kReference) {
    return fault("looks up what is no reference");
  }
  if (first->number == Number::kBytes && (!first->elements || first->elements->Fields().empty())) {
    return fault("carries structures without fields of their own");
  }
  const auto same = [&](const GatewayField& other) {
    return other.form != Form::kDescribed && std::string_view(other.name) == field.name;
  };
  if (std::count_if(gateway_.begin(), gateway_.end(), same) > 1) return fault("stands twice");
  return {};
}

std::string Schema::TakeFields(std::vector<GatewayField> fields) {
  gateway_ = std::move(fields);
  for (GatewayField& field : gateway_) {
    const Row* first = At(field.offset);
    if (std::string fault = FieldFault(field, first); !fault.empty()) return fault;
    gateway_rows_.push_back(first);
    if (first->elements) field.elements = first->elements->Fields();
    const Row* last = first;
    while (field.form != GatewayField::Form::kDescribed &&
           last->offset + last->size < field.offset + field.size) {
      ++last;
    }
    field.run = static_cast<std::int32_t>(last - first) + 1;
  }
  return {};
}

}  // namespace qx
