#include "qx_db/platform/long_work.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <vector>

#include "qx_db/platform/parallel.h"

namespace qx {
namespace {

/// Work of three parts, of which the second is work of as many parts as it is told.
void Nested(std::size_t inner) {
  LongWork outer(4);
  outer.Step();
  {
    LongWork within(inner, 2);
    for (std::size_t i = 0; i < inner; ++i) within.Step();
  }
  outer.Step(2);
  outer.Step();
}

TEST(LongWork, TellsHowFarTheWholeIs) {
  std::vector<double> told;
  {
    const WorkWatch watch([&](double done) { told.push_back(done); }, WorkWatch::Pause(0));
    Nested(4);
    Nested(2);  // what follows begins anew, and is not told as less
  }
  Nested(4);
  EXPECT_EQ(told, (std::vector<double>{0.25, 0.375, 0.5, 0.625, 0.75, 0.75, 1, 1, 1, 1, 1, 1}));
}

TEST(LongWork, IsToldOfNowAndThen) {
  int told = 0;
  const WorkWatch watch([&](double) { ++told; }, WorkWatch::Pause(100000));
  Nested(1000000);
  EXPECT_EQ(told, 0);
  const WorkWatch inner([&](double) { ++told; }, WorkWatch::Pause(0));
  Nested(1000000);
  EXPECT_GT(told, 500);
  EXPECT_LT(told, 1100) << "the clock is not asked at every step";
}

TEST(LongWork, EndsByWhatTheWatchThrows) {
  int told = 0;
  const auto tell = [&](double) {
    if (++told == 3) throw std::runtime_error("enough");
  };
  const WorkWatch watch(tell, WorkWatch::Pause(0));
  EXPECT_THROW(Nested(8), std::runtime_error);
  EXPECT_EQ(told, 3);
  Nested(8);
  EXPECT_GT(told, 3) << "the next work is told of again";
  const int before = told;
  {
    const WorkWatch nobody({});
    Nested(8);
  }
  EXPECT_EQ(told, before);
  EXPECT_THROW(ParallelFor(64, 1,
                           [&](std::size_t begin, std::size_t end) {
                             LongWork part(end - begin);
                             told = 2;
                             for (; begin < end; ++begin) part.Step();
                           }),
               std::runtime_error);
}

}  // namespace
}  // namespace qx
