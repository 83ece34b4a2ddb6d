// Abaqus decks from outside: whatever the bytes, a deck is sound and makes a sound model, or
// is refused with a reason.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "exchange/abaqus/abaqus_format.h"
#include "exchange/abaqus/inp_text.h"
#include "fuzz/sound_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const qx::exchange::InpText text(std::string(reinterpret_cast<const char*>(data), size), "input");
  std::vector<qx::Failure> faults;
  const auto deck = qx::exchange::ParseAbaqus(text, "input", {}, faults);
  if (deck ? !qx::exchange::CheckMesh(*deck, "input") : deck.Error().what.empty()) std::abort();
  if (deck) MustMakeASoundModel(*deck);
  return 0;
}
