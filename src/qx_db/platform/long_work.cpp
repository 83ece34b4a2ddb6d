#include "qx_db/platform/long_work.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace qx {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();
constexpr std::size_t kLooksAtClock = 1000;  // at the clock, in one work

thread_local WorkWatch* watch = nullptr;
thread_local LongWork* innermost = nullptr;

}  // namespace

WorkWatch::WorkWatch(std::function<void(double)> tell, Pause pause)
    : tell_(std::move(tell)),
      pause_(pause),
      next_(Clock::now() + pause),
      outer_(std::exchange(watch, this)),
      outer_work_(std::exchange(innermost, nullptr)) {}

WorkWatch::~WorkWatch() {
  watch = outer_;
  innermost = outer_work_;
}

LongWork::LongWork(std::size_t steps, std::size_t share)
    : steps_(std::max<std::size_t>(steps, 1)),
      share_(share),
      look_(IsWatched() ? 1 : kNever),
      outer_(std::exchange(innermost, this)) {}

bool LongWork::IsWatched() { return watch && watch->tell_; }

LongWork::~LongWork() { innermost = outer_; }

void LongWork::Look() {
  look_ = IsWatched() ? done_ + std::max<std::size_t>(steps_ / kLooksAtClock, 1) : kNever;
  if (!IsWatched() || Clock::now() < watch->next_) return;
  double part = 0;
  for (const LongWork* work = this; work; work = work->outer_) {
    part = std::min((static_cast<double>(work->done_) + part) / static_cast<double>(work->steps_),
                    1.0);
    part *= work->outer_ ? static_cast<double>(work->share_) : 1.0;
  }
  watch->told_ = std::max(watch->told_, part);
  // What the caller does meanwhile may have a watch of its own.
  WorkWatch& mine = *watch;
  mine.tell_(mine.told_);
  mine.next_ = Clock::now() + mine.pause_;
}

}  // namespace qx
