#include "sql/pool_tables.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

#include "sql/members.h"
#include "sql/record_source.h"

namespace qx::sql {
namespace {

/// Index of the unit column, which is the last; -1 without one.
int UnitIndex(const std::vector<Column>& columns) {
  return columns.back().is_hidden && columns.back().name == "unit"
             ? static_cast<int>(columns.size()) - 1
             : -1;
}

std::string PlaceOf(const std::string& table, Key key) { return table + ' ' + std::to_string(key); }

bool ReplacesOnConflict(sqlite3* db) { return sqlite3_vtab_on_conflict(db) == SQLITE_REPLACE; }

// ---- records ------------------------------------------------------------------------------------

class PoolTable final : public Table {
 public:
  PoolTable(Link& link, const PoolColumns& of)
      : Table(of.name, WithUnit(of.columns)), link_(link), of_(of) {
    access_.pool = of.pool;
    access_.key = 0;
    access_.position = of.position;
    access_.unit = UnitIndex(Columns());
    access_.row_id_is_item = true;
    for (std::size_t i = 0; i < of.columns.size(); ++i) {
      if (of.columns[i].form != MemberColumn::Form::kReference) continue;
      access_.references.push_back({static_cast<int>(i), of.columns[i].row});
    }
  }

  std::string Meaning() const override { return "records of pool " + Utf8(of_.pool->GetIOName()); }
  int BestIndex(sqlite3_index_info& info) override {
    return RecordSource::BestIndex(access_, info);
  }
  std::unique_ptr<Cursor> Open() override { return std::make_unique<Reading>(*this); }
  bool IsWritable() const override { return true; }

  Outcome Update(sqlite3* db, Arguments arguments, sqlite3_int64* row_id) override {
    DPoolBase& pool = *of_.pool;
    const bool is_insert = sqlite3_value_type(arguments[0]) == SQLITE_NULL;
    const ITR item = is_insert ? 0 : static_cast<ITR>(sqlite3_value_int64(arguments[0]));
    if (!is_insert && !pool.Set().IsLinked(item)) {
      return Failure{"", "table " + Name(), "the record is gone", "run the statement again"};
    }
    if (arguments.size() == 1) return link_.Remove(pool, item);
    if (Outcome flushed = link_.Flush(); !flushed) return flushed;
    link_.BeforeChange();
    const Arguments values = arguments.subspan(2);
    if (is_insert) return Insert(db, values, row_id);
    const auto record = pool.CopyRecord(item);
    if (Outcome taken = TakeAll(values, false, *record); !taken) return taken;
    return link_.Set(pool, item, *record);
  }

 private:
  class Reading final : public RecordCursor {
   public:
    explicit Reading(const PoolTable& table)
        : RecordCursor(table.link_, table.access_), table_(table) {}

    void Value(sqlite3_context* to, int column) override {
      const auto index = static_cast<std::size_t>(column);
      // An update without a word on units is in those that its query asked for.
      if (index >= table_.of_.columns.size()) return source_.TheUnits().GiveNames(to);
      if (table_.link_.IsWritable() && sqlite3_vtab_nochange(to)) return;
      if (!source_.IsThere()) return;
      GiveMember(to, table_.of_.columns[index], source_.Bytes(),
                 *KeyedSetBase::RecordAt(source_.Item()), source_.TheUnits());
    }

   private:
    const PoolTable& table_;
  };

  Outcome Insert(sqlite3* db, Arguments values, sqlite3_int64* row_id) {
    DPoolBase& pool = *of_.pool;
    const auto record = pool.NewRecord();
    KeyedSetBase::SetKey(*record, pool.Set().GetFreeKey());
    if (Outcome taken = TakeAll(values, true, *record); !taken) return taken;
    const Key key = record->GetKey();
    if (key < 0) return Failure{"", "table " + Name(), "has no key left", "renumber its records"};
    *row_id = key;
    if (const ITR there = pool.Find(key)) {
      if (ReplacesOnConflict(db)) return link_.Set(pool, there, *record);
      return Failure{"", PlaceOf(Name(), key), "is there already", "give another key, or none"};
    }
    if (pool.InsertNU(record.get())) return {};
    return Failure{"", PlaceOf(Name(), key), "the model refuses it", "see what it must be"};
  }

  /// Takes the values of a row into a record: what is not named in an insertion keeps its default.
  Outcome TakeAll(Arguments values, bool is_insert, TStructBase& record) const {
    Units units(link_.Session());
    const auto unit = static_cast<std::size_t>(access_.unit);
    if (access_.unit >= 0 && !sqlite3_value_nochange(values[unit])) {
      if (Outcome chosen = units.Choose(values[unit]); !chosen) return chosen;
    }
    // Integers first: what unit a number has may follow from them.
    for (const bool reals : {false, true}) {
      for (std::size_t i = 0; i < of_.columns.size(); ++i) {
        sqlite3_value* value = values[i];
        const MemberColumn& column = of_.columns[i];
        if ((column.form == MemberColumn::Form::kReal) != reals) continue;
        if (is_insert ? sqlite3_value_type(value) == SQLITE_NULL : sqlite3_value_nochange(value)) {
          continue;
        }
        Outcome taken = TakeMember(column, value, detail::Bytes(record), record, units,
                                   link_.Session(), PlaceOf(Name(), record.GetKey()));
        if (!taken) return taken;
      }
    }
    return {};
  }

  Link& link_;
  const PoolColumns of_;
  Access access_;
};

// ---- arrays -------------------------------------------------------------------------------------

// Before the columns of an element.
constexpr int kOwner = 0;
constexpr int kPlace = 1;
constexpr int kElement = 2;

std::vector<Column> ArrayTableColumns(const PoolColumns& owner, const ArrayColumns& array) {
  std::string owner_name = owner.name;
  const auto is_element = [&](const Column& column) { return column.name == owner_name; };
  while (std::any_of(array.columns.begin(), array.columns.end(), is_element))
    owner_name = "of_" + owner_name;
  std::vector<Column> columns = {
      {.name = owner_name, .meaning = "key of the record that has the array"},
      {.name = "position", .meaning = "place in the array, from 0 on"}};
  const std::vector<Column> elements = WithUnit(array.columns);
  columns.insert(columns.end(), elements.begin(), elements.end());
  return columns;
}

class ArrayTable final : public Table {
 public:
  ArrayTable(Link& link, const PoolColumns& owner, const ArrayColumns& array)
      : Table(array.name, ArrayTableColumns(owner, array)),
        link_(link),
        pool_(*owner.pool),
        owner_(owner.name),
        array_(array) {
    access_.pool = &pool_;
    access_.key = kOwner;
    access_.unit = UnitIndex(Columns());
    for (std::size_t i = 0; i < array_.columns.size(); ++i) {
      if (array_.columns[i].form != MemberColumn::Form::kReference) continue;
      access_.references.push_back({kElement + static_cast<int>(i), array_.row});
      reference_ = static_cast<int>(i);
    }
  }

  std::string Meaning() const override {
    return "array " + Utf8(array_.row->name) + " of the records of " + owner_;
  }
  int BestIndex(sqlite3_index_info& info) override {
    const int result = RecordSource::BestIndex(access_, info);
    info.estimatedRows *= 8;  // elements to a record, about
    return result;
  }
  std::unique_ptr<Cursor> Open() override { return std::make_unique<Reading>(*this); }
  bool IsWritable() const override { return true; }

  Outcome Update(sqlite3* db, Arguments arguments, sqlite3_int64* row_id) override {
    if (sqlite3_value_type(arguments[0]) == SQLITE_NULL) {
      return Insert(db, arguments.subspan(2), row_id);
    }
    const sqlite3_int64 row = sqlite3_value_int64(arguments[0]);
    const ITR item = pool_.Find(static_cast<Key>(row >> 32));
    const std::int64_t place = kMaxKey - (row & kMaxKey);
    if (!item) return Gone();
    link_.BeforeChange();
    const auto draft = link_.Draft(pool_, item);
    if (!draft) return draft.AsOutcome();
    TStructBase& record = **draft;
    const ArrayStorage& array = StorageOf(record);
    if (place >= array.count) return Gone();
    char* at = static_cast<char*>(array.data) + place * array_.row->element_size;
    if (arguments.size() == 1) {
      TakeOut(record, place);
      return {};
    }
    const Arguments values = arguments.subspan(2);
    if (!sqlite3_value_nochange(values[kOwner]) || !sqlite3_value_nochange(values[kPlace])) {
      return Failure{"", "table " + Name(), "a row keeps its record and its position",
                     "delete it and insert another"};
    }
    std::vector<char> element(at, at + array_.row->element_size);
    if (Outcome taken = TakeElement(values, true, element.data(), record); !taken) return taken;
    if (NamesOnce() && LoadAt<ITR>(at) != LoadAt<ITR>(element.data())) {
      if (Has(record, LoadAt<ITR>(element.data()))) return HasAlready(record, element.data());
      members_.erase(LoadAt<ITR>(at));
      members_.insert(LoadAt<ITR>(element.data()));
    }
    std::copy(element.begin(), element.end(), at);
    return {};
  }

 private:
  class Reading final : public PartCursor {
   public:
    explicit Reading(const ArrayTable& table)
        : PartCursor(table.link_, table.access_), table_(table) {}

    void Value(sqlite3_context* to, int column) override {
      const auto index = static_cast<std::size_t>(column - kElement);
      if (column >= kElement && index >= table_.array_.columns.size()) {
        return source_.TheUnits().GiveNames(to);
      }
      if (table_.link_.IsWritable() && sqlite3_vtab_nochange(to)) return;
      if (!source_.IsThere() || place_ >= Array().count) return;
      if (column == kOwner) return sqlite3_result_int(to, KeyOf(source_.Item()));
      if (column == kPlace) return sqlite3_result_int64(to, place_);
      GiveMember(to, table_.array_.columns[index], Element(),
                 *KeyedSetBase::RecordAt(source_.Item()), source_.TheUnits());
    }
    /// Higher for earlier places: SQLite deletes in the order of row ids, and what is taken out of
    /// an array from its end leaves the places before it as they are.
    sqlite3_int64 RowId() override {
      if (!source_.IsThere()) return -1;
      return sqlite3_int64{KeyOf(source_.Item())} << 32 | (kMaxKey - place_);
    }

   private:
    const ArrayStorage& Array() const {
      return detail::ArrayAt(source_.Bytes(), *table_.array_.row);
    }
    const char* Element() const {
      return static_cast<const char*>(Array().data) + place_ * table_.array_.row->element_size;
    }
    std::int64_t Parts() const override { return Array().count; }
    bool IsWanted() const override {
      if (!source_.Target()) return true;
      const auto& column = table_.array_.columns[static_cast<std::size_t>(table_.reference_)];
      return LoadAt<ITR>(Element() + column.offset) == source_.Target();
    }

    const ArrayTable& table_;
  };

  ArrayStorage& StorageOf(TStructBase& record) const {
    return detail::ArrayAt(detail::Bytes(record), *array_.row);
  }
  Failure Gone() const {
    return {"", "table " + Name(), "the row is gone", "run the statement again"};
  }

  /// The array that loses an entry with each of this one; null for none.
  const Row* Beside() const {
    const Row* row = array_.row->beside ? pool_.GetSchema().At(array_.row->beside) : nullptr;
    return row && row->IsArray() ? row : nullptr;
  }

  void TakeOut(TStructBase& record, std::int64_t place) {
    members_of_ = nullptr;
    RemoveAt(StorageOf(record), *array_.row, place);
    if (const Row* beside = Beside()) {
      RemoveAt(detail::ArrayAt(detail::Bytes(record), *beside), *beside, place);
    }
  }
  static void RemoveAt(ArrayStorage& array, const Row& row, std::int64_t place) {
    if (place >= array.count) return;
    char* at = static_cast<char*>(array.data) + place * row.element_size;
    std::memmove(at, at + row.element_size,
                 static_cast<std::size_t>((array.count - place - 1) * row.element_size));
    --array.count;
  }

  void PutIn(TStructBase& record, std::int64_t place, const char* element) {
    InsertAt(StorageOf(record), *array_.row, place, element);
    if (members_of_ == &record) members_.insert(LoadAt<ITR>(element));
  }
  static void InsertAt(ArrayStorage& array, const Row& row, std::int64_t place,
                       const char* element) {
    const auto size = static_cast<std::size_t>(row.element_size);
    if (array.count == array.capacity) {
      array.Reserve(std::max<std::int64_t>(4, 2 * std::int64_t{array.count}), size);
    }
    array.Resize(std::int64_t{array.count} + 1, size);
    char* at = static_cast<char*>(array.data) + place * row.element_size;
    std::memmove(at + size, at, static_cast<std::size_t>(array.count - 1 - place) * size);
    std::memcpy(at, element, size);
  }

  /// Whether the array, which names each record once, names this one. Many may be asked for in a
  /// row: what a draft names is remembered.
  bool Has(const TStructBase& draft, ITR target) {
    if (members_of_ != &draft || members_epoch_ != link_.DraftEpoch()) {
      const ArrayStorage& array = detail::ArrayAt(detail::Bytes(draft), *array_.row);
      const auto* first = static_cast<const ITR*>(array.data);
      members_ = {first, first + array.count};
      members_of_ = &draft;
      members_epoch_ = link_.DraftEpoch();
    }
    return members_.contains(target);
  }

  Outcome Insert(sqlite3* db, Arguments values, sqlite3_int64* row_id) {
    const Key key = KeyIn(values[kOwner]);
    const ITR item = key < 0 ? 0 : pool_.Find(key);
    if (!item) {
      return Failure{"", "table " + Name(),
                     Columns()[kOwner].name + " names no record of " + owner_, "insert that first"};
    }
    link_.BeforeChange();
    const auto draft = link_.Draft(pool_, item);
    if (!draft) return draft.AsOutcome();
    TStructBase& record = **draft;
    const ArrayStorage& array = StorageOf(record);
    std::int64_t place = array.count;
    if (sqlite3_value_type(values[kPlace]) != SQLITE_NULL) {
      place = KeyIn(values[kPlace]);
      if (place < 0 || place > array.count) {
        return Failure{"", PlaceOf(owner_, key),
                       "position is a number from 0 to " + std::to_string(array.count),
                       "leave it out to add at the end"};
      }
    }
    std::vector<char> element(static_cast<std::size_t>(array_.row->element_size));
    if (Outcome taken = TakeElement(values, false, element.data(), record); !taken) return taken;
    *row_id = sqlite3_int64{key} << 32 | (kMaxKey - place);
    if (NamesOnce() && Has(record, LoadAt<ITR>(element.data()))) {
      if (ReplacesOnConflict(db)) return {};
      return HasAlready(record, element.data());
    }
    PutIn(record, place, element.data());
    return {};
  }

  /// Whether the array names each record once; the nodes of an element are a list instead.
  bool NamesOnce() const {
    return array_.row->kind == MemberKind::kReferenceArray && pool_.GetTypeCode() != code::kElem;
  }
  Failure HasAlready(const TStructBase& record, const char* element) const {
    return {"", PlaceOf(owner_, record.GetKey()),
            "has " + array_.columns[0].name + ' ' + std::to_string(KeyOf(LoadAt<ITR>(element))) +
                " already",
            "use OR IGNORE: INSERT OR IGNORE, UPDATE OR IGNORE"};
  }

  Outcome TakeElement(Arguments values, bool is_update, char* at, const TStructBase& record) const {
    Units units(link_.Session());
    const auto unit = static_cast<std::size_t>(access_.unit);
    if (access_.unit >= 0 && !sqlite3_value_nochange(values[unit])) {
      if (Outcome chosen = units.Choose(values[unit]); !chosen) return chosen;
    }
    std::vector<char> taken(at, at + array_.row->element_size);
    for (std::size_t i = 0; i < array_.columns.size(); ++i) {
      sqlite3_value* value = values[static_cast<std::size_t>(kElement) + i];
      if (is_update && sqlite3_value_nochange(value)) continue;
      Outcome done = TakeMember(array_.columns[i], value, taken.data(), record, units,
                                link_.Session(), PlaceOf(owner_, record.GetKey()));
      if (!done) return done;
    }
    std::copy(taken.begin(), taken.end(), at);
    return {};
  }

  Link& link_;
  DPoolBase& pool_;
  const std::string owner_;
  const ArrayColumns array_;
  Access access_;
  int reference_ = -1;
  // What a draft names, while it waits.
  const TStructBase* members_of_ = nullptr;
  std::uint64_t members_epoch_ = 0;
  std::unordered_set<ITR> members_;
};

}  // namespace

std::unique_ptr<Table> MakePoolTable(Link& link, const PoolColumns& columns) {
  return std::make_unique<PoolTable>(link, columns);
}

std::unique_ptr<Table> MakeArrayTable(Link& link, const PoolColumns& owner,
                                      const ArrayColumns& array) {
  return std::make_unique<ArrayTable>(link, owner, array);
}

}  // namespace qx::sql
