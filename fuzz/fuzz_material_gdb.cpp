// Any bytes as a .gdb or .gdbp library: refused with a full failure, or finite values in known
// units.

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "qx_db/material/gdb_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool gdbp = (data[0] & 1) != 0;
  const qx::CodePage page = *qx::CodePage::Named((data[0] & 2) != 0 ? "936" : "1252");
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const auto file = qx::ParseGdbFile(bytes, "input", gdbp, page);
  if (!file) {
    const bool has_place = !file.Error().place.empty() || file.Error().what == "is empty";
    if (file.Error().what.empty() || !has_place) std::abort();
    return 0;
  }
  if (!qx::IsValid(qx::SystemOfFile(file->units))) std::abort();
  for (const qx::GdbMaterial& material : file->materials) {
    for (const double value : material.values) {
      if (!std::isfinite(value)) std::abort();
    }
  }
  return 0;
}
