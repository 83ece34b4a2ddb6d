#include "qx_db/bulk/model_import.h"

#include <algorithm>
#include <fmt/format.h>
#include <functional>
#include <map>

#include "qx_db/core/model_file.h"
#include "qx_db/core/relations.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/pool/ext_db_pool.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// Stands in an array for a reference that leads nowhere, until its entry is dropped.
constexpr ITR kLoose = ~ITR{0};

std::string TableOf(const CQXDBSession& session, std::uint16_t type) {
  const DPoolBase* pool = session.GetDataPool(type);
  return pool ? pool->GetAPIName().ToUtf8() : fmt::format("type {}", type);
}

/// The row by which a record belongs to another one of the same key, or null.
const Row* OwnerRow(const Schema& schema) {
  const Row& key = schema.Rows().front();
  return key.key_of ? &key : nullptr;
}

/// The types whose records this type's records need, by reference or by key.
std::vector<std::uint16_t> Needs(const Schema& schema) {
  std::vector<std::uint16_t> types;
  for (const Row& row : schema.Rows()) {
    for (const std::uint16_t type : {row.target, row.key_of}) {
      if (type && type != schema.Type()) types.push_back(type);
    }
  }
  return types;
}

// ---- the check of a model from outside ----------------------------------------------------------

/// A list of faults as one text: the first few, and how many there are.
class FaultList {
 public:
  void Add(std::string fault) {
    if (count_++ < kShown) text_ += (text_.empty() ? "" : ", ") + std::move(fault);
  }
  std::int64_t Count() const { return count_; }
  std::string Text() const {
    return count_ > kShown ? text_ + fmt::format(", and {} more", count_ - kShown) : text_;
  }

 private:
  static constexpr std::int64_t kShown = 8;
  std::int64_t count_ = 0;
  std::string text_;
};

void FindMissing(const CQXDBSession& records, const DPoolBase& pool, FaultList& faults) {
  for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
    TStructBase& record = *KeyedSetBase::RecordAt(pos);
    ForEachReference(pool.GetSchema(), record, [&](const Row& row, const char* slot) {
      const auto key = LoadAt<Key>(slot);
      const DPoolBase* target = records.GetDataPool(row.target);
      if (key == 0 || !target || target->Find(key)) return;
      faults.Add(fmt::format("{} {} {} names {} {}", TableOf(records, pool.GetTypeCode()),
                             record.GetKey(), Utf8(row.name), TableOf(records, row.target), key));
    });
  }
}

/// Follows one member from record to record within a pool.
void FindCycles(const CQXDBSession& records, const DPoolBase& pool, const Row& row,
                FaultList& faults) {
  std::vector<std::uint32_t> visit(pool.Set().SlotLimit(), 0);  // number of the walk, from 1
  std::uint32_t walk = 0;
  for (ITR start = pool.GetHeadPosition(); start; pool.Next(start)) {
    ++walk;
    ITR at = start;
    while (at && visit[pool.Set().SlotOf(at)] == 0) {
      visit[pool.Set().SlotOf(at)] = walk;
      const auto key = LoadAt<Key>(detail::Bytes(*KeyedSetBase::RecordAt(at)) + row.offset);
      at = key ? pool.Find(key) : 0;
    }
    if (!at || visit[pool.Set().SlotOf(at)] != walk) continue;
    faults.Add(fmt::format("{} {} {} leads back to itself", TableOf(records, pool.GetTypeCode()),
                           KeyOf(at), Utf8(row.name)));
  }
}

Outcome CheckReferences(const CQXDBSession& records, const std::string& path) {
  FaultList missing, cycles;
  for (const DPoolBase* pool : records.Pools()) {
    if (pool->GetSize() == 0) continue;
    FindMissing(records, *pool, missing);
    for (const Row& row : pool->GetSchema().Rows()) {
      const bool own = row.target == pool->GetTypeCode() || row.key_of == pool->GetTypeCode();
      if (own && !row.IsArray()) FindCycles(records, *pool, row, cycles);
    }
  }
  if (missing.Count() > 0) {
    return Failure{path, "references",
                   fmt::format("{} lead nowhere: {}", missing.Count(), missing.Text()),
                   "open it, repair or delete these records, and save it"};
  }
  if (cycles.Count() > 0) {
    return Failure{path, "references", cycles.Text(), "open it, break the circle, and save it"};
  }
  return {};
}

// ---- the import ---------------------------------------------------------------------------------

/// One pool outside and its counterpart.
struct Lane {
  DPoolBase* from;
  DPoolBase* to;
  IExternalStore* store;
  std::vector<ITR> chosen;    // items outside, in the order in which they come
  std::vector<bool> marks;    // by slot outside: chosen
  std::vector<ITR> position;  // by slot outside: where it came to
  std::int64_t overwritten = 0;

  bool Choose(ITR item) {
    const std::uint32_t slot = from->Set().SlotOf(item);
    if (marks[slot]) return false;
    marks[slot] = true;
    chosen.push_back(item);
    return true;
  }
  bool IsChosen(ITR item) const { return marks[from->Set().SlotOf(item)]; }
  ITR& PositionOf(ITR item) { return position[from->Set().SlotOf(item)]; }
};

class Importer {
 public:
  Importer(CQXDBSession& into, const ExternalModel& from, const ImportOptions& options)
      : into_(into), from_(from.Records()), options_(options) {
    units_.SetModel(into.Units().Model());
    units_.SetCurrent(from_.Units().Model());
    for (DPoolBase* pool : from_.Pools()) {
      DPoolBase* to = into.GetDataPool(pool->GetTypeCode());
      auto* store = dynamic_cast<IExternalStore*>(to);
      if (!store || pool->GetSize() == 0) continue;
      const std::size_t slots = pool->Set().SlotLimit();
      Lane lane{pool, to, store, {}, std::vector<bool>(slots), std::vector<ITR>(slots)};
      lanes_.emplace(pool->GetTypeCode(), std::move(lane));
    }
  }

  Result<ImportReport> Run() {
    if (Outcome chosen = Choose(); !chosen) return chosen.Error();
    Outcome done = Transfer();
    for (auto& [type, lane] : lanes_) lane.to->RemoveAllExtDB();
    if (!done) return done.Error();
    for (auto& [type, lane] : lanes_) {
      if (lane.chosen.empty()) continue;
      ImportReport::Pool entry{type, lane.overwritten, {}};
      entry.keys.reserve(lane.chosen.size());
      for (const ITR item : lane.chosen) {
        const ITR pos = lane.PositionOf(item);
        if (pos) entry.keys.emplace_back(KeyOf(item), KeyOf(pos));
      }
      report_.pools.push_back(std::move(entry));
    }
    return std::move(report_);
  }

 private:
  Lane* LaneOf(std::uint16_t type) {
    const auto found = lanes_.find(type);
    return found == lanes_.end() ? nullptr : &found->second;
  }

  // ---- choosing ----

  Outcome Choose() {
    for (auto& [type, lane] : lanes_) {
      if (options_.choices.empty()) ChooseAll(lane);
    }
    for (const ImportChoice& choice : options_.choices) {
      Lane* lane = LaneOf(choice.type);
      if (lane && choice.keys.empty()) ChooseAll(*lane);
      for (const Key key : choice.keys) {
        const ITR item = lane ? lane->from->Find(key) : 0;
        if (!item) {
          return Failure{"", TableOf(into_, choice.type) + " " + std::to_string(key),
                         "is not there to import", "list what is with: qxdb info"};
        }
        lane->Choose(item);
      }
    }
    if (options_.with_references && !options_.choices.empty()) ChooseNeeded();
    return {};
  }

  static void ChooseAll(Lane& lane) {
    lane.chosen.reserve(static_cast<std::size_t>(lane.from->GetSize()));
    for (ITR pos = lane.from->GetHeadPosition(); pos; lane.from->Next(pos)) lane.Choose(pos);
  }

  void ChooseNeeded() {
    std::map<std::uint16_t, std::size_t> done;
    for (bool grown = true; grown;) {
      grown = false;
      for (auto& [type, lane] : lanes_) {
        for (std::size_t& next = done[type]; next < lane.chosen.size(); ++next) {
          grown |= ChooseFor(lane, lane.chosen[next]);
        }
      }
    }
  }

  /// What the record refers to, and what belongs to it.
  bool ChooseFor(Lane& lane, ITR item) {
    bool grown = false;
    const auto choose = [&](std::uint16_t type, Key key) {
      Lane* target = key > 0 ? LaneOf(type) : nullptr;
      const ITR found = target ? target->from->Find(key) : 0;
      if (found) grown |= target->Choose(found);
    };
    TStructBase& record = *KeyedSetBase::RecordAt(item);
    const Schema& schema = lane.from->GetSchema();
    ForEachReference(schema, record, [&](const Row& row, const char* slot) {
      choose(row.target, LoadAt<Key>(slot));
    });
    for (const Row& row : schema.Rows()) {
      if (row.key_of) choose(row.key_of, LoadAt<Key>(detail::Bytes(record) + row.offset));
    }
    for (auto& [type, other] : lanes_) {
      const Row* owner = OwnerRow(other.from->GetSchema());
      if (owner && owner->key_of == schema.Type()) choose(type, record.GetKey());
    }
    return grown;
  }

  // ---- transferring ----

  Outcome Transfer() {
    for (Lane* lane : InOrder()) {
      // All go into the external store before the first leaves it: a record that has left carries
      // its new key there, which may be the key of another.
      lane->to->SetExtHashSize(static_cast<std::int32_t>(lane->chosen.size()));
      std::vector<ITR> outside;
      outside.reserve(lane->chosen.size());
      for (const ITR item : lane->chosen) {
        outside.push_back(lane->store->InsertNUExtDB(KeyedSetBase::RecordAt(item)));
      }
      for (std::size_t i = 0; i < outside.size(); ++i) {
        if (Outcome done = TransferRecord(*lane, lane->chosen[i], outside[i]); !done) return done;
      }
    }
    for (const auto& [lane, item] : std::exchange(deferred_, {})) {
      waits_ = false;
      TStructBase* record = Prepared(*lane, item, false);
      const ITR pos = lane->PositionOf(item);
      StoreAt(detail::Bytes(*record) + 8, KeyOf(pos));
      if (!lane->to->SetAtNU(pos, record)) return Refused(*lane, item);
    }
    return {};
  }

  /// The lanes, each behind those that its records need.
  std::vector<Lane*> InOrder() {
    std::vector<Lane*> order;
    std::map<std::uint16_t, bool> entered;
    const std::function<void(std::uint16_t)> enter = [&](std::uint16_t type) {
      Lane* lane = LaneOf(type);
      if (!lane || std::exchange(entered[type], true)) return;
      for (const std::uint16_t needed : Needs(lane->from->GetSchema())) enter(needed);
      order.push_back(lane);
    };
    for (auto& [type, lane] : lanes_) enter(type);
    return order;
  }

  Outcome TransferRecord(Lane& lane, ITR item, ITR outside) {
    waits_ = false;
    belongs_nowhere_ = false;
    TStructBase* record = Prepared(lane, item, true);
    if (belongs_nowhere_) return {};
    // What belongs to a record has taken its key, and replaces what is there for it.
    const bool keep = options_.keep_keys || OwnerRow(lane.from->GetSchema());
    const bool overwrites = keep && lane.to->Find(record->GetKey());
    const bool ready = lane.store->SetAtNUExtDB(outside, record) != 0;
    const ITR pos = ready ? lane.store->TransferToDB(outside, keep, 0) : 0;
    if (!pos) return Refused(lane, item);
    lane.overwritten += overwrites;
    lane.PositionOf(item) = pos;
    if (waits_) deferred_.emplace_back(&lane, item);
    return {};
  }

  Outcome Refused(const Lane& lane, ITR item) const {
    return Failure{"", TableOf(into_, lane.to->GetTypeCode()) + " " + std::to_string(KeyOf(item)),
                   "was refused by the model", "see the message above"};
  }

  /// The record as it comes into the model, in the scratch record of its type.
  TStructBase* Prepared(Lane& lane, ITR item, bool tell) {
    const Schema& schema = lane.from->GetSchema();
    TStructBase* record = lane.from->CopyToDummyPtr(item);
    char* bytes = detail::Bytes(*record);
    const auto member = [&](const Row& row, Key key) {
      return Place{&lane, KeyOf(item), &row, row.target ? row.target : row.key_of, key, tell};
    };
    for (const Row* row : schema.References()) {
      if (row->IsArray()) {
        ArrayStorage& array = detail::ArrayAt(bytes, *row);
        bool loose = false;
        detail::ForEachSlot(*row, static_cast<char*>(array.data), array.count,
                            [&](const Row&, char* slot) {
                              const ITR found = Resolve(member(*row, LoadAt<Key>(slot)));
                              loose |= found == kLoose;
                              StoreAt(slot, found);
                            });
        if (loose) DropEntries(*row, bytes, [](ITR entry) { return entry == kLoose; });
        belongs_nowhere_ |= loose && row->on_removal == OnRemoval::kDie;
      } else {
        const ITR found = Resolve(member(*row, LoadAt<Key>(bytes + row->offset)));
        StoreAt<ITR>(bytes + row->offset, found == kLoose ? 0 : found);
      }
    }
    for (const Row& row : schema.Rows()) {
      if (!row.key_of) continue;
      const ITR found = Resolve(member(row, LoadAt<Key>(bytes + row.offset)));
      const bool is_key = row.offset == 8;
      if (is_key && found == kLoose) belongs_nowhere_ = true;
      StoreAt<Key>(bytes + row.offset, found == kLoose ? 0 : KeyOf(found));
    }
    if (!(units_.Model() == units_.Current())) {
      record->ConvertUnitIn(&units_);
      if (tell && !LeftUnconverted(schema, *record).empty()) {
        report_.unconverted.emplace_back(schema.Type(), KeyOf(item));
      }
    }
    return record;
  }

  /// A reference on its way: whose it is, and what it names.
  struct Place {
    Lane* lane;
    Key record;
    const Row* row;
    std::uint16_t target;
    Key key;
    bool tell;
  };

  /// The model's record that a reference leads to: 0 for none or one that is yet to come, kLoose
  /// where there is none.
  ITR Resolve(const Place& place) {
    if (place.key == 0) return 0;
    if (Lane* target = LaneOfTarget(place.target)) {
      const ITR item = target->from->Find(place.key);
      if (item && target->IsChosen(item)) {
        const ITR pos = target->PositionOf(item);
        waits_ |= pos == 0;
        return pos;
      }
    }
    const DPoolBase* pool = into_.GetDataPool(place.target);
    const ITR linked = options_.link_existing && pool ? pool->Find(place.key) : 0;
    if (place.tell) {
      report_.loose.push_back({place.lane->to->GetTypeCode(), place.record, place.row->name,
                               place.target, place.key, linked != 0});
    }
    return linked ? linked : kLoose;
  }

  /// The lane of the last target is likely that of the next.
  Lane* LaneOfTarget(std::uint16_t type) {
    if (type != last_type_) {
      last_type_ = type;
      last_lane_ = LaneOf(type);
    }
    return last_lane_;
  }

  CQXDBSession& into_;
  const CQXDBSession& from_;
  const ImportOptions& options_;
  CQXUnitCtrl units_;
  std::map<std::uint16_t, Lane> lanes_;
  std::vector<std::pair<Lane*, ITR>> deferred_;
  std::uint16_t last_type_ = 0;
  Lane* last_lane_ = nullptr;
  bool waits_ = false;            // the record at hand refers to one that is yet to come
  bool belongs_nowhere_ = false;  // the record at hand is nothing without one that does not come
  ImportReport report_;
};

}  // namespace

std::string ImportReport::Loose::Line(const CQXDBSession& session) const {
  return fmt::format("{} {} {}: {} {} {}", TableOf(session, type), key, Utf8(member),
                     TableOf(session, target), target_key,
                     linked ? "is the model's own" : "does not come along; cleared");
}

std::int64_t ImportReport::Records() const {
  std::int64_t sum = 0;
  for (const Pool& pool : pools) sum += static_cast<std::int64_t>(pool.keys.size());
  return sum;
}

std::string ImportReport::KeyMapJson(const CQXDBSession& session) const {
  std::string text = "{";
  for (const Pool& pool : pools) {
    text +=
        fmt::format("{}\n  \"{}\": {{", text.size() > 1 ? "," : "", TableOf(session, pool.type));
    const char* comma = "";
    for (const auto& [outside, inside] : pool.keys) {
      text += fmt::format("{}\"{}\": {}", std::exchange(comma, ", "), outside, inside);
    }
    text += "}";
  }
  return text + "\n}\n";
}

Result<std::unique_ptr<ExternalModel>> ExternalModel::Open(const std::string& path,
                                                           CQXDBSession::PoolSetup setup) {
  auto reader = ModelFileReader::Open(path);
  if (!reader) return reader.Error();
  auto model = std::make_unique<ExternalModel>(setup);
  CQXDBSession& records = model->records_;
  for (const ModelFileReport::Pool& pool : (*reader)->Report().pools) {
    if (pool.records == 0 || records.GetDataPool(pool.type)) continue;
    return Failure{
        path, "pool " + pool.io_name,
        fmt::format("holds records of type {}, which this program does not know", pool.type),
        "open it with the program that wrote it"};
  }
  if (Outcome units = (*reader)->ReadUnits(records.Units()); !units) return units.Error();
  Outcome outcome;
  for (DPoolBase* pool : records.Pools()) {
    if (!qxLoadDPool(**reader, *pool, &outcome)) return outcome.Error();
  }
  if (Outcome checked = CheckReferences(records, path); !checked) return checked.Error();
  return Result<std::unique_ptr<ExternalModel>>(std::move(model));
}

Result<ImportReport> ImportRecords(CQXDBSession& session, const ExternalModel& from,
                                   const ImportOptions& options) {
  CTransaction transaction(&session);
  if (!transaction.Begin(qxLoadText("IDS_QX_TRANS_IMPORT_RECORDS").c_str())) {
    return Failure{"", "", "the model cannot be edited now", "end the other command first"};
  }
  Result<ImportReport> report = Importer(session, from, options).Run();
  if (report && !options.dry_run && !transaction.Commit()) {
    return Failure{"", "", "the model refused the records", "see the message above"};
  }
  return report;
}

}  // namespace qx
