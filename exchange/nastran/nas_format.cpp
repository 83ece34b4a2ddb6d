#include "exchange/nastran/nas_format.h"

#include <algorithm>

#include "qx_db/platform/text.h"

#include "exchange/deck_text.h"
#include "exchange/nastran/nas_reader.h"
#include "exchange/nastran/nas_rules.h"
#include "exchange/nastran/nas_writer.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".bdf", ".dat", ".nas", ".blk"};

/// "SET 5 = 1": a deck may list more in sets than is looked at here, without anything before them.
bool IsSet(std::string_view line) {
  if (!line.starts_with("SET ")) return false;
  line.remove_prefix(4);
  const std::size_t number = line.find_first_not_of(' ');
  const std::size_t behind = line.find_first_not_of("0123456789", number);
  const std::size_t equals = line.find_first_not_of(' ', behind);
  return number != behind && equals < line.size() && line[equals] == '=';
}

/// A deck begins its bulk data or its executive control, includes a file, or is cards from the
/// start: a known name at the beginning of a line, and a field behind it.
bool LooksLike(std::string_view head) {
  return AnyLine(head, [](std::string_view whole, bool) {
    const std::string line = AsciiUpper(whole);
    if (line.starts_with("BEGIN BULK") || line.starts_with("INCLUDE '")) return true;
    if (IsSet(line)) return true;
    const std::size_t stop = std::min(line.find_first_of(" ,*\t\r"), line.size());
    const std::string_view name = std::string_view(line).substr(0, stop);
    if (name == "CEND" && line.find_first_not_of(" \t\r", stop) == std::string::npos) return true;
    const std::size_t field = line.find_first_not_of(" ,*\t\r", stop);
    const bool has_field = field != std::string::npos && stop < 9 && line.size() - stop > 1;
    // Words of a text stand behind one blank; fields behind the eighth column, a comma or a tab.
    return has_field && NasTellsADeck(name) && (field >= 8 || line[stop] != ' ');
  });
}

/// Nothing but remarks, blank lines and files to include.
bool MayBe(std::string_view head) {
  bool says_so = false;
  const bool has_more = AnyLine(head, [&](std::string_view whole, bool is_cut) {
    const std::string line = AsciiUpper(whole);
    const std::size_t start = line.find_first_not_of(" \t\r");
    const bool is_remark = start != std::string::npos && line[start] == '$';
    if (start == std::string::npos || (!is_remark && is_cut)) return false;
    says_so = says_so || is_remark || line.starts_with("INCLUDE ");
    return !is_remark && !line.starts_with("INCLUDE ");
  });
  return says_so && !has_more;
}

bool IsOwn(const std::string& path) { return IsMarkedDeck("$", path); }

}  // namespace

Format NastranFormat() {
  Format format;
  format.name = "nastran";
  format.title = "Nastran bulk data";
  format.extensions = kExtensions;
  format.capabilities = capability::kElements | capability::kSets | capability::kSystems |
                        capability::kProperties | capability::kCarried;
  format.looks_like = LooksLike;
  format.may_be = MayBe;
  format.is_own = IsOwn;
  format.read = ReadNastran;
  format.write = WriteNastran;
  format.tell_text = TellNasText;
  return format;
}

}  // namespace qx::exchange
