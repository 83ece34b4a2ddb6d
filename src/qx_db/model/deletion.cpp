#include "qx_db/model/deletion.h"

#include <set>
#include <unordered_set>

#include "qx_db/core/transaction.h"
#include "qx_db/gateway/document.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/reference_index.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// Calls `visit` for the reference slots of one row of a record.
template <class Visit>
void ForEachTarget(const Row& row, ITR item, Visit&& visit) {
  char* bytes = detail::Bytes(*KeyedSetBase::RecordAt(item));
  const auto take = [&](const Row&, const char* slot) {
    if (const ITR target = LoadAt<ITR>(slot)) visit(target);
  };
  if (row.IsArray()) {
    const ArrayStorage& array = detail::ArrayAt(bytes, row);
    detail::ForEachSlot(row, static_cast<char*>(array.data), array.count, take);
  } else {
    take(row, bytes + row.offset);
  }
}

/// Works out what follows from what, by the same rows that the pools follow when it happens.
class Closure {
 public:
  explicit Closure(const CQXDBSession& session)
      : session_(session), elements_(Pool<tagTElem>(session)) {}

  void Ask(std::uint16_t type, std::span<const ITR> items) {
    for (const ITR item : items) {
      if (item && !KeyedSetBase::IsRemoved(item)) Remove({type, item, Effect::kRemoved});
    }
    with_sets_ = type == code::kMset;
    if (with_sets_) AskForTheirMesh(items);
  }

  DeletionPreview Finish() {
    do {
      while (next_ < result_.consequences.size()) Follow(result_.consequences[next_++]);
    } while (RemoveThoseThatLostTheLast());
    // Whoever goes anyway is neither changed nor reset, and blocks nothing.
    for (const Consequence& change : changes_) {
      if (!removed_.contains(change.item)) result_.consequences.push_back(change);
    }
    FindBlockers();
    return std::move(result_);
  }

 private:
  bool Remove(const Consequence& consequence) {
    if (!removed_.insert(consequence.item).second) return false;
    result_.consequences.push_back(consequence);
    return true;
  }

  /// With mesh sets go the nodes and elements that no remaining set holds.
  void AskForTheirMesh(std::span<const ITR> sets) {
    const auto& pool = Pool<tagTMset>(session_);
    AskForOrphans(sets, pool, &tagTMset::elements, u"_ELEM_IDS");
    AskForOrphans(sets, pool, &tagTMset::nodes, u"_NODE_IDS");
  }
  template <std::uint16_t Type>
  void AskForOrphans(std::span<const ITR> sets, const DPoolMset& pool,
                     TRefArray<Type> tagTMset::*list, const char16_t* name) {
    std::unordered_set<ITR> held;
    for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
      const TArray<ITR>& items = pool.GetAtNU(pos).*list;
      if (!removed_.contains(pos)) held.insert(items.begin(), items.end());
    }
    const Row* row = pool.GetSchema().Find(name);
    for (const ITR set : sets) {
      if (!removed_.contains(set)) continue;
      for (const ITR item : pool.GetAtNU(set).*list) {
        if (item == 0 || held.contains(item) || KeyedSetBase::IsRemoved(item)) continue;
        Remove({Type, item, Effect::kRemoved, row, code::kMset, set});
        mesh_of_sets_.insert(item);
      }
    }
  }

  /// What one removal brings about directly. Takes a copy: the list grows meanwhile.
  void Follow(const Consequence gone) {
    if (gone.type == code::kElem) FollowKeys(gone);
    if (gone.type == code::kMset) FollowChildren(gone);
    elements_.References().ForEachUser(
        gone.type, gone.item, [&](DPoolBase& pool, const Row& row, ITR user) {
          if (pool.GetTypeCode() == code::kEcrd && gone.type == code::kNode) {
            oriented_.emplace_back(gone.item, user);
          }
          if (removed_.contains(user)) return;
          Consequence next{pool.GetTypeCode(), user, Effect::kChanged, &row, gone.type, gone.item};
          switch (row.on_removal) {
            case OnRemoval::kDie:
              next.effect = Effect::kRemoved;
              Remove(next);
              break;
            case OnRemoval::kRefuse:
              refusing_.push_back(next);
              break;
            case OnRemoval::kDieWithLast:
              if (losing_seen_.insert(user).second) losing_.push_back(next);
              Change(next);
              break;
            case OnRemoval::kClear:
              if (IsResetBy(next)) next.effect = Effect::kReset;
              Change(next);
          }
        });
  }

  void FollowKeys(const Consequence& gone) {
    const tagTElem& element = elements_.GetAtNU(gone.item);
    for (const std::uint16_t type : element_rule::kKeyedPools) {
      const ITR keyed = session_.GetDataPool(type)->Find(element.key);
      if (keyed == 0 || !element_rule::TakesAlong(element.type, type)) continue;
      Remove({type, keyed, Effect::kRemoved, nullptr, gone.type, gone.item});
    }
  }

  void FollowChildren(const Consequence& gone) {
    auto& sets = Pool<tagTMset>(session_);
    TArray<ITR> children;
    sets.GetItrListByParentMsetK(sets.GetAtNU(gone.item).key, children);
    const Row* row = sets.GetSchema().Find(u"_PARENTMSETK");
    for (const ITR child : children) {
      Change({code::kMset, child, Effect::kChanged, row, gone.type, gone.item});
    }
  }

  /// An orientation by a node that goes is reset as a whole.
  bool IsResetBy(const Consequence& change) const {
    return change.type == code::kEcrd && change.cause_type == code::kNode &&
           Pool<tagTEcrd>(session_).GetAtNU(change.item).method == tagTEcrd::kByNode;
  }

  void Change(const Consequence& change) {
    if (changed_.emplace(change.item, change.row).second) changes_.push_back(change);
  }

  bool RemoveThoseThatLostTheLast() {
    bool any = false;
    for (Consequence& one : losing_) {
      if (removed_.contains(one.item)) continue;
      bool keeps_some = false;
      for (const Row* row : session_.GetDataPool(one.type)->GetSchema().References()) {
        if (row->on_removal != OnRemoval::kDieWithLast) continue;
        ForEachTarget(*row, one.item, [&](ITR target) {
          keeps_some |= !removed_.contains(target) && !KeyedSetBase::IsRemoved(target);
        });
      }
      if (keeps_some) continue;
      one.effect = Effect::kRemoved;
      any |= Remove(one);
    }
    return any;
  }

  void FindBlockers() {
    const auto key = [](ITR item) { return std::to_string(KeyOf(item)); };
    const ITR global = Pool<tagTCord>(session_).GetDefaultItr();
    if (removed_.contains(global)) {
      result_.blockers.push_back({"IDS_QX_DB_CORD_DEFAULT", {key(global)}});
    }
    for (const Consequence& one : refusing_) {
      if (removed_.contains(one.item)) continue;
      result_.blockers.push_back({"IDS_QX_DB_CORD_REFERENCED", {key(one.cause), key(one.item)}});
    }
    std::set<ITR> nodes;  // each named once
    for (const auto& [node, orientation] : oriented_) {
      const ITR element = elements_.Find(KeyOf(orientation));
      if (element == 0 || IsExempt(element) || !nodes.insert(node).second) continue;
      result_.blockers.push_back({"IDS_QXMESH_REFERENCE_NODE_ERROR", {key(node)}});
    }
  }

  /// Whether an element may lose its reference node because it goes itself. Deleting mesh sets
  /// asks that before anything goes, of the elements of the sets only.
  bool IsExempt(ITR element) const {
    return with_sets_ ? mesh_of_sets_.contains(element) : removed_.contains(element);
  }

  const CQXDBSession& session_;
  const DPoolElem& elements_;
  DeletionPreview result_;
  std::size_t next_ = 0;
  std::unordered_set<ITR> removed_;
  std::vector<Consequence> changes_;
  std::set<std::pair<ITR, const Row*>> changed_;
  std::vector<Consequence> losing_;
  std::unordered_set<ITR> losing_seen_;
  std::vector<Consequence> refusing_;
  std::vector<std::pair<ITR, ITR>> oriented_;  // a node that goes, an orientation that names it
  bool with_sets_ = false;
  std::unordered_set<ITR> mesh_of_sets_;
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
  Closure closure(session);
  closure.Ask(type, items);
  return closure.Finish();
}

int CheckDeletion(const CQXDBSession& session, std::uint16_t type, std::span<const ITR> items) {
  const DeletionPreview preview = PreviewDeletion(session, type, items);
  const auto set_of = [&](std::uint16_t of) {
    const std::vector<ITR> removed = preview.Removed(of);
    return std::unordered_set<ITR>(removed.begin(), removed.end());
  };
  const std::unordered_set<ITR> elements = set_of(code::kElem);
  const std::unordered_set<ITR> nodes = set_of(code::kNode);
  return Pool<tagTEcrd>(session).CheckRelation([&](ITR item) { return elements.contains(item); },
                                               [&](ITR item) { return nodes.contains(item); });
}

int DeleteRecords(CQXDBSession& session, std::uint16_t type, std::span<const ITR> items) {
  if (type == code::kMset) {
    TArray<ITR> sets;
    sets.Assign(items.data(), items.size());
    return Pool<tagTMset>(session).TR_Del(sets);
  }
  if (!CheckDeletion(session, type, items)) return 0;
  CTransaction transaction(&session);
  if (!transaction.Begin(qxLoadText("IDS_QX_TRANS_DELETE").c_str())) return 0;
  DPoolBase& pool = *session.GetDataPool(type);
  for (const ITR item : items) {
    // One asked for twice, or taken along by another, is gone already.
    if (item == 0 || KeyedSetBase::IsRemoved(item)) continue;
    if (!pool.Remove(item)) return 0;
  }
  return transaction.Commit();
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
  if (type == code::kElem) {
    for (const std::uint16_t keyed : element_rule::kKeyedPools) {
      const ITR user = session.GetDataPool(keyed)->Find(KeyOf(item));
      if (user) uses.push_back({keyed, user, nullptr});
    }
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
