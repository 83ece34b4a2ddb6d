#include "qx_db/core/model_diff.h"

#include <gtest/gtest.h>

#include "qx_db/qx_db.h"

namespace qx {
namespace {

/// Two nodes and an element on them, with the nodes made in either order.
void Fill(CQXDBSession& session, bool second_first) {
  auto& nodes = Pool<tagTNode>(session);
  for (const Key key : second_first ? std::vector<Key>{2, 1} : std::vector<Key>{1, 2}) {
    tagTNode node;
    node.key = key;
    node.position = {1.0 * key, 0, 0};
    nodes.InsertNU(node);
  }
  tagTElem element;
  element.key = 1;
  element.type = 1;
  element.nodes = {nodes.Find(1), nodes.Find(2)};
  Pool<tagTElem>(session).InsertNU(element);
}

std::vector<std::string> Lines(const CQXDBSession& a, const CQXDBSession& b) {
  static const char* const kKinds[] = {"first", "second", "changed", "order"};
  std::vector<std::string> lines;
  for (const RecordDifference& difference : DiffModels(a, b)) {
    std::string line = std::string(kKinds[static_cast<int>(difference.kind)]) + " " +
                       std::to_string(difference.type) + ":" + std::to_string(difference.key);
    for (const Row* member : difference.members) line += " " + Utf8(member->name);
    lines.push_back(line);
  }
  return lines;
}

TEST(ModelDiff, NamesEachRecordAndMemberThatDiffers) {
  CQXDBSession a(AddStandardPools), b(AddStandardPools);
  Fill(a, false);
  Fill(b, false);
  EXPECT_TRUE(Lines(a, b).empty()) << "references compare by what they point at, not by address";

  auto& nodes = Pool<tagTNode>(b);
  tagTNode node = nodes.GetAtNU(nodes.Find(2));
  node.position.y = -0.0;
  nodes.SetAtNU(nodes.Find(2), node);
  node.key = 9;
  const ITR ninth = nodes.InsertNU(node);
  auto& elements = Pool<tagTElem>(b);
  tagTElem element = elements.GetAtNU(elements.Find(1));
  element.nodes[1] = ninth;
  elements.SetAtNU(elements.Find(1), element);
  EXPECT_EQ(Lines(a, b), (std::vector<std::string>{"changed 3:2 _POSITION", "second 3:9",
                                                   "changed 4:1 _NODE_IDS"}));
  EXPECT_EQ(Lines(b, a), (std::vector<std::string>{"changed 3:2 _POSITION", "first 3:9",
                                                   "changed 4:1 _NODE_IDS"}));
}

TEST(ModelDiff, TellsAnotherOrderOnceAPool) {
  CQXDBSession a(AddStandardPools), b(AddStandardPools);
  Fill(a, false);
  Fill(b, true);
  EXPECT_EQ(Lines(a, b), std::vector<std::string>{"order 3:0"});
}

}  // namespace
}  // namespace qx
