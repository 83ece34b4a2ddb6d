#include "qx_db/platform/parallel.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace qx {

void ParallelFor(std::size_t count, std::size_t least,
                 const std::function<void(std::size_t, std::size_t)>& work) {
  const std::size_t cores = std::max(1u, std::thread::hardware_concurrency());
  const std::size_t ranges = std::clamp<std::size_t>(count / least, 1, cores);
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
