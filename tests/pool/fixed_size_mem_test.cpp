#include "qx_db/pool/fixed_size_mem.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <vector>

#include "qx_db/pool/hash_size.h"

namespace qx {
namespace {

TEST(FixedSizeMem, GivesBlocksOfTheirOwnForEverySize) {
  for (const std::size_t bytes : {1, 12, 16, 17, 250}) {
    CFixedSizeMemMgr blocks(bytes);
    std::vector<char*> held;
    for (int i = 0; i < 1000; ++i) {
      held.push_back(static_cast<char*>(blocks.Alloc()));
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(held.back()) % 16, 0u);
      std::memset(held.back(), i % 128, bytes);
      if (i % 3 == 0) {
        blocks.Free(held.back());
        held.pop_back();
      }
    }
    EXPECT_EQ(std::set<char*>(held.begin(), held.end()).size(), held.size());
    for (const char* block : held)
      EXPECT_EQ(static_cast<std::size_t>(std::count(block, block + bytes, *block)), bytes);
    blocks.Free(nullptr);
    blocks.FreeAll();
    EXPECT_NE(blocks.Alloc(), nullptr);
  }
}

TEST(HashSize, IsABucketARecordFromTheDefaultOn) {
  EXPECT_EQ(GF_GetHashSizeByCount(0), 10000);
  EXPECT_EQ(GF_GetHashSizeByCount(10001), 10001);
  EXPECT_EQ(GF_GetHashSizeByCount(std::int64_t{1} << 40), kMaxKey);
}

}  // namespace
}  // namespace qx
