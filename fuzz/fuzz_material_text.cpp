// Any bytes as a text table, in each kind of code page: refused with a full failure, or rows of 16
// finite values.

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "qx_db/material/text_table.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  constexpr const char* kPages[] = {"UTF-8", "1252", "932", "949"};
  const qx::CodePage page = *qx::CodePage::Named(kPages[data[0] % 4]);
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const auto lint = [](std::int64_t line, const std::string& why) {
    if (line < 1 || why.empty()) std::abort();
  };
  const auto table = qx::ParseTextTable(bytes, "input", page, lint);
  if (!table) {
    if (table.Error().what.empty() || table.Error().file.empty()) std::abort();
    return 0;
  }
  for (const qx::MaterialCategory& category : *table) {
    for (const qx::MaterialRow& row : category.rows) {
      if (row.values.size() != qx::kTextValues) std::abort();
      for (const double value : row.values) {
        if (!std::isfinite(value)) std::abort();
      }
    }
  }
  return 0;
}
