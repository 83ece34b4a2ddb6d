#pragma once
// What time it is.
// Threads: any.

#include <chrono>
#include <cstdint>

namespace qx {

/// Milliseconds since 1970 by the system's clock, which may be put back.
inline std::int64_t NowMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace qx
