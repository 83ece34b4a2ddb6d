#include "sql/columns.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "qx_db/core/pool_names.h"
#include "qx_db/record/describe.h"

namespace qx::sql {
namespace {

std::string Small(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
    return static_cast<char>(std::isalnum(c) ? std::tolower(c) : '_');
  });
  return text;
}

std::string MemberName(const Row& row) {
  const std::string name = Small(Utf8(row.name));
  return name.starts_with('_') ? name.substr(1) : name;
}

/// The name of the i-th of `count` numbers; three real ones are a vector.
std::string PartName(const std::string& stem, int i, int count, bool real) {
  if (count == 1) return stem;
  if (count == 3 && real) return stem + '_' + "xyz"[i];
  return stem + '_' + std::to_string(i);
}

std::string Blanks(std::string text) {
  std::replace(text.begin(), text.end(), '_', ' ');
  return text;
}

int WidthOf(Row::Number number) { return number == Row::Number::kInt32 ? 4 : 8; }

class Maker {
 public:
  explicit Maker(DPoolBase& pool)
      : pool_(pool), schema_(pool.GetSchema()), fresh_(pool.NewRecord()) {}

  PoolColumns Make() {
    made_.name = TableName(pool_);
    made_.pool = &pool_;
    AddMember(schema_.Rows()[0], nullptr);
    std::vector<const Row*> shown{&schema_.Rows()[0]};
    for (std::size_t i = 0; i < schema_.Gateway().size(); ++i) {
      const GatewayField& field = schema_.Gateway()[i];
      if (field.form == GatewayField::Form::kDescribed) continue;
      const Row* first = schema_.GatewayRows()[i];
      AddField(field, first);
      for (int r = 0; r < field.run; ++r) shown.push_back(first + r);
    }
    for (const Row& row : schema_.Rows()) {
      if (std::find(shown.begin(), shown.end(), &row) == shown.end()) AddMember(row, nullptr);
    }
    if (pool_.GetTypeCode() == code::kNode) NamePosition();
    MakeDistinct(made_.columns);
    return std::move(made_);
  }

 private:
  void AddField(const GatewayField& field, const Row* first) {
    if (field.run == 1) return AddMember(*first, &field);
    for (int i = 0; i < field.run; ++i) {
      const bool real = first[i].number == Row::Number::kDouble;
      AddNumbers(first[i], field.booleans, PartName(Small(field.name), i, field.run, real),
                 LabelOf(&field, first[i]), made_.columns);
    }
  }

  static std::string LabelOf(const GatewayField* field, const Row& row) {
    if (field) return field->label ? field->label : Blanks(Small(field->name));
    return Blanks(MemberName(row));
  }

  void AddMember(const Row& row, const GatewayField* field) {
    const std::string name = field ? Small(field->name) : MemberName(row);
    if (row.IsArray()) return AddArray(row, field, name);
    const bool flag = field && (field->booleans || field->type == GatewayField::Type::kBool);
    const std::size_t first = made_.columns.size();
    AddNumbers(row, flag, name, LabelOf(field, row), made_.columns);
    if (!field) return;
    MemberColumn& column = made_.columns[first];
    if (field->form == GatewayField::Form::kLow24) column.form = MemberColumn::Form::kLow24;
    if (field->form == GatewayField::Form::kHigh8) column.form = MemberColumn::Form::kHigh8;
  }

  /// The columns of a member that is no array.
  void AddNumbers(const Row& row, bool flag, const std::string& name, const std::string& label,
                  std::vector<MemberColumn>& to) {
    const int width = WidthOf(row.number);
    const bool single = row.number == Row::Number::kText || row.IsReference();
    const int count = single ? 1 : row.size / width;
    for (int i = 0; i < count; ++i) {
      MemberColumn column;
      const bool real = row.number == Row::Number::kDouble;
      column.name = PartName(name, i, count, real);
      column.offset = row.offset + i * width;
      column.row = &row;
      column.number = row.part + i;
      Describe(column, row.number, row.size, row.IsReference() ? row.target : 0);
      column.meaning = MeaningOf(column, row, flag, label);
      if (real) Measure(column, row);
      to.push_back(std::move(column));
    }
  }

  static void Describe(MemberColumn& column, Row::Number number, std::int32_t size,
                       std::uint16_t target) {
    using Form = MemberColumn::Form;
    column.target = target;
    switch (number) {
      case Row::Number::kInt32:
        column.form = Form::kInt32;
        break;
      case Row::Number::kDouble:
        column.form = Form::kReal;
        column.type = ColumnType::kReal;
        break;
      case Row::Number::kText:
        column.form = Form::kText;
        column.type = ColumnType::kText;
        column.text_units = size / 2;
        break;
      default:
        column.form = target ? Form::kReference : Form::kInt64;
    }
  }

  std::string MeaningOf(const MemberColumn& column, const Row& row, bool flag,
                        const std::string& label) const {
    if (row.offset == 8) return "key of the record";
    const auto name_of = [&](std::uint16_t type) {
      const DPoolBase* pool = pool_.GetSession()->GetDataPool(type);
      return pool ? TableName(*pool) : "a pool of type " + std::to_string(type);
    };
    if (column.target) return label + ": key in " + name_of(column.target) + ", NULL for none";
    if (row.key_of) return label + ": key in " + name_of(row.key_of);
    return flag ? label + ": 0 or 1" : label;
  }

  void Measure(MemberColumn& column, const Row& row) const {
    const UnitRule& rule = row.unit;
    if (rule.category == unit::kNone && !rule.category_at) return;
    if (rule.category_at) {
      column.has_unit = !rule.listed_only;
      column.unit = UnitCasesOf(schema_, row, *fresh_).text;
      return;
    }
    const UnitCategory* category = FindUnitCategory(rule.category);
    column.has_unit = !rule.listed_only && category;
    column.category = column.has_unit ? rule.category : unit::kNone;
    column.unit = category ? std::string(category->name) : "any";
    if (rule.listed_only && rule.category == unit::kAngle) column.unit = "angle, always in deg";
  }

  void AddArray(const Row& row, const GatewayField* field, const std::string& name) {
    ArrayColumns array;
    array.row = &row;
    const DPoolBase* target = row.target ? pool_.GetSession()->GetDataPool(row.target) : nullptr;
    const std::string label = LabelOf(field, row);
    if (row.kind == MemberKind::kReferenceArray) {
      int same = 0;
      for (const Row& other : schema_.Rows()) {
        same += other.kind == MemberKind::kReferenceArray && other.target == row.target;
      }
      const std::string of = target ? TableName(*target) : name;
      array.name = made_.name + '_' + (same == 1 ? of : name);
      MemberColumn& column = array.columns.emplace_back();
      column.name = of;
      column.row = &row;
      Describe(column, Row::Number::kInt64, 8, row.target);
      column.meaning = label + ": key in " + of + ", NULL for a missing one";
    } else if (row.elements) {
      array.name = made_.name + '_' + name;
      int number = 0;
      for (const Row& part : row.elements->Rows()) AddPart(row, part, number, array.columns);
    } else {
      array.name = made_.name + '_' + name;
      const int count = row.element_size / WidthOf(row.number);
      for (int i = 0; i < count; ++i) {
        MemberColumn& column = array.columns.emplace_back();
        column.name = PartName("value", i, count, row.number == Row::Number::kDouble);
        column.row = &row;
        column.offset = i * WidthOf(row.number);
        column.number = row.part + i;
        Describe(column, row.number, 8, 0);
        column.meaning = label;
        if (row.number == Row::Number::kDouble) Measure(column, row);
      }
    }
    MakeDistinct(array.columns);
    made_.arrays.push_back(std::move(array));
  }

  /// A member of a structure that an array is made of. Units count the reals of the structure.
  void AddPart(const Row& row, const Row& part, int& number, std::vector<MemberColumn>& to) {
    const std::size_t first = to.size();
    std::string name = MemberName(part);
    for (const GatewayElementField& field : row.elements->Fields()) {
      if (field.offset == part.offset) name = Small(field.name);
    }
    AddNumbers(part, false, name, Blanks(name), to);
    for (std::size_t i = first; i < to.size(); ++i) {
      to[i].row = &row;
      to[i].category = unit::kNone;
      to[i].has_unit = false;
      to[i].unit.clear();
      if (to[i].form != MemberColumn::Form::kReal) continue;
      to[i].number = number++;
      Measure(to[i], row);
    }
  }

  /// A node's coordinates go by the names that everybody gives them.
  void NamePosition() {
    for (std::size_t i = 0; i + 2 < made_.columns.size(); ++i) {
      if (std::u16string_view(made_.columns[i].row->name) != u"_POSITION") continue;
      for (std::size_t c = 0; c < 3; ++c) made_.columns[i + c].name = "xyz"[c];
      made_.position = static_cast<int>(i);
      return;
    }
  }

  static void MakeDistinct(std::vector<MemberColumn>& columns) {
    const auto is_taken = [&](std::size_t i, const std::string& name) {
      if (name == "unit" || name == "rowid") return true;
      return std::any_of(columns.begin(), columns.begin() + static_cast<std::ptrdiff_t>(i),
                         [&](const MemberColumn& column) { return column.name == name; });
    };
    for (std::size_t i = 0; i < columns.size(); ++i) {
      std::string name = columns[i].name;
      for (int n = 2; is_taken(i, name); ++n) name = columns[i].name + '_' + std::to_string(n);
      columns[i].name = name;
    }
  }

  DPoolBase& pool_;
  const Schema& schema_;
  std::unique_ptr<TStructBase> fresh_;
  PoolColumns made_;
};

}  // namespace

std::string_view ColumnTypeName(ColumnType type) {
  constexpr std::string_view kNames[] = {"INTEGER", "REAL", "TEXT"};
  return kNames[static_cast<int>(type)];
}

std::string TableName(const DPoolBase& pool) { return PoolWord(pool); }

PoolColumns ColumnsOf(DPoolBase& pool) { return Maker(pool).Make(); }

std::string UnitText(int category, const CQXUnitCtrl& units) {
  const UnitCategory* found = FindUnitCategory(category);
  if (!found || category == unit::kNone) return "";
  std::string above, below;
  for (int b = 0; b < kUnitBaseCount; ++b) {
    const auto base = static_cast<UnitBase>(b);
    const int exponent = found->exponents[static_cast<std::size_t>(b)];
    if (exponent == 0) continue;
    std::string& text = exponent > 0 ? above : below;
    if (!text.empty()) text += ' ';
    text += UnitsOf(base)[static_cast<std::size_t>(units.Model()[base])].name;
    if (exponent != 1) text += std::to_string(exponent);
  }
  const std::string text = above + (above.empty() || below.empty() ? "" : " ") + below;
  return std::string(found->name) + (text.empty() ? "" : " [" + text + "]");
}

}  // namespace qx::sql
