#include "sql/table.h"

#include <fmt/format.h>

namespace qx::sql {

std::string Quoted(const std::string& name) {
  std::string quoted = "\"";
  for (const char c : name) quoted += c == '"' ? "\"\"" : std::string(1, c);
  return quoted + '"';
}

std::string Table::Declaration() const {
  std::string text = "CREATE TABLE x(";
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    text += fmt::format("{}{} {}{}", i == 0 ? "" : ", ", Quoted(columns_[i].name),
                        ColumnTypeName(columns_[i].type), columns_[i].is_hidden ? " HIDDEN" : "");
  }
  return text + ")";
}

Outcome Table::Update(sqlite3*, Arguments, sqlite3_int64*) {
  return Failure{"", "table " + name_, "is derived from others and cannot be changed",
                 "change the tables it is derived from"};
}

std::vector<Constraint> UsableConstraints(const sqlite3_index_info& info) {
  std::vector<Constraint> usable;
  for (int i = 0; i < info.nConstraint; ++i) {
    const auto& constraint = info.aConstraint[i];
    if (constraint.usable) usable.push_back({i, constraint.iColumn, constraint.op});
  }
  return usable;
}

int FindEqual(const std::vector<Constraint>& constraints, int column) {
  for (const Constraint& constraint : constraints) {
    if (constraint.column == column && constraint.op == SQLITE_INDEX_CONSTRAINT_EQ) {
      return constraint.index;
    }
  }
  return -1;
}

void Take(sqlite3_index_info& info, int index, int& arguments, bool exact) {
  info.aConstraintUsage[index].argvIndex = ++arguments;
  info.aConstraintUsage[index].omit = exact;
}

void Explain(sqlite3_index_info& info, const std::string& plan) {
  info.idxStr = sqlite3_mprintf("%s", plan.c_str());
  info.needToFreeIdxStr = 1;
}

Outcome Units::Choose(sqlite3_value* names) {
  *this = Units(*session_);
  if (sqlite3_value_type(names) == SQLITE_NULL) return {};
  names_ = reinterpret_cast<const char*>(sqlite3_value_text(names));
  UnitSystem system = session_->Units().Model();
  std::string name;
  for (const char c : names_ + ' ') {
    if (c != ' ' && c != ',') {
      name += c;
      continue;
    }
    if (name.empty()) continue;
    int found = -1;
    for (int b = 0; b < kUnitBaseCount && found < 0; ++b) {
      const auto base = static_cast<UnitBase>(b);
      found = FindUnit(base, name);
      if (found >= 0) system[base] = found;
    }
    if (found < 0) {
      return Failure{"", "unit = '" + names_ + "'", "\"" + name + "\" is no unit",
                     "name units as in docs/units.md: unit = 'mm ton'"};
    }
    name.clear();
  }
  units_.SetModel(session_->Units().Model());
  units_.SetCurrent(system);
  are_models_ = false;
  return {};
}

void Units::GiveNames(sqlite3_context* to) const {
  if (are_models_) return sqlite3_result_null(to);
  sqlite3_result_text(to, names_.c_str(), static_cast<int>(names_.size()), SQLITE_TRANSIENT);
}

Column UnitColumn() {
  return {.name = "unit",
          .type = ColumnType::kText,
          .meaning = "units that the query wants its numbers in: unit = 'mm'",
          .is_hidden = true};
}

}  // namespace qx::sql
