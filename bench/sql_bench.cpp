// Models as tables of SQLite, beside ordinary tables in memory and beside the library's own verbs.

#include <sqlite3.h>

#include "bench/harness.h"
#include "bench/workload.h"
#include "sql/model_tables.h"

namespace qx::bench {
namespace {

/// A statement that is prepared once.
class Statement {
 public:
  Statement(sqlite3* db, const char* text) {
    sqlite3_prepare_v2(db, text, -1, &statement_, nullptr);
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  /// Seconds that all rows take. With a key, of `WHERE key = ?`.
  double Seconds() {
    return Time([&] { Run(); });
  }
  void Run(Key key = 0) {
    sqlite3_reset(statement_);
    if (key) sqlite3_bind_int(statement_, 1, key);
    while (sqlite3_step(statement_) == SQLITE_ROW) {
      const double value = sqlite3_column_double(statement_, 0);
      Keep(value);
    }
  }

 private:
  sqlite3_stmt* statement_ = nullptr;
};

}  // namespace

void Sql() {
  CQXDBSession session(AddStandardPools);
  FillBlock(session, kMillion);
  sqlite3* db = nullptr;
  sqlite3_open(":memory:", &db);
  if (!sql::AddModelTables(db, session)) return;
  sqlite3_exec(db,
               "CREATE TABLE plain(key INTEGER PRIMARY KEY, x REAL, y REAL, z REAL, flags INTEGER);"
               "INSERT INTO plain SELECT * FROM node",
               nullptr, nullptr, nullptr);
  for (const char* what : {"sum(x)", "sum(x + y + z)"}) {
    Statement ours(db, (std::string("SELECT ") + what + " FROM node").c_str());
    Statement theirs(db, (std::string("SELECT ") + what + " FROM plain").c_str());
    Compare(
        std::string(what) + " of 1 M nodes", "ordinary table in memory", 1.3,
        [&] { return ours.Seconds(); }, [&] { return theirs.Seconds(); });
  }
  constexpr int kLookUps = 200000;
  const std::vector<Key> keys = [] {
    std::mt19937 random(3);
    std::vector<Key> some(kLookUps);
    for (Key& key : some) key = static_cast<Key>(random() % kMillion + 1);
    return some;
  }();
  const auto look_up = [&](Statement& statement) {
    return Time([&] {
      for (const Key key : keys) statement.Run(key);
    });
  };
  {
    Statement ours(db, "SELECT x FROM node WHERE key = ?");
    Statement theirs(db, "SELECT x FROM plain WHERE key = ?");
    Compare(
        "200 000 nodes by key", "ordinary table in memory", 1.0, [&] { return look_up(ours); },
        [&] { return look_up(theirs); });
    Figure("a node by key", 1e6 * look_up(ours) / kLookUps, "us", 2);
    Statement users(db, "SELECT count(*) FROM element_node WHERE node = ?");
    users.Run(1);  // turns the references round
    Figure("elements of a node", 1e6 * look_up(users) / kLookUps, "us", 10);
  }
  {
    Statement volumes(db, "SELECT avg(volume) FROM element_measure");
    const CQXMeshUtil util(&session);
    const auto& elements = Pool<tagTElem>(session);
    const auto verb = [&] {
      double sum = 0;
      for (ITR at = elements.GetHeadPosition(); at; elements.Next(at))
        sum += util.GetElemVolume(at);
      Keep(sum);
    };
    std::vector<double> query, alone;
    for (int i = 0; i < 6; ++i) {
      alone.push_back(Time(verb));
      query.push_back(volumes.Seconds());
    }
    const auto median = [](std::vector<double> seconds) {
      seconds.erase(seconds.begin());  // the first warms up
      std::sort(seconds.begin(), seconds.end());
      return seconds[seconds.size() / 2];
    };
    const double beyond = median(query) - median(alone);
    Figure("avg(volume), a hexahedron beyond the verb", 1e9 * beyond / kMillion, "ns", 100);
  }
  {
    Statement box(db, "SELECT count(*) FROM node WHERE x BETWEEN 5 AND 5.01 AND y < 1");
    Statement scan(db, "SELECT count(*) FROM plain WHERE x BETWEEN 5 AND 5.01 AND y < 1");
    Compare(
        "nodes of a small box", "scan of an ordinary table", 0.1, [&] { return box.Seconds(); },
        [&] { return scan.Seconds(); });
  }
  sqlite3_close(db);
}

}  // namespace qx::bench
