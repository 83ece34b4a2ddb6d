// Any bytes as a VTK file, XML or legacy: refused with a full failure, or a mesh that stands its
// check and makes a sound model.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "exchange/vtk/vtk_reader.h"
#include "exchange/vtk/vtu_reader.h"
#include "fuzz/sound_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  // Few inputs would get past the first line by themselves.
  const auto legacy = qx::exchange::ParseVtk(
      bytes.starts_with('#') ? bytes : "# vtk DataFile Version 3.0\nx\nASCII\nDATASET " + bytes,
      "input");
  const auto xml = qx::exchange::ParseVtu(bytes, "input");
  for (const auto* mesh : {&legacy, &xml}) {
    if (*mesh ? !qx::exchange::CheckMesh(**mesh, "input") : mesh->Error().what.empty()) {
      std::abort();
    }
    if (*mesh) MustMakeASoundModel(**mesh);
  }
  return 0;
}
