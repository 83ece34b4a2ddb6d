#include <algorithm>

#include "sql/derived_tables.h"
#include "sql/record_source.h"

namespace qx::sql {
namespace {

Value ValueOf(sqlite3_value* value) {
  switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
      return std::int64_t{sqlite3_value_int64(value)};
    case SQLITE_FLOAT:
      return sqlite3_value_double(value);
    case SQLITE_TEXT:
      return std::string(reinterpret_cast<const char*>(sqlite3_value_text(value)));
    default:
      return std::monostate{};
  }
}

class ComputedTable final : public Table {
 public:
  ComputedTable(Link& link, Computed what)
      : Table(what.name, WithUnitColumn(what.columns)), link_(link), what_(std::move(what)) {}

  std::string Meaning() const override { return what_.meaning; }

  /// The plan is the set of columns whose values are given, which come in their order; the unit's
  /// is the one behind all others.
  int BestIndex(sqlite3_index_info& info) override {
    const std::vector<Constraint> constraints = UsableConstraints(info);
    int arguments = 0, given = 0;
    std::string plan;
    for (std::size_t i = 0; i < Columns().size(); ++i) {
      const int found = FindEqual(constraints, static_cast<int>(i));
      if (found < 0) {
        const bool is_named = std::any_of(info.aConstraint, info.aConstraint + info.nConstraint,
                                          [&](const auto& constraint) {
                                            return constraint.iColumn == static_cast<int>(i) &&
                                                   constraint.op == SQLITE_INDEX_CONSTRAINT_EQ;
                                          });
        if (IsWanted(i) || (Columns()[i].is_hidden && is_named)) return SQLITE_CONSTRAINT;
        continue;
      }
      Take(info, found, arguments, Columns()[i].is_hidden);
      given |= 1 << i;
      plan += (plan.empty() ? "by " : " and ") + Columns()[i].name;
    }
    Explain(info, plan.empty() ? "computed" : plan);
    info.idxNum = given;
    info.estimatedCost = plan.empty() ? 1e6 : 1e3;
    info.estimatedRows = plan.empty() ? 100000 : 100;
    return SQLITE_OK;
  }
  std::unique_ptr<Cursor> Open() override { return std::make_unique<Reading>(*this); }

 private:
  using Rows = std::shared_ptr<const Computed::Rows>;

  class Reading final : public Cursor {
   public:
    explicit Reading(ComputedTable& table) : table_(table), units_(table.link_.Session()) {}

    Outcome Filter(int plan, Arguments arguments) override {
      if (Outcome flushed = table_.link_.Flush(); !flushed) return flushed;
      given_.assign(table_.what_.columns.size(), std::nullopt);
      units_ = Units(table_.link_.Session());
      std::size_t next = 0;
      for (std::size_t i = 0; i < table_.Columns().size(); ++i) {
        if (!(plan & 1 << i)) continue;
        sqlite3_value* value = arguments[next++];
        if (i < given_.size()) {
          if (table_.Columns()[i].type != ColumnType::kText) IsNumber(value);
          given_[i] = ValueOf(value);
        } else if (Outcome chosen = units_.Choose(value); !chosen) {
          return chosen;
        }
      }
      at_ = 0;
      return table_.Fill(given_, rows_);
    }
    bool AtEnd() const override { return at_ >= rows_->size(); }
    bool Next() override {
      at_ += table_.what_.columns.size();
      return true;
    }
    void Value(sqlite3_context* to, int column) override {
      const auto index = static_cast<std::size_t>(column);
      if (index >= table_.what_.columns.size()) return units_.GiveNames(to);
      const sql::Value& value = (*rows_)[at_ + index];
      if (const auto* integer = std::get_if<std::int64_t>(&value)) {
        sqlite3_result_int64(to, *integer);
      } else if (const auto* real = std::get_if<double>(&value)) {
        sqlite3_result_double(to, units_.FromModel(table_.what_.columns[index].category, *real));
      } else if (const auto* text = std::get_if<std::string>(&value)) {
        sqlite3_result_text(to, text->data(), static_cast<int>(text->size()), SQLITE_TRANSIENT);
      } else {
        sqlite3_result_null(to);
      }
    }
    sqlite3_int64 RowId() override {
      return static_cast<sqlite3_int64>(at_ / table_.what_.columns.size());
    }

   private:
    ComputedTable& table_;
    Computed::Given given_;
    Units units_;
    Rows rows_ = std::make_shared<Computed::Rows>();
    std::size_t at_ = 0;
  };

  static std::vector<Column> WithUnitColumn(std::vector<Column> columns) {
    const bool has_unit = std::any_of(columns.begin(), columns.end(),
                                      [](const Column& column) { return column.has_unit; });
    if (has_unit) columns.push_back(UnitColumn());
    return columns;
  }
  bool IsWanted(std::size_t column) const {
    return std::find(what_.wanted.begin(), what_.wanted.end(), static_cast<int>(column)) !=
           what_.wanted.end();
  }

  Outcome Fill(const Computed::Given& given, Rows& rows) {
    const std::uint64_t state = link_.State();
    if (kept_ && state == state_ && given == given_) {
      rows = kept_;
      return {};
    }
    auto made = std::make_shared<Computed::Rows>();
    if (Outcome filled = what_.fill(link_, given, *made); !filled) return filled;
    rows = kept_ = std::move(made);
    state_ = state;
    given_ = given;
    return {};
  }

  Link& link_;
  const Computed what_;
  Rows kept_;
  std::uint64_t state_ = 0;
  Computed::Given given_;
};

}  // namespace

std::unique_ptr<Table> MakeComputedTable(Link& link, Computed what) {
  return std::make_unique<ComputedTable>(link, std::move(what));
}

}  // namespace qx::sql
