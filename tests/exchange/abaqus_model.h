#pragma once
// What the tests of Abaqus and CalculiX decks share: places of a deck's nodes, and a model that
// comes from a deck, changes, and goes back.

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "exchange/transfer.h"
#include "host/session.h"
#include "sample_mesh.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {

inline std::map<Key, sample::Point> PointsOf(const Deck& deck) {
  std::map<Key, sample::Point> points;
  for (std::size_t i = 0; i < deck.node_keys.size(); ++i) {
    const double* at = &deck.coordinates[3 * i];
    points[deck.node_keys[i]] = {at[0], at[1], at[2]};
  }
  return points;
}

inline void ExpectPoint(const sample::Point& found, const sample::Point& expected,
                        const std::string& of) {
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(found[i], expected[i], 1e-12) << of;
}

/// A hexahedron that others are generated from.
inline constexpr const char* kBlock =
    "*Node\n1\n2, 1.\n3, 1., 1.\n4, 0., 1.\n"
    "101, 0., 0., 1.\n102, 1., 0., 1.\n103, 1., 1., 1.\n104, 0., 1., 1.\n"
    "*Element, type=C3D8R, elset=solid\n1, 1, 2, 3, 4, 101, 102, 103, 104\n";

class AbaqusModel : public testing::Test {
 protected:
  void Import(const std::string& deck) {
    ASSERT_TRUE(WriteWholeFile(path_, deck));
    LossReport report;
    ASSERT_EQ(ImportFile(session_, path_, {}, report).Line(), "");
    EXPECT_EQ(session_.Validate(), "");
  }
  std::string Export(const std::string& name = "out.inp") {
    report_ = {};
    const std::string out = folder_.Path(name);
    EXPECT_EQ(ExportFile(session_, out, {}, report_).Line(), "");
    return *ReadWholeFile(out);
  }
  void Edit(const std::function<void()>& edit) {
    CTransaction step(&session_);
    step.Begin(u"edit");
    edit();
    ASSERT_TRUE(step.Commit());
  }
  void Move(Key key, double x, double y, double z) {
    tagTNode node = nodes_.GetAtNU(nodes_.Find(key));
    node.position = {x, y, z};
    ASSERT_TRUE(nodes_.SetAtNU(nodes_.Find(key), node));
  }
  template <class T>
  void Change(Key key, const std::function<void(T&)>& change) {
    auto& pool = *session_.GetPool<DPool<T>>(T::kType);
    T record = pool.GetAtNU(pool.Find(key));
    change(record);
    ASSERT_TRUE(pool.SetAtNU(pool.Find(key), record));
  }
  /// The deck comes out with these replacements, comes in again, and stays as it is from then on.
  void ExpectEdited(std::string deck, const std::vector<std::pair<std::string, std::string>>& by) {
    for (const auto& [was, is] : by) {
      const std::size_t at = deck.find(was);
      ASSERT_NE(at, std::string::npos) << was;
      deck.replace(at, was.size(), is);
    }
    const std::string once = Export();
    EXPECT_EQ(once, deck);
    CQXDBSession again(host::SetUpModel);
    LossReport report;
    ASSERT_EQ(ImportFile(again, folder_.Path("out.inp"), {}, report).Line(), "");
    ASSERT_EQ(ExportFile(again, folder_.Path("twice.inp"), {}, report).Line(), "");
    EXPECT_EQ(*ReadWholeFile(folder_.Path("twice.inp")), once);
  }

  const ScratchFolder folder_;
  const std::string path_ = folder_.Path("in.inp");
  CQXDBSession session_{host::SetUpModel};
  DPoolNode& nodes_ = *session_.GetPool<DPoolNode>(code::kNode);
  DPoolElem& elements_ = *session_.GetPool<DPoolElem>(code::kElem);
  DPoolMset& sets_ = *session_.GetPool<DPoolMset>(code::kMset);
  LossReport report_;
};

}  // namespace qx::exchange
