#include "qx_db/pool/keyed_set.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <list>
#include <map>
#include <rapidcheck/gtest.h>

#include "qx_db/record/mesh_records.h"

namespace qx {
namespace {

tagTNode Node(Key key, double x = 0) {
  tagTNode node;
  node.key = key;
  node.position.x = x;
  return node;
}

std::vector<Key> Keys(CKeySet<tagTNode>& set, int sorted = 0) {
  TArray<Key> keys;
  set.GetKeyList(keys, sorted);
  return {keys.begin(), keys.end()};
}

TEST(KeyedSet, SizesItsTableAsAsked) {
  struct Case {
    const char* what;
    void (*act)(CKeySet<tagTNode>&);
    std::int32_t buckets;
  };
  const Case cases[] = {
      {"default", [](auto&) {}, 10000},
      {"never below the default", [](auto& s) { s.SetHashSize(5000); }, 10000},
      {"above it", [](auto& s) { s.SetHashSize(20000); }, 20000},
      {"a higher default", [](auto& s) { s.SetDefaultHashSize(30000); }, 30000},
      {"a lower default leaves the table", [](auto& s) { s.SetDefaultHashSize(5000); }, 10000},
      {"few records are not optimised",
       [](auto& s) {
         s.InsertNU(Node(1));
         s.Optimize();
       },
       10000},
      {"grows by itself past one a bucket",
       [](auto& s) {
         for (Key k = 1; k <= 10001; ++k) s.InsertNU(Node(k));
       },
       20000},
      {"one bucket a record",
       [](auto& s) {
         for (Key k = 1; k <= 25000; ++k) s.InsertNU(Node(k));
         s.Optimize();
       },
       25000},
  };
  for (const Case& c : cases) {
    CKeySet<tagTNode> set;
    c.act(set);
    EXPECT_EQ(set.HashSize(), c.buckets) << c.what;
    EXPECT_EQ(set.Validate(), "") << c.what;
  }
  EXPECT_EQ(CKeySet<tagTNode>(500).HashSize(), 10000);
  EXPECT_EQ(CKeySet<tagTNode>(50000).HashSize(), 50000);
}

/// However few buckets are asked for, a key is found by all of its bits and taken once.
TEST(KeyedSet, EveryDefaultSizeFindsEveryKeyOnce) {
  for (std::int32_t size = 1; size <= 10001; size += size < 40 || size > 8150 ? 1 : 97) {
    CKeySet<tagTNode> set;
    set.SetDefaultHashSize(size);
    set.SetHashSize(size + 1);
    EXPECT_EQ(set.HashSize(), size + 1);
    // Keys that differ by multiples of a power of two and of the size, up to the largest.
    std::vector<Key> keys = {0, kMaxKey};
    for (std::int64_t key = 1; key < kMaxKey; key *= 2) keys.push_back(static_cast<Key>(key));
    for (std::int64_t i = 1; i <= 3; ++i) {
      keys.push_back(static_cast<Key>(kMaxKey - i * (size + 1)));
      keys.push_back(static_cast<Key>(kMaxKey - i * 262144));
    }
    std::map<Key, ITR> inserted;
    for (const Key key : keys) {
      const bool fresh = !inserted.contains(key);
      const ITR item = set.InsertNU(Node(key));
      ASSERT_EQ(item != 0, fresh) << "key " << key << " with " << size;
      if (fresh) inserted[key] = item;
    }
    for (const auto& [key, item] : inserted) ASSERT_EQ(set.Find(key), item) << key;
    ASSERT_EQ(set.Validate(), "") << size;
    std::vector<Key> sorted;
    for (const auto& [key, item] : inserted) sorted.push_back(key);
    ASSERT_EQ(Keys(set, 1), sorted);
  }
}

TEST(KeyedSet, FewBucketsAreCountedAsAskedAndGrowAsManyDo) {
  CKeySet<tagTNode> set;
  set.SetDefaultHashSize(2);
  set.SetHashSize(3);
  for (Key key = 1; key <= 8; ++key) ASSERT_NE(set.InsertNU(Node(key)), 0u);
  for (Key key = 1; key <= 8; ++key) EXPECT_NE(set.Find(key), 0u);
  EXPECT_EQ(set.HashSize(), 12);  // 3, 6, 12: once items outnumber buckets
  set.Optimize();
  EXPECT_EQ(set.HashSize(), 8);
  set.SetHashSize(-5);
  EXPECT_EQ(set.HashSize(), 8);
}

TEST(KeyedSet, KeysAreReservedUntilReset) {
  CKeySet<tagTNode> set;
  for (const Key key : {7, 2, 9}) set.InsertNU(Node(key));
  EXPECT_EQ(Keys(set), (std::vector<Key>{7, 2, 9}));
  EXPECT_EQ(Keys(set, 1), (std::vector<Key>{2, 7, 9}));
  EXPECT_EQ(Keys(set), (std::vector<Key>{2, 7, 9}));
  set.Remove(set.Find(9));
  EXPECT_EQ(set.GetNewKey(), 10);
  set.ResetMinMaxKey();
  EXPECT_EQ(set.GetNewKey(), 8);
  TArray<ITR> items;
  set.GetItrList(items, 0);
  set.RemoveAllWithoutDelete();
  EXPECT_EQ(set.GetNewKey(), 8);
  for (const ITR item : items) set.FreeDetached(item);
  set.InsertNU(Node(40));
  set.RemoveAll();
  EXPECT_EQ(set.GetNewKey(), 1);
}

TEST(KeyedSet, StateWordKeepsItsUpperBits) {
  CKeySet<tagTNode> set;
  const ITR pos = set.InsertNU(Node(1));
  KeyedSetBase::SetState(pos, 0xC0000000);
  set.SetParamIdx(pos, 0xFFFFFFFF);
  EXPECT_EQ(KeyedSetBase::StateOf(pos), 0xDFFFFFFFu);
  EXPECT_EQ(set.GetParamIdx(pos), 0x1FFFFFFFu);
  EXPECT_EQ(LoadAt<Key>(reinterpret_cast<const char*>(pos) + 12), 1);
}

TEST(KeyedSet, NewKeyUpFindsTheFirstGap) {
  CKeySet<tagTNode> set;
  for (const Key key : {3, 4, 6, kMaxKey}) set.InsertNU(Node(key));
  EXPECT_EQ(set.GetNewKeyUp(1), 1);
  EXPECT_EQ(set.GetNewKeyUp(3), 5);
  EXPECT_EQ(set.GetNewKeyUp(-5), -5);
  EXPECT_LT(set.GetNewKeyUp(kMaxKey), 0);
}

TEST(KeyedSet, ReKeyingOntoAUsedKeyPutsTheNewcomerFirst) {
  CKeySet<tagTNode> set;
  const ITR first = set.InsertNU(Node(5, 1));
  const ITR second = set.InsertNU(Node(6, 2));
  EXPECT_EQ(set.SetAtNU(second, Node(5, 3)), 1);
  EXPECT_EQ(set.Find(5), second);
  EXPECT_EQ(set.GetSize(), 2);
  // Growth keeps chain order, and with it the answer.
  for (Key key = 100; key < 25000; ++key) set.InsertNU(Node(key));
  EXPECT_EQ(set.Find(5), second);
  set.Remove(second);
  EXPECT_EQ(set.Find(5), first);
  EXPECT_EQ(set.SetAtNU(first, Node(-1)), 0);
  EXPECT_EQ(set.SetAtNU(0, Node(1)), 0);
}

TEST(KeyedSet, AChangeThatFailsLeavesTheSetAsItWas) {
  const RecordOps ops = {sizeof(tagTNode),
                         false,
                         nullptr,
                         [](char* at, const TStructBase& from) {
                           new (at) tagTNode(static_cast<const tagTNode&>(from));
                         },
                         [](char* at) { reinterpret_cast<tagTNode*>(at)->~tagTNode(); },
                         [](char*, const TStructBase&) { throw std::bad_alloc(); }};
  KeyedSetBase set(ops, 10000);
  for (const Key key : {5, 10005, 20005, 7}) set.Insert(Node(key));  // three in one chain
  for (const Key to : {10005, 15005, 7, 300000}) {
    EXPECT_THROW(set.SetAt(set.Find(10005), Node(to)), std::bad_alloc) << to;
    EXPECT_EQ(set.Validate(), "") << to;
    EXPECT_EQ(+KeyedSetBase::RecordAt(set.Find(10005))->GetKey(), 10005);
    EXPECT_EQ(set.GetMaxKey(), 20005);
    EXPECT_FALSE(set.MayShareKeys());
  }
}

TEST(KeyedSet, ADetachedRecordIsNeitherChangedNorDetachedAgain) {
  CKeySet<tagTNode> set;
  const ITR detached = set.InsertNU(Node(2));
  set.RemoveWithoutDelete(detached);
  const ITR namesake = set.InsertNU(Node(2));
  EXPECT_EQ(set.SetAtNU(detached, Node(9)), 0);
  EXPECT_EQ(set.RemoveWithoutDelete(detached), 0);
  EXPECT_EQ(set.Find(2), namesake);
  EXPECT_EQ(set.Validate(), "");
  set.FreeDetached(detached);
}

/// What the set should be: a list of records in order.
struct NaiveSet {
  std::list<std::pair<Key, double>> records;
  Key max_key = 0;

  auto Find(Key key) {
    return std::find_if(records.begin(), records.end(), [&](auto& r) { return r.first == key; });
  }
  void Saw(Key key) { max_key = records.empty() ? key : std::max(max_key, key); }
};

/// Keys that collide in the default table, lie close together, or at the ends. Where they are to be
/// dense, few are not: the index goes from window to table and back.
Key RandomKey(bool dense) {
  if (dense && *rc::gen::inRange(0, 30)) return 70000 - *rc::gen::inRange(0, 40);
  switch (*rc::gen::inRange(0, 4)) {
    case 0:
      return *rc::gen::inRange(0, 12);
    case 1:
      return 3 + 10000 * *rc::gen::inRange(0, 6);
    case 2:
      return kMaxKey - *rc::gen::inRange(0, 3);
    default:
      return *rc::gen::inRange(-2, 300000);
  }
}

RC_GTEST_PROP(KeyedSet, BehavesLikeAList, ()) {
  CKeySet<tagTNode> set;
  NaiveSet naive;
  const int steps = *rc::gen::inRange(0, 120);
  const bool dense = *rc::gen::arbitrary<bool>();
  for (int step = 0; step < steps; ++step) {
    const Key key = RandomKey(dense);
    const auto known = naive.Find(key);
    switch (*rc::gen::inRange(0, 10)) {
      case 0:
      case 1:
      case 2:
      case 3: {
        const bool inserted = set.InsertNU(Node(key, step)) != 0;
        RC_ASSERT(inserted == (key >= 0 && known == naive.records.end()));
        if (inserted) {
          naive.Saw(key);
          naive.records.emplace_back(key, step);
        }
        break;
      }
      case 4: {
        const ITR pos = set.Find(key);
        RC_ASSERT((pos != 0) == (known != naive.records.end()));
        if (!pos) break;
        // Only onto free keys: what shared keys do has a case of its own.
        const Key other = RandomKey(dense);
        if (naive.Find(other) != naive.records.end() && other != key) break;
        RC_ASSERT(set.SetAtNU(pos, Node(other, step)) == (other >= 0));
        if (other >= 0) {
          if (other != key) naive.Saw(other);
          *known = {other, step};
        }
        break;
      }
      case 5:
      case 6: {
        RC_ASSERT(set.Remove(set.Find(key)) == (known != naive.records.end()));
        if (known != naive.records.end()) naive.records.erase(known);
        break;
      }
      case 7:
        set.SortAsc();
        naive.records.sort();
        break;
      case 8:
        set.SetHashSize(*rc::gen::inRange(5000, 30000));
        set.RebuildHash();
        break;
      default:
        set.ResetMinMaxKey();
        naive.max_key = 0;
        for (const auto& [k, x] : naive.records) naive.max_key = std::max(naive.max_key, k);
    }
    RC_ASSERT(set.Validate() == "");
    RC_ASSERT(set.GetMaxKey() == naive.max_key);
  }
  std::list<std::pair<Key, double>> walked;
  for (ITR pos = set.GetHeadPosition(); pos;) {
    const tagTNode& node = set.GetNextNU(pos);
    walked.emplace_back(node.key, double{node.position.x});
  }
  RC_ASSERT(walked == naive.records);
}

TEST(KeyedSet, FindManyAgreesWithFind) {
  CKeySet<tagTNode> set;
  for (Key key = 0; key < 30000; key += 3) set.InsertNU(Node(key));
  std::vector<Key> keys;
  for (Key key = -5; key < 1000; ++key) keys.push_back(key);
  std::vector<ITR> found(keys.size());
  set.FindMany(keys, found);
  for (std::size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(found[i], set.Find(keys[i])) << keys[i];
}

}  // namespace
}  // namespace qx
