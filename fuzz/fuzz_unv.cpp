// Any bytes as a universal file: refused with a full failure, or a mesh that stands its check and
// makes a sound model.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "exchange/unv/unv_reader.h"
#include "fuzz/sound_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::vector<qx::Failure> faults;
  const auto deck = qx::exchange::ParseUnv(bytes, "input", {}, faults);
  if (deck ? !qx::exchange::CheckMesh(*deck, "input") : deck.Error().what.empty()) std::abort();
  if (deck) MustMakeASoundModel(*deck);
  return 0;
}
