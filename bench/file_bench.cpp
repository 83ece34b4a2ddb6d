#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>
#include <unordered_map>

#include "qx_db/platform/file.h"

#include "bench/harness.h"
#include "bench/workload.h"

namespace qx::bench {
namespace {

/// The peer of loading: the same rows through a buffer into maps.
struct PlainElement {
  std::int32_t type;
  std::vector<Key> nodes;
};

std::string PlainRows(int n) {
  std::string rows;
  for (int i = 1; i <= n; ++i) {
    const tagTNode node = MakeNode(i);
    rows.append(reinterpret_cast<const char*>(&node) + 8, 32);
  }
  for (int i = 1; i <= n; ++i) {
    const std::int32_t head[3] = {i, 14, 8};
    rows.append(reinterpret_cast<const char*>(head), sizeof(head));
    for (Key k = 0; k < 8; ++k) {
      const Key node = (i + k) % n + 1;
      rows.append(reinterpret_cast<const char*>(&node), sizeof(node));
    }
  }
  return rows;
}

double LoadPlain(const std::string& path, int n) {
  std::unordered_map<Key, tagTNode> nodes;
  std::unordered_map<Key, PlainElement> elements;
  return Time([&] {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    std::vector<char> buffer(1 << 20);
    std::setvbuf(file, buffer.data(), _IOFBF, buffer.size());
    bool good = true;
    for (int i = 0; i < n; ++i) {
      tagTNode node;
      good = std::fread(reinterpret_cast<char*>(&node) + 8, 32, 1, file) == 1 && good;
      nodes.emplace(node.key, node);
    }
    for (int i = 0; i < n; ++i) {
      std::int32_t head[3];
      good = std::fread(head, sizeof(head), 1, file) == 1 && good;
      PlainElement element{head[1], std::vector<Key>(static_cast<std::size_t>(head[2]))};
      good = std::fread(element.nodes.data(), sizeof(Key), element.nodes.size(), file) ==
                 element.nodes.size() &&
             good;
      elements.emplace(head[0], std::move(element));
    }
    std::fclose(file);
    Keep(good);
  });
}

double WritePlain(const std::string& path, const std::string& bytes) {
  return Time([&] {
    const int fd = open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
    for (std::size_t at = 0; at < bytes.size();) {
      const ssize_t n =
          write(fd, bytes.data() + at, std::min<std::size_t>(bytes.size() - at, 1 << 20));
      if (n <= 0) break;
      at += static_cast<std::size_t>(n);
    }
    fsync(fd);
    close(fd);
  });
}

}  // namespace

void File() {
  const auto folder = std::filesystem::temp_directory_path() / "qx_bench";
  std::filesystem::create_directories(folder);
  const std::string model = (folder / "m.qxm").string();
  const std::string plain = (folder / "plain.bin").string();
  CQXDBSession session(AddStandardPools);
  FillBlock(session, kMillion);
  if (Outcome saved = SaveModel(session, model); !saved) {
    fmt::print("{}\n", saved.Line());
    return;
  }
  const std::string same_bytes(std::filesystem::file_size(model), 'x');
  Compare(
      "save with fsync", "plain write with fsync", 1 / 0.4,
      [&] { return Time([&] { Keep(static_cast<bool>(SaveModel(session, model))); }); },
      [&] { return WritePlain(plain, same_bytes); });
  WritePlain(plain, PlainRows(kMillion));
  Compare(
      "load", "rows into unordered_map", 1.5,
      [&] {
        CQXDBSession opened(AddStandardPools);
        return Time([&] { Keep(static_cast<bool>(LoadModel(opened, model))); });
      },
      [&] { return LoadPlain(plain, kMillion); }, Memory::kFresh);
  std::filesystem::remove_all(folder);
}

}  // namespace qx::bench
