// Any bytes as a VTK file of pieces and its pieces: refused with a full failure, or a mesh that
// stands its check. An input is the file, a zero byte, and the piece "p.vtu".

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "qx_db/platform/file.h"

#include "exchange/vtk/vtu_reader.h"
#include "fuzz/scratch.h"
#include "fuzz/sound_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qx;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::string& folder = fuzz::Folder();
  const std::size_t end = bytes.find('\0');
  const std::string piece = end == bytes.npos ? "" : bytes.substr(end + 1);
  if (!WriteWholeFile(folder + "/all.pvtu", bytes.substr(0, end)) ||
      !WriteWholeFile(folder + "/p.vtu", piece)) {
    std::abort();
  }
  std::vector<Failure> faults;
  const auto mesh = exchange::ReadVtu(folder + "/all.pvtu", {}, faults);
  if (mesh ? !exchange::CheckMesh(*mesh, "input") : mesh.Error().what.empty() || faults.empty()) {
    std::abort();
  }
  if (mesh) MustMakeASoundModel(*mesh);
  return 0;
}
