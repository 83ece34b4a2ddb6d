// Nastran decks from outside: whatever the bytes, a deck is sound and makes a sound model, or is
// refused with a reason.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "exchange/nastran/nas_reader.h"
#include "fuzz/sound_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const qx::exchange::NasText text(std::string(reinterpret_cast<const char*>(data), size), "input");
  std::vector<qx::Failure> faults;
  const auto deck = qx::exchange::ParseNastran(text, "input", faults);
  if (deck ? !qx::exchange::CheckMesh(*deck, "input") : deck.Error().what.empty()) std::abort();
  if (deck) MustMakeASoundModel(*deck);
  return 0;
}
