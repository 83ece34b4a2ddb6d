#include "exchange/mesh.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <span>

#include "qx_db/core/belongings.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/record/element_types.h"
#include "qx_db/record/verbs.h"

#include "exchange/key_set.h"
#include "exchange/set_names.h"

namespace qx::exchange {
namespace {

std::string Place(const char* what, Key key) { return fmt::format("{} {}", what, key); }

/// Looks for everything that is wrong with a mesh, up to a bound.
class MeshChecker {
 public:
  MeshChecker(const Mesh& mesh, const std::string& file) : mesh_(mesh), file_(file) {}

  /// The keys of nodes or elements: each at least 1, none twice.
  void CheckKeys(std::span<const Key> keys, const char* what) {
    for (const Key key : keys) {
      if (key >= 1) continue;
      Fault(Place(what, key), "numbers lie between 1 and 2147483647", "renumber the mesh");
    }
    if (!faults_.empty() || !KeySet(keys).Repeated()) return;  // a set needs sound keys
    std::vector<Key> sorted(keys.begin(), keys.end());
    std::sort(sorted.begin(), sorted.end());
    for (auto at = sorted.begin(); (at = std::adjacent_find(at, sorted.end())) != sorted.end();) {
      Fault(Place(what, *at), "the number is used twice", "renumber the mesh");
      at = std::upper_bound(at, sorted.end(), *at);
    }
  }

  void CheckCoordinates() {
    if (mesh_.coordinates.size() != mesh_.node_keys.size() * 3) {
      return Fault("", "nodes and coordinates differ in number", "write the file again");
    }
    for (std::size_t i = 0; i < mesh_.coordinates.size() && !IsFull(); ++i) {
      if (std::isfinite(mesh_.coordinates[i])) continue;
      Fault(Place("node", mesh_.node_keys[i / 3]), "a coordinate is not a finite number",
            "correct the coordinate");
      i = i / 3 * 3 + 2;
    }
  }

  void CheckElements(const KeySet& nodes) {
    constexpr std::int32_t kFirstSpecial = 30;
    for (std::size_t i = 0; i < mesh_.elements.size() && !IsFull(); ++i) {
      const Mesh::Element& element = mesh_.elements[i];
      const std::size_t count = mesh_.NodesOf(i);
      const auto place = [&] { return Place("element", element.key); };
      if (count == 0 || (element.type < kFirstSpecial && !FindElementType(element.type))) {
        Fault(place(),
              fmt::format("its type {} is none of 1 to 15 and no special one", element.type),
              "choose another element type");
      } else if (element.first > mesh_.connectivity.size() ||
                 mesh_.connectivity.size() - element.first < count) {
        Fault(place(), fmt::format("it has fewer than {} nodes", count), "complete the element");
      } else {
        const auto own = std::span(mesh_.connectivity).subspan(element.first, count);
        const auto missing =
            std::find_if_not(own.begin(), own.end(), [&](Key key) { return nodes.Contains(key); });
        if (missing == own.end()) continue;
        Fault(place(), fmt::format("its node {} is not in the mesh", *missing),
              "add the node or remove the element");
      }
    }
  }

  void CheckGroups(const KeySet& nodes, const KeySet& elements) {
    for (const Mesh::Group& group : mesh_.groups) {
      CheckMembers(group, group.elements, elements, "element");
      CheckMembers(group, group.nodes, nodes, "node");
      if (IsFull()) return;
    }
    CheckHierarchy();
  }

  bool IsFull() const { return faults_.size() >= LossReport::kMostFaults; }
  std::vector<Failure>& Faults() { return faults_; }

 private:
  void Fault(std::string place, std::string what, std::string remedy) {
    if (!IsFull()) faults_.push_back({file_, std::move(place), std::move(what), std::move(remedy)});
  }

  /// Every member of a group is in the mesh; the first that is not is told.
  void CheckMembers(const Mesh::Group& group, std::span<const Key> members, const KeySet& mesh,
                    const char* what) {
    const auto missing = std::find_if_not(members.begin(), members.end(),
                                          [&](Key key) { return mesh.Contains(key); });
    if (missing == members.end()) return;
    Fault(fmt::format("group \"{}\"", group.name),
          fmt::format("its {} {} is not in the mesh", what, *missing),
          fmt::format("add the {} or remove it from the group", what));
  }

  /// No group is a part of itself.
  void CheckHierarchy() {
    const auto count = static_cast<std::int32_t>(mesh_.groups.size());
    std::vector<std::int32_t> walk_of(mesh_.groups.size(), Mesh::Group::kNone);
    for (std::int32_t start = 0; start < count; ++start) {
      for (std::int32_t at = start; at != Mesh::Group::kNone;) {
        const Mesh::Group& group = mesh_.groups[static_cast<std::size_t>(at)];
        std::int32_t& walk = walk_of[static_cast<std::size_t>(at)];
        if (walk != Mesh::Group::kNone && walk != start) break;  // and all above it are right
        if (walk == start || group.parent < Mesh::Group::kNone || group.parent >= count) {
          return Fault(fmt::format("group \"{}\"", group.name),
                       walk == start ? "it is a part of itself" : "it is a part of no group",
                       "correct the hierarchy of the groups");
        }
        walk = start;
        at = group.parent;
      }
    }
  }

  const Mesh& mesh_;
  const std::string& file_;
  std::vector<Failure> faults_;
};

std::vector<Key> KeysOf(std::span<const Mesh::Element> elements) {
  std::vector<Key> keys(elements.size());
  std::transform(elements.begin(), elements.end(), keys.begin(),
                 [](const Mesh::Element& element) { return element.key; });
  return keys;
}

/// Work in pieces that stay in the cache.
constexpr std::size_t kBatch = 4096;

/// Fails when the pool has a record with one of these keys.
Outcome CheckFree(const DPoolBase& pool, std::span<const Key> keys, const char* what,
                  const std::string& file) {
  if (pool.GetSize() == 0) return {};
  std::vector<ITR> found(kBatch);
  for (std::size_t begin = 0; begin < keys.size(); begin += kBatch) {
    const auto batch = keys.subspan(begin, std::min(kBatch, keys.size() - begin));
    pool.Set().FindMany(batch, std::span(found).first(batch.size()));
    for (std::size_t i = 0; i < batch.size(); ++i) {
      if (found[i] == 0) continue;
      return Failure{file, Place(what, batch[i]), "the model has one of that number already",
                     "renumber the mesh or add it to an empty model"};
    }
  }
  return {};
}

/// Gives a pool room for `more` records at once instead of by repeated growth.
template <class T>
void MakeRoom(DPool<T>& pool, std::size_t more) {
  const auto wanted = static_cast<std::size_t>(pool.GetSize()) + more;
  const auto have = static_cast<std::size_t>(pool.Set().HashSize());
  if (wanted > have) {
    pool.SetHashSize(static_cast<std::int32_t>(std::min<std::size_t>(wanted, kMaxKey)));
  }
}

/// The steps of adding a mesh. Each gives false when a pool refuses a record.
class MeshAdder {
 public:
  MeshAdder(CQXDBSession& session, const Mesh& mesh, const KeyMap& properties,
            const Progress& progress)
      : session_(session),
        mesh_(mesh),
        properties_(properties),
        progress_(progress),
        nodes_(*session.GetPool<DPoolNode>(code::kNode)),
        elements_(*session.GetPool<DPoolElem>(code::kElem)),
        sets_(*session.GetPool<DPoolMset>(code::kMset)) {}

  bool AddNodes() {
    MakeRoom(nodes_, mesh_.node_keys.size());
    const double unit = session_.Units().GetConvertFactorCurrent(CQXNodeUnit::Instance().Code(0));
    tagTNode node;
    const double* at = mesh_.coordinates.data();
    for (const Key key : mesh_.node_keys) {
      Tell();
      node.key = key;
      node.position = {at[0] * unit, at[1] * unit, at[2] * unit};
      at += 3;
      if (!nodes_.InsertNU(node)) return false;
    }
    return true;
  }

  bool AddElements() {
    MakeRoom(elements_, mesh_.elements.size());
    std::vector<Key> keys;
    std::vector<ITR> found;
    tagTElem element;
    for (std::size_t begin = 0; begin < mesh_.elements.size(); begin += kBatch) {
      const auto batch =
          std::span(mesh_.elements).subspan(begin, std::min(kBatch, mesh_.elements.size() - begin));
      keys.clear();
      for (std::size_t i = 0; i < batch.size(); ++i) {
        const Key* first = mesh_.connectivity.data() + batch[i].first;
        keys.insert(keys.end(), first, first + mesh_.NodesOf(begin + i));
      }
      Tell(batch.size());
      found.resize(keys.size());
      nodes_.Set().FindMany(keys, found);
      if (std::find(found.begin(), found.end(), 0) != found.end()) return false;
      const ITR* next = found.data();
      for (std::size_t i = 0; i < batch.size(); ++i) {
        const Mesh::Element& from = batch[i];
        const std::size_t count = mesh_.NodesOf(begin + i);
        element.key = from.key;
        element.type = from.type;
        element.property = PropertyOf(from);
        element.nodes.Assign(next, count);
        next += count;
        const ITR added = elements_.InsertNU(element);
        if (!added) return false;
        session_.Owned().ComeFromElsewhere(elements_, added);
      }
    }
    return true;
  }

  bool AddGroups(AddReport& report) {
    SetNames names(sets_, mesh_.groups);
    std::vector<ITR> added;
    for (const Mesh::Group& group : mesh_.groups) {
      tagTMset set;
      set.name.Set(names.Fit(group.name, report.losses));
      set.color = group.color == Mesh::Group::kNone ? DPoolMset::GetNewColor() : group.color;
      if (!ListMembers(group, set)) return false;
      added.push_back(AddSet(group.key, set));
      if (!added.back()) return false;
      report.set_keys.push_back(set.key);
    }
    report.losses.Lost("elements whose property is not there", without_property_);
    for (std::size_t i = 0; i < added.size(); ++i) {
      const std::int32_t parent = mesh_.groups[i].parent;
      if (parent == Mesh::Group::kNone) continue;
      tagTMset set = sets_.GetAtNU(added[i]);
      set.parent_key = sets_.GetAtNU(added[static_cast<std::size_t>(parent)]).key;
      if (!sets_.SetAtNU(added[i], set)) return false;
    }
    return true;
  }

 private:
  /// Counts nodes and elements, which are most of the work.
  void Tell(std::size_t more = 1) {
    done_ += more;
    if (done_ < next_report_ || !progress_) return;
    const std::size_t total = mesh_.node_keys.size() + mesh_.elements.size();
    next_report_ = done_ + total / 40 + 1;
    progress_(0.9 * static_cast<double>(done_) / static_cast<double>(total + 1));
  }

  /// The set's elements, and their nodes and the group's own, each once.
  bool ListMembers(const Mesh::Group& group, tagTMset& set) {
    set.elements.SetSize(static_cast<std::int64_t>(group.elements.size()));
    elements_.Set().FindMany(group.elements, {set.elements.data(), set.elements.size()});
    std::vector<ITR> own(group.nodes.size());
    nodes_.Set().FindMany(group.nodes, own);
    const auto is_missing = [](const auto& list) {
      return std::find(list.begin(), list.end(), ITR{0}) != list.end();
    };
    if (is_missing(set.elements) || is_missing(own)) return false;
    ItemMarks listed(nodes_);
    const auto list = [&](std::span<const ITR> nodes) {
      for (const ITR node : nodes) {
        if (listed.Insert(node)) set.nodes.Add(node);
      }
    };
    for (const ITR element : set.elements) {
      const TArray<ITR>& nodes = elements_.GetAtNU(element).nodes;
      list({nodes.data(), nodes.size()});
    }
    list(own);
    return true;
  }

  ITR AddSet(Key wish, tagTMset& set) {
    const ITR there = wish > 0 ? sets_.Find(wish) : 0;
    if (there && there == sets_.DefaultItr() && sets_.GetAtNU(there).nodes.IsEmpty() &&
        sets_.GetAtNU(there).elements.IsEmpty()) {
      set.key = wish;
      return sets_.SetAtNU(there, set) ? there : 0;
    }
    set.key = wish > 0 && !there ? wish : sets_.NewSetKey();
    return sets_.InsertNU(set);
  }

  /// The property that an element's key names; most elements have that of the one before.
  ITR PropertyOf(const Mesh::Element& element) {
    if (element.property == 0) return 0;
    if (element.property != last_property_.first) {
      const auto renamed = properties_.find(element.property);
      const Key key = renamed == properties_.end() ? element.property : renamed->second;
      last_property_ = {element.property, FindRecord(session_, code::kProp, key)};
    }
    without_property_ += last_property_.second == 0;
    return last_property_.second;
  }

  CQXDBSession& session_;
  const Mesh& mesh_;
  const KeyMap& properties_;
  const Progress& progress_;
  std::size_t done_ = 0;
  std::size_t next_report_ = 0;
  std::pair<Key, ITR> last_property_{0, 0};
  std::uint64_t without_property_ = 0;
  DPoolNode& nodes_;
  DPoolElem& elements_;
  DPoolMset& sets_;
};

}  // namespace

Outcome CheckCanBeWritten(const CQXDBSession& session, const std::string& path) {
  const DPoolBase* pools[] = {session.GetDataPool(code::kNode), session.GetDataPool(code::kElem)};
  for (const DPoolBase* pool : pools) {
    if (!pool) {
      return Failure{path, "", "the model has no pools for a mesh", "add the standard pools"};
    }
    if (static_cast<std::uint32_t>(pool->GetSize()) < KeyedSetBase::kParamMask) continue;
    return Failure{path, "", "the model has too many nodes or elements", "write it in parts"};
  }
  const double length_unit =
      session.Units().GetConvertFactorCurrent(CQXNodeUnit::Instance().Code(0));
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  for (ITR at = nodes.GetHeadPosition(); at;) {
    const tagTNode& node = nodes.GetNextNU(at);
    const tagTVector3<double> p = node.position;
    const double in_file[] = {p.x / length_unit, p.y / length_unit, p.z / length_unit};
    if (std::all_of(in_file, in_file + 3, [](double x) { return std::isfinite(x); })) continue;
    return Failure{path, Place("node", node.key), "a coordinate is not a finite number",
                   "move or delete the node"};
  }
  return {};
}

Outcome CheckMesh(const Mesh& mesh, const std::string& file, std::vector<Failure>* faults) {
  MeshChecker check(mesh, file);
  const std::vector<Key> element_keys = KeysOf(mesh.elements);
  check.CheckKeys(mesh.node_keys, "node");
  check.CheckKeys(element_keys, "element");
  check.CheckCoordinates();
  if (check.Faults().empty()) {
    const KeySet nodes(mesh.node_keys);
    check.CheckElements(nodes);
    check.CheckGroups(nodes, KeySet(element_keys));
  }
  if (check.Faults().empty()) return {};
  const Failure first = check.Faults().front();
  if (faults) faults->insert(faults->end(), check.Faults().begin(), check.Faults().end());
  return first;
}

std::size_t Mesh::NodesOf(std::size_t index) const {
  const Element& element = elements[index];
  if (const ElementType* type = FindElementType(element.type)) {
    return static_cast<std::size_t>(type->nodes);
  }
  const std::size_t end =
      index + 1 < elements.size() ? elements[index + 1].first : connectivity.size();
  return end > element.first ? end - element.first : 0;
}

Outcome AddMesh(CQXDBSession& session, const Mesh& mesh, const std::string& file, AddReport* report,
                const KeyMap& properties, const Progress& progress) {
  for (const std::uint16_t type : {code::kNode, code::kElem, code::kMset}) {
    if (session.GetDataPool(type)) continue;
    return Failure{file, "", "the model has no pools for a mesh", "add the standard pools"};
  }
  // Before the first change, so that this holds for a session that does not record as well.
  const std::vector<Key> element_keys = KeysOf(mesh.elements);
  const DPoolBase& nodes = *session.GetDataPool(code::kNode);
  const DPoolBase& elements = *session.GetDataPool(code::kElem);
  if (Outcome free = CheckFree(nodes, mesh.node_keys, "node", file); !free) return free;
  if (Outcome free = CheckFree(elements, element_keys, "element", file); !free) return free;

  CTransaction step(&session);
  step.Begin(qxLoadText("IDS_QX_TRANS_Import_Mesh").c_str());
  MeshAdder adder(session, mesh, properties, progress);
  AddReport added{mesh.node_keys.size(), mesh.elements.size(), mesh.groups.size(), {}, {}};
  if (!adder.AddNodes() || !adder.AddElements() || !adder.AddGroups(added) || !step.Commit()) {
    return Failure{file, "", "the model refuses the mesh", "check the mesh before it is added"};
  }
  if (report) *report = std::move(added);
  return {};
}

}  // namespace qx::exchange
