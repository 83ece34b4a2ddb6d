#pragma once
// The models that benchmarks work on.

#include <algorithm>
#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/sequenced_index.hpp>
#include <boost/multi_index_container.hpp>
#include <numeric>
#include <random>
#include <vector>

#include "qx_db/qx_db.h"

namespace qx::bench {

inline constexpr int kMillion = 1000000;

/// 1 to n, or n different random keys over the whole range in random order.
inline std::vector<Key> Keys(int n, bool shuffled, unsigned seed = 1) {
  std::vector<Key> keys(static_cast<std::size_t>(n));
  std::iota(keys.begin(), keys.end(), 1);
  if (!shuffled) return keys;
  std::mt19937 random(seed);
  // Multiples of a stride, each moved a little: sparse, different, unordered.
  for (std::size_t i = 0; i < keys.size(); ++i) {
    keys[i] = static_cast<Key>(i * 2147 + random() % 2147 / 2 * 2);
  }
  std::shuffle(keys.begin(), keys.end(), random);
  return keys;
}

inline tagTNode MakeNode(Key key) {
  tagTNode node;
  node.key = key;
  // Digits as a mesher leaves them: mostly all that a double has.
  node.position = {key * 0.001, 0.1 * key / 7, 1.0 / (key + 1.0)};
  return node;
}

/// The peer that, as a pool, finds by key and keeps an order, at stable addresses.
template <class T>
using Indexed = boost::multi_index_container<
    T, boost::multi_index::indexed_by<
           boost::multi_index::hashed_unique<boost::multi_index::member<T, Key, &T::key>>,
           boost::multi_index::sequenced<>>>;

/// A block of n nodes and about n 8-node hexahedra over them.
inline void FillBlock(CQXDBSession& session, int n) {
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  auto& elements = *session.GetPool<DPoolElem>(code::kElem);
  std::vector<ITR> at(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) at[static_cast<std::size_t>(i)] = nodes.InsertNU(MakeNode(i + 1));
  constexpr int kCorner[8] = {0, 1, 101, 100, 10000, 10001, 10101, 10100};
  tagTElem element;
  element.type = 14;
  element.nodes.SetSize(8);
  for (int i = 0; i < n; ++i) {
    element.key = i + 1;
    for (int c = 0; c < 8; ++c) {
      element.nodes[c] = at[static_cast<std::size_t>((i + kCorner[c]) % n)];
    }
    elements.InsertNU(element);
  }
}

}  // namespace qx::bench
