// Pools by their names.

#include "qx_db/core/pool_names.h"

#include <gtest/gtest.h>

#include "qx_db/platform/text.h"

#include "host/session.h"

namespace qx {
namespace {

/// Whatever is printed of a pool, and whatever else it is called, finds it and no other.
TEST(PoolNames, EverySpellingFindsItsPool) {
  CQXDBSession session(host::SetUpModel);
  ASSERT_FALSE(session.Pools().empty());
  for (DPoolBase* pool : session.Pools()) {
    const std::string name = PoolName(*pool);
    for (const std::string& spelled :
         {name, AsciiUpper(name), PoolWord(*pool), pool->GetAPIName().ToUtf8(),
          std::string(pool->GetSchema().Name()), Utf8(pool->GetIOName())}) {
      EXPECT_EQ(FindPoolByName(session, spelled), pool) << spelled;
    }
  }
  const std::pair<const char*, const char*> words[] = {
      {"nodes", "node"},     {"Elements", "elem"},   {"mesh sets", "mset"}, {"sets", "mset"},
      {"materials", "matl"}, {"properties", "prop"}, {"systems", "cord"},   {"functions", "func"}};
  for (const auto& [word, name] : words) {
    const DPoolBase* found = FindPoolByName(session, word);
    ASSERT_TRUE(found) << word;
    EXPECT_EQ(PoolName(*found), name) << word;
  }
  for (const char* none : {"", "s", "nodess", "no", "elemental"}) {
    EXPECT_FALSE(FindPoolByName(session, none)) << none;
  }
}

}  // namespace
}  // namespace qx
