// Laws of every format in the registry, over random meshes of every kind of element: what it says
// that it keeps comes back, what does not come back is told, and after one round nothing changes.

#include <cmath>
#include <gtest/gtest.h>
#include <map>

#include "qx_db/app/mesh_util.h"
#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "exchange/transfer.h"
#include "host/session.h"
#include "mesh_measure.h"
#include "random_deck.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

/// A format and one choice of each of its options.
struct Way {
  const Format* format;
  OptionValues values;
  friend std::ostream& operator<<(std::ostream& out, const Way& way) {
    out << way.format->name;
    for (const auto& [name, value] : way.values) out << " " << name << "=" << value;
    return out;
  }
};

std::vector<Way> AllWays() {
  std::vector<Way> ways;
  for (const Format& format : Formats()) {
    if (!format.write || !format.read) continue;
    std::vector<OptionValues> all(1);
    for (const FormatOption& option : format.write_options) {
      std::vector<OptionValues> longer;
      std::string_view values = option.values;
      while (!values.empty()) {
        const std::size_t end = std::min(values.find(", "), values.size());
        for (OptionValues chosen : all) {
          chosen[std::string(option.name)] = values.substr(0, end);
          longer.push_back(std::move(chosen));
        }
        values.remove_prefix(std::min(end + 2, values.size()));
      }
      all = std::move(longer);
    }
    for (OptionValues& values : all) ways.push_back({&format, std::move(values)});
  }
  return ways;
}

class EveryWay : public testing::TestWithParam<Way> {
 protected:
  void Make(CQXDBSession& session, unsigned seed) {
    LossReport losses;
    const UnitSystem mm = *ParseUnits("mm,N,ton", session.Units().Current());
    session.Units().SetModel(mm);
    session.Units().SetCurrent(mm);
    ASSERT_EQ(AddDeck(session, sample::RandomDeck(seed), "random", losses).Line(), "");
    ASSERT_EQ(losses.Lines(), std::vector<std::string>());
  }
  std::string Export(CQXDBSession& session, const char* name, LossReport& report) {
    const std::string path = folder_.Path(name);
    ExportOptions options;
    options.format = GetParam().format;
    options.write.values = GetParam().values;
    EXPECT_EQ(ExportFile(session, path, options, report).Line(), "");
    return path;
  }
  void Import(const std::string& path, CQXDBSession& session, LossReport& report) {
    ImportOptions options;
    options.set_model_units = true;
    const bool keeps_units = GetParam().format->capabilities & capability::kUnits;
    if (!keeps_units) options.units = "mm,N,ton";
    EXPECT_EQ(ImportFile(session, path, options, report).Line(), "");
    EXPECT_EQ(session.Validate(), "");
  }
  bool Keeps(unsigned what) const { return (GetParam().format->capabilities & what) == what; }

  const ScratchFolder folder_;
};

INSTANTIATE_TEST_SUITE_P(All, EveryWay, testing::ValuesIn(AllWays()), [](const auto& test) {
  return sample::TestName(testing::PrintToString(test.param));
});

// ---- what a model says, comparable
// ----------------------------------------------------------------

using Numbers = std::vector<double>;

std::map<Key, Numbers> NodesOf(const Deck& deck) {
  std::map<Key, Numbers> nodes;
  for (std::size_t i = 0; i < deck.node_keys.size(); ++i) {
    const double* at = &deck.coordinates[3 * i];
    nodes[deck.node_keys[i]] = {at[0], at[1], at[2]};
  }
  return nodes;
}

using Elements = std::map<Key, std::pair<std::int32_t, std::vector<Key>>>;
Elements ElementsOf(const Deck& deck) {
  Elements elements;
  for (std::size_t i = 0; i < deck.elements.size(); ++i) {
    const auto first =
        deck.connectivity.begin() + static_cast<std::ptrdiff_t>(deck.elements[i].first);
    const auto count = static_cast<std::ptrdiff_t>(deck.NodesOf(i));
    elements[deck.elements[i].key] = {deck.elements[i].type, {first, first + count}};
  }
  return elements;
}

using Members = std::pair<std::set<Key>, std::set<Key>>;
std::multimap<std::string, Members> SetsOf(const Deck& deck) {
  std::multimap<std::string, Members> sets;
  for (const Mesh::Group& group : deck.groups) {
    sets.emplace(group.name, Members{{group.elements.begin(), group.elements.end()},
                                     {group.nodes.begin(), group.nodes.end()}});
  }
  return sets;
}

/// What each element is made of.
std::map<Key, Numbers> SectionsOf(const Deck& deck) {
  std::map<Key, const tagTProp*> properties;
  std::map<Key, const tagTMatl*> materials;
  for (const tagTProp& property : deck.Of<tagTProp>()) properties[property.key] = &property;
  for (const tagTMatl& material : deck.Of<tagTMatl>()) materials[material.key] = &material;
  std::map<Key, Numbers> sections;
  for (const Mesh::Element& element : deck.elements) {
    const auto found = properties.find(element.property);
    if (found == properties.end()) continue;
    const tagTProp& p = *found->second;
    Numbers& section = sections[element.key] = {double(p.type), p.thickness, p.area};
    const auto material = materials.find(static_cast<Key>(ITR{p.material}));
    if (material == materials.end()) continue;
    const tagTMatl& m = *material->second;
    section.insert(section.end(), {m.elastic_modulus, m.poisson_ratio, m.density});
  }
  return sections;
}

/// Numbers of a field by name and place, each under the key of its target.
std::map<std::string, std::map<Key, Numbers>> FieldsOf(const Deck& deck) {
  std::map<std::string, std::map<Key, Numbers>> fields;
  for (const tagTField& field : deck.Of<tagTField>()) {
    auto& values = fields[Utf8(field.name.View())];
    for (const auto& v : field.node_values)
      values[static_cast<Key>(ITR{v.target})].push_back(v.value);
    for (const auto& v : field.element_values) {
      values[static_cast<Key>(ITR{v.target})].push_back(v.value);
    }
  }
  return fields;
}

/// `may_be_fewer`: the end of the expected numbers may be missing.
void ExpectNear(const std::map<Key, Numbers>& found, const std::map<Key, Numbers>& expected,
                const char* what, bool may_be_fewer = false) {
  for (const auto& [key, numbers] : found) {
    const auto at = expected.find(key);
    ASSERT_NE(at, expected.end()) << what << " " << key;
    if (!may_be_fewer) {
      ASSERT_EQ(numbers.size(), at->second.size()) << what << " " << key;
    }
    ASSERT_LE(numbers.size(), at->second.size()) << what << " " << key;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      const double tolerance = 1e-12 * std::max(1.0, std::abs(at->second[i]));
      ASSERT_NEAR(numbers[i], at->second[i], tolerance) << what << " " << key << " number " << i;
    }
  }
}

std::uint64_t CountOf(const LossReport& report, const char* text) {
  std::uint64_t count = 0;
  for (const Loss& loss : report.entries) {
    if (loss.what.find(text) != std::string::npos) count += loss.count;
  }
  return count;
}

std::string Told(const LossReport& report) {
  std::string text;
  for (const std::string& line : report.Lines()) text += line + "\n";
  return text;
}

/// Lengths, areas and volumes are those of the elements that came through.
void ExpectSizes(const Deck& deck, const std::map<Key, Numbers>& nodes, const Elements& expected) {
  for (const auto& entry : ElementsOf(deck)) {
    const Key key = entry.first;
    const auto& element = entry.second;
    if (element.first == element::kPyramid5 || element.first == element::kPyramid13) continue;
    const auto size = [&](const std::vector<Key>& of) {
      std::vector<sample::Point> points;
      for (const Key node : of) {
        const Numbers& p = nodes.at(node);
        points.push_back({p[0], p[1], p[2]});
      }
      return measure::Size(element.first, points);
    };
    const double own = size(element.second);
    EXPECT_NEAR(own, size(expected.at(key).second), 1e-9 * std::abs(own)) << key;
    if (element.first != element::kPoint) {
      EXPECT_GT(own, 0) << key;
    }
  }
}

// ---- the laws
// -------------------------------------------------------------------------------------

TEST_P(EveryWay, KeepsWhatItSaysAndTellsOfTheRest) {
  if (Keeps(capability::kSurface)) GTEST_SKIP() << "faces alone are kept: see surface_test.cpp";
  for (unsigned seed = 1; seed <= 3; ++seed) {
    SCOPED_TRACE(seed);
    CQXDBSession model(host::SetUpModel);
    Make(model, seed);
    const Deck before = DeckOf(model);
    LossReport out;
    const std::string path = Export(model, "once", out);
    CQXDBSession back(host::SetUpModel);
    LossReport in;
    Import(path, back, in);
    const Deck after = DeckOf(back);
    SCOPED_TRACE(Told(out));

    ExpectNear(NodesOf(after), NodesOf(before), "node");
    EXPECT_EQ(after.node_keys.size(), before.node_keys.size());
    const Elements elements = ElementsOf(after);
    const Elements expected = ElementsOf(before);
    for (const auto& [key, element] : elements) {
      ASSERT_TRUE(expected.contains(key)) << key;
      EXPECT_EQ(element, expected.at(key)) << "element " << key;
    }
    std::uint64_t left_out = 0;
    for (const Loss& loss : out.entries) {
      const bool is_of_elements =
          loss.where.starts_with("element ") || loss.what.starts_with("elements of type");
      if (is_of_elements && !loss.what.starts_with("masses") &&
          loss.what.ends_with("were left out")) {
        left_out += loss.count;
      }
    }
    EXPECT_EQ(elements.size() + left_out, expected.size());
    ExpectSizes(after, NodesOf(after), expected);

    const auto sets = SetsOf(before);
    const auto sets_back = SetsOf(after);
    if (Keeps(capability::kSets)) {
      std::uint64_t other = 0;
      for (const auto& set : sets) {
        const auto [first, last] = sets_back.equal_range(set.first);
        other += std::none_of(first, last, [&](const auto& s) { return s.second == set.second; });
      }
      const std::uint64_t told = CountOf(out, "names of ") + CountOf(out, "names of mesh sets");
      if (other > 0) {
        EXPECT_GE(told, other) << testing::PrintToString(sets_back);
      }
      // Under whatever name, its members are there.
      for (const auto& set : sets) {
        Members still = set.second;
        std::erase_if(still.first, [&](Key key) { return !elements.contains(key); });
        if (still.first.empty() && still.second.empty()) continue;
        EXPECT_TRUE(std::any_of(sets_back.begin(), sets_back.end(), [&](const auto& s) {
          return s.second == still;
        })) << set.first;
      }
    } else {
      EXPECT_EQ(CountOf(out, "mesh sets were left out"), sets.size());
    }
    if (Keeps(capability::kProperties)) {
      const auto sections = SectionsOf(after);
      const bool is_told = CountOf(out, "materials of beams") > 0;
      ExpectNear(sections, SectionsOf(before), "section of element", is_told);
      EXPECT_EQ(sections.size() + left_out + CountOf(out, "propert"), SectionsOf(before).size());
      EXPECT_LE(after.Of<tagTProp>().size(), before.Of<tagTProp>().size());
      EXPECT_LE(after.Of<tagTMatl>().size(), before.Of<tagTMatl>().size());
    } else {
      EXPECT_EQ(CountOf(out, "properties were left out"), before.Of<tagTProp>().size());
      EXPECT_EQ(CountOf(out, "materials were left out"), before.Of<tagTMatl>().size());
    }
    if (Keeps(capability::kSystems)) {
      EXPECT_EQ(after.Of<tagTCord>().size(), before.Of<tagTCord>().size());
    } else {
      EXPECT_EQ(CountOf(out, "coordinate systems were left out"), 1u);
    }
    if (Keeps(capability::kFields)) {
      const auto fields = FieldsOf(before);
      for (const auto& [name, values] : FieldsOf(after)) {
        if (fields.contains(name)) ExpectNear(values, fields.at(name), "value of");
      }
      if (CountOf(out, "fields") == 0) {
        EXPECT_EQ(FieldsOf(after).size(), fields.size());
      }
    } else {
      EXPECT_EQ(CountOf(out, "fields were left out"), 3u);
    }
    if (Keeps(capability::kUnits)) {
      EXPECT_EQ(CountOf(in, "lengths were taken"), 0u);
      EXPECT_EQ(back.Units().Model().index, model.Units().Model().index);
    } else {
      EXPECT_EQ(CountOf(out, "the numbers are in mm,N,ton"), 1u);
    }
  }
}

// A person who is told of a loss is told where it is, and why.
TEST_P(EveryWay, TellsWhereAndWhy) {
  CQXDBSession model(host::SetUpModel);
  Make(model, 4);
  LossReport report;
  Export(model, "told", report);
  for (const Loss& loss : report.entries) {
    EXPECT_FALSE(loss.why.empty()) << loss.what;
    if (loss.kind != Loss::Kind::kAssumed) {
      EXPECT_FALSE(loss.where.empty()) << loss.what;
    }
  }
}

TEST_P(EveryWay, NothingChangesAfterOneRound) {
  CQXDBSession model(host::SetUpModel);
  Make(model, 5);
  LossReport reports[3];
  const std::string once = Export(model, "once", reports[0]);
  CQXDBSession first(host::SetUpModel), second(host::SetUpModel);
  LossReport in;
  Import(once, first, in);
  const std::string twice = Export(first, "twice", reports[1]);
  Import(twice, second, in);
  const std::string thrice = Export(second, "thrice", reports[2]);
  EXPECT_TRUE(*ReadWholeFile(twice) == *ReadWholeFile(thrice)) << twice << " and " << thrice;
  EXPECT_EQ(Told(reports[1]), Told(reports[2]));
  for (const std::uint16_t code : {code::kProp, code::kMatl, code::kCord, code::kMset}) {
    EXPECT_EQ(second.GetDataPool(code)->GetSize(), first.GetDataPool(code)->GetSize()) << code;
  }
}

// Whenever it is told to, it stops: the model and the folder are as they were.
TEST_P(EveryWay, StopsWhenToldTo) {
  CQXDBSession model(host::SetUpModel);
  Make(model, 6);
  LossReport report;
  const std::string path = Export(model, "whole", report);
  ASSERT_TRUE(WriteWholeFile(folder_.Path("whole"), "what was there"));
  const std::uint64_t state = model.StateHash();
  for (int after = 0;; ++after) {
    int asked = 0;
    ExportOptions options;
    options.format = GetParam().format;
    options.write.values = GetParam().values;
    options.write.is_cancelled = [&] { return ++asked > after; };
    const Outcome written = ExportFile(model, path, options, report);
    EXPECT_EQ(model.StateHash(), state);
    if (written) {
      EXPECT_GE(after, 2) << "it is hardly ever asked";
      break;
    }
    EXPECT_NE(written.Line().find("was stopped"), std::string::npos) << written.Line();
    EXPECT_EQ(*ReadWholeFile(path), "what was there");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.Path("")), {}), 1);
  }
  for (int after = 0;; ++after) {
    CQXDBSession empty(host::SetUpModel);
    const std::uint64_t was = empty.StateHash();
    int asked = 0;
    ImportOptions options;
    options.set_model_units = true;
    options.read.is_cancelled = [&] { return ++asked > after; };
    const Outcome read = ImportFile(empty, path, options, report);
    if (read) {
      EXPECT_GE(after, 4) << "it is hardly ever asked";
      ASSERT_TRUE(empty.Undo());
      EXPECT_FALSE(empty.CanUndo()) << "it is one step";
    }
    EXPECT_EQ(empty.GetDataPool(code::kNode)->GetSize(), 0);
    if (!read) {
      EXPECT_EQ(empty.StateHash(), was);
      EXPECT_FALSE(empty.CanUndo());
    }
    if (read) break;
    EXPECT_NE(read.Line().find("was stopped"), std::string::npos) << read.Line();
  }
}

}  // namespace
}  // namespace qx::exchange
