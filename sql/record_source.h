#pragma once
// The records of a pool that a query is about, one after the other: the one way in which tables
// read records, with the indices that serve them.
// Threads: the one that drives the session.

#include "sql/link.h"
#include "sql/table.h"

namespace qx::sql {

/// Which columns of a table lead to records of a pool.
struct Access {
  const DPoolBase* pool = nullptr;
  int key = -1;  ///< column of the records' keys
  struct Reference {
    int column;
    const Row* row;
  };
  std::vector<Reference> references = {};  ///< columns of what the records refer to
  int position = -1;                       ///< first of three columns of a node's place
  int unit = -1;                           ///< the hidden column that names units
  bool row_id_is_item = false;             ///< row ids are positions of records
};

/// Plans by an Access, and walks by such a plan.
///
/// What the session does meanwhile: before a change that is made through the tables, Freeze keeps
/// what is still to come; records that are gone by then are passed over. After any other change of
/// the pool a walk over all of it ends with a failure, since it cannot go on.
class RecordSource {
 public:
  /// Fills in the plan. The first constraint that says most is used: a key, a target, a box, a
  /// range of keys.
  static int BestIndex(const Access& access, sqlite3_index_info& info);

  RecordSource(Link& link, const Access& access)
      : link_(link), access_(access), set_(access.pool->Set()), units_(link.Session()) {}
  ~RecordSource() { link_.Forget(*this); }
  RecordSource(const RecordSource&) = delete;
  RecordSource& operator=(const RecordSource&) = delete;

  Outcome Start(int plan, Arguments arguments);
  bool AtEnd() const { return item_ == 0; }
  ITR Item() const { return item_; }
  const char* Bytes() const { return reinterpret_cast<const char*>(KeyedSetBase::RecordAt(item_)); }
  /// False, where it is, when a walk cannot go on.
  bool Next() {
    if (is_list_) {
      NextOfList();
    } else if (revision_ == set_.Revision()) {
      set_.Next(item_);
    } else {
      return false;
    }
    return true;
  }
  /// Whether the present record is still there: another part of the statement, or the session, may
  /// have removed it since. What is not has no values.
  bool IsThere() const { return revision_ == set_.Revision() || set_.IsLinked(item_); }
  /// Why a walk could not go on.
  Failure Stale() const;
  /// The target of a plan by reference; 0 of any other.
  ITR Target() const { return target_; }
  const Units& TheUnits() const { return units_; }
  void Freeze();

 private:
  void NextOfList();
  void StartByKey(sqlite3_value* value);
  void StartByReference(int column, sqlite3_value* value);
  void StartByBox(int bounds, Arguments arguments);
  void StartByRange(int bounds, Arguments arguments);
  void Give(std::vector<ITR> items);

  Link& link_;
  const Access& access_;
  const KeyedSetBase& set_;
  Units units_;
  ITR item_ = 0;
  bool is_list_ = false;
  std::uint64_t revision_ = 0;
  std::shared_ptr<const std::vector<ITR>> list_;
  std::size_t at_ = 0, end_ = 0;
  ITR target_ = 0;
};

/// A reading of a table: a row for each record.
class RecordCursor : public Cursor {
 public:
  RecordCursor(Link& link, const Access& access) : source_(link, access) {}

  Outcome Filter(int plan, Arguments arguments) override { return source_.Start(plan, arguments); }
  bool AtEnd() const override { return source_.AtEnd(); }
  bool Next() override { return source_.Next(); }
  Failure Fault() const override { return source_.Stale(); }
  sqlite3_int64 RowId() override { return static_cast<sqlite3_int64>(source_.Item()); }

 protected:
  RecordSource source_;
};

/// The same with a row for each part of the records that is wanted.
class PartCursor : public RecordCursor {
 public:
  using RecordCursor::RecordCursor;

  Outcome Filter(int plan, Arguments arguments) override {
    place_ = 0;
    if (Outcome started = source_.Start(plan, arguments); !started) return started;
    SkipToWanted();  // the first record is there
    return {};
  }
  bool Next() override {
    ++place_;
    return SkipToWanted();
  }

 protected:
  /// How many parts the present record has.
  virtual std::int64_t Parts() const = 0;
  /// Whether the present part, one that there is, is a row.
  virtual bool IsWanted() const { return true; }

  std::int64_t place_ = 0;  ///< of the present part in the present record

 private:
  /// On to the first part from the present place on that there is and is wanted.
  bool SkipToWanted() {
    while (!source_.AtEnd()) {
      const std::int64_t parts = Parts();
      while (place_ < parts && !IsWanted()) ++place_;
      if (place_ < parts) return true;
      if (!source_.Next()) return false;
      place_ = 0;
    }
    return true;
  }
};

/// A number that a query compares with: its value with the affinity of a numeric column. False for
/// what is none.
bool IsNumber(sqlite3_value* value);
/// The key that a value means exactly; -1 for none.
Key KeyIn(sqlite3_value* value);

}  // namespace qx::sql
