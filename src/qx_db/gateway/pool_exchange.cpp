// Whole pools to and from the gateway document: the gateway operations of DPoolBase.

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/core/transaction.h"
#include "qx_db/gateway/document.h"
#include "qx_db/lib/message.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/pool/record_units.h"
#include "qx_db/record/verbs.h"

namespace qx {

using dbgateway::Collection;
using dbgateway::DataBase;
using dbgateway::Field;

namespace {

/// Gives the members of the fields that the gateway record lacks back their former bytes: they
/// were converted to gateway units and back with the rest, which may have cost a last digit.
void RestoreAbsent(const Schema& schema, const dbgateway::Record& from, const char* former,
                   TStructBase& record) {
  for (const Row* row : schema.UnitRows()) {
    bool present = row->IsArray();
    for (std::size_t i = 0; i < schema.Gateway().size() && !present; ++i) {
      const GatewayField& field = schema.Gateway()[i];
      const Row* first = schema.GatewayRows()[i];
      present = row >= first && row < first + field.run && from.Find(field.name);
    }
    if (present) continue;
    std::memcpy(detail::Bytes(record) + row->offset, former + row->offset,
                static_cast<std::size_t>(row->size));
  }
}

/// Tells about keys that stand in a table more than once; the last one counts.
void TellRepeated(std::vector<Key> keys, const Collection& table, DataBase& document) {
  if (std::is_sorted(keys.begin(), keys.end(), std::less_equal<>())) return;
  std::sort(keys.begin(), keys.end());
  for (auto at = keys.begin(); (at = std::adjacent_find(at, keys.end())) != keys.end();) {
    document.Tell({table.Name(), *at, "", "stands in the table more than once; the last counts"});
    at = std::upper_bound(at, keys.end(), *at);
  }
}

class PoolReader {
 public:
  PoolReader(DPoolBase& pool, DataBase& document)
      : pool_(pool), session_(*pool.GetSession()), document_(document) {}

  void ReadTable(const std::string& name) {
    const auto table = document_.FindCollection(name);
    if (!table) return;
    if (!table->IsTable()) {
      document_.Tell({name, 0, "", "is neither an object nor an array of records"});
      return;
    }
    std::vector<Key> keys;
    keys.reserve(table->Size());
    LongWork work(table->Size());
    table->ForEach([&](Key key, std::string_view entry, dbgateway::Record from) {
      work.Step();
      if (key == 0) {
        document_.Tell({name, 0, "", "entry \"" + std::string(entry) + "\" has no usable key"});
        return;
      }
      keys.push_back(key);
      if (!from.IsObject()) document_.Tell({name, key, "", "is not an object of fields"});
      ReadRecord(key, from);
    });
    TellRepeated(std::move(keys), *table, document_);
  }

  void RemoveListed(const std::string& name) {
    const auto table = document_.FindCollection(name);
    if (!table) return;
    if (!table->IsTable()) {
      document_.Tell({name, 0, "", "is not a list of keys"});
      return;
    }
    table->ForEachValue([&](const Field& value) {
      const Key key = value.Integer();
      if (!value.IsInteger()) document_.Tell({name, key, "", "stands for what is no integer"});
      const ITR found = key != 0 ? pool_.Find(key) : 0;
      if (!found) {
        document_.Tell({name, key, "", "names no record to delete"});
      } else if (!pool_.Remove(found)) {
        refused_ = true;
        document_.Tell({name, key, "", "was not given up by the model"});
      }
    });
  }

  /// Whether the pool did not take a record; the read as a whole is off then.
  bool HasRefused() const { return refused_; }

 private:
  void ReadRecord(Key key, dbgateway::Record& from) {
    const ITR existing = pool_.Find(key);
    const auto record = existing ? pool_.CopyRecord(existing) : pool_.NewRecord();
    const Schema& schema = pool_.GetSchema();
    const bool has_units = !schema.UnitRows().empty();
    if (has_units) {
      former_.assign(detail::Bytes(*record), detail::Bytes(*record) + schema.RecordSize());
      // The record speaks the gateway's units while it takes over the gateway's values.
      ConvertUnitsOut(*record, session_.Units());
    }
    KeyedSetBase::SetKey(*record, key);
    record->api_convert_record_to_db(&session_, &from);
    if (has_units) {
      ConvertUnitsIn(*record, session_.Units());
      RestoreAbsent(schema, from, former_.data(), *record);
      TellUnconverted(*record);
    }
    if (existing ? pool_.SetAtNU(existing, record.get()) != 0 : pool_.InsertNU(record.get()) != 0) {
      TellOwnerless(key);
      return;
    }
    refused_ = true;
    document_.Tell({pool_.GetAPIName().ToUtf8(), key, "", "was refused by the model"});
  }

  /// A record under the key of another one that is not there is kept, as any reference is that
  /// names nothing.
  void TellOwnerless(Key key) {
    const Row& own = pool_.GetSchema().Rows().front();
    const DPoolBase* owners = own.key_of ? session_.GetDataPool(own.key_of) : nullptr;
    if (!owners || owners->Find(key)) return;
    document_.Tell({pool_.GetAPIName().ToUtf8(), key, "",
                    "names no record of " + owners->GetAPIName().ToUtf8()});
  }

  /// Numbers of a kind that nobody here knows pass as they are, which matters where units differ.
  void TellUnconverted(const TStructBase& record) {
    if (session_.Units().Current() == session_.Units().Model()) return;
    for (const Row* row : LeftUnconverted(pool_.GetSchema(), record)) {
      document_.Tell({pool_.GetAPIName().ToUtf8(), record.GetKey(), Utf8(row->name),
                      "is of a kind that is not known; its numbers were not converted"});
    }
  }

  DPoolBase& pool_;
  CQXDBSession& session_;
  DataBase& document_;
  std::vector<char> former_;
  bool refused_ = false;
};

}  // namespace

// A pool whose records have no gateway form takes no part in the exchange.

bool DPoolBase::ReadAPI(DataBase* from, int remove) {
  if (schema_->Gateway().empty()) return true;
  if (!session_) return false;  // a pool of its own finds no references
  const std::string name = GetAPIName().ToUtf8();
  CTransaction transaction(session_);
  if (!transaction.Begin(qxLoadText("IDS_QX_TRANS_ADD_" + name).c_str())) return false;
  const std::size_t told = from->Report().size();
  PoolReader reader(*this, *from);
  if (remove) {
    reader.RemoveListed("__CMD_DEL_" + name);
  } else {
    reader.ReadTable(name);
  }
  if (reader.HasRefused() || (from->IsStrict() && from->Report().size() > told)) return false;
  return transaction.Commit() != 0;
}

bool DPoolBase::WriteAPI(DataBase* to, TArray<Key>& keys, int) {
  if (schema_->Gateway().empty()) return true;
  const std::string name = GetAPIName().ToUtf8();
  if (const Key key = set_->SharedKey(); key >= 0) {
    to->Tell({name, key, "", "is the key of two records; renumber one of them"});
    return false;
  }
  Collection table = to->AddCollection(name);
  if (keys.IsEmpty()) GetKeyList(keys, 0);
  const auto record = NewRecord();
  LongWork work(keys.size());
  for (const Key key : keys) {
    work.Step();
    const ITR found = Find(key);
    if (!found) continue;
    set_->CopyTo(*record, found);
    if (session_) ConvertUnitsOut(*record, session_->Units());
    dbgateway::Record entry = table.Add(key);
    record->api_convert_db_to_record(session_, &entry, 0);
  }
  return true;
}

bool DPoolBase::DescAPI(Field* to) {
  if (schema_->Gateway().empty()) return true;
  return NewRecord()->api_description(to);
}

}  // namespace qx
