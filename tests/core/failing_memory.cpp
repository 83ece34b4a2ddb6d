#include "tests/core/failing_memory.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int g_left = -1;  // allocations until the one that fails; negative for none
thread_local bool g_failed = false;

void* Allocate(std::size_t size) {
  if (g_left == 0) {
    g_left = -1;
    g_failed = true;
    return nullptr;
  }
  if (g_left > 0) --g_left;
  return std::malloc(size ? size : 1);
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* memory = Allocate(size)) return memory;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace qx {

FailingMemory::FailingMemory(int allocation) {
  g_left = allocation;
  g_failed = false;
}
FailingMemory::~FailingMemory() { g_left = -1; }
bool FailingMemory::HasFailed() const { return g_failed; }

}  // namespace qx
