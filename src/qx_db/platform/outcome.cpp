#include "qx_db/platform/outcome.h"

#include "qx_db/platform/plain_text.h"

namespace qx {

std::string Failure::Line() const {
  std::string line;
  for (const std::string* part : {&file, &place, &what}) {
    if (part->empty()) continue;
    if (!line.empty()) line += ": ";
    line += *part;
  }
  if (!remedy.empty()) line += "; " + remedy;
  return OneLine(line);  // whatever a file name or a quoted text contains
}

}  // namespace qx
