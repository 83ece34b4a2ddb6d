#pragma once
// A hint that memory will be read soon.
// Threads: any; nothing is kept between calls.

#include <cstdint>

#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#endif

namespace qx {

/// Starts loading the cache line at an address, which need not be valid.
inline void Prefetch(std::uint64_t address) {
#if defined(_MSC_VER) && !defined(__clang__)
  _mm_prefetch(reinterpret_cast<const char*>(address), _MM_HINT_T0);
#else
  __builtin_prefetch(reinterpret_cast<const void*>(address));
#endif
}
inline void Prefetch(const void* at) { Prefetch(reinterpret_cast<std::uint64_t>(at)); }

}  // namespace qx
