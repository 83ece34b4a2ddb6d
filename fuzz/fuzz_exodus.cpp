// Any bytes as an Exodus file: refused with a full failure, or a mesh that stands its check and
// makes a sound model.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "exchange/exodus/exodus_reader.h"
#include "fuzz/sound_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto mesh = qx::exchange::ParseExodus(bytes, "input");
  if (mesh ? !qx::exchange::CheckMesh(*mesh, "input") : mesh.Error().what.empty()) std::abort();
  if (mesh) MustMakeASoundModel(*mesh);
  return 0;
}
