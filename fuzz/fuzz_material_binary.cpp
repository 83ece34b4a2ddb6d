// Any counts and any categories or materials behind the titles of a binary library, structural or
// of particles: refused with a full failure, or a library as large as its file.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "qx_db/material/fluid_library.h"
#include "qx_db/material/structural_library.h"

namespace {

std::string Bytes(std::u16string_view text, std::size_t size) {
  std::string bytes(reinterpret_cast<const char*>(text.data()), 2 * text.size());
  bytes.resize(size);
  return bytes;
}

/// The magic, the first `counts` of the input, title blocks, the rest of the input.
std::string File(std::u16string_view magic, const std::string& input, std::size_t counts,
                 const std::string& titles) {
  const std::size_t head = std::min(counts, input.size());
  std::string bytes = Bytes(magic, 2 * magic.size()) + input.substr(0, head);
  return head == counts ? bytes + titles + input.substr(head) : bytes;
}

qx::BlockReader ReaderOf(const std::string& bytes) {
  return {std::make_unique<std::istringstream>(bytes), bytes.size(), "input"};
}

void CheckFailure(const qx::Failure& failure) {
  if (failure.what.empty() || failure.place.empty()) std::abort();
}

/// Of a strict reader: a library that is read is no longer and no shorter than it says.
const qx::MaterialLint kStrict([](std::int64_t, const std::string&) {}, true);

void TryStructural(const std::string& input) {
  const std::string bytes =
      File(qx::kStructuralMagic, input, 8, std::string(21 * qx::kBlockBytes, '\0'));
  qx::BlockReader lenient = ReaderOf(bytes);
  if (const auto read = qx::ReadStructuralLibrary(lenient); !read) CheckFailure(read.Error());
  qx::BlockReader reader = ReaderOf(bytes);
  const auto library = qx::ReadStructuralLibrary(reader, kStrict);
  if (!library) return CheckFailure(library.Error());
  std::size_t size = 26 + 21 * qx::kBlockBytes;
  for (const qx::MaterialCategory& category : library->categories) {
    size += 516 + category.rows.size() * (512 + 18 * 8);
  }
  if (size != bytes.size()) std::abort();
}

void TryParticles(const std::string& input) {
  std::string titles = Bytes(u"*NAME", qx::kBlockBytes);
  for (const qx::FluidProperty& property : qx::FluidProperties()) {
    titles += Bytes(property.keyword, qx::kBlockBytes);
  }
  const std::string bytes = File(qx::kParticleMagic, input, 12, titles);
  qx::BlockReader lenient = ReaderOf(bytes);
  if (const auto read = qx::ReadParticleLibrary(lenient); !read) CheckFailure(read.Error());
  qx::BlockReader reader = ReaderOf(bytes);
  const auto library = qx::ReadParticleLibrary(reader, kStrict);
  if (!library) return CheckFailure(library.Error());
  const std::size_t size = 46 + 12 + 27 * 512 + library->materials.size() * (512 + 25 * 8);
  if (size != bytes.size()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  TryStructural(input);
  TryParticles(input);
  return 0;
}
