// The tables while other things happen: to the model, to the statement, to the connection.

#include <gtest/gtest.h>

#include "qx_db/platform/long_work.h"

#include "tests/sql/database.h"
#include "tests/sql/model.h"

namespace qx::sql {
namespace {

class Hostile : public testing::Test {
 protected:
  Hostile() : session_(host::SetUpModel) { FillBlock(session_, 3); }

  sqlite3_stmt* Prepare(Database& db, const std::string& text) {
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db.Connection(), text.c_str(), -1, &statement, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db.Connection());
    return statement;
  }
  /// Rows that a statement still gives, and how it ended.
  static std::pair<int, int> Rest(sqlite3_stmt* statement) {
    int rows = 0, result = 0;
    while ((result = sqlite3_step(statement)) == SQLITE_ROW) ++rows;
    sqlite3_finalize(statement);
    return {rows, result};
  }

  CQXDBSession session_;
};

TEST_F(Hostile, WalkEndsWhenItsPoolChangedOutsideOfSql) {
  Database db(session_);
  sqlite3_stmt* nodes = Prepare(db, "SELECT key FROM node");
  sqlite3_stmt* few = Prepare(db, "SELECT key FROM node WHERE x > -1");  // by a list of its own
  sqlite3_stmt* sets = Prepare(db, "SELECT key FROM mesh_set");
  for (sqlite3_stmt* statement : {nodes, few, sets}) ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
  CTransaction transaction(&session_);
  transaction.Begin(u"outside");
  auto& pool = Pool<tagTNode>(session_);
  pool.Remove(pool.Find(65));
  EXPECT_EQ(sqlite3_step(nodes), SQLITE_ABORT);
  EXPECT_STREQ(sqlite3_errmsg(db.Connection()),
               "table node: changed while the query read it; run the query again");
  sqlite3_finalize(nodes);
  EXPECT_EQ(Rest(few), std::make_pair(64, SQLITE_DONE));  // without the node that went
  EXPECT_EQ(Rest(sets), std::make_pair(1, SQLITE_DONE));
  transaction.Commit();
}

TEST_F(Hostile, WalkGoesOnWithWhatItHadWhenSqlChangesTheModel) {
  Database db(session_, true);
  sqlite3_stmt* nodes = Prepare(db, "SELECT key FROM node");
  sqlite3_stmt* elements = Prepare(db, "SELECT element, node FROM element_node");
  for (sqlite3_stmt* statement : {nodes, elements}) ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
  db.Run("INSERT INTO node(x) VALUES (1); DELETE FROM node WHERE key IN (64, 65)");
  EXPECT_EQ(db.Fault(), "");
  EXPECT_EQ(Rest(nodes), std::make_pair(63, SQLITE_DONE));
  EXPECT_EQ(Rest(elements), std::make_pair(26 * 8 - 1, SQLITE_DONE));
  EXPECT_EQ(session_.Validate(), "");
}

/// The outer row of a join is read again for each inner one, also once its record is gone, freed.
TEST_F(Hostile, RowsOfRecordsThatAreGoneHaveNoValues) {
  Database db(session_);
  sqlite3_stmt* pairs = Prepare(db,
                                "SELECT s.name, m.element, q.volume, d.kind FROM mesh_set s "
                                "CROSS JOIN mesh_set_element m CROSS JOIN element_measure q "
                                "CROSS JOIN element_side d CROSS JOIN property p "
                                "WHERE s.key = 3 AND m.mesh_set = 3 AND q.element = 1 AND "
                                "d.element = 1");
  ASSERT_EQ(sqlite3_step(pairs), SQLITE_ROW);
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(pairs, 0)), "lower");
  session_.EnableRecording(false);
  Pool<tagTMset>(session_).RemoveAll();
  Pool<tagTElem>(session_).RemoveAll();
  ASSERT_EQ(sqlite3_step(pairs), SQLITE_ROW);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(sqlite3_column_type(pairs, i), SQLITE_NULL) << i;
  sqlite3_finalize(pairs);
}

TEST_F(Hostile, InterruptedStatementsChangeNothing) {
  Database db(session_, true);
  const std::uint64_t before = session_.StateHash();
  int left = 50;
  sqlite3_progress_handler(
      db.Connection(), 10, [](void* count) { return --*static_cast<int*>(count) < 0 ? 1 : 0; },
      &left);
  db.Run("UPDATE node SET x = x + (SELECT count(*) FROM element_node WHERE node = key)");
  EXPECT_EQ(db.Fault(), "interrupted");
  sqlite3_progress_handler(db.Connection(), 0, nullptr, nullptr);
  EXPECT_EQ(session_.StateHash(), before);
  EXPECT_EQ(db.One("SELECT count(*) FROM node"), "66");
}

/// Long work inside a table ends where who waits for it has it end.
TEST_F(Hostile, LongWorkInsideATableCanBeEnded) {
  Database db(session_);
  struct Enough {};
  int told = 0;
  {
    const WorkWatch watch(
        [&](double) {
          ++told;
          throw Enough{};
        },
        WorkWatch::Pause(0));
    db.Run("SELECT count(*) FROM finding");
  }
  EXPECT_EQ(db.Fault(), told > 0 ? "interrupted" : "");
  EXPECT_EQ(db.One("SELECT count(*) FROM free_face"), "54");
}

TEST_F(Hostile, ReadOnlyUnlessAskedFor) {
  Database db(session_);
  const std::uint64_t before = session_.StateHash();
  for (const char* text : {"DELETE FROM node", "UPDATE node SET x = 1",
                           "INSERT INTO node(x) VALUES (1)", "DELETE FROM element_node"}) {
    db.Run(text);
    EXPECT_NE(db.Fault().find("is open to be read only"), std::string::npos) << db.Fault();
  }
  EXPECT_EQ(session_.StateHash(), before);
}

TEST_F(Hostile, AFailingRowTakesBackItsStatementOnly) {
  Database db(session_, true);
  db.Run("BEGIN; UPDATE node SET x = 10 WHERE key = 1");
  db.Run("UPDATE node SET x = CASE WHEN key < 30 THEN 5 ELSE 'no' END");
  EXPECT_NE(db.Fault(), "");
  db.Run("INSERT INTO node(key, x) VALUES (300, 3), (301, 'no')");
  EXPECT_NE(db.Fault(), "");
  db.Run("COMMIT");
  EXPECT_EQ(db.Fault(), "");
  EXPECT_EQ(db.One("SELECT count(*) FROM node WHERE x > 3"), "1");
  EXPECT_EQ(db.One("SELECT max(key) FROM node"), "66");
  EXPECT_EQ(session_.History().Done().size(), 2u);
  session_.Undo();
  EXPECT_EQ(db.One("SELECT x FROM node WHERE key = 1"), "0");
}

/// A commit that an ordinary table of the same transaction cannot make takes the model's back.
TEST_F(Hostile, AStepEndsWithAllOfItsTransactionOrNotAtAll) {
  Database db(session_, true);
  db.Run(
      "CREATE TABLE parent(k PRIMARY KEY); CREATE TABLE child(k REFERENCES parent DEFERRABLE "
      "INITIALLY DEFERRED); PRAGMA foreign_keys = ON");
  const std::uint64_t before = session_.StateHash();
  db.Run("BEGIN; UPDATE node SET x = 9; INSERT INTO child VALUES (1); COMMIT");
  EXPECT_NE(db.Fault(), "");
  db.Run("ROLLBACK");
  EXPECT_EQ(session_.StateHash(), before);
  EXPECT_FALSE(session_.IsBusy());
}

TEST_F(Hostile, SeveralModelsOnOneConnection) {
  CQXDBSession other(host::SetUpModel);
  FillBlock(other, 2);
  Database db(session_, true);
  ASSERT_TRUE(AddModelTables(db.Connection(), other, {false, "b_", {}}));
  EXPECT_EQ(db.One("SELECT count(*) FROM node JOIN b_node USING (key)"), "29");
  for (const char* again : {"b_", "B_"}) {  // as SQL takes names
    EXPECT_FALSE(AddModelTables(db.Connection(), other, {false, again, {}}));
    EXPECT_EQ(db.One("SELECT count(*) FROM b_node"), "29");
  }
  // A prefix is no pattern.
  ASSERT_TRUE(AddModelTables(db.Connection(), other, {false, "bx", {}}));
  ASSERT_TRUE(AddModelTables(db.Connection(), other, {false, "%", {}}));
  for (const char* prefix : {"%", "B_"}) {
    ASSERT_TRUE(DropModelTables(db.Connection(), prefix));
    EXPECT_EQ(db.One("SELECT count(*) FROM node"), "66") << prefix;
    EXPECT_EQ(db.One("SELECT count(*) FROM bxnode"), "29") << prefix;
    EXPECT_TRUE(AddModelTables(db.Connection(), other, {false, prefix, {}}));
    ASSERT_TRUE(DropModelTables(db.Connection(), prefix));
  }
  db.Run("SELECT * FROM b_node");
  EXPECT_NE(db.Fault(), "");
  // A table that stands in the way leaves none of the others.
  db.Run("CREATE TEMP TABLE c_node(a)");
  EXPECT_FALSE(AddModelTables(db.Connection(), other, {false, "c_", {}}));
  EXPECT_EQ(db.One("SELECT count(*) FROM temp.sqlite_master WHERE name LIKE 'c!_%' ESCAPE '!'"),
            "1");
}

/// All tables go or none, and with the last the session, whatever statements are yet prepared.
TEST_F(Hostile, TablesGoTogether) {
  auto owner = std::make_shared<int>();
  const std::weak_ptr<int> held = owner;
  sqlite3* db = nullptr;
  sqlite3_open(":memory:", &db);
  ASSERT_TRUE(AddModelTables(db, session_, {true, "", std::move(owner)}));
  const auto prepare = [&](const char* text) {
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db, text, -1, &statement, nullptr), SQLITE_OK);
    return statement;
  };
  const auto count = [&] {
    sqlite3_stmt* names = prepare("SELECT count(*) FROM temp.sqlite_master");
    sqlite3_step(names);
    const int found = sqlite3_column_int(names, 0);
    sqlite3_finalize(names);
    return found;
  };
  const int all = count();
  sqlite3_stmt* reading = prepare("SELECT key FROM node");
  sqlite3_stmt* writing = prepare("UPDATE node SET x = x + 1");
  ASSERT_EQ(sqlite3_step(writing), SQLITE_DONE);
  ASSERT_EQ(sqlite3_step(reading), SQLITE_ROW);
  EXPECT_EQ(DropModelTables(db).Line(),
            "tables: a statement still uses them; finish or reset it first");
  EXPECT_EQ(count(), all);
  sqlite3_reset(reading);
  sqlite3_exec(db, "BEGIN; UPDATE node SET x = x + 1", nullptr, nullptr, nullptr);
  EXPECT_EQ(DropModelTables(db).Line(), "tables: a transaction is open; COMMIT or ROLLBACK first");
  EXPECT_EQ(count(), all);
  sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
  EXPECT_FALSE(held.expired());
  EXPECT_EQ(DropModelTables(db).Line(), "");
  EXPECT_EQ(count(), 0);
  EXPECT_TRUE(held.expired());
  for (sqlite3_stmt* statement : {reading, writing}) {
    EXPECT_EQ(sqlite3_step(statement), SQLITE_ERROR);
    EXPECT_STREQ(sqlite3_errmsg(db), "no such table: node");
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  EXPECT_EQ(session_.History().Done().size(), 3u);
}

/// What lacks a node has no size; what has none of any extent has the size 0.
TEST_F(Hostile, BrokenElementsHaveNoMeasures) {
  auto& elements = Pool<tagTElem>(session_);
  CTransaction transaction(&session_);
  transaction.Begin(u"broken");
  const auto change = [&](Key key, auto&& how) {
    const ITR at = elements.Find(key);
    tagTElem element = elements.GetAtNU(at);
    how(element);
    elements.SetAtNU(at, element);
  };
  change(1, [](tagTElem& element) { element.nodes[2] = 0; });
  change(2, [](tagTElem& element) { element.nodes = {}; });
  change(3, [](tagTElem& element) {
    for (ITR& node : element.nodes) node = element.nodes[0];
  });
  transaction.Commit();
  Database db(session_);
  const std::string measures = "SELECT volume, min_length, center_x FROM element_measure ";
  const Row none(3, "NULL");
  EXPECT_EQ(db.Run(measures + "WHERE element IN (1, 2)"), (Rows{none, none}));
  EXPECT_EQ(db.Run(measures + "WHERE element = 3"), (Rows{{"0", "0", "2"}}));
  // Three of the six faces meet in the node that is missing.
  const std::string sides = "SELECT count(*), count(size), sum(size) FROM element_side ";
  EXPECT_EQ(db.Run(sides + "WHERE element = 1"), (Rows{{"6", "3", "3"}}));
  EXPECT_EQ(db.Run(sides + "WHERE element = 2"), (Rows{{"6", "0", "NULL"}}));
  EXPECT_EQ(db.Run(sides + "WHERE element = 3"), (Rows{{"6", "6", "0"}}));
}

TEST_F(Hostile, CoordinatesThatAreNoNumbersAreNull) {
  auto& nodes = Pool<tagTNode>(session_);
  CTransaction transaction(&session_);
  transaction.Begin(u"no number");
  tagTNode node = nodes.GetAtNU(nodes.Find(65));
  node.position.y = std::nan("");
  nodes.SetAtNU(nodes.Find(65), node);
  transaction.Commit();
  Database db(session_);
  EXPECT_EQ(db.One("SELECT y IS NULL FROM node WHERE key = 65"), "1");
  EXPECT_EQ(db.One("SELECT count(*) FROM node WHERE x >= 0"), "66");
  EXPECT_EQ(db.One("SELECT count(*) FROM node WHERE y >= -1e300"), "65");
}

}  // namespace
}  // namespace qx::sql
