// Any bytes as a MSH file: refused with a full failure, or a mesh that stands its check and makes a
// sound model.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "exchange/msh/msh_reader.h"
#include "fuzz/sound_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const qx::Result<qx::exchange::Deck> mesh = qx::exchange::ParseMsh(bytes, "input");
  if (mesh ? !qx::exchange::CheckMesh(*mesh, "input") : mesh.Error().what.empty()) std::abort();
  if (mesh) MustMakeASoundModel(*mesh);
  return 0;
}
