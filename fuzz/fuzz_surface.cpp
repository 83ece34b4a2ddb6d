// Any bytes as a file of a surface, whose kind its head tells: refused with a full failure, or
// a mesh that stands its check and makes a sound model, with its points as they are and merged.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "exchange/surface/surface_formats.h"
#include "fuzz/sound_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qx::exchange;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  auto* const parse = bytes.starts_with("ply")                            ? ParsePly
                      : bytes.starts_with("#") || bytes.starts_with("v ") ? ParseObj
                                                                          : ParseStl;
  ReadOptions merged;
  merged.values = {{"points", "merged"}, {"tolerance", "0.1"}};
  for (const ReadOptions& options : {ReadOptions(), merged}) {
    std::vector<qx::Failure> faults;
    const auto deck = parse(bytes, "input", options, faults);
    if (deck ? !CheckMesh(*deck, "input") : deck.Error().what.empty()) std::abort();
    if (deck) MustMakeASoundModel(*deck);
  }
  return 0;
}
