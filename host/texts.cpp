#include "host/texts.h"

#include <algorithm>

namespace qx::host {
namespace {

// {} stands for an argument, in order.
constexpr TextEntry kTexts[] = {
    {"IDS_QX_TRANS_ADD_ACTIVEELEMSET", "Add active element sets"},
    {"IDS_QX_TRANS_ADD_ECRD", "Add element orientations"},
    {"IDS_QX_TRANS_ADD_ELEM", "Add elements"},
    {"IDS_QX_TRANS_ADD_NODE", "Add nodes"},
    {"IDS_QX_TRANS_DELETE", "Delete"},
    {"IDS_QX_TRANS_READ_GATEWAY", "Read from gateway"},
    {"IDS_QX_TRANS_Import_Mesh", "Import mesh"},
};

}  // namespace

std::span<const TextEntry> EnglishTexts() { return kTexts; }

bool TextCatalogue::Text(std::string_view key, std::string& text) const {
  const auto found = std::find_if(std::begin(kTexts), std::end(kTexts),
                                  [&](const TextEntry& entry) { return entry.key == key; });
  if (found == std::end(kTexts)) return false;
  text = found->text;
  return true;
}

void TextCatalogue::Register() {
  static const TextCatalogue catalogue;
  SetTextSource(&catalogue);
}

}  // namespace qx::host
