#include "qx_db/platform/parallel.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <vector>

namespace qx {
namespace {

/// Allows as many threads as the ranges below are.
struct Threads {
  explicit Threads(unsigned threads) { SetWorkThreads(threads); }
  ~Threads() { SetWorkThreads(1); }
};

TEST(ParallelFor, TakesNoThreadUnasked) {
  const auto caller = std::this_thread::get_id();
  const auto on_caller = [&] {
    std::atomic<bool> all = true;
    ParallelFor(100, 1, [&](std::size_t, std::size_t) {
      if (std::this_thread::get_id() != caller) all = false;
    });
    return all.load();
  };
  EXPECT_TRUE(on_caller());
  const Threads three(3);
  EXPECT_FALSE(on_caller());
}

TEST(ParallelFor, MeetsEveryNumberOnce) {
  const Threads threads(4);
  for (const std::size_t count : {0, 1, 7, 100, 10001}) {
    for (const std::size_t least : {1, 3, 5000, 20000}) {
      std::vector<std::atomic<int>> met(count);
      std::atomic<std::size_t> smallest{count};
      ParallelFor(count, least, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) ++met[i];
        if (end - begin < smallest) smallest = end - begin;
      });
      for (const auto& times : met) ASSERT_EQ(times, 1) << count << " " << least;
      EXPECT_GE(smallest + 1, std::min(count, least));
    }
  }
}

TEST(ParallelFor, ThrowsWhatARangeThrewWhenAllHaveEnded) {
  const Threads threads(4);
  std::atomic<std::size_t> done{0};
  const auto work = [&](std::size_t begin, std::size_t end) {
    done += end - begin;
    if (begin == 0) throw std::runtime_error("the first");
  };
  EXPECT_THROW(ParallelFor(1000, 10, work), std::runtime_error);
  EXPECT_EQ(done, 1000u);
}

}  // namespace
}  // namespace qx
