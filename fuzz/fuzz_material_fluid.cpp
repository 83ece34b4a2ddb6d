// Any bytes as a keyword file of fluids: refused with a full failure, or as many materials as there
// is room for.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "qx_db/material/fluid_library.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto library = qx::ParseFluidFile(bytes, "input");
  if (!library) {
    if (library.Error().what.empty() || library.Error().place.empty()) std::abort();
    return 0;
  }
  if (library->materials.size() > size / 160 || library->numbering_offset < 1) std::abort();
  return 0;
}
