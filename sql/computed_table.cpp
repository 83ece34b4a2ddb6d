#include <algorithm>
#include <cmath>
#include <map>

#include "qx_db/platform/plain_text.h"

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
        if (IsArgument(i) || (Columns()[i].is_hidden && is_named)) return SQLITE_CONSTRAINT;
        continue;
      }
      if (!Columns()[i].is_hidden && !IsIndexed(info, found, i)) continue;
      Take(info, found, arguments, Columns()[i].is_hidden);
      given |= 1 << i;
      if (i < what_.columns.size()) plan += (plan.empty() ? "by " : " and ") + Columns()[i].name;
    }
    Explain(info, plan.empty() ? "computed" : plan);
    info.idxNum = given;
    // A table that is kept costs its rows, one of arguments is computed again for others.
    const auto kept = FindKept(Computed::Given(what_.columns.size()));
    const double rows = kept ? static_cast<double>(kept->Count(what_.columns.size())) : 1e5;
    info.estimatedCost = !what_.arguments.empty() ? 1e4 : plan.empty() ? rows + 1 : 20;
    info.estimatedRows =
        plan.empty() ? static_cast<sqlite3_int64>(rows) + 1 : std::min<sqlite3_int64>(10, rows + 1);
    return SQLITE_OK;
  }
  std::unique_ptr<Cursor> Open() override { return std::make_unique<Reading>(*this); }

 private:
  /// What was computed, with what finds rows in it.
  struct Kept {
    Computed::Rows values;
    sqlite3_int64 first_row_id = 0;
    /// By the columns whose values are given, as bits: hashes of their values in order, with the
    /// numbers of the rows.
    using Index = std::vector<std::pair<std::size_t, std::uint32_t>>;
    std::map<int, Index> indices;

    std::size_t Count(std::size_t columns) const { return values.size() / columns; }
  };

  class Reading final : public Cursor {
   public:
    explicit Reading(ComputedTable& table) : table_(table), units_(table.link_.Session()) {}

    Outcome Filter(int plan, Arguments arguments) override {
      if (Outcome flushed = table_.link_.Flush(); !flushed) return flushed;
      const std::size_t columns = table_.what_.columns.size();
      Computed::Given given(columns);
      units_ = Units(table_.link_.Session());
      std::size_t next = 0, hash = 0;
      int looked_up = 0;
      bool is_none = false;
      for (std::size_t i = 0; i < table_.Columns().size(); ++i) {
        if (!(plan & 1 << i)) continue;
        sqlite3_value* value = arguments[next++];
        if (i >= columns) {
          if (Outcome chosen = units_.Choose(value); !chosen) return chosen;
          continue;
        }
        const bool is_text = table_.Columns()[i].type == ColumnType::kText;
        if (!is_text) IsNumber(value);
        if (table_.IsArgument(i)) {
          given[i] = ValueOf(value);
        } else if (const auto wanted = ComparableOf(value); wanted && table_.IsPart(i)) {
          is_none |= !std::holds_alternative<std::int64_t>(*wanted);
          given[i] = wanted;
        } else if (wanted) {
          // What is no text may equal one as a number; SQLite looks at all rows then.
          if (is_text && !std::holds_alternative<std::string>(*wanted)) continue;
          hash = Hashed(hash, *wanted);
          looked_up |= 1 << i;
        } else {
          is_none = true;
        }
      }
      at_ = end_ = 0;
      found_ = nullptr;
      if (is_none) return {};
      if (Outcome filled = table_.Fill(given, kept_); !filled) return filled;
      end_ = kept_->Count(columns);
      if (!looked_up) return {};
      found_ = &table_.IndexOf(*kept_, looked_up);
      const auto by_hash = [](const auto& a, const auto& b) { return a.first < b.first; };
      const auto [first, last] = std::equal_range(found_->begin(), found_->end(),
                                                  std::pair(hash, std::uint32_t{0}), by_hash);
      at_ = static_cast<std::size_t>(first - found_->begin());
      end_ = static_cast<std::size_t>(last - found_->begin());
      return {};
    }
    bool AtEnd() const override { return at_ >= end_; }
    bool Next() override {
      ++at_;
      return true;
    }
    void Value(sqlite3_context* to, int column) override {
      const auto index = static_cast<std::size_t>(column);
      if (index >= table_.what_.columns.size()) return units_.GiveNames(to);
      const sql::Value& value = kept_->values[Number() * table_.what_.columns.size() + index];
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
    /// The same however the row was found: where a query has OR, SQLite unites by row ids what it
    /// found by one column and by another.
    sqlite3_int64 RowId() override {
      return kept_->first_row_id + static_cast<sqlite3_int64>(Number());
    }

   private:
    std::size_t Number() const { return found_ ? (*found_)[at_].second : at_; }

    ComputedTable& table_;
    Units units_;
    std::shared_ptr<Kept> kept_;
    const Kept::Index* found_ = nullptr;  // in kept_
    std::size_t at_ = 0, end_ = 0;
  };

  static std::vector<Column> WithUnitColumn(std::vector<Column> columns) {
    const bool has_unit = std::any_of(columns.begin(), columns.end(),
                                      [](const Column& column) { return column.has_unit; });
    if (has_unit) columns.push_back(UnitColumn());
    return columns;
  }
  bool IsArgument(std::size_t column) const {
    return std::find(what_.arguments.begin(), what_.arguments.end(), static_cast<int>(column)) !=
           what_.arguments.end();
  }
  bool IsPart(std::size_t column) const { return static_cast<int>(column) == what_.part; }
  /// Whether rows are found by the value of a column: of a table that is filled as a whole, for
  /// values that are the same in all units, compared as we do it.
  bool IsIndexed(sqlite3_index_info& info, int constraint, std::size_t column) const {
    if (!what_.arguments.empty() || Columns()[column].type == ColumnType::kReal) return false;
    return Columns()[column].type != ColumnType::kText ||
           EqualNoCase(sqlite3_vtab_collation(&info, constraint), "BINARY");
  }

  /// A value as it is compared with those of rows; none for what equals nothing.
  static std::optional<sql::Value> ComparableOf(sqlite3_value* value) {
    sql::Value made = ValueOf(value);
    if (const auto* real = std::get_if<double>(&made)) {
      constexpr double kEnd = 9223372036854775808.0;  // of integers
      if (*real != std::floor(*real) || *real < -kEnd || *real >= kEnd) return std::nullopt;
      return static_cast<std::int64_t>(*real);
    }
    if (std::holds_alternative<std::monostate>(made)) return std::nullopt;
    return made;
  }
  static std::size_t Hashed(std::size_t hash, const sql::Value& value) {
    return (hash ^ std::hash<sql::Value>()(value)) * 0x9E3779B97F4A7C15u;
  }

  const Kept::Index& IndexOf(Kept& kept, int columns) const {
    const auto [found, is_new] = kept.indices.try_emplace(columns);
    if (!is_new) return found->second;
    const std::size_t width = what_.columns.size();
    for (std::size_t row = 0; row < kept.Count(width); ++row) {
      std::size_t hash = 0;
      for (std::size_t i = 0; i < width; ++i) {
        if (columns & 1 << i) hash = Hashed(hash, kept.values[row * width + i]);
      }
      found->second.emplace_back(hash, static_cast<std::uint32_t>(row));
    }
    std::sort(found->second.begin(), found->second.end());
    return found->second;
  }

  std::shared_ptr<Kept> FindKept(const Computed::Given& given) const {
    for (const auto& [its_given, kept] : kept_) {
      if (its_given == given) return kept;
    }
    return nullptr;
  }

  Outcome Fill(const Computed::Given& given, std::shared_ptr<Kept>& kept) {
    const std::uint64_t state = link_.State();
    if (state != state_) kept_.clear();
    state_ = state;
    kept = FindKept(given);
    if (kept) return {};
    kept = std::make_shared<Kept>();
    if (Outcome filled = what_.fill(link_, given, kept->values); !filled) return filled;
    if (what_.first_row_id) kept->first_row_id = what_.first_row_id(link_, given);
    constexpr std::size_t kMost = 8;  // for queries that ask for one and another in turn
    if (kept_.size() == kMost) kept_.erase(kept_.begin());
    kept_.emplace_back(given, kept);
    return {};
  }

  Link& link_;
  const Computed what_;
  std::vector<std::pair<Computed::Given, std::shared_ptr<Kept>>> kept_;  // the last filled
  std::uint64_t state_ = 0;
};

}  // namespace

std::unique_ptr<Table> MakeComputedTable(Link& link, Computed what) {
  return std::make_unique<ComputedTable>(link, std::move(what));
}

}  // namespace qx::sql
