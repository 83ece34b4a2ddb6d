#include <cstring>
#include <fmt/format.h>
#include <vector>

#include "bench/harness.h"
#include "bench/workload.h"

namespace qx::bench {

namespace {

/// Writes and reads the images of a million records beside a plain copy of the same bytes.
template <class T, class Fill>
void Images(const char* what, double target, Fill&& fill) {
  std::vector<T> records(kMillion);
  std::size_t bytes = 0;
  std::vector<int> sizes;
  for (int i = 0; i < kMillion; ++i) {
    records[static_cast<std::size_t>(i)].key = i + 1;
    fill(records[static_cast<std::size_t>(i)]);
    sizes.push_back(static_cast<int>(records[static_cast<std::size_t>(i)].GetSizePlusVfptr() - 8));
    bytes += static_cast<std::size_t>(sizes.back());
  }
  std::vector<char> stream(bytes);
  std::vector<char> copy(bytes);
  const auto plain = [&] { return Time([&] { std::memcpy(copy.data(), stream.data(), bytes); }); };
  Compare(
      fmt::format("write the images of a million {}", what), "memcpy of the bytes", 1 / target,
      [&] {
        return Time([&] {
          char* at = stream.data();
          for (std::size_t i = 0; i < records.size(); ++i) {
            records[i].Data2Stream(at, sizes[i]);
            at += sizes[i];
          }
        });
      },
      plain);
  Compare(
      fmt::format("read the images of a million {}", what), "memcpy of the bytes", 1 / target,
      [&] {
        return Time([&] {
          const char* at = stream.data();
          for (std::size_t i = 0; i < records.size(); ++i) {
            records[i].Stream2Data(at, sizes[i]);
            at += sizes[i];
          }
        });
      },
      plain);
}

}  // namespace

void Image() {
  Images<tagTNode>("nodes (fixed)", 0.6, [](tagTNode& node) { node.position = {1, 2, 3}; });
  Images<tagTElem>("elements (one array)", 0.3,
                   [](tagTElem& element) { element.nodes = {1, 2, 3, 4, 5, 6, 7, 8}; });
  Images<tagTMset>("mesh sets (arrays)", 0.3, [](tagTMset& set) {
    set.nodes = {1, 2, 3, 4};
    set.elements = {1, 2};
  });
}

}  // namespace qx::bench
