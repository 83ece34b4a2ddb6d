// What holds of every format in the registry.

#include "exchange/format.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

#include "qx_db/qx_db.h"

#include "exchange/deck.h"
#include "exchange/msh/msh_reader.h"
#include "exchange/transfer.h"
#include "sample_mesh.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

/// Every choice of a format's options, each by itself.
std::vector<OptionValues> ChoicesOf(const Format& format) {
  std::vector<OptionValues> all(1);
  for (const FormatOption& option : format.write_options) {
    std::string_view values = option.values;
    while (!values.empty()) {
      const std::size_t end = std::min(values.find(", "), values.size());
      all.push_back({{std::string(option.name), std::string(values.substr(0, end))}});
      values.remove_prefix(std::min(end + 2, values.size()));
    }
  }
  return all;
}

// What may be replaced without being asked for is told by this.
TEST(Formats, EachKnowsWhatItHasWrittenAndNothingElse) {
  const ScratchFolder folder;
  CQXDBSession session(AddStandardPools);
  LossReport losses;
  const Result<Deck> deck = ParseMsh(sample::Write(sample::Make(), {"4.1"}), "sample");
  ASSERT_TRUE(deck);
  ASSERT_EQ(AddDeck(session, *deck, "sample", losses).Line(), "");
  std::ofstream(folder.Path("notes")) << "my notes\nof a grid and $Nodes\n";
  std::ofstream(folder.Path("empty"));
  int written = 0;
  for (const Format& format : Formats()) {
    EXPECT_FALSE(IsOfFormat(format, folder.Path("notes"))) << format.name;
    EXPECT_FALSE(IsOfFormat(format, folder.Path("empty"))) << format.name;
    EXPECT_FALSE(IsOfFormat(format, folder.Path("none"))) << format.name;
    if (!format.write) continue;
    for (const OptionValues& values : ChoicesOf(format)) {
      ExportOptions options;
      options.format = &format;
      options.write.values = values;
      const std::string path = folder.Path("written");
      ASSERT_EQ(ExportFile(session, path, options, losses).Line(), "") << format.name;
      for (const Format& other : Formats()) {
        EXPECT_EQ(IsOfFormat(other, path), &other == &format)
            << "written by " << format.name << ", asked of " << other.name;
      }
      ++written;
    }
  }
  EXPECT_GT(written, 8);
}

}  // namespace
}  // namespace qx::exchange
