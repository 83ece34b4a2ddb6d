#include "exchange/abaqus/abaqus_format.h"

#include <algorithm>
#include <cctype>

#include "qx_db/platform/text.h"

#include "exchange/abaqus/inp_deck.h"
#include "exchange/abaqus/inp_writer.h"
#include "exchange/deck_text.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".inp"};

constexpr std::string_view kKeywords[] = {
    "HEADING",  "PREPRINT",  "RESTART",          "PARAMETER", "INCLUDE",      "PART",
    "ASSEMBLY", "NODE",      "ELEMENT",          "NSET",      "ELSET",        "NGEN",
    "STEP",     "SURFACE",   "AMPLITUDE",        "MATERIAL",  "SOLIDSECTION", "SHELLSECTION",
    "SYSTEM",   "TRANSFORM", "EQUATION",         "BOUNDARY",  "BEAMSECTION",  "ORIENTATION",
    "NFILL",    "MPC",       "PHYSICALCONSTANTS"};

/// Keywords come before any data, and one of them is of those that decks have before or among the
/// mesh. What begins with *KEYWORD is a deck of another family.
bool LooksLike(std::string_view head) {
  bool has_keyword = false;
  bool is_known = false;
  AnyLine(head, [&](std::string_view line, bool) {
    line.remove_prefix(std::min(line.find_first_not_of(" \t\r"), line.size()));
    if (line.empty() || line.starts_with("**")) return false;
    if (line[0] != '*') return !has_keyword;  // data before any keyword
    std::string keyword = AsciiUpper(line.substr(1, line.find_first_of(",\r") - 1));
    std::erase_if(keyword, [](char c) { return c == ' ' || c == '\t'; });
    has_keyword = true;
    is_known =
        std::find(std::begin(kKeywords), std::end(kKeywords), keyword) != std::end(kKeywords);
    return is_known || keyword == "KEYWORD";
  });
  return is_known;
}

/// A keyword at first, of whatever name, but not those of a format that looks alike; or remarks
/// only, as far as the head goes.
bool MayBe(std::string_view head) {
  bool is_one = false;  // as far as the lines so far tell
  AnyLine(head, [&](std::string_view line, bool) {
    line.remove_prefix(std::min(line.find_first_not_of(" \t\r"), line.size()));
    if (line.empty()) return false;
    if (line.starts_with("**")) {
      is_one = true;
      return false;
    }
    const bool is_keyword = line.size() > 1 && line[0] == '*' && std::isalpha(line[1] & 0x7F) != 0;
    is_one = is_keyword && !AsciiUpper(line.substr(1)).starts_with("KEYWORD");
    return true;
  });
  return is_one;
}

bool IsOwn(const std::string& path) { return IsMarkedDeck(kInpComment, path); }

}  // namespace

Result<Deck> ParseAbaqus(const InpText& text, const std::string& file, const ReadOptions& options,
                         std::vector<Failure>& faults) {
  const Result<InpModel> model = ParseInp(text, file, options, faults);
  if (!model) {
    if (faults.empty()) faults.push_back(model.Error());
    return model.Error();
  }
  const auto tell = [&](double done) {
    if (options.progress) options.progress(done);
  };
  tell(0.65);
  Deck deck = DeckOf(*model);
  tell(0.8);
  CarryText(text, *model, deck);
  tell(0.9);
  if (Outcome checked = CheckMesh(deck, file, &faults); !checked) return checked.Error();
  return deck;
}

Result<Deck> ReadAbaqus(const std::string& path, const ReadOptions& options,
                        std::vector<Failure>& faults) {
  LossReport report;
  const auto text = InpText::Read(path, options, faults, report);
  if (!text) return faults.front();
  Result<Deck> deck = ParseAbaqus(*text, path, options, faults);
  if (deck) deck->report.Append(report);
  if (options.progress) options.progress(1.0);
  return deck;
}

Format AbaqusFormat() {
  Format format;
  format.name = "abaqus";
  format.title = "Abaqus or CalculiX input";
  format.extensions = kExtensions;
  format.capabilities = capability::kElements | capability::kSets | capability::kSystems |
                        capability::kProperties | capability::kCarried;
  format.looks_like = LooksLike;
  format.may_be = MayBe;
  format.is_own = IsOwn;
  format.read = ReadAbaqus;
  format.write = WriteAbaqus;
  return format;
}

}  // namespace qx::exchange
