#include <absl/container/node_hash_map.h>
#include <fmt/format.h>
#include <memory>
#include <unordered_map>

#include "bench/harness.h"
#include "bench/workload.h"

namespace qx::bench {
namespace {

using Ours = CKeySet<tagTNode>;
using Std = std::unordered_map<Key, tagTNode>;
using Absl = absl::node_hash_map<Key, tagTNode>;
using Multi = Indexed<tagTNode>;

void Put(Ours& c, const tagTNode& n) { c.InsertNU(n); }
void Put(Std& c, const tagTNode& n) { c.emplace(n.key, n); }
void Put(Absl& c, const tagTNode& n) { c.emplace(n.key, n); }
void Put(Multi& c, const tagTNode& n) { c.insert(n); }
bool Has(const Ours& c, Key k) { return c.Find(k) != 0; }
bool Has(const Std& c, Key k) { return c.find(k) != c.end(); }
bool Has(const Absl& c, Key k) { return c.find(k) != c.end(); }
bool Has(const Multi& c, Key k) { return c.find(k) != c.end(); }
void Drop(Ours& c, Key k) { c.Remove(c.Find(k)); }
template <class C>
void Drop(C& c, Key k) {
  c.erase(k);
}

template <class C>
void Fill(C& container, const std::vector<Key>& keys) {
  for (const Key key : keys) Put(container, MakeNode(key));
}

template <class C>
double Insert(const std::vector<Key>& keys) {
  C container;
  return Time([&] { Fill(container, keys); });
}

template <class C>
double FindAll(const C& container, const std::vector<Key>& keys) {
  return Time([&] {
    int hits = 0;
    for (const Key key : keys) hits += Has(container, key);
    Keep(hits);
  });
}

template <class C>
double RemoveHalf(const std::vector<Key>& keys) {
  auto container = std::make_unique<C>();
  Fill(*container, keys);
  return Time([&] {
    for (std::size_t i = 0; i < keys.size(); i += 2) Drop(*container, keys[i]);
  });
}

template <class Peer>
void Against(const char* peer, bool shuffled, double insert, double hit, double miss,
             double remove) {
  const auto keys = Keys(kMillion, shuffled);
  auto asked = keys;
  std::shuffle(asked.begin(), asked.end(), std::mt19937(7));
  std::vector<Key> missing = asked;
  for (Key& key : missing) key += shuffled ? 1 : kMillion;  // shuffled keys are even apart
  const std::string kind = shuffled ? "shuffled sparse: " : "sequential: ";
  Compare(
      kind + "insert", peer, insert, [&] { return Insert<Ours>(keys); },
      [&] { return Insert<Peer>(keys); }, Memory::kFresh);
  Compare(
      kind + "remove every second", peer, remove, [&] { return RemoveHalf<Ours>(keys); },
      [&] { return RemoveHalf<Peer>(keys); }, Memory::kFresh);
  // Last, since the two would keep their memory from what is measured above.
  Ours ours;
  Peer theirs;
  Fill(ours, keys);
  Fill(theirs, keys);
  Compare(
      kind + "find, hits in random order", peer, hit, [&] { return FindAll(ours, asked); },
      [&] { return FindAll(theirs, asked); });
  Compare(
      kind + "find, misses in random order", peer, miss, [&] { return FindAll(ours, missing); },
      [&] { return FindAll(theirs, missing); });
}

/// Hexahedra, each with an array of eight references of its own.
void Hexahedra(bool shuffled) {
  using OurHexes = CKeySet<tagTElem>;
  using TheirHexes = Indexed<tagTElem>;
  const auto keys = Keys(kMillion, shuffled);
  const auto fill = [&](const auto& put) {
    tagTElem element;
    element.nodes.SetSize(8);
    return Time([&] {
      for (const Key key : keys) {
        element.key = key;
        put(element);
      }
    });
  };
  const std::string kind = shuffled ? "shuffled sparse: " : "sequential: ";
  Compare(
      kind + "insert hexahedra", "boost::multi_index", 1.2,
      [&] {
        OurHexes set;
        return fill([&](const tagTElem& element) { set.InsertNU(element); });
      },
      [&] {
        TheirHexes set;
        return fill([&](const tagTElem& element) { set.insert(element); });
      },
      Memory::kFresh);
  Compare(
      kind + "remove every second hexahedron", "boost::multi_index", 1.0,
      [&] {
        OurHexes set;
        fill([&](const tagTElem& element) { set.InsertNU(element); });
        return Time([&] {
          for (std::size_t i = 0; i < keys.size(); i += 2) set.Remove(set.Find(keys[i]));
        });
      },
      [&] {
        TheirHexes set;
        fill([&](const tagTElem& element) { set.insert(element); });
        return Time([&] {
          for (std::size_t i = 0; i < keys.size(); i += 2) set.erase(keys[i]);
        });
      },
      Memory::kFresh);
}

/// The keys of a list, ascending, from a set that was filled in another order.
void KeyLists(bool shuffled) {
  auto keys = Keys(kMillion, shuffled);
  if (!shuffled) std::shuffle(keys.begin(), keys.end(), std::mt19937(5));
  const auto ours = [&] {
    Ours set;
    Fill(set, keys);
    TArray<Key> out;
    return Time([&] { set.GetKeyList(out, 1); });
  };
  const auto theirs = [&] {
    Multi set;
    Fill(set, keys);
    std::vector<Key> out;
    return Time([&] {
      out.reserve(set.size());
      for (const tagTNode& node : set) out.push_back(node.key);
      std::sort(out.begin(), out.end());
    });
  };
  Compare(std::string(shuffled ? "sparse" : "dense") + " keys: ascending list, set sorted",
          "boost::multi_index, list alone", 0.8, ours, theirs, Memory::kFresh);
}

void WalkAndSort() {
  const auto keys = Keys(kMillion, true);
  Ours ours;
  Fill(ours, keys);
  struct Item {
    char before[16];
    tagTVector3<double> position;
    char after[36];
  };
  static_assert(sizeof(Item) == sizeof(Ours::tagITEM));
  std::vector<Item> array(keys.size());
  Compare(
      "walk in list order", "array of equal items", 1.5,
      [&] {
        return Time([&] {
          double sum = 0;
          for (ITR pos = ours.GetHeadPosition(); pos;) sum += ours.GetNextNU(pos).position.x;
          Keep(sum);
        });
      },
      [&] {
        return Time([&] {
          double sum = 0;
          for (const Item& item : array) sum += item.position.x;
          Keep(sum);
        });
      });
  const auto sort_ours = [&] {
    Ours set;
    Fill(set, keys);
    return Time([&] { set.SortAsc(); });
  };
  const auto sort_multi = [&] {
    Multi multi;
    Fill(multi, keys);
    return Time([&] {
      multi.get<1>().sort([](const tagTNode& a, const tagTNode& b) { return a.key < b.key; });
    });
  };
  Compare("ascending sort", "boost::multi_index", 0.3, sort_ours, sort_multi, Memory::kFresh, 3);
}

}  // namespace

void KeyedSet() {
  Against<Absl>("absl::node_hash_map", true, 0.5, 0.8, 2.0, 1.0);
  Against<Std>("std::unordered_map", true, 0.35, 1.0, 1.0, 1.0);
  Against<Multi>("boost::multi_index", true, 1.0, 1.0, 1.0, 1.0);
  Against<Absl>("absl::node_hash_map", false, 0.4, 0.4, 0.4, 0.4);
  for (const bool shuffled : {false, true}) {
    Hexahedra(shuffled);
    KeyLists(shuffled);
  }
  WalkAndSort();
  for (const bool shuffled : {false, true}) {
    Ours set;
    Fill(set, Keys(kMillion, shuffled));
    Figure(shuffled ? "memory, shuffled" : "memory, sequential",
           static_cast<double>(set.Footprint()) / kMillion, "bytes a node", 92);
  }
}

}  // namespace qx::bench
