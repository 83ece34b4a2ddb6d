// What holds of every format in the registry.

#include "exchange/format.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "exchange/deck.h"
#include "exchange/msh/msh_reader.h"
#include "exchange/transfer.h"
#include "host/records.h"
#include "host/session.h"
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
      EXPECT_TRUE(format.is_own(path)) << format.name;
      ++written;
    }
  }
  EXPECT_GT(written, 8);
}

// A deck that somebody wrote, or changed, is nobody's to replace.
TEST(Formats, WhatIsNotOursIsToldFromWhatIs) {
  const ScratchFolder folder;
  const std::string path = folder.Path("deck");
  const std::pair<const char*, const char*> kByHand[] = {
      {"abaqus", "*Heading\n mine\n*Node\n1, 0, 0, 0\n*Element, type=MASS\n1, 1\n"},
      {"nastran", "BEGIN BULK\nGRID,1,,0.,0.,0.\nENDDATA\n"},
      {"msh",
       "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n1\n1 0 0 0\n$EndNodes\n$Elements\n1\n"
       "1 15 2 0 1 1\n$EndElements\n"},
  };
  for (const auto& [name, text] : kByHand) {
    const Format& format = *FindFormat(name);
    std::ofstream(path) << text;
    EXPECT_TRUE(IsOfFormat(format, path)) << name;
    EXPECT_FALSE(format.is_own(path)) << name;
    CQXDBSession session(AddStandardPools);
    LossReport losses;
    ASSERT_EQ(ImportFile(session, path, {}, losses).Line(), "");
    DPoolBase& carried = *session.GetDataPool(code::kCarried);  // a deck made anew
    CTransaction step(&session);
    step.Begin(u"forget the deck");
    while (carried.GetHeadPosition()) ASSERT_TRUE(carried.Remove(carried.GetHeadPosition()));
    ASSERT_TRUE(step.Commit());
    ExportOptions options;
    options.format = &format;
    ASSERT_EQ(ExportFile(session, path, options, losses).Line(), "");
    EXPECT_TRUE(format.is_own(path)) << name;
    if (format.name == "msh") continue;  // nobody writes loads into a mesh
    std::ofstream(path, std::ios::app) << (format.name == "abaqus" ? "** loads\n" : "$ loads\n");
    EXPECT_FALSE(format.is_own(path)) << name;
  }
}

// An extension says nothing of a file: what is in it does.
TEST(Formats, ContentDecides) {
  const ScratchFolder folder;
  const std::pair<const char*, const char*> kForeign[] = {
      {"", "it is empty"},
      {" \n\n", "it is blank"},
      {"solid ground under our feet\n", "text"},
      {"dear reader,\n  GRID is a word, CEND another\n", "text"},
      {"*KEYWORD\n*NODE\n       1  0.0\n", "text"},
      {"{\"a\": 1}", "JSON"},
      {"<html></html>", "XML"},
      {"\x89PNG\r\n\x1a\n", "a picture"},
      {"-1\ndegrees\n0\n", "text"},
  };
  int asked = 0;
  for (const Format& format : Formats()) {
    if (!format.read) continue;
    for (const std::string_view extension : format.extensions) {
      for (const auto& [content, looks] : kForeign) {
        const std::string path = folder.Path("file" + std::string(extension));
        std::ofstream(path, std::ios::binary) << content;
        const auto found = FormatToRead(path);
        ASSERT_FALSE(found) << path << ": " << content;
        const std::string line = found.AsOutcome().Line();
        EXPECT_NE(line.find(looks), std::string::npos) << line;
        EXPECT_NE(line.find(KnownExtensions(true)), std::string::npos) << line;
        ++asked;
      }
    }
  }
  EXPECT_GT(asked, 100);
}

// Decks whose head names no keyword or card that is known, but can be nothing else.
TEST(Formats, HeadsThatDoNotTellAreReadByTheirExtension) {
  const ScratchFolder folder;
  const std::pair<const char*, std::string> kDecks[] = {
      {"remarks.bdf", "$ " + std::string(70000, '-') + "\n$\nGRID,1\n"},
      {"parts.dat", "$ parts\nINCLUDE cells.bdf\n"},
      {"of_a_user.inp", "*User Element, nodes=4\n1, 2\n"},
      {"remarks.inp", "** " + std::string(70000, '-') + "\n*Node\n"},
      {"cut.stl", std::string(80, ' ') + std::string("\2\0\0\0", 4) + std::string(50, 'x')},
  };
  for (const auto& [name, text] : kDecks) {
    const std::string path = folder.Path(name);
    std::ofstream(path, std::ios::binary) << text;
    const auto found = FormatToRead(path);
    EXPECT_TRUE(found) << found.AsOutcome().Line();
  }
}

// A hostile file may have a text of its own for everything that gets lost.
TEST(LossReports, StayShort) {
  LossReport report, other;
  report.Assumed("nothing is known");
  for (int i = 0; i < 5000; ++i) other.Lost(fmt::format("things {} were left out", i), 2);
  report.Append(other);
  report.Append(other);
  EXPECT_LT(report.entries.size(), 300u);
  std::uint64_t all = 0;
  for (const Loss& loss : report.entries) all += loss.kind == Loss::Kind::kLost ? loss.count : 0;
  EXPECT_EQ(all, 20000u);
  EXPECT_EQ(report.Lines()[1], "things 0 were left out: 4");
  EXPECT_TRUE(report.Lines().back().starts_with("and more of other kinds that were lost: "));
}

// A deck that says nothing makes no model.
TEST(Formats, NothingIsNoModel) {
  const ScratchFolder folder;
  for (const auto& [name, text] : {std::pair{"a.inp", "*Heading\nnothing\n"},
                                   std::pair{"a.bdf", "CEND\nBEGIN BULK\nENDDATA\n"}}) {
    const std::string path = folder.Path(name);
    std::ofstream(path) << text;
    CQXDBSession session(AddStandardPools);
    LossReport losses;
    EXPECT_NE(ImportFile(session, path, {}, losses).Line().find("there is nothing in this"),
              std::string::npos);
    EXPECT_FALSE(session.CanUndo());
  }
}

// Records whose keys are taken get others, also where the largest key is in use.
TEST(Decks, FindRoomBelowTheLargestKey) {
  CQXDBSession session(host::SetUpModel);
  auto& properties = Pool<tagTProp>(session);
  Deck deck;
  deck.node_keys = {1};
  deck.coordinates = {0, 0, 0};
  for (const Key key : {1, 2, 2147483647}) {
    tagTProp property;
    property.key = key;
    properties.InsertNU(property);
    if (key != 2) deck.Of<tagTProp>().push_back(property);
  }
  LossReport losses;
  ASSERT_EQ(AddDeck(session, deck, "a", losses).Line(), "");
  EXPECT_EQ(properties.GetSize(), 5);
  EXPECT_EQ(session.Validate(), "");
  for (const Key key : {3, 4}) EXPECT_NE(properties.Find(key), 0u) << key;
}

// What the documentation says of the formats is what the registry says.
TEST(Formats, AreDocumentedAsTheyAre) {
  const std::string page = *ReadWholeFile(std::string(QX_SOURCE_DIR) + "/docs/decks.md");
  for (const Format& format : Formats()) {
    std::string extensions;
    for (const std::string_view extension : format.extensions) {
      extensions += (extensions.empty() ? "`" : ", `") + std::string(extension) + "`";
    }
    const std::string row = "| `" + std::string(format.name) + "` | " + std::string(format.title) +
                            " | " + extensions + " | " + (format.read ? "yes" : "-") + " | " +
                            (format.write ? "yes" : "-") + " | " +
                            CapabilityWords(format.capabilities) + " |\n";
    EXPECT_NE(page.find(row), std::string::npos) << "docs/decks.md lacks the row\n" << row;
  }
}

}  // namespace
}  // namespace qx::exchange
