#include "qx_db/model/deletion.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>

#include "qx_db/core/belongings.h"
#include "qx_db/core/rehearsal.h"
#include "qx_db/core/transaction.h"
#include "qx_db/gateway/document.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/reference_index.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// Removes what is asked for, with what goes along at once. 0 when a rule refuses.
int RemoveAsked(CQXDBSession& session, std::uint16_t type, std::span<const ITR> items) {
  if (type == code::kMset) {
    TArray<ITR> sets;
    sets.Assign(items.data(), items.size());
    return Pool<tagTMset>(session).TR_Del(sets);
  }
  if (!CheckDeletion(session, type, items) && !session.IsRehearsing()) return 0;
  DPoolBase& pool = *session.GetDataPool(type);
  LongWork work(items.size());
  for (const ITR item : items) {
    work.Step();
    // One asked for twice, or taken along by another, is gone already.
    if (item == 0 || KeyedSetBase::IsRemoved(item)) continue;
    if (!pool.Remove(item)) return 0;
  }
  return 1;
}

/// The first target of a row that `is` tells; 0 for none.
template <class Is>
ITR FindTarget(const Row& row, ITR item, Is&& is) {
  ITR found = 0;
  const auto take = [&](const Row&, const char* slot) {
    const ITR target = LoadAt<ITR>(slot);
    if (!found && target && is(target)) found = target;
  };
  char* bytes = detail::Bytes(*KeyedSetBase::RecordAt(item));
  if (row.IsArray()) {
    const ArrayStorage& array = detail::ArrayAt(bytes, row);
    detail::ForEachSlot(row, static_cast<char*>(array.data), array.count, take);
  } else {
    take(row, bytes + row.offset);
  }
  return found;
}

/// Tells what a rehearsal has done, and why, once it is taken back: the records are then as they
/// were, and say themselves what they depend on.
class Account {
 public:
  Account(const CQXDBSession& session, std::uint16_t type, std::span<const ITR> asked,
          const std::vector<RecordChange>& changes)
      : session_(session), changes_(changes) {
    for (std::size_t i = 0; i < changes.size(); ++i) {
      const RecordChange& change = changes[i];
      if (change.operation != tagTRNotify::kRemoved) continue;
      removed_.emplace(change.item, i);
      removed_by_key_.emplace(std::pair(change.type, KeyOf(change.item)), change.item);
    }
    for (const ITR item : asked) {
      const auto found = removed_.find(item);
      if (found == removed_.end() || !told_.insert(item).second) continue;
      result_.push_back({type, item, Effect::kRemoved});
    }
    if (type == code::kMset) LearnLists();
  }

  std::vector<Consequence> Tell() {
    LongWork work(2 * changes_.size());
    for (const RecordChange& change : changes_) {
      work.Step();
      if (change.operation == tagTRNotify::kRemoved) TellRemoved(change);
    }
    for (const RecordChange& change : changes_) {
      work.Step();
      if (change.operation == tagTRNotify::kModified) TellChanged(change);
    }
    return std::move(result_);
  }

 private:
  struct Reason {
    const Row* row = nullptr;
    std::uint16_t type = 0;
    ITR cause = 0;
  };

  /// By the deletion, or by the open step before it.
  bool IsGone(ITR item) const { return removed_.contains(item) || KeyedSetBase::IsRemoved(item); }

  /// The sets that were asked for list what goes with them.
  void LearnLists() {
    for (const Consequence& set : std::vector(result_)) {
      for (const Row* row : session_.GetDataPool(code::kMset)->GetSchema().References()) {
        if (!row->IsArray()) continue;
        FindTarget(*row, set.item, [&](ITR item) {
          if (removed_.contains(item))
            listed_.try_emplace(item, Reason{row, code::kMset, set.item});
          return false;
        });
      }
    }
  }

  /// A removed record by whose key the row is.
  Reason ByKey(const Row& row, ITR item) const {
    const auto key = LoadAt<Key>(detail::Bytes(*KeyedSetBase::RecordAt(item)) + row.offset);
    const auto found =
        key && row.key_of ? removed_by_key_.find({row.key_of, key}) : removed_by_key_.end();
    if (found == removed_by_key_.end()) return {};
    return {row.offset == 8 ? nullptr : &row, row.key_of, found->second};
  }

  Reason ByReference(const Row& row, ITR item) const {
    ITR cause = FindTarget(row, item, [this](ITR target) { return removed_.contains(target); });
    if (!cause) cause = FindTarget(row, item, [this](ITR target) { return IsGone(target); });
    return cause ? Reason{&row, row.target, cause} : Reason{};
  }

  /// A changed member goes by what it names, or by what the list names beside which it stands.
  Reason WhyChanged(const Schema& schema, const Row& row, ITR item) const {
    Reason why = row.target ? ByReference(row, item) : ByKey(row, item);
    for (const Row* list : schema.References()) {
      if (why.cause || row.offset == 8) break;
      if (list->beside == row.offset || list->lock == row.offset) why = ByReference(*list, item);
    }
    return why;
  }

  Reason WhyRemoved(std::uint16_t type, ITR item) const {
    if (const auto listed = listed_.find(item); listed != listed_.end()) return listed->second;
    const Schema& schema = session_.GetDataPool(type)->GetSchema();
    if (const Reason owner = ByKey(schema.Rows().front(), item); owner.cause) return owner;
    Reason any;
    for (const Row* row : schema.References()) {
      const Reason reason = ByReference(*row, item);
      if (!reason.cause) continue;
      if (row->on_removal == OnRemoval::kDie) return reason;
      if (!any.cause || row->on_removal == OnRemoval::kDieWithLast) any = reason;
    }
    return any;
  }

  /// Causes before what they bring about: a chain of those is as long as types refer to one
  /// another.
  void TellRemoved(const RecordChange& change) {
    if (!told_.insert(change.item).second) return;
    const Reason why = WhyRemoved(change.type, change.item);
    if (const auto cause = removed_.find(why.cause); cause != removed_.end()) {
      TellRemoved(changes_[cause->second]);
    }
    result_.push_back({change.type, change.item, Effect::kRemoved, why.row, why.type, why.cause});
  }

  void TellChanged(const RecordChange& change) {
    const TStructBase& record = *KeyedSetBase::RecordAt(change.item);
    const Schema& schema = session_.GetDataPool(change.type)->GetSchema();
    for (const Row* row : schema.References()) {
      if (row->on_removal != OnRemoval::kReset || !row->reset.counts(record)) continue;
      const Reason why = ByReference(*row, change.item);
      if (!why.cause) continue;
      result_.push_back({change.type, change.item, Effect::kReset, row, why.type, why.cause});
      return;
    }
    for (const Row* row : change.members) {
      const Reason why = WhyChanged(schema, *row, change.item);
      result_.push_back({change.type, change.item, Effect::kChanged, row, why.type, why.cause});
    }
  }

  const CQXDBSession& session_;
  const std::vector<RecordChange>& changes_;
  std::vector<Consequence> result_;
  std::unordered_map<ITR, std::size_t> removed_;  // which of the changes
  std::map<std::pair<std::uint16_t, Key>, ITR> removed_by_key_;
  std::unordered_map<ITR, Reason> listed_;
  std::unordered_set<ITR> told_;
};

/// What an edit would do, without what the step that is open would end with anyway.
class Forecast {
 public:
  std::vector<RecordChange> changes;
  std::vector<Blocker> blockers;
  std::vector<Turn> turns;

  Forecast(const CQXDBSession& session, const SessionEdit& edit) : session_(session) {
    const bool within_a_step = Rehearsal::IsWithinAStep(session);
    {
      Rehearsal rehearsal(session);
      edit(rehearsal.Session());
      rehearsal.Settle();
      changes = rehearsal.Changes();
      blockers = BlockersOf(rehearsal);
      TellAxesAfter();
      if (within_a_step) KeepOutcome();
    }
    if (!within_a_step) {
      CompareAxes();
      return;
    }
    Rehearsal anyway(session);
    anyway.Settle();
    for (const Blocker& blocker : BlockersOf(anyway)) std::erase(blockers, blocker);
    LeaveOut(anyway.Changes());
    CompareAxes();
  }

 private:
  static std::vector<Blocker> BlockersOf(const Rehearsal& rehearsal) {
    std::vector<Blocker> blockers;
    for (const Message& message : rehearsal.Refusals()) {
      if (message.severity != Severity::kRefusal) continue;
      blockers.push_back({message.key, message.arguments});
    }
    return blockers;
  }

  /// What belongs to an element may turn it. It is found while that is as it will be.
  void TellAxesAfter() {
    const auto& elements = Pool<tagTElem>(session_);
    std::unordered_set<ITR> told;
    for (const RecordChange& change : changes) {
      const Row& key = session_.GetDataPool(change.type)->GetSchema().Rows().front();
      const ITR element = key.key_of == code::kElem ? elements.Find(KeyOf(change.item)) : 0;
      if (!element || !told.insert(element).second) continue;
      Turn& turn = turns.emplace_back();
      turn.element = element;
      turn.will_have_axes = elements.GetElemLocalVector(element, turn.after) != 0;
    }
  }

  /// Keeps those that the axes before tell to be turned.
  void CompareAxes() {
    const auto& elements = Pool<tagTElem>(session_);
    std::erase_if(turns, [&](Turn& turn) {
      turn.has_axes = elements.GetElemLocalVector(turn.element, turn.before) != 0;
      return turn.has_axes == turn.will_have_axes &&
             (!turn.has_axes ||
              std::equal(&turn.before[0][0], &turn.before[0][0] + 9, &turn.after[0][0]));
    });
  }

  void KeepOutcome() {
    for (const RecordChange& change : changes) {
      if (change.operation != tagTRNotify::kModified) continue;
      outcome_.emplace(change.item, session_.GetDataPool(change.type)->CopyRecord(change.item));
    }
  }

  /// Leaves out what happens to records without the edit as well; they are as that leaves them.
  void LeaveOut(const std::vector<RecordChange>& anyway) {
    std::unordered_map<ITR, std::uint16_t> known;
    for (const RecordChange& change : anyway) known.emplace(change.item, change.operation);
    std::erase_if(changes, [&](RecordChange& change) {
      const auto found = known.find(change.item);
      if (found == known.end()) return false;
      if (found->second == tagTRNotify::kRemoved) return true;
      if (change.operation != tagTRNotify::kModified) return false;
      change.members = Differences(session_.GetDataPool(change.type)->GetSchema(),
                                   *outcome_.at(change.item), *KeyedSetBase::RecordAt(change.item));
      return change.members.empty();
    });
  }

  const CQXDBSession& session_;
  std::unordered_map<ITR, std::unique_ptr<TStructBase>> outcome_;  // of modified records
};

}  // namespace

std::vector<ITR> DeletionPreview::Removed(std::uint16_t type) const {
  std::vector<ITR> items;
  for (const Consequence& one : consequences) {
    if (one.type == type && one.effect == Effect::kRemoved) items.push_back(one.item);
  }
  return items;
}

DeletionPreview PreviewDeletion(const CQXDBSession& session, std::uint16_t type,
                                std::span<const ITR> items) {
  std::vector<ITR> asked;
  for (const ITR item : items) {
    if (item && !KeyedSetBase::IsRemoved(item)) asked.push_back(item);
  }
  if (asked.empty()) return {};
  Forecast forecast(session,
                    [&](CQXDBSession& rehearsed) { return RemoveAsked(rehearsed, type, asked); });
  return {Account(session, type, asked, forecast.changes).Tell(), std::move(forecast.blockers),
          std::move(forecast.turns)};
}

std::vector<Turn> TurnsOf(const CQXDBSession& session, const SessionEdit& edit) {
  return std::move(Forecast(session, edit).turns);
}

/// Nodes go only where they are asked for, so that only then an element can lose one of its
/// orientation. Elements go with their nodes.
int CheckDeletion(const CQXDBSession& session, std::uint16_t type, std::span<const ITR> items) {
  if (type != code::kNode) return 1;
  const std::unordered_set<ITR> nodes(items.begin(), items.end());
  const auto goes = [&](ITR item) { return nodes.contains(item); };
  const auto& elements = Pool<tagTElem>(session);
  const auto dies = [&](ITR element) {
    const auto& of_element = elements.GetAtNU(element).nodes;
    return std::any_of(of_element.begin(), of_element.end(), goes);
  };
  return Pool<tagTEcrd>(session).CheckRelation(dies, goes);
}

int DeleteRecords(CQXDBSession& session, std::uint16_t type, std::span<const ITR> items) {
  if (type == code::kMset) return RemoveAsked(session, type, items);
  CTransaction transaction(&session);
  if (!transaction.Begin(qxLoadText("IDS_QX_TRANS_DELETE").c_str())) return 0;
  return RemoveAsked(session, type, items) ? transaction.Commit() : 0;
}

// Here, because a deletion of nodes is judged by all that would follow from it.
bool DPoolNode::ReadAPI(dbgateway::DataBase* from, int remove) {
  const std::string name = "__CMD_DEL_" + GetAPIName().ToUtf8();
  const auto table = from->FindCollection(name);
  if (!remove || !table || !GetSession() || !GetSession()->GetDataPool(code::kEcrd)) {
    return DPoolPlain::ReadAPI(from, remove);
  }
  std::vector<ITR> listed;
  table->ForEachValue([&](const dbgateway::Field& key) { listed.push_back(Find(key.Integer())); });
  if (CheckDeletion(*GetSession(), code::kNode, listed)) return DPoolPlain::ReadAPI(from, remove);
  from->Tell({name, 0, "", "was refused by the model"});
  return false;
}

std::vector<Use> WhereUsed(const CQXDBSession& session, std::uint16_t type, ITR item) {
  std::vector<Use> uses;
  if (item == 0 || KeyedSetBase::IsRemoved(item)) return uses;
  for (const Belongings::Kind& kind : session.Owned().Of(type)) {
    const ITR user = session.Owned().Find(kind, item);
    if (user) uses.push_back({kind.pool->GetTypeCode(), user, nullptr});
  }
  if (type == code::kMset) {
    auto& sets = Pool<tagTMset>(session);
    TArray<ITR> children;
    sets.GetItrListByParentMsetK(KeyOf(item), children);
    const Row* row = sets.GetSchema().Find(u"_PARENTMSETK");
    for (const ITR child : children) uses.push_back({code::kMset, child, row});
  }
  Pool<tagTElem>(session).References().ForEachUser(
      type, item, [&](DPoolBase& pool, const Row& row, ITR user) {
        uses.push_back({pool.GetTypeCode(), user, &row});
      });
  return uses;
}

}  // namespace qx
