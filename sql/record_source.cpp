#include "sql/record_source.h"

#include <cmath>
#include <fmt/format.h>
#include <limits>

namespace qx::sql {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// A plan is a number: its kind, whether units are named, and what the kind needs.
enum Kind : int { kAll, kByRowId, kByKey, kByReference, kByBox, kByRange };
constexpr int kKindMask = 0xF;
constexpr int kWithUnit = 0x10;
constexpr int kDetailShift = 8;

// Of a range the first two, of a box two for each axis.
constexpr int kLowBound = 1;
constexpr int kHighBound = 2;

int BoundOf(unsigned char op) {
  switch (op) {
    case SQLITE_INDEX_CONSTRAINT_EQ:
      return kLowBound | kHighBound;
    case SQLITE_INDEX_CONSTRAINT_GT:
    case SQLITE_INDEX_CONSTRAINT_GE:
      return kLowBound;
    case SQLITE_INDEX_CONSTRAINT_LT:
    case SQLITE_INDEX_CONSTRAINT_LE:
      return kHighBound;
    default:
      return 0;
  }
}

/// Takes the constraints on a column that bound it; returns which sides they bound.
int TakeBounds(sqlite3_index_info& info, const std::vector<Constraint>& constraints, int column,
               int& arguments) {
  int bounds = 0;
  for (const int side : {kLowBound, kHighBound}) {
    for (const Constraint& constraint : constraints) {
      const bool fits = constraint.column == column && BoundOf(constraint.op) == side;
      if (!fits || (bounds & side)) continue;
      Take(info, constraint.index, arguments, false);
      bounds |= side;
    }
  }
  return bounds;
}

/// Whether constraints of the column bound it on some side.
bool IsBounded(const std::vector<Constraint>& constraints, int column) {
  return std::any_of(constraints.begin(), constraints.end(), [&](const Constraint& c) {
    return c.column == column && (BoundOf(c.op) == kLowBound || BoundOf(c.op) == kHighBound);
  });
}

}  // namespace

bool IsNumber(sqlite3_value* value) {
  const int type = sqlite3_value_numeric_type(value);
  return type == SQLITE_INTEGER || type == SQLITE_FLOAT;
}

Key KeyIn(sqlite3_value* value) {
  if (!IsNumber(value)) return -1;
  if (sqlite3_value_type(value) == SQLITE_INTEGER) {
    const sqlite3_int64 key = sqlite3_value_int64(value);
    return key < 0 || key > kMaxKey ? -1 : static_cast<Key>(key);
  }
  const double key = sqlite3_value_double(value);
  return key >= 0 && key <= kMaxKey && key == std::floor(key) ? static_cast<Key>(key) : -1;
}

int RecordSource::BestIndex(const Access& access, sqlite3_index_info& info) {
  const std::vector<Constraint> constraints = UsableConstraints(info);
  const double size = std::max(1, access.pool->GetSize());
  const std::string name = access.pool ? TableName(*access.pool) : "";
  int arguments = 0;
  int kind = kAll, detail = 0;
  std::string plan = "all";
  double cost = size, rows = size;

  const int row_id = access.row_id_is_item ? FindEqual(constraints, -1) : -1;
  const int key = FindEqual(constraints, access.key);
  const auto reference = std::find_if(
      access.references.begin(), access.references.end(),
      [&](const Access::Reference& r) { return FindEqual(constraints, r.column) >= 0; });
  const auto is_boxed = [&] {
    for (int axis = 0; axis < 3 && access.position >= 0; ++axis) {
      const int column = access.position + axis;
      if (IsBounded(constraints, column) || FindEqual(constraints, column) >= 0) return true;
    }
    return false;
  };
  if (row_id >= 0) {
    kind = kByRowId;
    Take(info, row_id, arguments, true);
    plan = "by rowid";
    cost = rows = 1;
  } else if (key >= 0) {
    kind = kByKey;
    Take(info, key, arguments, true);
    plan = "by key";
    cost = rows = 1;
    const bool is_unique = access.row_id_is_item && !access.pool->Set().MayShareKeys();
    if (is_unique) info.idxFlags = SQLITE_INDEX_SCAN_UNIQUE;
  } else if (reference != access.references.end()) {
    kind = kByReference;
    detail = reference->column;
    Take(info, FindEqual(constraints, reference->column), arguments, false);
    plan = "by reference " + Utf8(reference->row->name).substr(1);
    cost = rows = std::min(size, 10.0);
  } else if (is_boxed()) {
    kind = kByBox;
    for (int axis = 0; axis < 3; ++axis) {
      const int column = access.position + axis;
      const int equal = FindEqual(constraints, column);
      if (equal >= 0) {
        Take(info, equal, arguments, false);
        detail |= 1 << (6 + axis);
      } else {
        detail |= TakeBounds(info, constraints, column, arguments) << (2 * axis);
      }
    }
    plan = "by box";
    rows = size / 20;
    cost = rows + 10;
  } else if (IsBounded(constraints, access.key)) {
    kind = kByRange;
    detail = TakeBounds(info, constraints, access.key, arguments);
    plan = "by range of keys";
    cost = rows = size / 4 + 1;
  }
  const bool by_key = info.nOrderBy == 1 && info.aOrderBy[0].iColumn == access.key &&
                      !info.aOrderBy[0].desc && access.key >= 0;
  if (by_key && kind == kAll) {
    kind = kByRange;
    plan = "in the order of keys";
  }
  info.orderByConsumed = by_key && kind == kByRange;

  int number = kind | detail << kDetailShift;
  const int unit = access.unit >= 0 ? FindEqual(constraints, access.unit) : -1;
  if (unit >= 0) {
    Take(info, unit, arguments, true);
    number |= kWithUnit;
  } else if (access.unit >= 0) {
    // Units come from elsewhere in the query: another order of its tables has them.
    for (int i = 0; i < info.nConstraint; ++i) {
      if (info.aConstraint[i].iColumn == access.unit &&
          info.aConstraint[i].op == SQLITE_INDEX_CONSTRAINT_EQ) {
        return SQLITE_CONSTRAINT;
      }
    }
  }
  Explain(info, plan + " of " + name);
  info.idxNum = number;
  info.estimatedCost = cost;
  info.estimatedRows = static_cast<sqlite3_int64>(rows);
  return SQLITE_OK;
}

Outcome RecordSource::Start(int plan, Arguments arguments) {
  link_.Forget(*this);
  if (Outcome flushed = link_.FlushOf(*access_.pool); !flushed) return flushed;
  item_ = target_ = 0;
  is_list_ = false;
  list_.reset();
  if (plan & kWithUnit) {
    if (Outcome chosen = units_.Choose(arguments.back()); !chosen) return chosen;
    arguments = arguments.first(arguments.size() - 1);
  } else {
    units_ = Units(link_.Session());
  }
  revision_ = set_.Revision();
  link_.Add(*this);
  const int detail = plan >> kDetailShift;
  switch (plan & kKindMask) {
    case kByRowId: {
      const auto item = static_cast<ITR>(sqlite3_value_int64(arguments[0]));
      const bool is_exact = IsNumber(arguments[0]) &&
                            (sqlite3_value_type(arguments[0]) == SQLITE_INTEGER ||
                             sqlite3_value_double(arguments[0]) == static_cast<double>(item));
      const bool is_there = is_exact && item && set_.IsLinked(item);
      Give(is_there ? std::vector<ITR>{item} : std::vector<ITR>{});
      break;
    }
    case kByKey:
      StartByKey(arguments[0]);
      break;
    case kByReference:
      StartByReference(detail, arguments[0]);
      break;
    case kByBox:
      StartByBox(detail, arguments);
      break;
    case kByRange:
      StartByRange(detail, arguments);
      break;
    default:
      item_ = set_.GetHeadPosition();
  }
  return {};
}

void RecordSource::StartByKey(sqlite3_value* value) {
  const Key key = KeyIn(value);
  item_ = key < 0 ? 0 : set_.Find(key);
  is_list_ = true;
  at_ = end_ = 0;
  if (!item_ || !set_.MayShareKeys()) return;
  std::vector<ITR> items;
  for (ITR item = item_; item; item = set_.NextOfKey(item)) items.push_back(item);
  Give(std::move(items));
}

void RecordSource::StartByReference(int column, sqlite3_value* value) {
  const auto reference =
      std::find_if(access_.references.begin(), access_.references.end(),
                   [&](const Access::Reference& r) { return r.column == column; });
  const DPoolBase* targets = link_.Session().GetDataPool(reference->row->target);
  const Key key = KeyIn(value);
  target_ = targets && key >= 0 ? targets->Find(key) : 0;
  if (!target_) return Give({});
  const std::span<const ITR> users = link_.Users(*access_.pool, *reference->row, target_);
  Give({users.begin(), users.end()});
}

void RecordSource::StartByBox(int bounds, Arguments arguments) {
  Box box;
  std::size_t next = 0;
  const auto take = [&](bool low) {
    sqlite3_value* value = arguments[next++];
    if (!IsNumber(value)) return low ? -kInfinity : kInfinity;
    const double bound = units_.ToModel(unit::kLength, sqlite3_value_double(value));
    // Wider by the rounding of a change of units: SQLite looks at each row again.
    const double slack = units_.AreModels() ? 0 : 1e-12 * std::abs(bound);
    return low ? bound - slack : bound + slack;
  };
  for (std::size_t axis = 0; axis < 3; ++axis) {
    box.low[axis] = -kInfinity;
    box.high[axis] = kInfinity;
    if (bounds & (1 << (6 + axis))) {
      box.low[axis] = take(true);
      --next;
      box.high[axis] = take(false);
      continue;
    }
    const int sides = bounds >> (2 * axis) & 3;
    if (sides & kLowBound) box.low[axis] = take(true);
    if (sides & kHighBound) box.high[axis] = take(false);
  }
  std::vector<ITR> found;
  link_.Boxes(*access_.pool)->Find(box, found);
  Give(std::move(found));
}

void RecordSource::StartByRange(int bounds, Arguments arguments) {
  list_ = link_.InKeyOrder(*access_.pool);
  is_list_ = true;
  at_ = 0;
  end_ = list_->size();
  const auto place = [&](double key) {
    return static_cast<std::size_t>(
        std::lower_bound(list_->begin(), list_->end(), key,
                         [](ITR item, double bound) { return KeyOf(item) < bound; }) -
        list_->begin());
  };
  std::size_t next = 0;
  if (bounds & kLowBound) {
    sqlite3_value* value = arguments[next++];
    if (IsNumber(value)) at_ = place(std::floor(sqlite3_value_double(value)));
  }
  if (bounds & kHighBound) {
    sqlite3_value* value = arguments[next++];
    if (IsNumber(value)) end_ = place(std::floor(sqlite3_value_double(value)) + 1);
  }
  NextOfList();
}

void RecordSource::Give(std::vector<ITR> items) {
  is_list_ = true;
  at_ = 0;
  end_ = items.size();
  list_ = std::make_shared<std::vector<ITR>>(std::move(items));
  NextOfList();
}

void RecordSource::NextOfList() {
  item_ = 0;
  const bool has_changed = revision_ != set_.Revision();
  while (at_ < end_ && !item_) {
    const ITR next = (*list_)[at_++];
    if (!has_changed || set_.IsLinked(next)) item_ = next;
  }
}

void RecordSource::Freeze() {
  if (is_list_ || !item_ || revision_ != set_.Revision()) return;
  std::vector<ITR> rest;
  ITR next = item_;
  for (access_.pool->Next(next); next; access_.pool->Next(next)) rest.push_back(next);
  is_list_ = true;
  at_ = 0;
  end_ = rest.size();
  list_ = std::make_shared<std::vector<ITR>>(std::move(rest));
}

Failure RecordSource::Stale() const {
  return {"", "table " + TableName(*access_.pool), "changed while the query read it",
          "run the query again"};
}

}  // namespace qx::sql
