// Changes of many records at once are the same changes one after another.

#include "qx_db/pool/bulk_edit.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "qx_db/qx_db.h"

#include "tests/core/mesh_session.h"

namespace qx {
namespace {

/// What one is to do to the record at a position: three kinds of changes, of which the last gives
/// it a key that another record may have, or that none may have.
struct Edit {
  Key at;
  int kind;
  int value;
};

void Apply(tagTNode& node, const Edit& edit) {
  node.position.x += edit.value;
  if (edit.kind == 2) node.key = edit.value - 3;
}

void Apply(tagTElem& element, const Edit& edit) {
  if (edit.kind == 0) element.type = edit.value;
  if (edit.kind == 1) element.nodes.SetSize(element.nodes.GetSize() + edit.value % 3);
  if (edit.kind == 2) element.key = edit.value - 3;
}

/// How a step that makes the edits is told, and what it leaves.
struct EditOutcome {
  std::size_t done = 0;
  std::string told;
  std::uint64_t hash = 0, undone = 0, redone = 0;
  std::size_t images = 0, footprint = 0;
  std::string fault;
  bool operator==(const EditOutcome&) const = default;
};

struct Teller : ISessionListener {
  void OnSessionEvent(CQXDBSession&, SessionEvent event, std::u16string_view,
                      std::span<const Change> changes) override {
    told += std::to_string(static_cast<int>(event)) + ":";
    for (const Change& change : changes) {
      told += " " + std::to_string(change.operation) + "/" + std::to_string(KeyOf(change.item));
    }
  }
  std::string told;
};

/// `step` is given a fresh model, and the edits as positions and what becomes of them.
template <class T, class Step>
EditOutcome Run(const std::vector<Edit>& edits, bool recorded, Step&& step) {
  MeshSession m;
  m.Step(u"mesh", [&] { m.AddChain(1, 12); });
  DPool<T>& pool = Pool<T>(m.session);
  std::vector<ITR> positions;
  for (const Edit& edit : edits) positions.push_back(pool.Find(edit.at));
  Teller teller;
  m.session.AddListener(&teller);
  m.session.EnableRecording(recorded);
  EditOutcome out;
  CTransaction transaction(&m.session);
  transaction.Begin(u"edit");
  out.done = step(pool, positions);
  out.images = m.session.History().Current().bytes.size();
  transaction.Commit();
  out.footprint = m.session.History().Footprint();
  out.hash = m.session.StateHash();
  m.session.Undo();
  out.undone = m.session.StateHash();
  m.session.Redo();
  out.redone = m.session.StateHash();
  out.told = teller.told;
  out.fault = m.session.Validate();
  m.session.RemoveListener(&teller);
  return out;
}

template <class T>
void SetManyIsTheSame() {
  std::vector<Edit> edits;
  const int count = *rc::gen::inRange(0, 40);
  for (int i = 0; i < count; ++i) {
    // Key 13 is of no record, and positions come again.
    edits.push_back({*rc::gen::inRange<Key>(2, *rc::gen::inRange(0, 8) ? 13 : 14),
                     *rc::gen::inRange(0, 8) / 3, *rc::gen::inRange(0, 30)});
  }
  const bool recorded = *rc::gen::inRange(0, 5) != 0;
  const auto one_by_one = [&](DPool<T>& pool, const std::vector<ITR>& positions) {
    std::size_t i = 0;
    for (; i < positions.size() && pool.Set().IsLinked(positions[i]); ++i) {
      T record = pool.GetAtNU(positions[i]);
      Apply(record, edits[i]);
      if (!pool.SetAtNU(positions[i], record)) break;
    }
    return i;
  };
  const auto at_once = [&](DPool<T>& pool, const std::vector<ITR>& positions) {
    return SetMany(pool, positions, [&](T& record, std::size_t i) { Apply(record, edits[i]); });
  };
  RC_ASSERT((Run<T>(edits, recorded, at_once) == Run<T>(edits, recorded, one_by_one)));
}

RC_GTEST_PROP(SetMany, OfNodesIsTheSameAsOneByOne, ()) { SetManyIsTheSame<tagTNode>(); }
RC_GTEST_PROP(SetMany, OfElementsIsTheSameAsOneByOne, ()) { SetManyIsTheSame<tagTElem>(); }

TEST(SetMany, IsRefusedInAListenerAndEndsWithWhatIsThrown) {
  struct Meddler : ISessionListener {
    void OnSessionEvent(CQXDBSession& session, SessionEvent, std::u16string_view,
                        std::span<const Change>) override {
      auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
      const ITR first[] = {nodes.GetHeadPosition()};
      changed += SetMany(nodes, first, [](tagTNode& node, std::size_t) { node.position.x = 99; });
      ++heard;
    }
    std::size_t changed = 0;
    int heard = 0;
  } meddler;
  MeshSession m;
  m.Step(u"mesh", [&] { m.AddChain(1, 5); });
  const std::uint64_t whole = m.session.StateHash();
  std::vector<ITR> all;
  for (Key key = 1; key <= 5; ++key) all.push_back(m.nodes.Find(key));
  {
    CTransaction transaction(&m.session);
    transaction.Begin(u"thrown");
    const auto change = [](tagTNode& node, std::size_t i) {
      node.position.x += 1;
      if (i == 3) throw std::runtime_error("enough");
    };
    EXPECT_THROW(SetMany(m.nodes, all, change), std::runtime_error);
    EXPECT_EQ(m.session.History().Current().changes.size(), 3u);
  }
  EXPECT_EQ(m.session.StateHash(), whole);
  m.session.AddListener(&meddler);
  EXPECT_EQ(m.Add(6), 1);
  m.session.RemoveListener(&meddler);
  EXPECT_EQ(meddler.heard, 1);
  EXPECT_EQ(meddler.changed, 0u);
  m.session.Undo();
  EXPECT_EQ(m.session.StateHash(), whole);
}

}  // namespace
}  // namespace qx
