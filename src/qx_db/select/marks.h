#pragma once
// A bit for every node, element or face of a mesh by its number, and the algebra of such sets.
// Threads: values: one at a time for each object.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qx_db/platform/parallel.h"

namespace qx::select {

/// Bits of things numbered from 0. Those beyond the last thing are never set.
class Marks {
 public:
  Marks() = default;
  explicit Marks(std::size_t count) : count_(count), words_((count + 63) / 64) {}

  std::size_t Count() const { return count_; }
  bool Has(std::size_t i) const { return (words_[i / 64] >> (i % 64) & 1) != 0; }
  void Add(std::size_t i) { words_[i / 64] |= std::uint64_t{1} << (i % 64); }
  std::vector<std::uint64_t>& Words() { return words_; }
  const std::vector<std::uint64_t>& Words() const { return words_; }

  Marks& operator&=(const Marks& other) {
    for (std::size_t w = 0; w < words_.size(); ++w) words_[w] &= other.words_[w];
    return *this;
  }
  Marks& operator|=(const Marks& other) {
    for (std::size_t w = 0; w < words_.size(); ++w) words_[w] |= other.words_[w];
    return *this;
  }
  /// What of `all` is not marked.
  Marks& Complement(const Marks& all) {
    for (std::size_t w = 0; w < words_.size(); ++w) words_[w] = all.words_[w] & ~words_[w];
    return *this;
  }
  friend bool operator==(const Marks&, const Marks&) = default;

  /// Marks what passes a test, 64 at a time and on the threads there are: `test(i)` is called once
  /// for each number, from any of them. Takes the place of what was marked.
  template <class Test>
  void Fill(const Test& test) {
    constexpr std::size_t kLeastWords = 1024;  // below, a thread costs more than it saves
    ParallelFor(words_.size(), kLeastWords, [&](std::size_t begin, std::size_t end) {
      for (std::size_t w = begin; w < end; ++w) {
        const std::size_t first = 64 * w;
        const std::size_t size = count_ - first < 64 ? count_ - first : 64;
        std::uint64_t word = 0;
        for (std::size_t i = 0; i < size; ++i) {
          word |= std::uint64_t{static_cast<bool>(test(first + i))} << i;
        }
        words_[w] = word;
      }
    });
  }

  /// Calls `visit(i)` for what is marked, in ascending order.
  template <class Visit>
  void ForEach(Visit&& visit) const {
    for (std::size_t w = 0; w < words_.size(); ++w) {
      for (std::uint64_t rest = words_[w]; rest != 0; rest &= rest - 1) {
        visit(64 * w + static_cast<std::size_t>(std::countr_zero(rest)));
      }
    }
  }

 private:
  std::size_t count_ = 0;
  std::vector<std::uint64_t> words_;
};

}  // namespace qx::select
