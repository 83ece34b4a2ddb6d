#include "exchange/key_set.h"

#include <algorithm>

namespace qx::exchange {

KeySet::KeySet(std::span<const Key> keys) {
  if (keys.empty()) return;
  const auto largest = static_cast<std::size_t>(*std::max_element(keys.begin(), keys.end()));
  const std::size_t words = largest / 64 + 1;
  if (words > keys.size() + 1024) {
    sorted_.assign(keys.begin(), keys.end());
    std::sort(sorted_.begin(), sorted_.end());
    const auto twice = std::adjacent_find(sorted_.begin(), sorted_.end());
    if (twice != sorted_.end()) repeated_ = *twice;
    return;
  }
  bits_.resize(words);
  for (const Key key : keys) {
    std::uint64_t& word = bits_[static_cast<std::size_t>(key) / 64];
    const std::uint64_t bit = std::uint64_t{1} << (key % 64);
    if ((word & bit) && repeated_ == 0) repeated_ = key;
    word |= bit;
  }
}

bool KeySet::Contains(Key key) const {
  if (bits_.empty()) return std::binary_search(sorted_.begin(), sorted_.end(), key);
  if (key < 0) return false;
  const std::size_t word = static_cast<std::size_t>(key) / 64;
  return word < bits_.size() && ((bits_[word] >> (key % 64)) & 1) != 0;
}

}  // namespace qx::exchange
