#include "qx_db/gateway/document_exchange.h"

#include <set>

#include "qx_db/core/image_stream.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"

namespace qx {

using dbgateway::DataBase;

namespace {

std::vector<DPoolBase*> Chosen(CQXDBSession& session, std::span<DPoolBase* const> pools) {
  if (pools.empty()) pools = session.Pools();
  return {pools.begin(), pools.end()};
}

/// Inserts a default record for every entry whose key has none, for references to find.
void MakeRecords(DPoolBase& pool, DataBase& document) {
  if (pool.GetSchema().Gateway().empty()) return;
  const auto table = document.FindCollection(pool.GetAPIName().ToUtf8());
  if (!table) return;
  table->ForEach([&](Key key, std::string_view, const dbgateway::Record&) {
    if (key == 0 || pool.Find(key)) return;
    const auto record = pool.NewRecord();
    KeyedSetBase::SetKey(*record, key);
    pool.InsertNU(record.get());
  });
}

/// Tells of tables that no pool reads, and of tables that stand there twice.
void TellOfUnread(DataBase& document, const std::vector<DPoolBase*>& pools) {
  std::set<std::string> known, met;
  for (const DPoolBase* pool : pools) {
    if (pool->GetSchema().Gateway().empty()) continue;
    known.insert(pool->GetAPIName().ToUtf8());
    known.insert("__CMD_DEL_" + pool->GetAPIName().ToUtf8());
  }
  for (const std::string& name : document.CollectionNames()) {
    if (!known.contains(name)) document.Tell({name, 0, "", "is not a table that is read here"});
    if (!met.insert(name).second) {
      document.Tell({name, 0, "", "stands there more than once; the last counts"});
    }
  }
}

/// The failure of a read for what was told last.
Failure Told(const DataBase& document) {
  return {
      "", "", document.Report().back().Line(),
      document.IsStrict() ? "correct it, or read without being strict" : "see the message above"};
}

/// The failure of a read that a pool refused: the last thing told, or the pool itself.
Failure Refused(const DPoolBase& pool, const DataBase& document) {
  if (!document.Report().empty()) return Told(document);
  return {"", "table " + pool.GetAPIName().ToUtf8(), "was refused by the model",
          "see the message above"};
}

Outcome Commit(CTransaction& transaction) {
  if (transaction.Commit()) return {};
  return Failure{"", "", "the model refused the edit", "see the message above"};
}

}  // namespace

Outcome ReadDocument(CQXDBSession& session, DataBase& document, std::span<DPoolBase* const> pools) {
  const std::vector<DPoolBase*> chosen = Chosen(session, pools);
  CTransaction transaction(&session);
  transaction.Begin(qxLoadText("IDS_QX_TRANS_READ_GATEWAY").c_str());
  const std::size_t told = document.Report().size();
  TellOfUnread(document, chosen);
  if (document.IsStrict() && document.Report().size() > told) return Told(document);
  for (DPoolBase* pool : chosen) MakeRecords(*pool, document);
  for (DPoolBase* pool : chosen) {
    if (!pool->ReadAPI(&document, 0)) return Refused(*pool, document);
  }
  return Commit(transaction);
}

Outcome ApplyDeletions(CQXDBSession& session, DataBase& document,
                       std::span<DPoolBase* const> pools) {
  std::vector<DPoolBase*> chosen = Chosen(session, pools);
  CTransaction transaction(&session);
  transaction.Begin(qxLoadText("IDS_QX_TRANS_READ_GATEWAY").c_str());
  for (auto pool = chosen.rbegin(); pool != chosen.rend(); ++pool) {
    if (!(*pool)->ReadAPI(&document, 1)) return Refused(**pool, document);
  }
  return Commit(transaction);
}

Outcome WriteDocument(CQXDBSession& session, DataBase& document,
                      std::span<DPoolBase* const> pools) {
  Outcome all;
  for (DPoolBase* pool : Chosen(session, pools)) {
    if (pools.empty() && pool->GetSize() == 0) continue;
    TArray<Key> keys;  // all
    if (pool->WriteAPI(&document, keys, 0) || !all) continue;
    all = CheckKeys(*pool, "");
    if (all) all = Failure{"", "table " + pool->GetAPIName().ToUtf8(), "was not written", ""};
  }
  return all;
}

}  // namespace qx
