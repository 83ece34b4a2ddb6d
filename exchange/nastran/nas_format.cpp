#include "exchange/nastran/nas_format.h"

#include "qx_db/platform/text.h"

#include "exchange/nastran/nas_reader.h"
#include "exchange/nastran/nas_writer.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".bdf", ".dat", ".nas", ".blk"};

/// A deck begins its bulk data, or is cards from the start.
bool LooksLike(std::string_view head) {
  const std::string upper = AsciiUpper(head);
  return upper.find("BEGIN BULK") != std::string::npos ||
         upper.find("\nGRID") != std::string::npos || upper.starts_with("GRID");
}

}  // namespace

Format NastranFormat() {
  Format format;
  format.name = "nastran";
  format.title = "Nastran bulk data";
  format.extensions = kExtensions;
  format.capabilities = capability::kElements | capability::kSets | capability::kSystems |
                        capability::kProperties | capability::kCarried;
  format.looks_like = LooksLike;
  format.read = ReadNastran;
  format.write = WriteNastran;
  format.tell_text = TellNasText;
  return format;
}

}  // namespace qx::exchange
