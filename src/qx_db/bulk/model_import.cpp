#include "qx_db/bulk/model_import.h"

#include <algorithm>
#include <fmt/format.h>
#include <functional>
#include <map>
#include <unordered_set>

#include "qx_db/core/belongings.h"
#include "qx_db/core/model_check.h"
#include "qx_db/core/model_file.h"
#include "qx_db/core/relations.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/platform/pages.h"
#include "qx_db/pool/ext_db_pool.h"
#include "qx_db/pool/record_units.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// Stands in an array for a reference that leads nowhere, until its entry is dropped.
constexpr ITR kLoose = ~ITR{0};

std::string TableOf(const CQXDBSession& session, std::uint16_t type) {
  const DPoolBase* pool = session.GetDataPool(type);
  return pool ? pool->GetAPIName().ToUtf8() : fmt::format("type {}", type);
}

std::string NameAt(ITR item) { return KeyedSetBase::RecordAt(item)->GetName().ToUtf8(); }

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

// ---- the import ---------------------------------------------------------------------------------

/// The mesh of a part: what it lists comes only because it is of a chosen set.
bool IsMesh(std::uint16_t type) {
  return type == code::kNode || type == code::kElem || type == code::kMset;
}

/// One pool outside and its counterpart.
struct Lane {
  DPoolBase* from;
  DPoolBase* to;
  IExternalStore* store;      // null for a pool of the host that has none
  std::vector<ITR> chosen;    // items outside, in the order in which they come
  std::vector<bool> marks;    // by slot outside: chosen
  std::vector<ITR> position;  // by slot outside: where it came to
  ITR first;                  // the record with which every model begins, as new; 0 for none
  std::int64_t overwritten = 0;
  std::vector<std::pair<Key, Key>> keys = {};  // outside, and here
  std::unordered_set<ITR> joined = {};         // items outside for which records of the model stand
  std::vector<bool> attributes = {};  // by slot outside: comes because of the mesh it lists
  std::unique_ptr<TStructBase> incoming = {};  // the record at hand

  bool Choose(ITR item) {
    const std::uint32_t slot = from->Set().SlotOf(item);
    if (marks[slot]) return false;
    marks[slot] = true;
    chosen.push_back(item);
    return true;
  }
  /// References to it are as loose as those to what was never chosen.
  void Leave(ITR item) { marks[from->Set().SlotOf(item)] = false; }
  bool IsChosen(ITR item) const { return marks[from->Set().SlotOf(item)]; }
  ITR PositionOf(ITR item) const { return position[from->Set().SlotOf(item)]; }
  bool IsAttribute(ITR item) const {
    return !attributes.empty() && attributes[from->Set().SlotOf(item)];
  }
  /// Brings the record in hand into the pool; IExternalStore::BringToDB tells the keys.
  ITR Bring(TStructBase& record, bool keep_key, Key wanted) {
    if (store) return store->BringToDB(record, keep_key, wanted);
    if (!keep_key) {
      const Key key = wanted > 0 && !to->Find(wanted) ? wanted : to->Set().GetFreeKey();
      if (key < 0) return 0;
      KeyedSetBase::SetKey(record, key);
    }
    const ITR there = to->Find(record.GetKey());
    if (!there) return to->InsertNU(&record);
    return to->SetAtNU(there, &record) ? there : 0;
  }
  void Came(ITR item, ITR to_pos) {
    position[from->Set().SlotOf(item)] = to_pos;
    keys.emplace_back(KeyOf(item), KeyOf(to_pos));
  }
  Key DefaultKey() const { return first ? KeyOf(first) : 0; }
};

class Importer {
 public:
  Importer(CQXDBSession& into, const ExternalModel& from, const ImportOptions& options)
      : into_(into), from_(from.Records()), options_(options), fresh_(into.Setup()) {
    units_.SetModel(into.Units().Model());
    units_.SetCurrent(from_.Units().Model());
    for (DPoolBase* pool : from_.Pools()) {
      DPoolBase* to = into.GetDataPool(pool->GetTypeCode());
      auto* store = dynamic_cast<IExternalStore*>(to);
      if (!to || (!store && !options.as_part) || pool->GetSize() == 0) continue;
      const std::size_t slots = pool->Set().SlotLimit();
      Lane lane{pool, to, store, {}, std::vector<bool>(slots), std::vector<ITR>(slots), 0};
      if (DPoolBase* as_new = fresh_.GetDataPool(pool->GetTypeCode())) {
        as_new->AddDefault();
        lane.first = as_new->GetHeadPosition();
      }
      lanes_.emplace(pool->GetTypeCode(), std::move(lane));
    }
  }

  Result<ImportReport> Run() {
    if (Outcome chosen = Choose(); !chosen) return chosen.Error();
    Outcome done = Transfer();
    if (!done) return done.Error();
    for (auto& [type, lane] : lanes_) {
      if (lane.chosen.empty()) continue;
      report_.pools.push_back({type, lane.overwritten,
                               static_cast<std::int64_t>(lane.joined.size()),
                               std::move(lane.keys)});
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
    const auto size = static_cast<std::size_t>(lane.from->GetSize());
    lane.chosen.reserve(size);
    PreferHugePages(lane.chosen.data(), size * sizeof(ITR));
    for (ITR pos = lane.from->GetHeadPosition(); pos; lane.from->Next(pos)) lane.Choose(pos);
  }

  void ChooseNeeded() {
    std::map<std::uint16_t, std::size_t> done;
    for (bool grown = true; grown;) {
      grown = options_.as_part && ChooseAttributes();
      for (auto& [type, lane] : lanes_) {
        for (std::size_t& next = done[type]; next < lane.chosen.size(); ++next) {
          grown |= ChooseFor(lane, lane.chosen[next]);
        }
      }
    }
  }

  /// What is nothing without the mesh that comes, once all of that is chosen: what would die with
  /// it if the rest were removed and would not if it were there.
  bool ChooseAttributes() {
    bool grown = false;
    for (auto& [type, lane] : lanes_) {
      if (IsMesh(type)) continue;
      for (ITR item = lane.from->GetHeadPosition(); item; lane.from->Next(item)) {
        if (lane.IsChosen(item) || !ComesWithItsMesh(lane, item)) continue;
        if (lane.attributes.empty()) lane.attributes.resize(lane.marks.size());
        lane.attributes[lane.from->Set().SlotOf(item)] = true;
        grown |= lane.Choose(item);
      }
    }
    return grown;
  }

  bool ComesWithItsMesh(Lane& lane, ITR item) {
    bool some = false;
    bool lacks = false;
    ForEachReference(lane.from->GetSchema(), *KeyedSetBase::RecordAt(item),
                     [&](const Row& row, const char* slot) {
                       const bool all = row.on_removal == OnRemoval::kDie && IsMesh(row.target);
                       // The keys of a geometry object are what its settings list.
                       const bool part =
                           lane.to->GetTypeCode() == code::kGKey && row.target == code::kGeom;
                       if (!all && !part && row.on_removal != OnRemoval::kDieWithLast) return;
                       const Key key = LoadAt<Key>(slot);
                       Lane* target = key ? LaneOf(row.target) : nullptr;
                       const ITR found = target ? target->from->Find(key) : 0;
                       const bool comes = found && target->IsChosen(found);
                       some |= comes;
                       lacks |= all && key && !comes;
                     });
    return some && !lacks;
  }

  /// Whether a record brings what a row names. Attributes of a part bring none of its mesh: they
  /// are cut to what comes. The hierarchy above a part stays.
  bool Brings(const Lane& lane, ITR item, const Row& row) const {
    if (!options_.as_part) return true;
    if (row.key_of) return row.offset == 8;
    return !(lane.IsAttribute(item) && row.IsArray() &&
             (IsMesh(row.target) || row.on_removal == OnRemoval::kDieWithLast));
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
      if (Brings(lane, item, row)) choose(row.target, LoadAt<Key>(slot));
    });
    for (const Row& row : schema.Rows()) {
      if (row.key_of && Brings(lane, item, row))
        choose(row.key_of, LoadAt<Key>(detail::Bytes(record) + row.offset));
    }
    for (auto& [type, other] : lanes_) {
      const Row* owner = OwnerRow(other.from->GetSchema());
      if (owner && owner->key_of == schema.Type()) choose(type, record.GetKey());
    }
    return grown;
  }

  // ---- transferring ----

  Outcome Transfer() {
    std::size_t records = 0;
    for (const Lane* lane : InOrder()) records += lane->chosen.size();
    LongWork work(records);
    for (Lane* lane : InOrder()) {
      lane->to->ReserveHash(lane->to->GetSize() + static_cast<std::int64_t>(lane->chosen.size()));
      lane->keys.reserve(lane->chosen.size());
      PreferHugePages(lane->keys.data(), lane->chosen.size() * sizeof(lane->keys[0]));
      if (options_.as_part) OrderByReference(*lane);  // what waits cannot be compared
      for (const ITR item : lane->chosen) {
        work.Step();
        if (Outcome done = TransferRecord(*lane, item); !done) return done;
      }
    }
    for (const auto& [lane, item] : std::exchange(deferred_, {})) {
      waits_ = false;
      TStructBase* record = Prepared(*lane, item, false);
      const ITR pos = lane->PositionOf(item);
      KeyedSetBase::SetKey(*record, KeyOf(pos));
      if (!lane->to->SetAtNU(pos, record)) return Refused(*lane, item);
    }
    for (auto& [type, lane] : lanes_) {
      if (Outcome named = NameApart(lane); !named) return named;
    }
    return {};
  }

  Outcome NameApart(Lane& lane) {
    if (!lane.store || !lane.from->GetSchema().Find(u"_NAME")) return {};
    std::vector<ITR> came, renamed;
    for (const ITR item : lane.chosen) {
      const ITR pos = lane.PositionOf(item);
      if (pos && !lane.joined.contains(item)) came.push_back(pos);
    }
    const bool named = lane.store->NameApart(came, renamed) != 0;
    const std::unordered_set<ITR> others(renamed.begin(), renamed.end());
    for (const ITR item : lane.chosen) {
      const ITR pos = lane.PositionOf(item);
      if (!others.contains(pos)) continue;
      report_.renamed.push_back({lane.to->GetTypeCode(), KeyOf(item), NameAt(item), NameAt(pos)});
    }
    if (named) return {};
    return Failure{"", TableOf(into_, lane.to->GetTypeCode()), "refuses another name",
                   "see the message above"};
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

  /// Puts what a record refers to in its own pool before it. Circles have been refused.
  static void OrderByReference(Lane& lane) {
    const Schema& schema = lane.from->GetSchema();
    const auto rows = schema.References();
    if (std::none_of(rows.begin(), rows.end(),
                     [&](const Row* row) { return row->target == schema.Type(); })) {
      return;
    }
    std::vector<ITR> order;
    std::unordered_set<ITR> entered;
    std::vector<std::pair<ITR, bool>> open;  // and whether what it refers to stands before it
    for (const ITR chosen : lane.chosen) {
      open.emplace_back(chosen, false);
      while (!open.empty()) {
        const auto [item, is_ready] = open.back();
        if (is_ready) order.push_back(item);
        if (is_ready || !entered.insert(item).second) {
          open.pop_back();
          continue;
        }
        open.back().second = true;
        ForEachReference(schema, *KeyedSetBase::RecordAt(item),
                         [&](const Row& row, const char* slot) {
                           const Key key = LoadAt<Key>(slot);
                           const bool own = row.target == schema.Type() && key > 0;
                           const ITR needed = own ? lane.from->Find(key) : 0;
                           if (needed && lane.IsChosen(needed)) open.emplace_back(needed, false);
                         });
      }
    }
    lane.chosen = std::move(order);
  }

  Outcome TransferRecord(Lane& lane, ITR item) {
    waits_ = false;
    belongs_nowhere_ = false;
    TStructBase* record = Prepared(lane, item, true);
    if (belongs_nowhere_) {
      lane.Leave(item);
      report_.left.emplace_back(lane.to->GetTypeCode(), KeyOf(item));
      return {};
    }
    // What belongs to a record has taken its key, and replaces what is there for it.
    const bool keep = (options_.keep_keys && !options_.as_part) || OwnerRow(lane.from->GetSchema());
    const bool is_default = lane.first && record->GetKey() == lane.DefaultKey();
    if (!keep && is_default && IsModelsOwn(lane, item, *record)) return Join(lane, item, *record);
    if (options_.as_part && !OwnerRow(lane.from->GetSchema())) return Settle(lane, item, *record);
    const bool overwrites = keep && lane.to->Find(record->GetKey());
    const Key wanted = is_default ? lane.DefaultKey() : KeyBesideDefault(lane);
    lane.overwritten += overwrites;
    return Arrived(lane, item, lane.Bring(*record, keep, wanted), overwrites);
  }

  Outcome Arrived(Lane& lane, ITR item, ITR pos, bool overwrites = false) {
    if (!pos) return Refused(lane, item);
    lane.Came(item, pos);
    if (!overwrites) into_.Owned().ComeFromElsewhere(*lane.to, pos);
    if (waits_) deferred_.emplace_back(&lane, item);
    return {};
  }

  /// Brings a record of a part under the key that it is to have.
  Outcome Settle(Lane& lane, ITR item, TStructBase& record) {
    const std::uint16_t type = lane.to->GetTypeCode();
    const Key key = record.GetKey();
    const auto bring_anew = [&] {
      return Arrived(lane, item, lane.Bring(record, false, KeyBesideDefault(lane)));
    };
    if (IsMesh(type) && (!options_.keep_keys || type == code::kMset)) return bring_anew();
    const ITR there = lane.to->Find(key);
    if (!there) return Arrived(lane, item, lane.Bring(record, true, 0));
    if (IsMesh(type)) {
      qxMsgOut(Severity::kRefusal, "IDS_QX_DB_MSET_KEY_TAKEN",
               {TableOf(into_, type), std::to_string(key)});
      return Refused(lane, item);
    }
    const TStructBase& own = *KeyedSetBase::RecordAt(there);
    if (!waits_ && Differences(lane.to->GetSchema(), record, own, units_).empty()) {
      lane.Came(item, there);
      lane.joined.insert(item);
      report_.clashes.push_back({type, key, key, true});
      return {};
    }
    if (Outcome done = Arrived(lane, item, lane.Bring(record, false, KeyBesideBoth(lane))); !done) {
      return done;
    }
    report_.clashes.push_back({type, key, KeyOf(lane.PositionOf(item)), false});
    return {};
  }

  /// 0 for any new key; where the model lacks its default record, one that is not for that.
  static Key KeyBesideDefault(const Lane& lane) {
    const Key key = lane.DefaultKey();
    return key && !lane.to->Find(key) ? lane.to->Set().GetNewKeyUp(key + 1) : 0;
  }

  /// A key that no record of either model has: one still to come must not find its own taken.
  static Key KeyBesideBoth(const Lane& lane) {
    const std::int64_t next = std::max<std::int64_t>(
        lane.to->Set().GetNewKey(), std::int64_t{lane.from->Set().GetMaxKey()} + 1);
    const bool fits = next <= INT32_MAX && next != lane.DefaultKey();
    const Key key = fits ? static_cast<Key>(next) : 0;
    return key > 0 && !lane.to->Find(key) ? key : KeyBesideDefault(lane);
  }

  /// Whether the model has the same record, but for what it lists. What neither has changed since
  /// its model was new is the same, whatever the units.
  bool IsModelsOwn(const Lane& lane, ITR item, const TStructBase& record) const {
    const ITR own = lane.to->Find(record.GetKey());
    if (!own || waits_) return false;
    const Schema& schema = lane.to->GetSchema();
    const TStructBase& mine = *KeyedSetBase::RecordAt(own);
    const TStructBase& as_new = *KeyedSetBase::RecordAt(lane.first);
    std::vector<const Row*> edited = Differences(schema, *KeyedSetBase::RecordAt(item), as_new);
    for (const Row* row : Differences(schema, mine, as_new)) edited.push_back(row);
    const auto rows = Differences(schema, record, mine, units_);
    return std::all_of(rows.begin(), rows.end(), [&](const Row* row) {
      return row->kind == MemberKind::kReferenceArray ||
             std::find(edited.begin(), edited.end(), row) == edited.end();
    });
  }

  /// Lets the model's own record stand for one from outside, and list what that lists.
  Outcome Join(Lane& lane, ITR item, const TStructBase& record) {
    const ITR own = lane.to->Find(record.GetKey());
    lane.Came(item, own);
    lane.joined.insert(item);
    if (options_.as_part) {
      report_.clashes.push_back({lane.to->GetTypeCode(), KeyOf(item), KeyOf(own), true});
    }
    std::vector<std::pair<const Row*, TArray<ITR>>> lists;
    for (const Row* row : lane.to->GetSchema().References()) {
      if (row->IsArray()) lists.emplace_back(row, ListAt(record, *row));
    }
    const auto joint = lane.to->CopyRecord(own);
    bool grown = false;
    for (const auto& [row, more] : lists) {
      auto& list = const_cast<TArray<ITR>&>(ListAt(*joint, *row));
      const std::unordered_set<ITR> known(list.begin(), list.end());
      for (const ITR entry : more) {
        if (known.contains(entry)) continue;
        list.Add(entry);
        grown = true;
      }
    }
    if (!grown || lane.to->SetAtNU(own, joint.get())) return {};
    return Refused(lane, item);
  }

  static const TArray<ITR>& ListAt(const TStructBase& record, const Row& row) {
    return *reinterpret_cast<const TArray<ITR>*>(detail::Bytes(record) + row.offset);
  }

  Outcome Refused(const Lane& lane, ITR item) const {
    if (lane.to->Set().GetFreeKey() < 0) {
      return Failure{"", TableOf(into_, lane.to->GetTypeCode()), "has no free key left",
                     "renumber its records from 1 on"};
    }
    return Failure{"", TableOf(into_, lane.to->GetTypeCode()) + " " + std::to_string(KeyOf(item)),
                   "was refused by the model", "see the message above"};
  }

  /// The record as it comes into the model, valid until the lane's next.
  TStructBase* Prepared(Lane& lane, ITR item, bool tell) {
    const Schema& schema = lane.from->GetSchema();
    if (!lane.incoming) lane.incoming = lane.from->NewRecord();
    lane.from->Set().CopyTo(*lane.incoming, item);
    TStructBase* record = lane.incoming.get();
    char* bytes = detail::Bytes(*record);
    const auto member = [&](const Row& row, Key key) {
      // That a part is cut out is what was asked for.
      const bool told = tell && Brings(lane, item, row);
      return Place{&lane, KeyOf(item), &row, row.target ? row.target : row.key_of, key, told};
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
      ConvertUnitsIn(*record, units_);
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
  CQXDBSession fresh_;  // a model as new, for its default records
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

std::string ImportReport::Clash::Line(const CQXDBSession& session) const {
  return joined ? fmt::format("{} {}: the model has the same and keeps that",
                              TableOf(session, type), key)
                : fmt::format("{} {}: the model has another of this key; came as {}",
                              TableOf(session, type), key, here);
}

std::string ImportReport::Renamed::Line(const CQXDBSession& session) const {
  return fmt::format("{} {}: the name \"{}\" is in use; named \"{}\"", TableOf(session, type), key,
                     from, to);
}

std::int64_t ImportReport::Records() const {
  std::int64_t sum = 0;
  for (const Pool& pool : pools) sum += static_cast<std::int64_t>(pool.keys.size()) - pool.joined;
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

namespace {

/// Iterators become keys again, as an import follows them.
void KeysForIterators(CQXDBSession& session) {
  for (const DPoolBase* pool : session.Pools()) {
    if (pool->GetSchema().References().empty()) continue;
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      ForEachReference(pool->GetSchema(), *KeyedSetBase::RecordAt(pos), [](const Row&, char* slot) {
        StoreAt<ITR>(slot, static_cast<ITR>(KeyOf(LoadAt<ITR>(slot))));
      });
    }
  }
}

}  // namespace

Result<std::unique_ptr<ExternalModel>> ExternalModel::Open(
    const std::string& path, CQXDBSession::PoolSetup setup,
    const std::function<Outcome(CQXDBSession&)>& prepare) {
  auto records = ReadModel(path, setup, {.complete = true});
  if (!records) return records.Error();
  (*records)->ForgetHistory();
  if (Outcome checked = qx::CheckCircles(**records, ReferenceForm::kIterators, path); !checked) {
    return checked.Error();
  }
  if (prepare) {
    if (Outcome done = prepare(**records); !done) {
      Failure fault = done.Error();
      fault.file = path;
      return fault;
    }
  }
  KeysForIterators(**records);
  return std::unique_ptr<ExternalModel>(new ExternalModel(std::move(*records), path));
}

Outcome ExternalModel::CheckCircles() const {
  return qx::CheckCircles(*records_, ReferenceForm::kKeys, path_);
}

Result<ImportReport> ImportRecords(CQXDBSession& session, const ExternalModel& from,
                                   const ImportOptions& options) {
  CTransaction transaction(&session);
  if (!transaction.Begin(qxLoadText("IDS_QX_TRANS_IMPORT_RECORDS").c_str())) {
    return Failure{from.Path(), "", "cannot come into the model now",
                   "end the other command first"};
  }
  Result<ImportReport> report = Importer(session, from, options).Run();
  if (!report) {
    Failure fault = report.Error();
    fault.file = from.Path();
    return fault;
  }
  if (!options.dry_run && !transaction.Commit()) {
    return Failure{from.Path(), "", "its records are refused by the model",
                   "see the message above"};
  }
  return report;
}

}  // namespace qx
