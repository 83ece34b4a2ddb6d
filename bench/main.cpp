// Benchmarks of QX_db with peers in the same process. Run all, or those named as arguments, with as
// many threads as QX_THREADS says; one without it.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <malloc.h>
#include <string_view>
#include <sys/mman.h>

#include "qx_db/platform/parallel.h"

#include "bench/harness.h"

namespace qx::bench {
namespace {

/// Puts both sides in the same state before a run: memory that the C library kept from earlier
/// runs goes back to the system, and the system has touched pages at hand, since a virtual machine
/// may take milliseconds to get back those it had given away.
void EvenOut() {
  malloc_trim(0);
  constexpr std::size_t kBallast = std::size_t{400} << 20;
  void* ballast =
      mmap(nullptr, kBallast, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (ballast == MAP_FAILED) return;
  madvise(ballast, kBallast, MADV_HUGEPAGE);
  std::memset(ballast, 1, kBallast);
  munmap(ballast, kBallast);
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

void Compare(const std::string& what, const std::string& peer, double target,
             const std::function<double()>& ours, const std::function<double()>& theirs,
             Memory memory, int runs) {
  std::vector<double> a;
  std::vector<double> b;
  for (int i = 0; i <= runs; ++i) {
    if (memory == Memory::kFresh) EvenOut();
    a.push_back(ours());
    if (memory == Memory::kFresh) EvenOut();
    b.push_back(theirs());
  }
  a.erase(a.begin());  // the first of each warms up
  b.erase(b.begin());
  const double ratio = Median(a) / Median(b);
  fmt::print("{:<44} {:9.2f} ms  {:<26} {:9.2f} ms  ratio {:5.2f}  target {:4.2f}  {}\n", what,
             1e3 * Median(a), peer, 1e3 * Median(b), ratio, target,
             ratio <= target ? "met" : "MISSED");
  std::fflush(stdout);
}

void Figure(const std::string& what, double value, const std::string& unit, double target) {
  fmt::print("{:<44} {:9.2f} {:<42} target {:4.2f}  {}\n", what, value, unit, target,
             value <= target ? "met" : "MISSED");
}

}  // namespace qx::bench

int main(int argc, char** argv) {
  using namespace qx::bench;
  const char* const threads = std::getenv("QX_THREADS");
  qx::SetWorkThreads(threads ? static_cast<unsigned>(std::atoi(threads)) : 1);
  fmt::print("threads: {}\n", qx::WorkThreads());
  constexpr Benchmark kBenchmarks[] = {{"keyed_set", KeyedSet},
                                       {"undo", Undo},
                                       {"file", File},
                                       {"gateway", Gateway},
                                       {"mesh", Mesh},
                                       {"mesh_util", MeshUtil},
                                       {"mesh_peer", MeshBesidePeer},
                                       {"mesh_sets", MeshSets},
                                       {"select", Selections},
                                       {"material", Materials},
                                       {"image", Image},
                                       {"import", Import},
                                       {"seed", Seed},
#ifdef QX_BENCH_SQL
                                       {"sql", Sql},
#endif
                                       {"durability", DurableSteps}};
  for (const Benchmark& benchmark : kBenchmarks) {
    const bool chosen = argc == 1 || std::any_of(argv + 1, argv + argc, [&](const char* name) {
                          return std::string_view(name) == benchmark.name;
                        });
    if (!chosen) continue;
    fmt::print("-- {}\n", benchmark.name);
    benchmark.run();
  }
}
