// Laws of the tables over random models: they show what the gateway shows, what is read and written
// back is the same record, plans change no answer, and changes are those of ordinary tables.

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "qx_db/gateway/document.h"
#include "qx_db/qx_db.h"

#include "tests/record/random_record.h"
#include "tests/sql/database.h"
#include "tests/sql/model.h"

namespace qx::sql {
namespace {

// Every pool of every model is filled: unless a run asks for more, a quarter of the usual number of
// models must do.
[[maybe_unused]] const int kFewer = setenv("RC_PARAMS", "max_success=25", 0);

/// Three records of random contents in every pool. Arrays of references name each record once.
class RandomModel {
 public:
  RandomModel() : session_(host::SetUpModel) {
    for (DPoolBase* pool : session_.Pools()) {
      pool->RemoveAll();
      for (const Key key : {1, 2, 7}) {
        const auto record = pool->NewRecord();
        KeyedSetBase::SetKey(*record, key);
        items_[pool->GetTypeCode()].push_back(pool->InsertNU(record.get()));
      }
    }
    for (DPoolBase* pool : session_.Pools()) {
      for (const ITR item : items_[pool->GetTypeCode()]) {
        const auto record = pool->CopyRecord(item);
        FillRandomly(pool->GetSchema(), *record,
                     [&](std::uint16_t type) -> const std::vector<ITR>& { return items_[type]; });
        for (const qx::Row& row : pool->GetSchema().Rows()) {
          if (row.kind == MemberKind::kReferenceArray) MakeDistinct(row, *record);
        }
        pool->SetAtNU(item, record.get());
      }
    }
  }
  CQXDBSession& operator*() { return session_; }
  CQXDBSession* operator->() { return &session_; }

 private:
  static void MakeDistinct(const qx::Row& row, TStructBase& record) {
    ArrayStorage& array = detail::ArrayAt(detail::Bytes(record), row);
    auto* first = static_cast<ITR*>(array.data);
    std::sort(first, first + array.count);
    array.count = static_cast<std::int32_t>(std::unique(first, first + array.count) - first);
  }

  CQXDBSession session_;
  std::map<std::uint16_t, std::vector<ITR>> items_;
};

/// The leaves of a gateway value as the tables show them.
void Flatten(const dbgateway::Field& value, bool reference, Row& out) {
  if (value.IsArray()) {
    for (std::size_t i = 0; i < value.Size(); ++i) Flatten(value.At(i), reference, out);
  } else if (value.IsText()) {
    out.emplace_back(value.Text());
  } else if (value.IsInteger() || value.IsBool()) {
    const std::int64_t number = value.IsBool() ? value.Real() != 0 : value.Integer64();
    out.push_back(reference && number == 0 ? "NULL" : std::to_string(number));
  } else {
    out.push_back(fmt::format("{}", value.Real()));
  }
}

std::string NameOf(Database& db, const DPoolBase& pool) {
  return db.One("SELECT name FROM pool WHERE type_code = " + std::to_string(pool.GetTypeCode()));
}

RC_GTEST_PROP(SqlTables, ShowWhatTheGatewayShows, ()) {
  RandomModel model;
  Database db(*model);
  RC_ASSERT(db.Fault() == "");
  int compared = 0;
  for (DPoolBase* pool : model->Pools()) {
    const Schema& schema = pool->GetSchema();
    if (schema.Gateway().empty()) continue;
    dbgateway::DataBase document;
    TArray<Key> keys;
    RC_ASSERT(pool->WriteAPI(&document, keys, 0));
    const std::string table = NameOf(db, *pool);
    document.FindCollection(pool->GetAPIName().ToUtf8())
        ->ForEach([&](Key key, std::string_view, dbgateway::Record record) {
          Row expected{std::to_string(key)};
          for (std::size_t i = 0; i < schema.Gateway().size(); ++i) {
            const GatewayField& field = schema.Gateway()[i];
            const qx::Row& row = *schema.GatewayRows()[i];
            // Flags that hold another number than 0 or 1 are the gateway's to simplify.
            const bool flag = field.booleans || field.type == GatewayField::Type::kBool;
            if (field.form == GatewayField::Form::kDescribed || row.IsArray()) continue;
            const std::size_t first = expected.size();
            Flatten(record.Find(field.name), row.IsReference(), expected);
            if (flag) std::fill(expected.begin() + static_cast<int>(first), expected.end(), "flag");
          }
          const Rows rows = db.Run(fmt::format("SELECT * FROM \"{}\" WHERE key = {}", table, key));
          RC_ASSERT(rows.size() == 1u);
          RC_ASSERT(rows[0].size() >= expected.size());
          for (std::size_t i = 0; i < expected.size(); ++i) {
            if (expected[i] == "flag") continue;
            RC_ASSERT(std::make_pair(table, rows[0][i]) == std::make_pair(table, expected[i]));
            ++compared;
          }
        });
  }
  RC_ASSERT(compared > 1000);
}

/// The columns of a table but the unit's, in quotes.
std::vector<std::string> ColumnsOf(Database& db, const std::string& table) {
  std::vector<std::string> columns;
  for (const Row& row :
       db.Run("SELECT name FROM pragma_table_xinfo('" + table + "') WHERE hidden = 0")) {
    columns.push_back('"' + row[0] + '"');
  }
  return columns;
}

std::string Joined(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
  return text;
}

/// Copies of all records, made by SQL alone, are the records: each member was shown and taken.
RC_GTEST_PROP(SqlTables, TakeBackWhatTheyShow, ()) {
  RandomModel model;
  Database db(*model, true);
  RC_ASSERT(db.Fault() == "");
  const std::uint64_t before = model->StateHash();
  db.Run("BEGIN");
  constexpr Key kShift = 1000;
  for (DPoolBase* pool : model->Pools()) {
    const std::string table = NameOf(db, *pool);
    std::vector<std::string> columns = ColumnsOf(db, table);
    const std::string names = Joined(columns);
    columns[0] += " + " + std::to_string(kShift);
    db.Run(fmt::format("INSERT INTO \"{0}\"({1}) SELECT {2} FROM \"{0}\" WHERE key < 1000", table,
                       names, Joined(columns)));
    RC_ASSERT(std::make_pair(table, db.Fault()) == std::make_pair(table, std::string()));
    for (const Row& child :
         db.Run("SELECT name FROM temp.sqlite_schema WHERE name LIKE '" + table +
                "\\_%' ESCAPE '\\' AND sql LIKE '%/* array % records of " + table + "\n%'")) {
      std::vector<std::string> elements = ColumnsOf(db, child[0]);
      const std::string element_names = Joined(elements);
      const std::string owner = elements[0];
      elements[0] += " + " + std::to_string(kShift);
      db.Run(
          fmt::format("INSERT INTO \"{0}\"({1}) SELECT {2} FROM \"{0}\" WHERE {3} < 1000 ORDER BY "
                      "{3}, position",
                      child[0], element_names, Joined(elements), owner));
      RC_ASSERT(std::make_pair(child[0], db.Fault()) == std::make_pair(child[0], std::string()));
    }
    db.Run("SELECT count(*) FROM \"" + table + '"');  // what waits is stored
    for (const Key key : {1, 2, 7}) {
      const ITR original = pool->Find(key), copy = pool->Find(key + kShift);
      RC_ASSERT(original && copy);
      for (const qx::Row* row : Differences(pool->GetSchema(), *KeyedSetBase::RecordAt(original),
                                            *KeyedSetBase::RecordAt(copy))) {
        RC_ASSERT(table + Utf8(row->name) == table + "_KEY");
      }
    }
  }
  db.Run("ROLLBACK");
  RC_ASSERT(db.Fault() == "");
  RC_ASSERT(model->StateHash() == before);
  RC_ASSERT(model->Validate() == "");
}

// ---- the same answers as ordinary tables --------------------------------------------------------

/// A table, a column that others name, and columns that conditions are about.
struct Asked {
  const char* name;
  std::vector<const char*> columns;
};
const std::vector<Asked> kAsked = {
    {"node", {"key", "x", "y", "z"}},
    {"element", {"key", "type", "property"}},
    {"element_node", {"element", "position", "node"}},
    {"property", {"key", "name", "material"}},
    {"mesh_set", {"key", "name", "parent_mset_key"}},
    {"mesh_set_element", {"mesh_set", "position", "element"}},
    {"mesh_set_element_all", {"mesh_set", "element"}},
    {"element_measure", {"element", "dimension", "volume", "center_x"}},
    {"element_quality", {"element", "size", "shape"}},
    {"element_side", {"element", "side", "kind", "size"}},
    {"free_face", {"element", "side"}},
    {"unused_node", {"node"}},
    {"step_change", {"step", "pool", "key", "operation"}},
};

std::string RandomConstant() {
  switch (*rc::gen::inRange(0, 10)) {
    case 0:
      return "NULL";
    case 1:
      return "'lower'";
    case 2:
      return fmt::format("'{}'", *rc::gen::inRange(0, 5));
    case 3:
      return fmt::format("{}", *rc::gen::inRange(-8, 40) / 4.0);
    case 4:
      return *rc::gen::element<std::string>("9e99", "-9e99", "9223372036854775807", "x'31'");
    default:
      return std::to_string(*rc::gen::inRange(-1, 30));
  }
}

std::string RandomTerm(const std::string& alias, const Asked& of) {
  const std::string column = alias + '.' + *rc::gen::elementOf(of.columns);
  switch (*rc::gen::inRange(0, 6)) {
    case 0:
      return column + " BETWEEN " + RandomConstant() + " AND " + RandomConstant();
    case 1:
      return column + " IN (" + RandomConstant() + ", " + RandomConstant() + ")";
    case 2:
      return column + *rc::gen::element<std::string>(" IS NULL", " IS NOT NULL");
    default:
      return column + *rc::gen::element<std::string>(" = ", " = ", " < ", " <= ", " > ", " >= ") +
             RandomConstant();
  }
}

/// A query over tables whose names begin with `prefix`.
struct RandomQuery {
  RandomQuery() {
    const Asked& a = *rc::gen::elementOf(kAsked);
    const Asked& b = *rc::gen::elementOf(kAsked);
    joins = *rc::gen::inRange(0, 2) == 1;
    tables = {a.name, b.name};
    where = RandomTerm("a", a);
    if (joins) {
      where += std::string(" AND a.") + *rc::gen::elementOf(a.columns) + " = b." +
               *rc::gen::elementOf(b.columns);
    }
    for (int more = *rc::gen::inRange(0, 3); more > 0; --more) {
      where += *rc::gen::element<std::string>(" AND ", " AND ", " OR ") + RandomTerm("a", a);
    }
    if (*rc::gen::inRange(0, 3) == 0) order = std::string("a.") + a.columns[0];
  }
  std::string Text(const std::string& prefix) const {
    std::string text = "SELECT * FROM \"" + prefix + tables[0] + "\" a";
    if (joins) text += ", \"" + prefix + tables[1] + "\" b";
    text += " WHERE " + where;
    return order.empty() ? text : text + " ORDER BY " + order;
  }
  bool joins;
  std::vector<std::string> tables;
  std::string where, order;
};

RC_GTEST_PROP(SqlTables, AnswerAsOrdinaryTablesDo, ()) {
  CQXDBSession session(host::SetUpModel);
  FillBlock(session, *rc::gen::inRange(1, 3));
  Database db(session, true);
  db.Run("DELETE FROM node WHERE key IN (" + std::to_string(*rc::gen::inRange(1, 60)) +
         ", 4); UPDATE node SET key = 5000 - key WHERE key % 3 = 0; UPDATE node SET x = x / 3");
  RC_ASSERT(db.Fault() == "");
  for (const Asked& asked : kAsked) {
    db.Run(fmt::format("CREATE TABLE main.plain_{0} AS SELECT * FROM {0}", asked.name));
    RC_ASSERT(db.Fault() == "");
  }
  std::size_t rows = 0;
  for (int i = 0; i < 40; ++i) {
    const RandomQuery query;
    Rows ours = db.Run(query.Text(""));
    const std::string fault = db.Fault();
    Rows theirs = db.Run(query.Text("plain_"));
    RC_ASSERT(std::make_pair(query.Text(""), fault) == std::make_pair(query.Text(""), db.Fault()));
    if (!query.order.empty()) {  // equal keys come in any order
      const auto is_ordered = [&](const Rows& all) {
        return std::is_sorted(all.begin(), all.end(), [](const Row& a, const Row& b) {
          return std::atof(a[0].c_str()) < std::atof(b[0].c_str());
        });
      };
      RC_ASSERT(query.order != "a.key" || is_ordered(ours));
    }
    std::sort(ours.begin(), ours.end());
    std::sort(theirs.begin(), theirs.end());
    RC_ASSERT(std::make_pair(query.Text(""), ours) == std::make_pair(query.Text(""), theirs));
    rows += ours.size();
  }
  RC_CLASSIFY(rows > 0);
}

// ---- the same changes as in ordinary tables -----------------------------------------------------

/// `nth`: new keys are beyond those of earlier changes, so that no two records come to share one.
std::string RandomChange(const std::string& table, int nth) {
  const std::string where =
      " WHERE " + *rc::gen::element<std::string>("key % 3 = 1", "x > 2", "x < y",
                                                 "key BETWEEN 3 AND 9", "key = 5",
                                                 "key IN (SELECT key - 1 FROM " + table + ")");
  switch (*rc::gen::inRange(0, 6)) {
    case 0:
      return "DELETE FROM " + table + where;
    case 1:
      return "UPDATE " + table + " SET x = y + key, z = x" + where;
    case 2:
      return fmt::format("UPDATE {} SET key = key + {}{} AND key < 1000000", table, 1000000 * nth,
                         where);
    case 3:
      return "INSERT OR IGNORE INTO " + table +
             "(key, x, y, z, flags) SELECT key + 3, z, 0.5, x, 0 FROM " + table + where;
    case 4:
      return "INSERT OR REPLACE INTO " + table +
             "(key, x, y, z, flags) SELECT key - 2, 7, y, z, 0 FROM " + table + where +
             " AND key > 2";
    default:
      return "UPDATE " + table + " SET y = (SELECT max(x) FROM " + table + ")" + where;
  }
}

RC_GTEST_PROP(SqlTables, ChangeAsOrdinaryTablesDo, ()) {
  CQXDBSession session(host::SetUpModel);
  Database db(session, true);
  db.Run(
      "CREATE TABLE plain(key INTEGER PRIMARY KEY, x REAL, y REAL, z REAL, flags INTEGER);"
      "WITH n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 20)"
      "INSERT INTO node(key, x, y, z) SELECT i, i % 5, i % 3, 0 FROM n;"
      "INSERT INTO plain SELECT * FROM node");
  RC_ASSERT(db.Fault() == "");
  std::vector<std::uint64_t> states{session.StateHash()};
  for (int i = *rc::gen::inRange(1, 8); i > 0; --i) {
    const std::size_t steps = session.History().Done().size();
    // The same choices for both: the text is made once.
    const std::string text = RandomChange("node", i);
    std::string plain = text;
    for (std::size_t at = 0; (at = plain.find("node", at)) != std::string::npos;) {
      plain.replace(at, 4, "plain");
    }
    const bool taken_back = *rc::gen::inRange(0, 4) == 0;
    for (const std::string& change : {text, plain}) {
      db.Run(taken_back ? "SAVEPOINT s; " + change + "; ROLLBACK TO s; RELEASE s" : change);
      RC_ASSERT(std::make_pair(change, db.Fault()) == std::make_pair(change, std::string()));
    }
    RC_ASSERT(db.Run("SELECT * FROM node ORDER BY key") ==
              db.Run("SELECT * FROM plain ORDER BY key"));
    RC_ASSERT(session.Validate() == "");
    const std::size_t now = session.History().Done().size();
    RC_ASSERT(now <= steps + 1 && !(taken_back && now != steps));
    if (now != steps) states.push_back(session.StateHash());
  }
  while (!states.empty()) {
    RC_ASSERT(session.StateHash() == states.back());
    states.pop_back();
    if (!states.empty()) RC_ASSERT(session.Undo() == 1);
  }
}

}  // namespace
}  // namespace qx::sql
