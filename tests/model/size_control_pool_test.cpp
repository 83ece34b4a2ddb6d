// The pool of size controls: finding, seeding through it, and keeping in step with the geometry.

#include "qx_db/model/cad_keys.h"
#include "qx_db/qx_db.h"

#include "tests/model/size_samples.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

using namespace test;

class SizeControls : public testing::Test {
 protected:
  SizeControls() {
    document_.New();
    AddKnownEdges(cad_);
    const auto added = AddCadGeometry(session_, cad_, "part.step");
    EXPECT_TRUE(added);
    for (const auto& [edge, itr] : added->edges) edges_.push_back(itr);
    pool_.SetCadSession(&cad_);
  }

  ITR Add(std::initializer_list<ITR> edges, std::initializer_list<ITR> reversed = {},
          std::initializer_list<std::int32_t> locked = {}) {
    tagTSzct control = Geometric(3, 4);
    control.key = pool_.GetNewKey();
    control.edges = edges;
    control.reversed_edges = reversed;
    control.locked = locked;
    return pool_.InsertNU(control);
  }
  template <class Work>
  int Step(Work&& work) {
    CTransaction transaction(&session_);
    transaction.Begin(u"step");
    work();
    return transaction.Commit();
  }
  ITR E(int edge) const { return edges_[static_cast<std::size_t>(edge - 1)]; }
  const tagTSzct& At(ITR itr) { return pool_.GetAtNU(itr); }

  AnalyticCad cad_;
  CQXDocBase document_{AddStandardPools};
  CQXDBSession& session_ = *document_.GetDBSession();
  DPoolSzct& pool_ = Pool<tagTSzct>(session_);
  std::vector<ITR> edges_;
};

TEST_F(SizeControls, AreFoundByTheirEdges) {
  const ITR a = Add({E(1), E(2)});
  const ITR b = Add({E(2), E(3)}, {E(3)});
  const ITR c = Add({}, {E(4)});
  std::list<ITR> found;
  EXPECT_TRUE(pool_.GetItrByGKeyItr(E(2), found));
  EXPECT_TRUE(pool_.GetItrByGKeyItr(E(4), found));
  EXPECT_EQ(found, (std::list<ITR>{a, b, c}));
  EXPECT_FALSE(pool_.GetItrByGKeyItr(E(5), found));
  ITR first = 0;
  EXPECT_TRUE(pool_.Exist(E(2), first));
  EXPECT_EQ(first, a);
  EXPECT_FALSE(pool_.Exist(E(5), first));
  EXPECT_EQ(first, a);
  const TVArray<tagTSzct> controls = pool_.GetSzctByEdgeArrayItr({E(3), E(2), E(5)});
  ASSERT_EQ(controls.GetSize(), 2);
  EXPECT_EQ(controls[0].key, At(a).key);
  EXPECT_EQ(controls[1].edges, At(b).edges);
  EXPECT_TRUE(pool_.GetSzctByEdgeArrayItr({}).IsEmpty());
}

TEST_F(SizeControls, GivePointsAsFloats) {
  const ITR itr = Add({E(5), E(4)}, {E(4)});
  const tagTSzct control = At(itr);
  for (const int edge : {4, 5}) {
    EdgeSeeds seeds;
    ASSERT_TRUE(SeedEdge(cad_, edge, control, edge == 4, seeds));
    std::vector<tagTVector3<float>> by_itr;
    std::vector<tagTVector3<float>> by_number;
    ASSERT_TRUE(pool_.GetPointsOnSzct(E(edge), control, by_itr));
    ASSERT_TRUE(pool_.GetPointsOnSzct(edge, control, by_number));
    EXPECT_EQ(by_itr, by_number);
    ASSERT_EQ(by_itr.size(), seeds.points.size());
    for (std::size_t i = 0; i < by_itr.size(); ++i) {
      EXPECT_EQ(by_itr[i].x, static_cast<float>(seeds.points[i].x));
      EXPECT_EQ(by_itr[i].z, static_cast<float>(seeds.points[i].z));
    }
  }
  const std::vector<tagTVector3<float>> before{{1, 2, 3}};
  auto points = before;
  EXPECT_FALSE(pool_.GetPointsOnSzct(77, control, points)) << "no such edge";
  EXPECT_FALSE(pool_.GetPointsOnSzct(ITR{0}, control, points));
  EXPECT_FALSE(pool_.GetPointsOnSzct(5, ByDivisions(0), points)) << "no such seeding";
  const int far = *cad_.AddLine({0, 0, 0}, {1e39, 0, 0});
  EXPECT_FALSE(pool_.GetPointsOnSzct(far, ByDivisions(2), points)) << "beyond a float";
  tagTGKey face;
  face.key = Pool<tagTGKey>(session_).GetNewKey();
  face.SetItem(tagTGKey::kFace, 5);
  const ITR not_an_edge = Pool<tagTGKey>(session_).InsertNU(face);
  EXPECT_FALSE(pool_.GetPointsOnSzct(not_an_edge, control, points)) << "a face of that number";
  pool_.SetCadSession(nullptr);
  EXPECT_FALSE(pool_.GetPointsOnSzct(5, control, points)) << "no geometry";
  EXPECT_EQ(points, before);
}

TEST_F(SizeControls, ReverseArraysOfReversedEdges) {
  const tagTSzct control = At(Add({E(1), E(2)}, {E(2)}));
  CArray<double, double> seeds;
  for (const double f : {0.1, 0.3, 1.0}) seeds.Add(f);
  TArray<double> out;
  CQXCalcSzct::CArrayToTArrayWithReverse(&session_, 1, control, seeds, out);
  EXPECT_EQ(out, (TArray<double>{0.1, 0.3, 1.0}));
  CQXCalcSzct::CArrayToTArrayWithReverse(&session_, 2, control, seeds, out);
  EXPECT_EQ(out, (TArray<double>{1 - 0.3, 1 - 0.1, 1.0}));
  EXPECT_TRUE(CQXCalcSzct::IsOverlap(&session_, 2, control.edges));
  EXPECT_FALSE(CQXCalcSzct::IsOverlap(&session_, 3, control.edges));
  EXPECT_FALSE(CQXCalcSzct::IsOverlap(&session_, 3, {0}));
}

TEST_F(SizeControls, LoseEdgesOnRequestAndKeepOrder) {
  EXPECT_EQ(pool_.DeleteGKeyExist(E(1)), 0) << "no size control at all";
  EXPECT_EQ(pool_.DeleteGKeyArrayExist({E(1)}), 0);
  const ITR a = Add({E(3), E(1), E(2)}, {E(1), E(3)}, {1, 0, 1});
  const ITR b = Add({E(1)});
  const std::uint64_t before = session_.StateHash();
  ASSERT_TRUE(Step([&] { EXPECT_EQ(pool_.DeleteGKeyExist(E(1)), 1); }));
  EXPECT_EQ(At(a).edges, (TArray<ITR>{E(3), E(2)}));
  EXPECT_EQ(At(a).reversed_edges, (TArray<ITR>{E(3)}));
  EXPECT_EQ(At(a).locked, (TArray<std::int32_t>{1, 1})) << "locks stay with their edges";
  EXPECT_TRUE(At(b).edges.IsEmpty()) << "it may be given others";
  ASSERT_TRUE(Step([&] { EXPECT_EQ(pool_.DeleteGKeyArrayExist({E(2), E(3)}), 1); }));
  EXPECT_TRUE(At(a).edges.IsEmpty() && At(a).reversed_edges.IsEmpty());
  EXPECT_EQ(pool_.GetSize(), 2);
  EXPECT_TRUE(session_.Undo() && session_.Undo());
  EXPECT_EQ(session_.StateHash(), before);
}

TEST_F(SizeControls, FollowTheRemovalOfGeometry) {
  const ITR kept = Add({E(1), E(2), E(3)}, {E(2)});
  Add({E(2)});                              // becomes empty and goes
  const ITR locked = Add({E(2)}, {}, {1});  // becomes empty and stays
  const ITR unused = Add({});               // was empty before
  const ITR other = Add({E(4)});
  const std::uint64_t before = session_.StateHash();
  auto& nodes = Pool<tagTNode>(session_);
  ASSERT_TRUE(Step([&] {
    tagTNode node;
    node.key = 1;
    nodes.InsertNU(node);
  }));
  EXPECT_EQ(pool_.GetSize(), 5) << "nothing of theirs was removed";
  ASSERT_TRUE(session_.Undo());
  ASSERT_TRUE(Step([&] { EXPECT_TRUE(Pool<tagTGKey>(session_).Remove(E(2))); }));
  EXPECT_EQ(pool_.GetSize(), 4);
  EXPECT_EQ(At(kept).edges, (TArray<ITR>{E(1), E(3)}));
  EXPECT_TRUE(At(kept).reversed_edges.IsEmpty());
  EXPECT_TRUE(At(locked).edges.IsEmpty());
  EXPECT_EQ(At(locked).locked, (TArray<std::int32_t>{1}));
  EXPECT_TRUE(At(unused).edges.IsEmpty());
  EXPECT_EQ(At(other).edges, (TArray<ITR>{E(4)}));
  ASSERT_TRUE(session_.Undo());
  EXPECT_EQ(session_.StateHash(), before);
  EXPECT_EQ(pool_.GetSize(), 5);
  ASSERT_TRUE(session_.Redo());
  EXPECT_EQ(pool_.GetSize(), 4);
}

TEST_F(SizeControls, AreCleanedAfterLoading) {
  // 0 is what a key becomes that names no edge of the file.
  Add({E(1), 0, E(3)}, {0, E(3)}, {1, 1, 0});
  Add({});
  Add({0}, {0});
  Add({0}, {}, {1});
  const ScratchFolder folder;
  ASSERT_TRUE(document_.SaveAs(folder.Path("m.qxm")));
  CQXDocBase loaded(AddStandardPools);
  ASSERT_TRUE(loaded.Open(folder.Path("m.qxm")));
  EXPECT_EQ(loaded.GetDBSession()->Validate(), "");
  auto& pool = Pool<tagTSzct>(*loaded.GetDBSession());
  ASSERT_EQ(pool.GetSize(), 2) << "empty ones left, the locked one stayed";
  ITR pos = pool.GetHeadPosition();
  const tagTSzct& first = pool.GetNextNU(pos);
  EXPECT_EQ(first.edges.GetSize(), 2);
  EXPECT_EQ(first.reversed_edges, (TArray<ITR>{first.edges[1]}));
  EXPECT_EQ(first.locked, (TArray<std::int32_t>{1, 0}));
  const tagTSzct& locked = pool.GetNextNU(pos);
  EXPECT_TRUE(locked.edges.IsEmpty());
  EXPECT_EQ(locked.locked, (TArray<std::int32_t>{1}));
}

TEST_F(SizeControls, CleaningUpAfterLoadingCostsNoHistory) {
  const ScratchFolder folder;
  const std::string path = folder.Path("m.qxm");
  ASSERT_EQ(Step([&] { Add({E(1)}); }), 1);
  ASSERT_EQ(Step([&] { Add({}); }), 1);
  ASSERT_EQ(Step([&] { Add({E(2)}); }), 1);
  ASSERT_TRUE(document_.SaveAs(path));
  const std::uint64_t state = session_.StateHash();
  const std::size_t steps = session_.History().Done().size();
  for (int round = 0; round < 2; ++round) {
    CQXDocBase opened(AddStandardPools);
    CQXDBSession& session = *opened.GetDBSession();
    ASSERT_EQ(opened.OpenForEditing(path).Line(), "");
    EXPECT_EQ(Pool<tagTSzct>(session).GetSize(), 2) << "the empty one left";
    EXPECT_EQ(session.History().Done().size(), steps + 1) << "by a step of its own, once";
    EXPECT_FALSE(opened.IsModified());
  }
  for (const bool editing : {true, false, false}) {
    CQXDocBase opened(AddStandardPools);
    CQXDBSession& session = *opened.GetDBSession();
    ASSERT_EQ((editing ? opened.OpenForEditing(path) : opened.Open(path)).Line(), "");
    if (editing) {
      ASSERT_EQ(session.Undo(), 1);
    }
    // Taken back, it is not done again at once: that would end what can be redone.
    EXPECT_EQ(session.StateHash(), state);
    EXPECT_EQ(session.History().Done().size(), steps);
    EXPECT_TRUE(session.CanRedo());
  }
}

TEST_F(SizeControls, GeometryIsFoundAgainByItsName) {
  const auto found = FindCadGeometry(session_, cad_, "part.step");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->edges.size(), 5u);
  EXPECT_EQ(found->edges.at(3), E(3));
  EXPECT_FALSE(FindCadGeometry(session_, cad_, "part.ste"));
  EXPECT_FALSE(FindCadGeometry(session_, cad_, "other.step"));
  AnalyticCad smaller;
  ASSERT_TRUE(smaller.AddLine({0, 0, 0}, {1, 0, 0}));
  EXPECT_FALSE(FindCadGeometry(session_, smaller, "part.step")) << "another file by now";
  ASSERT_TRUE(AddCadGeometry(session_, cad_, "part.step"));
  const auto second = FindCadGeometry(session_, cad_, "part.step");
  ASSERT_TRUE(second);
  EXPECT_EQ(second->number, 2) << "the latest";
  EXPECT_TRUE(session_.Undo());
  EXPECT_EQ(FindCadGeometry(session_, cad_, "part.step")->number, 1);
}

}  // namespace
}  // namespace qx
