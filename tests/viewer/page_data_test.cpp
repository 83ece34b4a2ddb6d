// What the page is given: the surface, packs, edits on request.

#include "viewer/page_data.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <rapidjson/document.h>
#include <zlib.h>

#include "qx_db/model/deck_pools.h"
#include "qx_db/model/mesh_pools.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/record/element_types.h"

#include "host/session.h"
#include "tests/scratch_folder.h"
#include "viewer/edits.h"
#include "viewer/field_values.h"
#include "viewer/source.h"

namespace qx {
namespace {

/// A pack as the page reads it.
struct ReadPack {
  explicit ReadPack(const std::string& packed) {
    std::string plain(std::size_t{1} << 24, '\0');
    uLongf size = plain.size();
    EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(plain.data()), &size,
                         reinterpret_cast<const Bytef*>(packed.data()), packed.size()),
              Z_OK);
    EXPECT_EQ(size % 4, 0u);
    EXPECT_EQ(plain.substr(size - 4, 4), "QXP2");
    std::uint32_t length = 0;
    std::memcpy(&length, plain.data() + size - 8, 4);
    text.Parse(plain.data() + size - 8 - length, length);
    EXPECT_FALSE(text.HasParseError());
    data = plain.substr(0, size - 8 - length);
  }
  std::vector<float> Floats(const char* name) const {
    const auto& entry = text["arrays"][name];
    std::vector<float> out(entry[2].GetUint64());
    if (!out.empty()) std::memcpy(out.data(), data.data() + entry[1].GetUint64(), 4 * out.size());
    return out;
  }
  std::vector<std::int32_t> Integers(const char* name) const {
    const auto& entry = text["arrays"][name];
    std::vector<std::int32_t> out(entry[2].GetUint64());
    if (!out.empty()) std::memcpy(out.data(), data.data() + entry[1].GetUint64(), 4 * out.size());
    for (std::size_t i = entry[3].GetUint(); i < out.size(); ++i) {
      out[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(out[i]) +
                                         static_cast<std::uint32_t>(out[i - entry[3].GetUint()]));
    }
    return out;
  }
  rapidjson::Document text;
  std::string data;
};

/// n x n x n hexahedra, keys from 1.
void AddCube(CQXDBSession& session, int n) {
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  auto& elements = *session.GetPool<DPoolElem>(code::kElem);
  std::vector<ITR> at;
  const int m = n + 1;
  for (int k = 0; k < m * m * m; ++k) {
    tagTNode node;
    node.key = k + 1;
    node.position = {1.0 * (k % m), 1.0 * (k / m % m), 1.0 * (k / m / m)};
    at.push_back(nodes.InsertNU(node));
  }
  for (int k = 0; k < n * n * n; ++k) {
    const int a = k % n + m * (k / n % n + m * (k / n / n));
    tagTElem element;
    element.key = k + 1;
    element.type = element::kHex8;
    for (const int place : {a, a + 1, a + 1 + m, a + m}) {
      element.nodes.Add(at[static_cast<std::size_t>(place)]);
    }
    for (int i = 0; i < 4; ++i) {
      const int place = std::array{a, a + 1, a + 1 + m, a + m}[static_cast<std::size_t>(i)] + m * m;
      element.nodes.Add(at[static_cast<std::size_t>(place)]);
    }
    elements.InsertNU(element);
  }
}

TEST(PackTest, NumbersComeBackWhateverTheirStrideAndSign) {
  const std::vector<std::int32_t> values{5, -7, 2147483647, -2147483647 - 1, 0, 12, 12};
  for (const int stride : {1, 2, 3, 9}) {
    viewer::Pack pack;
    pack.Integers("a", values, stride);
    pack.Integers("none", {});
    const ReadPack read(pack.Finish());
    EXPECT_EQ(read.Integers("a"), values) << stride;
    EXPECT_TRUE(read.Integers("none").empty());
  }
}

TEST(PageDataTest, SurfaceOfACubeIsClosedAndSeenNodesComeFirst) {
  CQXDBSession session(host::SetUpModel);
  AddCube(session, 6);
  const viewer::PageData data(session);
  EXPECT_EQ(data.Surface().FaceCount(), 6u * 36);
  const ReadPack base(data.Base({}));
  const auto nodes = base.Integers("face_node4");
  ASSERT_EQ(nodes.size(), 4u * 6 * 36);
  // Closed: each edge is passed once either way.
  std::map<std::pair<int, int>, int> edges;
  for (std::size_t f = 0; f < nodes.size(); f += 4) {
    for (std::size_t i = 0; i < 4; ++i) ++edges[{nodes[f + i], nodes[f + (i + 1) % 4]}];
  }
  for (const auto& [edge, count] : edges) {
    EXPECT_EQ(count, 1);
    EXPECT_TRUE(edges.count({edge.second, edge.first}));
  }
  const int seen = base.text["seen_nodes"].GetInt();
  EXPECT_EQ(seen, 343 - 125);
  EXPECT_LT(*std::max_element(nodes.begin(), nodes.end()), seen);
  EXPECT_EQ(base.Integers("node_key").size(), static_cast<std::size_t>(seen));
  const ReadPack volume(data.Volume());
  EXPECT_EQ(volume.Integers("node_key").size(), 125u);
  EXPECT_EQ(volume.Integers("solid_element8").size(), 216u);
}

TEST(PageDataTest, WhatDoesNotFitIsLeftOutAndTold) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double far : {1e300, -1.7e308, 1e39, 1e20, 1e9, kInfinity, std::nan("")}) {
    SCOPED_TRACE(far);
    CQXDBSession session(host::SetUpModel);
    AddCube(session, 3);
    auto& nodes = Pool<tagTNode>(session);
    // A corner of element 1, and one that no element has.
    tagTNode corner = nodes.GetAtNU(nodes.Find(1));
    corner.position.y = far;
    nodes.SetAtNU(nodes.Find(1), corner);
    corner.key = 1000;
    nodes.InsertNU(corner);
    // Nor does an element without nodes show anywhere.
    tagTElem special;
    special.key = 1000;
    special.type = 46;
    Pool<tagTElem>(session).InsertNU(special);
    const viewer::PageData data(session);
    const ReadPack base(data.Base({}));
    EXPECT_EQ(base.text["left_out_elements"].GetInt(), 2);
    EXPECT_EQ(base.text["left_out_nodes"].GetInt(), 2);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(base.text["origin"][static_cast<unsigned>(i)].GetDouble(), 1.5);
    }
    EXPECT_TRUE(base.Integers("lone_node").empty());
    const auto at = base.Floats("node_position");
    const auto faces = base.Integers("face_node4");
    EXPECT_EQ(faces.size() / 4, 54u) << "three faces go, their neighbours' come";
    for (const std::int32_t n : faces) {
      for (int i = 0; i < 3; ++i) EXPECT_LE(std::abs(at[static_cast<std::size_t>(3 * n + i)]), 1.5);
    }
    const auto middles = ReadPack(data.Values("y")).Floats("values");
    EXPECT_TRUE(std::isnan(middles[0]));
    EXPECT_EQ(std::count_if(middles.begin(), middles.end(), [](float v) { return v < 3; }), 26);
    const ReadPack findings(data.Findings());
    for (const auto& finding : findings.text["findings"].GetArray()) {
      EXPECT_NE(finding["count"].GetInt(), 65) << "all nodes are one point to a huge tolerance";
    }
  }
}

TEST(PageDataTest, ScalesOfAllSizesFit) {
  for (const double scale : {1e-9, 1e6, 1e15}) {
    CQXDBSession session(host::SetUpModel);
    AddCube(session, 2);
    auto& nodes = Pool<tagTNode>(session);
    for (ITR at = nodes.GetHeadPosition(); at; nodes.Next(at)) {
      tagTNode node = nodes.GetAtNU(at);
      node.position = (scale * Vector3(node.position)).As<decltype(node.position)>();
      nodes.SetAtNU(at, node);
    }
    const ReadPack base(viewer::PageData(session).Base({}));
    EXPECT_EQ(base.text["left_out_nodes"].GetInt(), 0) << scale;
  }
}

TEST(PageDataTest, SolidsOnOneSideOfAFaceDoNotHideIt) {
  struct Case {
    const char* what;
    std::vector<std::array<int, 8>> more;  ///< hexahedra beside one on nodes 1 to 8; by node
    std::size_t faces;
  };
  // Nodes 1 to 12: a column of two boxes; 13 to 16 another lid, half way up the upper one.
  const std::array<int, 8> low{1, 2, 3, 4, 5, 6, 7, 8}, high{5, 6, 7, 8, 9, 10, 11, 12},
      half{5, 6, 7, 8, 13, 14, 15, 16}, low_inverted{5, 6, 7, 8, 1, 2, 3, 4},
      high_inverted{9, 10, 11, 12, 5, 6, 7, 8};
  for (const Case& each : {Case{"alone", {}, 6},
                           {"a neighbour", {high}, 10},
                           {"a duplicate", {low}, 6},
                           {"two of them", {low, low}, 6},
                           {"one that is inside out", {low_inverted}, 6},
                           {"a neighbour that is inside out", {high_inverted}, 10},
                           {"both twice", {high, low, high}, 10},
                           {"a neighbour and one within it", {high, half}, 15}}) {
    SCOPED_TRACE(each.what);
    CQXDBSession session(host::SetUpModel);
    std::vector<ITR> nodes;
    for (int k = 0; k < 16; ++k) {
      tagTNode node;
      node.key = k + 1;
      const double z = k < 12 ? k / 4 : 1.5;
      node.position = {k % 4 == 1 || k % 4 == 2 ? 1.0 : 0.0, k % 4 > 1 ? 1.0 : 0.0, z};
      nodes.push_back(Pool<tagTNode>(session).InsertNU(node));
    }
    auto all = each.more;
    all.insert(all.begin(), low);
    for (std::size_t e = 0; e < all.size(); ++e) {
      tagTElem element;
      element.key = static_cast<Key>(e + 1);
      element.type = element::kHex8;
      for (const int n : all[e]) element.nodes.Add(nodes[static_cast<std::size_t>(n - 1)]);
      Pool<tagTElem>(session).InsertNU(element);
    }
    const MeshSurface surface = SurfaceOf(DenseMesh(session));
    EXPECT_EQ(surface.FaceCount(), each.faces);
    // Of coincident ones the last is seen, which is the one that is found as a duplicate.
    if (each.faces == 6) {
      for (const std::uint32_t e : surface.faces[1].elements) EXPECT_EQ(e + 1, all.size());
    }
  }
}

TEST(PageDataTest, ACornerTakesAtMostTwelveBytes) {
  CQXDBSession session(host::SetUpModel);
  AddCube(session, 20);
  const viewer::PageData data(session);
  // All of it, names and keys of every element included.
  EXPECT_LT(data.Base({}).size(), 12 * data.Surface().CornerCount());
}

TEST(FieldsTest, AreFoundByKeyNameAndComponent) {
  CQXDBSession session(host::SetUpModel);
  AddCube(session, 2);
  auto& fields = Pool<tagTField>(session);
  tagTField moved;  // twice the position of a node, at two steps
  moved.name.Set(u"moved");
  moved.components = 3;
  for (const int step : {1, 2}) {
    moved.key = step;
    moved.step = step;
    for (ITR at = Pool<tagTNode>(session).GetHeadPosition(); at;) {
      const ITR node = at;
      const tagTNode& n = Pool<tagTNode>(session).GetNextNU(at);
      if (n.key == 27) continue;  // one without
      for (const double c : {n.position.x, n.position.y, n.position.z}) {
        tagTNodeValue value;
        value.value = 2 * step * c;
        value.target = node;
        moved.node_values.Add(value);
      }
    }
    fields.InsertNU(moved);
    moved.node_values.RemoveAll();
  }
  tagTField stress;  // at the nodes of one element
  stress.key = 7;
  stress.name.Set(u"a:b");
  stress.place = tagTField::kElementNodes;
  for (const double value : {1.0, 2.0, 6.0}) {
    tagTElemValue entry;
    entry.value = value;
    entry.target = Pool<tagTElem>(session).Find(3);
    stress.element_values.Add(entry);
  }
  fields.InsertNU(stress);

  const DenseMesh mesh(session);
  struct Case {
    const char* name;
    std::uint32_t node;  // none where there are no values by node
    double value;
  };
  constexpr std::uint32_t kNone = ~0u;
  // Node 26 (number 25) stands at 1, 2, 2.
  for (const Case& each : {Case{"field:1", 25, 6},
                           {"field:1:2", 25, 4},
                           {"field:2:1", 25, 4},
                           {"field:moved", 25, 12},
                           {"field:moved:3", 25, 8},
                           {"field:a:b", kNone, 3},
                           {"field:7", kNone, 3}}) {
    SCOPED_TRACE(each.name);
    const auto found = viewer::FindField(session, mesh, each.name);
    ASSERT_TRUE(found);
    ASSERT_EQ(found->elements.size(), 8u);
    if (each.node != kNone) {
      EXPECT_FLOAT_EQ(found->nodes[each.node], static_cast<float>(each.value));
      EXPECT_TRUE(std::isnan(found->nodes[26]));
      EXPECT_TRUE(std::isnan(found->elements[7])) << "its last node has no value";
      EXPECT_FALSE(std::isnan(found->elements[0]));
    } else {
      EXPECT_TRUE(found->nodes.empty());
      EXPECT_FLOAT_EQ(found->elements[2], static_cast<float>(each.value));
      EXPECT_TRUE(std::isnan(found->elements[3]));
    }
  }
  for (const char* name : {"field:", "field:9", "field:none", "field:1:4", "field:1:-1",
                           "field:7:0", "moved", "field:moved:x"}) {
    EXPECT_FALSE(viewer::FindField(session, mesh, name)) << name;
  }
  EXPECT_EQ(viewer::FieldNames(session).size(), 4u + 4 + 1);
  for (const std::string& name : viewer::FieldNames(session)) {
    EXPECT_TRUE(viewer::FindField(session, mesh, name)) << name;
  }
}

TEST(EditsTest, PreviewChangesNothingAndTellsWhatTheEditDoes) {
  struct Case {
    const char* request;
    std::map<std::string, std::size_t> lists;  ///< of the preview, those that are not empty
  };
  const Case cases[] = {
      {R"({"edit":"delete","records":{"elem":[1,2]}})", {{"element_removed", 2}}},
      {R"({"edit":"delete","records":{"node":[1]}})",
       {{"element_removed", 1}, {"node_removed", 1}}},
      // Node 64 goes with its element, the 27th.
      {R"({"edit":"delete","records":{"elem":[1],"node":[64]}})",
       {{"element_removed", 2}, {"node_removed", 1}}},
      {R"({"edit":"move","nodes":[1,2,3],"by":[0,0,0.5]})", {{"node_changed", 3}}},
      {R"({"edit":"set","name":"two","elements":[1,2],"nodes":[]})", {}},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.request);
    CQXDBSession session(host::SetUpModel);
    AddCube(session, 3);
    const std::uint64_t before = session.StateHash();
    const auto preview = viewer::PreviewEdit(session, each.request, {});
    ASSERT_TRUE(preview) << preview.Error().Line();
    EXPECT_EQ(session.StateHash(), before);
    ASSERT_TRUE(viewer::ApplyEdit(session, each.request, {}));
    EXPECT_NE(session.StateHash(), before);
    const std::string done = viewer::LastChanges(session);
    for (const std::string& pack : {*preview, done}) {
      const ReadPack read(pack);
      for (const char* list : {"element_added", "element_removed", "element_changed", "node_added",
                               "node_removed", "node_changed"}) {
        const auto expected = each.lists.find(list);
        EXPECT_EQ(read.Integers(list).size(), expected == each.lists.end() ? 0 : expected->second)
            << list;
      }
    }
    ASSERT_TRUE(viewer::ApplyEdit(session, R"({"edit":"undo"})", {}));
    EXPECT_EQ(session.StateHash(), before);
  }
}

TEST(EditsTest, NothingIsTurnedUnasked) {
  CQXDBSession session(host::SetUpModel);
  AddCube(session, 2);
  tagTElem spring;
  spring.key = 900;
  spring.type = 31;
  spring.nodes = {Pool<tagTNode>(session).Find(1), Pool<tagTNode>(session).Find(2)};
  Pool<tagTElem>(session).InsertNU(spring);
  tagTSprop property;
  property.key = 900;
  property.csys_type = 1;  // by its vector
  property.reference_vector = {0.3, 0.4, 0.5};
  Pool<tagTSprop>(session).InsertNU(property);
  const std::string request = R"({"edit":"delete","records":{"sprop":[900]})";
  const auto preview = viewer::PreviewEdit(session, request + "}", {});
  ASSERT_TRUE(preview) << preview.Error().Line();
  EXPECT_EQ(ReadPack(*preview).Integers("element_turned").size(), 1u);
  EXPECT_FALSE(viewer::ApplyEdit(session, request + "}", {}));
  EXPECT_FALSE(session.CanUndo());
  EXPECT_TRUE(viewer::ApplyEdit(session, request + R"(,"turn":true})", {}));
}

TEST(EditsTest, RequestsThatMakeNoSenseAreRefusedAndChangeNothing) {
  CQXDBSession session(host::SetUpModel);
  AddCube(session, 2);
  const std::uint64_t before = session.StateHash();
  for (const char* request :
       {"", "[]", "{", "{}", R"({"edit":7})", R"({"edit":"delete"})",
        R"({"edit":"delete","records":{"nothing":[1]}})",
        R"({"edit":"delete","records":{"elem":[]}})",
        R"({"edit":"delete","records":{"elem":[1,99]}})",
        R"({"edit":"delete","records":{"elem":["1"]}})",
        R"({"edit":"delete","records":{"elem":1}})", R"({"edit":"move","nodes":[1],"by":[1,2]})",
        R"({"edit":"move","nodes":[1],"by":[1,2,"3"]})",
        R"({"edit":"move","nodes":[1],"by":[1e308,1e308,1e308],"by":[1e309,0,0]})",
        R"({"edit":"move","nodes":[1],"by":[0,1.7e308,0]})",
        R"({"edit":"set","name":"","elements":[1]})", R"({"edit":"fix","merge_tolerance":-1})",
        R"({"edit":"undo"})", R"({"edit":"redo"})"}) {
    EXPECT_FALSE(viewer::ApplyEdit(session, request, {})) << request;
    EXPECT_EQ(session.StateHash(), before) << request;
  }
}

TEST(SourceTest, LooksAtThePastWhileThePresentStays) {
  const ScratchFolder folder;
  const std::string path = folder.Path("cube.qxm");
  {
    CQXDocBase document(host::SetUpModel);
    AddCube(*document.GetDBSession(), 3);
    ASSERT_TRUE(document.SaveAs(path));
  }
  auto source = viewer::Source::Open(path, true, {});
  ASSERT_TRUE(source) << source.Error().Line();
  for (const char* keys : {"[1]", "[2,3]"}) {
    const std::string request = std::string(R"({"edit":"delete","records":{"elem":)") + keys + "}}";
    ASSERT_TRUE((*source)->Edit(request));
  }
  const std::size_t expected[] = {27, 26, 24};
  for (const int step : {0, 2, 1, 2, 0}) {
    const auto base = (*source)->Get("base", step);
    ASSERT_TRUE(base) << base.Error().Line();
    EXPECT_EQ(ReadPack(*base).Integers("element_key").size(), expected[step]) << step;
  }
  EXPECT_FALSE((*source)->Get("base", 3));
  EXPECT_FALSE((*source)->Get("base", -2));
  EXPECT_EQ(ReadPack(*(*source)->Get("changes", 2)).Integers("element_removed"),
            (std::vector<std::int32_t>{2, 3}));
  EXPECT_EQ((*source)->StepsDone(), 2u);
  // Another looks on, and sees what is done meanwhile.
  auto other = viewer::Source::Open(path, false, {});
  ASSERT_TRUE(other);
  ASSERT_TRUE((*source)->Edit(R"({"edit":"undo"})"));
  EXPECT_TRUE((*other)->Follow());
  EXPECT_FALSE((*other)->Follow());
  EXPECT_EQ(ReadPack(*(*other)->Get("base")).Integers("element_key").size(), 26u);
  EXPECT_FALSE((*other)->Edit(R"({"edit":"undo"})"));
}

}  // namespace
}  // namespace qx
