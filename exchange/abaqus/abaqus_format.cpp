#include "exchange/abaqus/abaqus_format.h"

#include "qx_db/platform/text.h"

#include "exchange/abaqus/inp_deck.h"
#include "exchange/abaqus/inp_writer.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".inp"};

/// A line begins with one of the keywords that decks begin with.
bool LooksLike(std::string_view head) {
  const std::string upper = "\n" + AsciiUpper(head);
  for (const std::string_view keyword :
       {"\n*HEADING", "\n*NODE", "\n*PART", "\n*ELEMENT", "\n*MATERIAL", "\n*INCLUDE, INPUT"}) {
    const std::size_t at = upper.find(keyword);
    if (at == std::string::npos) continue;
    const std::size_t behind = at + keyword.size();
    if (behind == upper.size()) return true;
    const char next = upper[behind];
    if (next == ',' || next == '\n' || next == '\r' || next == ' ' || next == '=') return true;
  }
  return false;
}

}  // namespace

Result<Deck> ParseAbaqus(const InpText& text, const std::string& file, const ReadOptions& options,
                         std::vector<Failure>& faults) {
  const Result<InpModel> model = ParseInp(text, file, options, faults);
  if (!model) {
    if (faults.empty()) faults.push_back(model.Error());
    return model.Error();
  }
  Deck deck = DeckOf(*model);
  CarryText(text, *model, deck);
  if (Outcome checked = CheckMesh(deck, file); !checked) {
    faults.push_back(checked.Error());
    return checked.Error();
  }
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
  format.read = ReadAbaqus;
  format.write = WriteAbaqus;
  return format;
}

}  // namespace qx::exchange
