#include "exchange/mesh.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <span>

#include "qx_db/core/transaction.h"
#include "qx_db/model/mesh_pools.h"
#include "qx_db/record/element_types.h"

#include "exchange/key_set.h"
#include "exchange/set_names.h"

namespace qx::exchange {
namespace {

std::string Place(const char* what, Key key) { return fmt::format("{} {}", what, key); }

/// The keys of nodes or elements: each at least 1, none twice.
Outcome CheckKeys(std::span<const Key> keys, const char* what, const std::string& file) {
  const auto least = std::min_element(keys.begin(), keys.end());
  if (least != keys.end() && *least < 1) {
    return Failure{file, Place(what, *least), "numbers lie between 1 and 2147483647",
                   "renumber the mesh"};
  }
  if (const Key twice = KeySet(keys).Repeated()) {
    return Failure{file, Place(what, twice), "the number is used twice", "renumber the mesh"};
  }
  return {};
}

Outcome CheckCoordinates(const Mesh& mesh, const std::string& file) {
  if (mesh.coordinates.size() != mesh.node_keys.size() * 3) {
    return Failure{file, "", "nodes and coordinates differ in number", "write the file again"};
  }
  for (std::size_t i = 0; i < mesh.coordinates.size(); ++i) {
    if (!std::isfinite(mesh.coordinates[i])) {
      return Failure{file, Place("node", mesh.node_keys[i / 3]),
                     "a coordinate is not a finite number", "correct the coordinate"};
    }
  }
  return {};
}

Outcome CheckElements(const Mesh& mesh, const KeySet& nodes, const std::string& file) {
  for (const Mesh::Element& element : mesh.elements) {
    const ElementType* type = FindElementType(element.type);
    if (!type) {
      return Failure{file, Place("element", element.key),
                     fmt::format("its type {} is none of 1 to 15", element.type),
                     "choose another element type"};
    }
    const auto count = static_cast<std::size_t>(type->nodes);
    if (element.first > mesh.connectivity.size() ||
        mesh.connectivity.size() - element.first < count) {
      return Failure{file, Place("element", element.key),
                     fmt::format("it has fewer than {} nodes", count), "complete the element"};
    }
    for (const Key node : std::span(mesh.connectivity).subspan(element.first, count)) {
      if (nodes.Contains(node)) continue;
      return Failure{file, Place("element", element.key),
                     fmt::format("its node {} is not in the mesh", node),
                     "add the node or remove the element"};
    }
  }
  return {};
}

Outcome CheckGroups(const Mesh& mesh, const KeySet& elements, const std::string& file) {
  for (const Mesh::Group& group : mesh.groups) {
    for (const Key element : group.elements) {
      if (elements.Contains(element)) continue;
      return Failure{file, fmt::format("group \"{}\"", group.name),
                     fmt::format("its element {} is not in the mesh", element),
                     "add the element or remove it from the group"};
    }
  }
  return {};
}

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
  MeshAdder(CQXDBSession& session, const Mesh& mesh)
      : session_(session),
        mesh_(mesh),
        nodes_(*session.GetPool<DPoolNode>(code::kNode)),
        elements_(*session.GetPool<DPoolElem>(code::kElem)),
        sets_(*session.GetPool<DPoolActiveElemSet>(code::kActiveElemSet)) {}

  bool AddNodes() {
    MakeRoom(nodes_, mesh_.node_keys.size());
    const double unit = session_.Units().GetConvertFactorCurrent(unit::kLength);
    tagTNode node;
    const double* at = mesh_.coordinates.data();
    for (const Key key : mesh_.node_keys) {
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
      for (const Mesh::Element& from : batch) {
        const Key* first = mesh_.connectivity.data() + from.first;
        keys.insert(keys.end(), first, first + FindElementType(from.type)->nodes);
      }
      found.resize(keys.size());
      nodes_.Set().FindMany(keys, found);
      if (std::find(found.begin(), found.end(), 0) != found.end()) return false;
      const ITR* next = found.data();
      for (const Mesh::Element& from : batch) {
        const auto count = static_cast<std::size_t>(FindElementType(from.type)->nodes);
        element.key = from.key;
        element.type = from.type;
        element.nodes.Assign(next, count);
        next += count;
        if (!elements_.InsertNU(element)) return false;
      }
    }
    return true;
  }

  bool AddGroups(std::vector<std::string>& notes) {
    SetNames names(sets_, mesh_.groups);
    tagTActiveElemSet set;
    for (const Mesh::Group& group : mesh_.groups) {
      set.key = sets_.GetNewKey();
      if (set.key < 1) set.key = sets_.Set().GetNewKeyUp(1);
      set.name.Set(names.Fit(group.name, notes));
      set.elements.SetSize(static_cast<std::int64_t>(group.elements.size()));
      const std::span found(set.elements.data(), set.elements.size());
      elements_.Set().FindMany(group.elements, found);
      if (std::find(found.begin(), found.end(), 0) != found.end()) return false;
      if (!sets_.InsertNU(set)) return false;
    }
    return true;
  }

 private:
  CQXDBSession& session_;
  const Mesh& mesh_;
  DPoolNode& nodes_;
  DPoolElem& elements_;
  DPoolActiveElemSet& sets_;
};

}  // namespace

Outcome CheckMesh(const Mesh& mesh, const std::string& file) {
  const std::vector<Key> element_keys = KeysOf(mesh.elements);
  if (Outcome keys = CheckKeys(mesh.node_keys, "node", file); !keys) return keys;
  if (Outcome keys = CheckKeys(element_keys, "element", file); !keys) return keys;
  if (Outcome finite = CheckCoordinates(mesh, file); !finite) return finite;
  if (Outcome there = CheckElements(mesh, KeySet(mesh.node_keys), file); !there) return there;
  return CheckGroups(mesh, KeySet(element_keys), file);
}

Outcome AddMesh(CQXDBSession& session, const Mesh& mesh, const std::string& file,
                AddReport* report) {
  for (const std::uint16_t type : {code::kNode, code::kElem, code::kActiveElemSet}) {
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
  step.Begin(u"IDS_QX_TRANS_Import_Mesh");
  MeshAdder adder(session, mesh);
  std::vector<std::string> notes;
  if (!adder.AddNodes() || !adder.AddElements() || !adder.AddGroups(notes) || !step.Commit()) {
    return Failure{file, "", "the model refuses the mesh", "check the mesh before it is added"};
  }
  if (report) {
    *report = {mesh.node_keys.size(), mesh.elements.size(), mesh.groups.size(), std::move(notes)};
  }
  return {};
}

}  // namespace qx::exchange
