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

/// HDF5 may keep the names that tell far behind.
bool MayBe(std::string_view head) { return head.starts_with("\x89HDF"); }

bool IsOwn(const std::string& path) {
  const Result<std::string> head = HeadOfFile(path);
  return head && LooksLike(*head) && head->find(kExodusOwn) != std::string::npos;
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
  format.may_be = MayBe;
  format.is_own = IsOwn;
  format.read = ReadExodus;
  format.write = WriteExodus;
  return format;
}

}  // namespace qx::exchange
