// Every resource key in the code has a text, and every text takes the arguments that it is given.

#include "host/texts.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>

#include "host/session.h"
#include "tests/scratch_folder.h"

namespace qx::host {
namespace {

namespace fs = std::filesystem;

/// The sources that end in the library or in this host, by name.
std::map<std::string, std::string> Sources() {
  std::map<std::string, std::string> sources;
  const fs::path root = QX_SOURCE_DIR;
  for (const char* top : {"src", "adapters", "exchange", "host", "apps"}) {
    if (!fs::exists(root / top)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(root / top)) {
      if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
      std::ifstream in(entry.path());
      sources[fs::relative(entry.path(), root).generic_string()] =
          std::string(std::istreambuf_iterator<char>(in), {});
    }
  }
  return sources;
}

/// The resource keys among the string literals of the sources, each with a source that has it.
std::map<std::string, std::string> KeysInCode() {
  std::map<std::string, std::string> keys;
  const std::regex literal("\"(IDS_[A-Za-z][A-Za-z0-9_]*)\"");
  for (const auto& [name, text] : Sources()) {
    for (std::sregex_iterator at(text.begin(), text.end(), literal), end; at != end; ++at) {
      keys.emplace((*at)[1], name);
    }
  }
  return keys;
}

int Slots(const std::string& text) {
  int slots = 0;
  for (std::size_t at = 0; (at = text.find("{}", at)) != std::string::npos; at += 2) ++slots;
  return slots;
}

/// Entries of a braced list that begins at `open`.
int EntriesOf(const std::string& text, std::size_t open) {
  int depth = 0;
  int entries = text[text.find_first_not_of(" \n", open + 1)] == '}' ? 0 : 1;
  bool quoted = false;
  for (std::size_t at = open; at < text.size(); ++at) {
    if (text[at] == '"' && text[at - 1] != '\\') quoted = !quoted;
    if (quoted) continue;
    if (std::string("({[").find(text[at]) != std::string::npos) ++depth;
    if (std::string(")}]").find(text[at]) != std::string::npos && --depth == 0) return entries;
    if (text[at] == ',' && depth == 1) ++entries;
  }
  return -1;
}

TEST(Texts, TheEnglishFileIsFaultless) {
  std::ifstream in(QX_SOURCE_DIR "/host/texts_en.txt");
  const std::string lines{std::istreambuf_iterator<char>(in), {}};
  const auto parsed = TextCatalogue::Parse(lines, "texts_en.txt");
  ASSERT_TRUE(parsed) << parsed.Error().Line();
  EXPECT_EQ(parsed->Texts(), TextCatalogue::English().Texts()) << "another file is compiled in";
}

/// The names of the steps in which gateway tables are read, made while running.
std::set<std::string> KeysOfTables() {
  const CQXDBSession session(SetUpModel);
  std::set<std::string> keys;
  for (const DPoolBase* pool : session.Pools()) {
    if (pool->GetSchema().Gateway().empty()) continue;
    keys.insert("IDS_QX_TRANS_ADD_" + pool->GetAPIName().ToUtf8());
  }
  return keys;
}

TEST(Texts, EveryKeyInTheCodeHasOneAndNoOtherHas) {
  std::map<std::string, std::string> keys = KeysInCode();
  ASSERT_GT(keys.size(), 20u);
  ASSERT_TRUE(keys.erase("IDS_QX_TRANS_ADD_"));
  for (const std::string& key : KeysOfTables()) keys.emplace(key, "reading a gateway table");
  const auto& texts = TextCatalogue::English().Texts();
  for (const auto& [key, source] : keys) {
    EXPECT_TRUE(texts.contains(key)) << source << " uses " << key << ": add it to texts_en.txt";
  }
  for (const auto& [key, text] : texts) {
    EXPECT_TRUE(keys.contains(key)) << key << " is used nowhere: take it out of texts_en.txt";
    EXPECT_FALSE(text.empty()) << key;
  }
}

TEST(Texts, TakeTheArgumentsThatTheCodeGives) {
  const auto& texts = TextCatalogue::English().Texts();
  const std::regex call("\"(IDS_[A-Za-z][A-Za-z0-9_]*)\"(\\s*,\\s*)\\{");
  const std::regex bare(
      "(qxMsgOut\\([^\"]*|qxText\\(|qxLoadText\\()\"(IDS_[A-Za-z0-9_]+)\"\\s*\\)");
  int seen = 0;
  for (const auto& [name, text] : Sources()) {
    for (std::sregex_iterator at(text.begin(), text.end(), call), end; at != end; ++at) {
      const auto found = texts.find((*at)[1].str());
      if (found == texts.end()) continue;
      const auto open = static_cast<std::size_t>(at->position() + at->length() - 1);
      EXPECT_EQ(Slots(found->second), EntriesOf(text, open)) << name << " " << found->first;
      ++seen;
    }
    for (std::sregex_iterator at(text.begin(), text.end(), bare), end; at != end; ++at) {
      const auto found = texts.find((*at)[2].str());
      if (found == texts.end()) continue;
      EXPECT_EQ(Slots(found->second), 0) << name << " " << found->first;
      ++seen;
    }
  }
  EXPECT_GT(seen, 5);
}

TEST(Texts, ATranslationGoesBeforeTheEnglishOnes) {
  const ScratchFolder folder;
  const std::string path = folder.Path("texts_de.txt");
  std::ofstream(path)
      << "\xEF\xBB\xBF# German\r\n\r\nIDS_QX_TRANS_DELETE = L\xC3\xB6schen = weg\r\n"
         "IDS_QX_TRANS_READ_GATEWAY=Lesen\\nvom Gateway";
  ASSERT_EQ(RegisterTexts(path).Line(), "");
  EXPECT_EQ(qxText("IDS_QX_TRANS_DELETE"), "L\xC3\xB6schen = weg");
  EXPECT_EQ(qxText("IDS_QX_TRANS_READ_GATEWAY"), "Lesen\nvom Gateway");
  EXPECT_EQ(qxText("IDS_QX_TRANS_ADD_NODE"), "Add nodes");
  EXPECT_EQ(qxText("IDS_UNKNOWN", {"7"}), "IDS_UNKNOWN: 7");
  ASSERT_EQ(RegisterTexts().Line(), "");
  EXPECT_EQ(qxText("IDS_QX_TRANS_DELETE"), "Delete");
  SetTextSource(nullptr);
}

TEST(Texts, AFaultyTranslationIsRefusedByLine) {
  struct Case {
    const char* lines;
    const char* place;
  };
  for (const Case& c :
       {Case{"IDS_A = a\nIDS_B b\n", "t.txt: line 2: "},
        Case{"\n\nIDS_A = \xFF\n", "t.txt: line 3: "},
        Case{"IDS_A = a\nIDS_A = b", "t.txt: line 2: "}, Case{"= text", "t.txt: line 1: "},
        Case{"IDS_A-B = x", "t.txt: line 1: "}, Case{"A = x", "t.txt: line 1: "}}) {
    const auto parsed = TextCatalogue::Parse(c.lines, "t.txt");
    ASSERT_FALSE(parsed) << c.lines;
    EXPECT_TRUE(parsed.Error().Line().starts_with(c.place)) << parsed.Error().Line();
  }
  // A text takes the arguments of the one that it translates.
  const auto original = TextCatalogue::Parse("IDS_A = {} of {}\nIDS_B = b", "e.txt");
  ASSERT_TRUE(original);
  for (const auto& [lines, place] :
       {Case{"IDS_B = B\nIDS_A = {}", "t.txt: line 2: "}, Case{"IDS_B = {}", "t.txt: line 1: "},
        Case{"IDS_A = {} aus {}\nIDS_NEW = {}", ""}}) {
    const auto parsed = TextCatalogue::Parse(lines, "t.txt", &*original);
    EXPECT_EQ(parsed ? "" : parsed.Error().Line().substr(0, 15), place) << lines;
  }
  EXPECT_FALSE(RegisterTexts("/nowhere/texts.txt"));
  EXPECT_EQ(qxText("IDS_QX_TRANS_DELETE"), "Delete") << "without its translation";
  SetTextSource(nullptr);
}

}  // namespace
}  // namespace qx::host
