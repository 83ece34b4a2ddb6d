#include "exchange/exodus/exodus_format.h"

#include "exchange/exodus/exodus_reader.h"
#include "exchange/exodus/exodus_writer.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".exo", ".e", ".g", ".ex2", ".exii", ".gen"};

/// A netCDF file of either container that names what Exodus files have. That of HDF5 may tell it
/// far behind, so that there the extension decides.
bool LooksLike(std::string_view head) {
  return head.starts_with("CDF") &&
         (head.find("num_dim") != head.npos || head.find("len_string") != head.npos);
}

}  // namespace

Format ExodusFormat() {
  Format format;
  format.name = "exodus";
  format.title = "Exodus II";
  format.extensions = kExtensions;
  format.capabilities =
      capability::kElements | capability::kSets | capability::kFields | capability::kCarried;
  format.looks_like = LooksLike;
  format.read = ReadExodus;
  format.write = WriteExodus;
  return format;
}

}  // namespace qx::exchange
