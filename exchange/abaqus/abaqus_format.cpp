#include "exchange/abaqus/abaqus_format.h"

#include <algorithm>
#include <cctype>

#include "qx_db/platform/text.h"

#include "exchange/abaqus/inp_deck.h"
#include "exchange/abaqus/inp_writer.h"

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
  for (std::size_t at = 0; at < head.size();) {
    const std::size_t end = std::min(head.find('\n', at), head.size());
    std::string_view line = head.substr(at, end - at);
    at = end + 1;
    line.remove_prefix(std::min(line.find_first_not_of(" \t\r"), line.size()));
    if (line.empty() || line.starts_with("**")) continue;
    if (line[0] != '*' && !has_keyword) return false;
    if (line[0] != '*') continue;
    std::string keyword = AsciiUpper(line.substr(1, line.find_first_of(",\r") - 1));
    std::erase_if(keyword, [](char c) { return c == ' ' || c == '\t'; });
    if (keyword == "KEYWORD") return false;
    has_keyword = true;
    if (std::find(std::begin(kKeywords), std::end(kKeywords), keyword) != std::end(kKeywords)) {
      return true;
    }
  }
  return false;
}

/// A keyword at first, of whatever name, but not those of a format that looks alike; or remarks
/// only, as far as the head goes.
bool MayBe(std::string_view head) {
  bool has_remark = false;
  for (std::size_t at = 0; at < head.size();) {
    const std::size_t end = std::min(head.find('\n', at), head.size());
    std::string_view line = head.substr(at, end - at);
    at = end + 1;
    line.remove_prefix(std::min(line.find_first_not_of(" \t\r"), line.size()));
    if (line.empty()) continue;
    if (line.starts_with("**")) {
      has_remark = true;
      continue;
    }
    const bool is_keyword = line.size() > 1 && line[0] == '*' && std::isalpha(line[1] & 0x7F) != 0;
    return is_keyword && !AsciiUpper(line.substr(1)).starts_with("KEYWORD");
  }
  return has_remark;
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
