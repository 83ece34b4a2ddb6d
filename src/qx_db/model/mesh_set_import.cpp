#include "qx_db/model/mesh_set_import.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "qx_db/core/model_file.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/platform/stdio_file.h"

namespace qx {
namespace {

/// Pools whose records belong to the element of the same key.
constexpr std::uint16_t kOfElements[] = {code::kEcrd, code::kSprop, code::kE3DMatlCsys,
                                         code::kE3DScaleFac};

/// One import: knows which record of the file has become which of the model.
class SetImporter {
 public:
  SetImporter(const CQXDBSession& file, CQXDBSession& model, bool keep_keys)
      : file_(file), model_(model), keep_keys_(keep_keys) {}

  /// Brings the record in, unless it is there already; 0 when a pool refuses.
  ITR Bring(std::uint16_t type, ITR item) {
    const auto known = brought_.find(item);
    if (known != brought_.end()) return known->second;
    DPoolBase& to = *model_.GetDataPool(type);
    const auto record = Copied(type, item);
    const Key key = keep_keys_ ? record->GetKey() : NewKey(to);
    if (to.Find(key)) {
      qxMsgOut(Severity::kRefusal, "IDS_QX_DB_MSET_KEY_TAKEN",
               {to.GetAPIName().ToUtf8(), std::to_string(key)});
      return 0;
    }
    return brought_[item] = Insert(to, *record, key);
  }

  /// Brings an element with its nodes and the records of its key.
  ITR BringElement(ITR item) {
    const auto known = brought_.find(item);
    if (known != brought_.end()) return known->second;
    const Key old_key = KeyOf(item);
    for (const ITR node : static_cast<const tagTElem*>(KeyedSetBase::RecordAt(item))->nodes) {
      if (node && !Bring(code::kNode, node)) return 0;
    }
    const ITR element = Bring(code::kElem, item);
    if (!element) return 0;
    for (const std::uint16_t type : kOfElements) {
      DPoolBase* to = model_.GetDataPool(type);
      const DPoolBase* from = file_.GetDataPool(type);
      const ITR extra = from && to ? from->Find(old_key) : 0;
      if (extra && !BringExtra(*to, type, extra, KeyOf(element))) return 0;
    }
    return element;
  }

 private:
  /// A copy of a file's record, in model units, its references to records of the model.
  std::unique_ptr<TStructBase> Copied(std::uint16_t type, ITR item) {
    auto record = file_.GetDataPool(type)->CopyRecord(item);
    record->ConvertUnitOut(&file_.Units());  // its current units are the model's
    const Schema& schema = model_.GetDataPool(type)->GetSchema();
    ForEachReference(schema, *record, [&](const Row& row, char* slot) {
      const ITR target = LoadAt<ITR>(slot);
      StoreAt<ITR>(slot, target ? Counterpart(row.target, target) : 0);
    });
    return record;
  }

  ITR Counterpart(std::uint16_t type, ITR target) const {
    if (type == code::kNode || type == code::kElem) {
      const auto known = brought_.find(target);
      return known == brought_.end() ? 0 : known->second;
    }
    return FindRecord(model_, type, KeyOf(target));
  }

  /// A record of an element's key replaces one that the element's own arrival has created.
  bool BringExtra(DPoolBase& to, std::uint16_t type, ITR item, Key key) {
    bool nodes_are_there = true;
    ForEachReference(to.GetSchema(), *KeyedSetBase::RecordAt(item),
                     [&](const Row& row, char* slot) {
                       const ITR target = LoadAt<ITR>(slot);
                       if (row.target == code::kNode && target && !Bring(code::kNode, target)) {
                         nodes_are_there = false;
                       }
                     });
    if (!nodes_are_there) return false;
    const auto record = Copied(type, item);
    const ITR there = to.Find(key);
    if (!there) return Insert(to, *record, key) != 0;
    StoreAt<Key>(reinterpret_cast<char*>(record.get()) + 8, key);
    return to.SetAtNU(there, record.get()) != 0;
  }

  static ITR Insert(DPoolBase& to, TStructBase& record, Key key) {
    if (key < 0) return 0;
    StoreAt<Key>(reinterpret_cast<char*>(&record) + 8, key);
    return to.InsertNU(&record);
  }

  static Key NewKey(const DPoolBase& pool) {
    const Key next = pool.Set().GetNewKey();
    return next > 0 ? next : pool.Set().GetNewKeyUp(1);
  }

  const CQXDBSession& file_;
  CQXDBSession& model_;
  bool keep_keys_;
  std::unordered_map<ITR, ITR> brought_;  // by iterator in the file
};

/// The sets of these keys, each once, parents' children behind them when asked for. Null for a key
/// that names no set.
std::vector<ITR> Chosen(const DPoolMset& sets, std::span<const Key> keys, bool with_children) {
  std::unordered_map<Key, std::vector<ITR>> children;
  for (ITR pos = sets.GetHeadPosition(); with_children && pos; sets.Next(pos)) {
    children[sets.GetAtNU(pos).parent_key].push_back(pos);
  }
  std::vector<ITR> chosen;
  std::unordered_set<ITR> met;
  const auto add = [&](ITR set) {
    if (met.insert(set).second) chosen.push_back(set);
  };
  for (const Key key : keys) add(sets.Find(key));
  for (std::size_t i = 0; i < chosen.size(); ++i) {
    if (!chosen[i]) return chosen;
    const auto below = children.find(KeyOf(chosen[i]));
    if (below == children.end()) continue;
    for (const ITR child : below->second) add(child);
  }
  return chosen;
}

}  // namespace

Result<std::unique_ptr<ExternalMeshSets>> ExternalMeshSets::Open(const std::string& path,
                                                                 CQXDBSession::PoolSetup setup) {
  std::unique_ptr<ExternalMeshSets> opened(new ExternalMeshSets(setup));
  if (Outcome loaded = LoadModel(opened->file_, path); !loaded) return loaded.Error();
  return Result<std::unique_ptr<ExternalMeshSets>>(std::move(opened));
}

void ExternalMeshSets::List(TArray<Key>& keys, CStringArray& names) const {
  const auto& sets = *file_.GetPool<DPoolMset>(code::kMset);
  for (ITR pos = sets.GetHeadPosition(); pos; sets.Next(pos)) {
    keys.Add(sets.GetAtNU(pos).key);
    names.Add(sets.GetAtNU(pos).name.Text());
  }
}

int ExternalMeshSets::Import(CQXDBSession& into, std::span<const Key> keys, bool keep_keys,
                             bool with_children, Key parent) {
  const auto& from = *file_.GetPool<DPoolMset>(code::kMset);
  auto& to = *into.GetPool<DPoolMset>(code::kMset);
  const std::vector<ITR> chosen = Chosen(from, keys, with_children);
  if (std::find(chosen.begin(), chosen.end(), 0) != chosen.end()) return 0;
  file_.Units().SetCurrent(into.Units().Model());

  SetImporter importer(file_, into, keep_keys);
  std::unordered_map<Key, Key> new_key;
  for (const ITR pos : chosen) {
    const tagTMset& set = from.GetAtNU(pos);
    tagTMset copy;
    copy.key = to.NewSetKey();
    copy.name.Set(to.FreeName(set.name.View()));
    copy.color = set.color;
    copy.connected = set.connected;
    copy.connected_nodes = set.connected_nodes;
    for (const ITR node : set.nodes) {
      if (node) copy.nodes.Add(importer.Bring(code::kNode, node));
    }
    for (const ITR element : set.elements) {
      if (element) copy.elements.Add(importer.BringElement(element));
    }
    const auto failed = [](const TArray<ITR>& list) {
      return std::find(list.begin(), list.end(), ITR{0}) != list.end();
    };
    if (failed(copy.nodes) || failed(copy.elements) || !to.InsertNU(copy)) return 0;
    new_key.emplace(set.key, copy.key);
  }
  for (const ITR pos : chosen) {
    const tagTMset& set = from.GetAtNU(pos);
    const auto above = new_key.find(set.parent_key);
    tagTMset placed = to.GetAtNU(to.Find(new_key[set.key]));
    placed.parent_key = above == new_key.end() ? parent : above->second;
    if (placed.parent_key != 0 && !to.SetAtNU(to.Find(placed.key), placed)) return 0;
  }
  return 1;
}

}  // namespace qx
