#pragma once
// Timing ourselves beside a peer: the two in turn, the medians, and their ratio.

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace qx::bench {

/// Seconds that `work` takes.
template <class Work>
double Time(Work&& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Keeps a value from being optimised away.
template <class T>
void Keep(const T& value) {
  asm volatile("" : : "r,m"(value) : "memory");
}

/// Whether a comparison is of work that takes memory from the system. Both sides then start each
/// run without memory kept from the one before.
enum class Memory { kKept, kFresh };

/// Runs both in turn, `runs` times each after one of each uncounted, and prints medians and ratio
/// beside the target. Each function returns the seconds of its timed part.
void Compare(const std::string& what, const std::string& peer, double target,
             const std::function<double()>& ours, const std::function<double()>& theirs,
             Memory memory = Memory::kKept, int runs = 5);

/// Prints a figure beside its target.
void Figure(const std::string& what, double value, const std::string& unit, double target);

/// A benchmark that can be chosen by name on the command line.
struct Benchmark {
  const char* name;
  void (*run)();
};
void KeyedSet();
void Undo();
void DurableSteps();
void File();
void Gateway();
void Mesh();
void MeshUtil();
void MeshBesidePeer();
void MeshSets();
void Selections();
void Materials();
void Image();
void Import();
void Seed();
#ifdef QX_BENCH_SQL
void Sql();
#endif

}  // namespace qx::bench
