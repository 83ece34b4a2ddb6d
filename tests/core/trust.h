#pragma once
// For tests of what others do to a model file.

#define XXH_INLINE_ALL
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>
#include <xxhash.h>

#include "qx_db/platform/file.h"

#include "tests/core/durable_model.h"
#include "tests/scratch_folder.h"

namespace qx {

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

/// What a file holds; "" where there is none.
inline std::string BytesOf(const std::string& path) {
  const auto bytes = ReadWholeFile(path);
  return bytes ? *bytes : std::string();
}

/// Writes the checksum of a page of 4096 bytes as its maker would.
inline void Seal(std::string& bytes, std::size_t page) {
  constexpr std::size_t kPage = 4096;
  constexpr std::size_t kReserve = 8;
  char* at = bytes.data() + page * kPage;
  const std::uint64_t sum = XXH3_64bits_withSeed(at, kPage - kReserve, page);
  std::memcpy(at + kPage - kReserve, &sum, sizeof(sum));
}

/// A transaction that inserts one node; 1 when it was committed.
inline int InsertNode(CQXDBSession& session, Key key) {
  CTransaction transaction(&session);
  transaction.Begin(u"Insert");
  tagTNode node;
  node.key = key;
  session.GetPool<DPoolNode>(code::kNode)->InsertNU(node);
  return transaction.Commit();
}

class TrustTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path(name); }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.Path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  /// A document that keeps its steps at `path`, with the nodes 1 to `last` a step each.
  std::unique_ptr<CQXDocBase> Kept(const std::string& path, Key last) {
    auto document = std::make_unique<CQXDocBase>(SetUpSmallModel);
    EXPECT_EQ(document->SaveAs(path).Line(), "");
    EXPECT_EQ(document->KeepSteps().Line(), "");
    for (Key key = 1; key <= last; ++key) {
      EXPECT_EQ(InsertNode(*document->GetDBSession(), key), 1);
    }
    return document;
  }

  /// The state that a new reader finds; 0 with a failed expectation when it cannot be read.
  static std::uint64_t StateAt(const std::string& path) {
    CQXDocBase reader(SetUpSmallModel);
    const Outcome opened = reader.Open(path);
    EXPECT_EQ(opened.Line(), "");
    return opened ? reader.GetDBSession()->StateHash() : 0;
  }

  const ScratchFolder folder_;
};

}  // namespace qx
