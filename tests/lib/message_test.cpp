// How texts and messages reach the user.

#include "qx_db/lib/message.h"

#include <gtest/gtest.h>

namespace qx {
namespace {

class ListSink final : public IMessageSink {
 public:
  ListSink() { SetMessageSink(this); }
  ~ListSink() override { SetMessageSink(nullptr); }
  void Show(const Message& message) override { texts.push_back(message.text); }
  std::vector<std::string> texts;
};

TEST(Texts, AreMissedOnceWithTheCallThatBringsThem) {
  ListSink sink;
  EXPECT_EQ(qxText("IDS_QX_SOME", {"a", "b"}), "IDS_QX_SOME: a, b");
  EXPECT_EQ(qxText("IDS_QX_SOME"), "IDS_QX_SOME");
  ASSERT_EQ(sink.texts.size(), 1u);
  EXPECT_NE(sink.texts[0].find("qx::host::RegisterTexts()"), std::string::npos) << sink.texts[0];
  EXPECT_NE(sink.texts[0].find("qx::InstallTexts()"), std::string::npos) << sink.texts[0];
}

TEST(Texts, ATableIsInstalledInOneCall) {
  ListSink sink;
  InstallTexts({{"IDS_QX_SOME", "{} and {}"}});
  qxMsgOut(Severity::kRefusal, "IDS_QX_SOME", {"a", "b"});
  qxMsgOut(Severity::kRefusal, "IDS_QX_OTHER");
  EXPECT_EQ(sink.texts, (std::vector<std::string>{"a and b", "IDS_QX_OTHER"}));
  InstallTexts({{"IDS_QX_OTHER", "other"}});
  EXPECT_EQ(qxText("IDS_QX_SOME"), "IDS_QX_SOME");
}

}  // namespace
}  // namespace qx
