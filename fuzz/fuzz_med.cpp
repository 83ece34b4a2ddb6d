// A whole HDF5 file with anything in it (h5_text.h) as a MED file: refused with a full failure, or
// a mesh that stands its check and makes a sound model.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "exchange/med/med_reader.h"
#include "fuzz/h5_text.h"
#include "fuzz/sound_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string file =
      qx::fuzz::H5FileOf(std::string_view(reinterpret_cast<const char*>(data), size));
  const auto deck = qx::exchange::ParseMed(file, "input", nullptr, qx::exchange::FirstRead::kNone);
  if (deck ? !qx::exchange::CheckMesh(*deck, "input") : deck.Error().what.empty()) std::abort();
  if (deck) MustMakeASoundModel(*deck);
  return 0;
}
