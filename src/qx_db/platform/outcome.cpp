#include "qx_db/platform/outcome.h"

namespace qx {

std::string Failure::Line() const {
  std::string line;
  for (const std::string* part : {&file, &place, &what}) {
    if (part->empty()) continue;
    if (!line.empty()) line += ": ";
    line += *part;
  }
  if (!remedy.empty()) line += "; " + remedy;
  // A message is one line whatever a file name or a quoted text contains.
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
  }
  return line;
}

}  // namespace qx
