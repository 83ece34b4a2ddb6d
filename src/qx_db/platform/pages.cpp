#include "qx_db/platform/pages.h"

#include <algorithm>
#include <cstdint>
#include <new>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <fstream>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace qx {
namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

#ifdef _WIN32

char* Reserve(std::size_t bytes) {
  return static_cast<char*>(VirtualAlloc(nullptr, bytes, MEM_RESERVE, PAGE_READWRITE));
}
void Release(char* at, std::size_t) { VirtualFree(at, 0, MEM_RELEASE); }
bool BackWithMemory(char* at, std::size_t bytes) {
  return VirtualAlloc(at, bytes, MEM_COMMIT, PAGE_READWRITE) != nullptr;
}
std::size_t Total() {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof(status);
  GlobalMemoryStatusEx(&status);
  return status.ullTotalPhys;
}
std::size_t Left() {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof(status);
  GlobalMemoryStatusEx(&status);
  return status.ullAvailVirtual;
}

#else

/// Reserved without a claim on memory; the kernel backs each page when it is first touched.
char* Reserve(std::size_t bytes) {
  void* at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return at == MAP_FAILED ? nullptr : static_cast<char*>(at);
}
void Release(char* at, std::size_t bytes) { munmap(at, bytes); }
bool BackWithMemory(char* at, std::size_t bytes) {
#ifdef MADV_HUGEPAGE
  // Only what lies beyond the first huge page: a small pool stays small.
  if (bytes >= kHugePage) madvise(at, bytes, MADV_HUGEPAGE);
#else
  static_cast<void>(at);
  static_cast<void>(bytes);
#endif
  return true;
}
std::size_t Total() {
  return static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) *
         static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}
std::size_t Left() {
  constexpr std::size_t kOfProcess = std::size_t{1} << 47;
  rlimit limit{};
  std::size_t most = kOfProcess;
  if (getrlimit(RLIMIT_AS, &limit) == 0) most = std::min<std::size_t>(most, limit.rlim_cur);
  std::size_t pages = 0;  // none known of where the system does not tell
  std::ifstream("/proc/self/statm") >> pages;
  const std::size_t used = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return most - std::min(most, used);
}

#endif

std::size_t RoundUp(std::size_t bytes, std::size_t unit) {
  return (bytes + unit - 1) / unit * unit;
}

}  // namespace

void PreferHugePages(void* at, std::size_t bytes) {
#if !defined(_WIN32) && defined(MADV_HUGEPAGE)
  const auto address = reinterpret_cast<std::uintptr_t>(at);
  const std::uintptr_t begin = RoundUp(address, 4096);
  const std::uintptr_t end = (address + bytes) / 4096 * 4096;
  if (bytes >= kHugePage && end > begin) {
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
  }
#else
  static_cast<void>(at);
  static_cast<void>(bytes);
#endif
}

std::size_t AddressesLeft() { return Left(); }

std::size_t PhysicalMemory() {
  static const std::size_t bytes = Total();
  return bytes;
}

AddressRange::AddressRange(std::size_t wanted, std::size_t least) {
  for (size_ = RoundUp(wanted, wanted < kHugePage ? 4096 : kHugePage); size_ >= least;
       size_ = RoundUp(size_ / 2, 4096)) {
    data_ = Reserve(size_);
    if (data_) return;
    if (size_ <= 4096) break;
  }
  throw std::bad_alloc();
}

AddressRange::~AddressRange() {
  if (data_) Release(data_, size_);
}

void AddressRange::Back(std::size_t bytes) {
  if (bytes <= backed_) return;
  if (bytes > size_) throw std::bad_alloc();
  // By doubling up to a huge page, then by an eighth, always ending on a whole huge page.
  const auto address = reinterpret_cast<std::uintptr_t>(data_);
  std::size_t target = std::max(bytes, std::max<std::size_t>(backed_ * 2, 16384));
  if (target > kHugePage) {
    target = std::max(bytes, backed_ + std::max(backed_ / 8, 2 * kHugePage));
    target = RoundUp(address + target, kHugePage) - address;
  }
  target = std::min(RoundUp(target, 4096), size_);
  if (!BackWithMemory(data_ + backed_, target - backed_)) throw std::bad_alloc();
  backed_ = target;
}

}  // namespace qx
