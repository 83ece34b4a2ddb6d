#include "exchange/deck.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <optional>
#include <span>
#include <unordered_map>

#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/model/coordinate_pool.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/pool/record_units.h"
#include "qx_db/record/element_types.h"
#include "qx_db/record/verbs.h"

#include "host/records.h"

namespace qx::exchange {
namespace {

bool IsLiveItem(ITR itr) { return itr != 0 && !KeyedSetBase::IsRemoved(itr); }

/// Whether records of a type have the key of the record that they belong to.
bool HasKeyOfAnother(const Schema& schema) { return schema.Rows()[0].key_of != 0; }

/// "FIELD" of tagTField.
std::string NameOf(const Schema& schema) {
  std::string name = Utf8(IONameOf(schema.Name()));
  return name.substr(1);
}

// ---- into a session -----------------------------------------------------------------------------

class RecordAdder {
 public:
  RecordAdder(CQXDBSession& session, LossReport& report) : session_(session), report_(report) {}

  void SetSetKeys(const std::vector<Key>& keys) { set_keys_ = &keys; }
  const KeyMap& KeysOf(std::uint16_t code) { return keys_[code]; }

  /// Adds the records of one type; false when the pool refuses one.
  template <class T>
  bool Add(std::vector<T> records) {
    if (records.empty()) return true;
    const Schema& schema = T::GetSchema();
    DPoolBase* pool = host::PoolFor<T>(&session_);
    if (!pool) {
      report_.Lost("records of " + NameOf(schema) + " were left out", records.size(), {},
                   "the model has no pool for them");
      return true;
    }
    GiveKeys(*pool, records);
    if constexpr (T::kType == code::kCord) {
      for (const tagTCord& system : records) system_types_[system.key] = system.type;
    }
    const std::span<const Row* const> references = schema.References();
    const bool may_name_later = std::any_of(references.begin(), references.end(),
                                            [](const Row* row) { return row->target == T::kType; });
    std::vector<std::pair<ITR, T>> again;  // of which a target came later
    for (T& record : records) {
      RenameReferences(schema, record);
      ConvertIn(record);
      std::optional<T> before;
      if (may_name_later) before = record;
      const int unknown = KeysToIterators(schema, record, session_, ReferenceScope::kAll);
      const ITR added = pool->InsertNU(&record);
      if (!added) return false;
      if (unknown > 0 && before) again.emplace_back(added, std::move(*before));
      if (!before) TellOfUnknown(schema, unknown, record.key);
      record = T();  // carried text may be most of a deck
    }
    for (auto& [item, record] : again) {
      const int unknown = KeysToIterators(schema, record, session_, ReferenceScope::kAll);
      TellOfUnknown(schema, unknown, record.key);
      if (!pool->SetAtNU(item, &record)) return false;
    }
    return true;
  }

 private:
  void TellOfUnknown(const Schema& schema, int unknown, Key key) {
    report_.Lost("references to records that are not there", static_cast<std::uint64_t>(unknown),
                 fmt::format("{} {}", NameOf(schema), key));
  }

  /// The records' own keys where they are free; new ones otherwise.
  template <class T>
  void GiveKeys(DPoolBase& pool, std::vector<T>& records) {
    if (HasKeyOfAnother(T::GetSchema())) return;
    KeyMap& keys = keys_[T::kType];
    std::unordered_map<Key, bool> used;
    Key next = std::max(pool.Set().GetNewKey(), kGlobalSystem + 1);
    for (const T& record : records)
      next = std::max(next, record.key == kMaxKey ? 1 : record.key + 1);
    const auto take = [&] {
      while (next <= 0 || pool.Find(next) || used[next]) next = next >= kMaxKey ? 1 : next + 1;
      return next;
    };
    for (T& record : records) {
      // The global system's key is its own, whether the model has it already or not.
      const bool is_global = T::kType == code::kCord && record.key == kGlobalSystem;
      const bool is_free =
          record.key > 0 && !is_global && !pool.Find(record.key) && !used[record.key];
      const Key key = is_free ? record.key : take();
      used[key] = true;
      if (record.key > 0 && key != record.key) keys[record.key] = key;
      record.key = key;
    }
  }

  template <class T>
  void ConvertIn(T& record) {
    if constexpr (T::kType == code::kCord) {
      const auto reference = static_cast<Key>(record.reference);
      const auto of_deck = system_types_.find(reference);
      const auto* pool = session_.GetPool<DPoolCord>(code::kCord);
      const ITR of_model = of_deck == system_types_.end() ? pool->Find(reference) : 0;
      const std::int32_t type = of_deck != system_types_.end() ? of_deck->second
                                : of_model                     ? pool->GetAtNU(of_model).type
                                                               : tagTCord::kRectangular;
      ConvertUnitsIn(record, type, session_.Units());
    } else {
      ConvertUnitsIn(record, session_.Units());
    }
  }

  void RenameReferences(const Schema& schema, TStructBase& record) {
    ForEachReference(schema, record, [&](const Row& row, char* slot) {
      const auto key = static_cast<Key>(LoadAt<std::int64_t>(slot));
      if (key == 0) return;
      if (row.target == code::kMset) {
        const auto place = static_cast<std::size_t>(key) - 1;
        StoreAt<std::int64_t>(slot, place < set_keys_->size() ? (*set_keys_)[place] : 0);
        return;
      }
      const auto of_pool = keys_.find(row.target);
      if (of_pool == keys_.end()) return;
      const auto renamed = of_pool->second.find(key);
      if (renamed != of_pool->second.end()) StoreAt<std::int64_t>(slot, renamed->second);
    });
  }

  CQXDBSession& session_;
  LossReport& report_;
  const std::vector<Key> none_;
  const std::vector<Key>* set_keys_ = &none_;
  std::map<std::uint16_t, KeyMap> keys_;
  std::unordered_map<Key, std::int32_t> system_types_;  // of the deck, by new key
};

/// The tags of the groups as records.
std::vector<tagTSetTag> TagsOf(const Deck& deck) {
  std::vector<tagTSetTag> tags;
  for (std::size_t i = 0; i < deck.groups.size(); ++i) {
    for (const Mesh::SetTag& from : deck.groups[i].tags) {
      tagTSetTag tag;
      tag.format.Set(Utf16(deck.format));
      tag.set = i + 1;
      tag.kind = from.kind;
      tag.dimension = from.dimension;
      tag.tag = from.tag;
      tag.named = from.named;
      for (const auto& [element, side] : from.sides) {
        tag.sides.Add({static_cast<ITR>(element), side});
      }
      tags.push_back(std::move(tag));
    }
  }
  return tags;
}

// ---- out of a session ---------------------------------------------------------------------------

class DeckMaker {
 public:
  DeckMaker(const CQXDBSession& session, const Progress& progress)
      : session_(session),
        steps_(progress, SizeOf<tagTNode>(session) + 2 * SizeOf<tagTElem>(session)) {}

  Deck Make() {
    ListNodes();
    ListElements();
    ListGroups();
    std::apply([&](auto&... records) { (ListRecords(records), ...); }, deck_.records);
    MoveTags();
    return std::move(deck_);
  }

 private:
  template <class T>
  static std::size_t SizeOf(const CQXDBSession& session) {
    const DPoolBase* pool = session.GetDataPool(T::kType);
    return pool ? static_cast<std::size_t>(pool->GetSize()) : 0;
  }
  template <class T>
  const DPoolBase* PoolOfType() const {
    return host::PoolFor<T>(const_cast<CQXDBSession*>(&session_));
  }
  template <class T, class Visit>
  void ForEachOf(Visit&& visit) const {
    const DPoolBase* pool = PoolOfType<T>();
    if (!pool) return;
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      visit(*static_cast<const T*>(KeyedSetBase::RecordAt(pos)));
    }
  }

  void ListNodes() {
    const double unit = session_.Units().GetConvertFactorCurrent(unit::kLength);
    ForEachOf<tagTNode>([&](const tagTNode& node) {
      steps_.Step();
      deck_.node_keys.push_back(node.key);
      for (const double x : {node.position.x, node.position.y, node.position.z}) {
        deck_.coordinates.push_back(x / unit);
      }
    });
  }

  void ListElements() {
    ForEachOf<tagTElem>([&](const tagTElem& element) {
      steps_.Step();
      const ElementTopology topology(element.type);
      const bool fits = topology.Nodes() == 0 || topology.Nodes() == element.nodes.GetSize();
      if (!fits || element.nodes.IsEmpty() ||
          !std::all_of(element.nodes.begin(), element.nodes.end(), IsLiveItem)) {
        ReportIncomplete(1, element.key, deck_.report);
        return;
      }
      const Key property = IsLiveItem(element.property) ? KeyOf(element.property) : 0;
      deck_.elements.push_back({element.key, element.type, deck_.connectivity.size(), property});
      for (const ITR node : element.nodes) deck_.connectivity.push_back(KeyOf(node));
    });
  }

  void ListGroups() {
    auto* pool = session_.GetPool<DPoolMset>(code::kMset);
    auto* nodes = session_.GetPool<DPoolNode>(code::kNode);
    auto* elements = session_.GetPool<DPoolElem>(code::kElem);
    if (!pool || !nodes || !elements) return;
    for (ITR at = pool->GetHeadPosition(); at; pool->Next(at)) {
      const tagTMset& set = pool->GetAtNU(at);
      const SetMembers members = MembersOf(session_, at);
      const bool is_empty = members.Nodes().IsEmpty() && members.Elements().IsEmpty();
      if (at == pool->DefaultItr() && is_empty) continue;
      Mesh::Group group;
      group.name = Utf8(set.name.View());
      group.color = set.color;
      group.key = set.key;
      ItemMarks told(*nodes);
      for (const ITR element : members.Elements()) {
        if (!IsLiveItem(element)) continue;
        group.elements.push_back(KeyOf(element));
        const TArray<ITR>& of_element = elements->GetAtNU(element).nodes;
        told.Add({of_element.data(), of_element.size()});
      }
      for (const ITR node : members.Nodes()) {
        if (IsLiveItem(node) && told.Insert(node)) group.nodes.push_back(KeyOf(node));
      }
      place_[set.key] = static_cast<std::int32_t>(deck_.groups.size());
      parents_.push_back(set.parent_key);
      deck_.groups.push_back(std::move(group));
    }
    for (std::size_t i = 0; i < parents_.size(); ++i) {
      const auto parent = place_.find(parents_[i]);
      if (parent != place_.end()) deck_.groups[i].parent = parent->second;
    }
  }

  template <class T>
  void ListRecords(std::vector<T>& records) {
    ForEachOf<T>([&](const T& from) {
      records.push_back(from);
      ForEachReference(T::GetSchema(), records.back(), [&](const Row& row, char* slot) {
        const ITR itr = LoadAt<ITR>(slot);
        Key key = IsLiveItem(itr) ? KeyOf(itr) : 0;
        if (row.target == code::kMset && key != 0) {
          const auto place = place_.find(key);
          key = place == place_.end() ? 0 : place->second + 1;
        }
        StoreAt<std::int64_t>(slot, key);
      });
      if constexpr (T::kType == code::kCord) {
        const bool has_reference = IsLiveItem(from.reference);
        const auto* pool = static_cast<const DPoolCord*>(PoolOfType<T>());
        ConvertUnitsOut(records.back(),
                        has_reference ? pool->GetAtNU(from.reference).type : tagTCord::kRectangular,
                        session_.Units());
      } else {
        ConvertUnitsOut(records.back(), session_.Units());
      }
    });
  }

  /// The tags of sets stand with their groups.
  void MoveTags() {
    for (const tagTSetTag& from : deck_.Of<tagTSetTag>()) {
      const auto place = static_cast<std::size_t>(from.set);
      if (place == 0) continue;
      Mesh::SetTag tag{from.kind, from.dimension, from.tag, from.named != 0, {}};
      for (const tagTElemSide& side : from.sides) {
        if (side.element) tag.sides.emplace_back(static_cast<Key>(side.element), side.side);
      }
      deck_.groups[place - 1].tags.push_back(std::move(tag));
      deck_.format = Utf8(from.format.View());
    }
    deck_.Of<tagTSetTag>().clear();
  }

  const CQXDBSession& session_;
  StepCounter steps_;
  Deck deck_;
  std::map<Key, std::int32_t> place_;  // of a mesh set among the groups
  std::vector<Key> parents_;
};

}  // namespace

Outcome AddDeck(CQXDBSession& session, Deck deck, const std::string& file, LossReport& report,
                const Progress& progress) {
  CTransaction step(&session);
  step.Begin(qxLoadText("IDS_QX_TRANS_Import_Mesh").c_str());
  const auto refused = [&] {
    return Failure{file, "", "the model refuses the deck", "check the file"};
  };
  LossReport found = std::move(deck.report);
  RecordAdder adder(session, found);
  const auto add = [&]<class... T>(std::vector<T>&... lists) {
    return (adder.Add(std::move(lists)) && ...);
  };
  if (!add(deck.Of<tagTCord>(), deck.Of<tagTMatl>(), deck.Of<tagTProp>())) return refused();
  AddReport added;
  Outcome done = AddMesh(session, deck, file, &added, adder.KeysOf(code::kProp), progress);
  if (!done) return done;
  found.Append(added.losses);
  adder.SetSetKeys(added.set_keys);
  std::vector<tagTSetTag> tags = TagsOf(deck);
  std::vector<tagTSetTag>& others = deck.Of<tagTSetTag>();  // of other formats
  tags.insert(tags.end(), others.begin(), others.end());
  static_cast<Mesh&>(deck) = {};
  const bool after =
      add(deck.Of<tagTMeshCsys>(), deck.Of<tagTEcrd>(), deck.Of<tagTE1DOffset>(),
          deck.Of<tagTE1DRelease>(), deck.Of<tagTE2DThick>(), deck.Of<tagTE2DOffset>(),
          deck.Of<tagTE2DMatlCsys>(), deck.Of<tagTE3DMatlCsys>(), deck.Of<tagTSprop>(),
          deck.Of<tagTBset>(), deck.Of<tagTField>(), tags, deck.Of<tagTBlock>(),
          deck.Of<tagTCarried>(), deck.Of<tagTOrigin>());
  if (!after || !step.Commit()) return refused();
  report.Append(found);
  return {};
}

Deck DeckOf(const CQXDBSession& session, const Progress& progress) {
  return DeckMaker(session, progress).Make();
}

}  // namespace qx::exchange
