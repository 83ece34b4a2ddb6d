#include "qx_db/platform/parallel.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace qx {

namespace {

std::atomic<unsigned> work_threads{1};

}  // namespace

void SetWorkThreads(unsigned threads) {
  work_threads = threads ? threads : std::max(1u, std::thread::hardware_concurrency());
}

unsigned WorkThreads() { return work_threads; }

void ParallelFor(std::size_t count, std::size_t least,
                 const std::function<void(std::size_t, std::size_t)>& work) {
  const std::size_t ranges = std::clamp<std::size_t>(count / least, 1, WorkThreads());
  std::mutex mutex;
  std::exception_ptr thrown;
  const auto do_range = [&](std::size_t range) {
    try {
      work(count * range / ranges, count * (range + 1) / ranges);
    } catch (...) {
      const std::lock_guard lock(mutex);
      thrown = std::current_exception();
    }
  };
  std::vector<std::thread> others;
  others.reserve(ranges - 1);
  for (std::size_t range = 1; range < ranges; ++range) {
    try {
      others.emplace_back(do_range, range);
    } catch (const std::system_error&) {
      do_range(range);
    }
  }
  do_range(0);
  for (std::thread& other : others) other.join();
  if (thrown) std::rethrow_exception(thrown);
}

}  // namespace qx
