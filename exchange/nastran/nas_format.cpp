#include "exchange/nastran/nas_format.h"

#include <algorithm>

#include "qx_db/platform/text.h"

#include "exchange/deck_text.h"
#include "exchange/nastran/nas_reader.h"
#include "exchange/nastran/nas_writer.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".bdf", ".dat", ".nas", ".blk"};

constexpr std::string_view kCards[] = {
    "GRID",   "CORD1R", "CORD2R", "CORD1C", "CORD2C", "CORD1S", "CORD2S", "MAT1",
    "MAT2",   "MAT8",   "MAT9",   "PSHELL", "PCOMP",  "PSOLID", "PBAR",   "PBARL",
    "PBEAM",  "PBEAML", "PROD",   "PBUSH",  "PELAS",  "CQUAD4", "CQUAD8", "CQUADR",
    "CTRIA3", "CTRIA6", "CTRIAR", "CTETRA", "CHEXA",  "CPENTA", "CPYRAM", "CBAR",
    "CBEAM",  "CROD",   "CONROD", "CBUSH",  "CELAS1", "CELAS2", "CONM1",  "CONM2",
    "CSHEAR", "PLOTEL", "RBE2",   "RBE3",   "RBAR",   "SPC",    "SPC1",   "FORCE",
    "MOMENT", "PLOAD4", "MPC",    "GRDSET", "PARAM",  "EIGRL",  "LOAD",   "SET1"};

/// A deck begins its bulk data or its executive control, includes a file, or is cards from the
/// start: a known name at the beginning of a line, and a field behind it.
bool LooksLike(std::string_view head) {
  for (std::size_t at = 0; at < head.size();) {
    const std::size_t end = std::min(head.find('\n', at), head.size());
    const std::string line = AsciiUpper(head.substr(at, end - at));
    at = end + 1;
    if (line.starts_with("BEGIN BULK") || line.starts_with("INCLUDE '")) return true;
    const std::size_t stop = std::min(line.find_first_of(" ,*\t\r"), line.size());
    const std::string_view name = std::string_view(line).substr(0, stop);
    if (name == "CEND" && line.find_first_not_of(" \t\r", stop) == std::string::npos) return true;
    const std::size_t field = line.find_first_not_of(" ,*\t\r", stop);
    const bool has_field = field != std::string::npos && stop < 9 && line.size() - stop > 1;
    const bool is_card = std::find(std::begin(kCards), std::end(kCards), name) != std::end(kCards);
    // Words of a text stand behind one blank; fields behind the eighth column, a comma or a tab.
    if (is_card && has_field && (field >= 8 || line[stop] != ' ')) return true;
  }
  return false;
}

/// Nothing but remarks, blank lines and files to include.
bool MayBe(std::string_view head) {
  bool says_so = false;
  for (std::size_t at = 0; at < head.size();) {
    const std::size_t end = std::min(head.find('\n', at), head.size());
    const std::string line = AsciiUpper(head.substr(at, end - at));
    const bool is_whole = end < head.size();
    at = end + 1;
    const std::size_t start = line.find_first_not_of(" \t\r");
    const bool is_remark = start != std::string::npos && line[start] == '$';
    if (start == std::string::npos || (!is_remark && !is_whole)) continue;
    if (!is_remark && !line.starts_with("INCLUDE ")) return false;
    says_so = true;
  }
  return says_so;
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
