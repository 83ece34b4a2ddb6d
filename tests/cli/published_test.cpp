// The generated pages of docs/ say what the program says.

#include "tests/cli/cli_fixture.h"

namespace qx {
namespace {

TEST_F(Cli, PublishedPagesAreCurrent) {
  struct Page {
    const char* file;
    const char* command;
  };
  const Page pages[] = {{"docs/catalogue.md", "records --markdown"},
                        {"docs/gateway.schema.json", "gateway describe --schema"}};
  for (const Page& page : pages) {
    const Result<std::string> published = ReadWholeFile(std::string(QX_SOURCE_DIR "/") + page.file);
    ASSERT_TRUE(published) << published.AsOutcome().Line();
    EXPECT_TRUE(*published == Qxdb(page.command).out)
        << page.file << " is stale; renew it with: qxdb " << page.command << " > " << page.file;
  }
}

}  // namespace
}  // namespace qx
