#include "tests/core/failing_memory.h"

#include <cerrno>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define QX_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QX_ASAN 1
#endif
#endif

namespace {

thread_local int g_left = -1;  // allocations until the one that fails; negative for none
thread_local bool g_failed = false;

bool Fails() {
  if (g_left < 0 || g_left-- > 0) return false;  // -1 again after the one
  g_failed = true;
  errno = ENOMEM;
  return true;
}

}  // namespace

#if defined(__GLIBC__) && !defined(QX_ASAN)
// All memory of the process, that of the libraries it uses as well: `new` takes it from here.
#pragma GCC visibility push(default)
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

void* malloc(std::size_t size) noexcept { return Fails() ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t count, std::size_t size) noexcept {
  return Fails() ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) noexcept {
  return Fails() ? nullptr : __libc_realloc(memory, size);
}
}
#pragma GCC visibility pop
#else
// Only what is taken with `new`: the address sanitizer has the rest for itself.
void* operator new(std::size_t size) {
  void* memory = Fails() ? nullptr : std::malloc(size ? size : 1);
  if (!memory) throw std::bad_alloc();
  return memory;
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Fails() ? nullptr : std::malloc(size ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& none) noexcept {
  return operator new(size, none);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
#endif

namespace qx {

FailingMemory::FailingMemory(int allocation) {
  g_failed = false;
  g_left = allocation;
}
FailingMemory::~FailingMemory() { g_left = -1; }
bool FailingMemory::HasFailed() const { return g_failed; }

}  // namespace qx
