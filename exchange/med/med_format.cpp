#include "exchange/med/med_format.h"

#include "exchange/hdf5/h5_apart.h"
#include "exchange/hdf5/h5_reader.h"
#include "exchange/med/med_reader.h"
#include "exchange/med/med_writer.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".med", ".rmed"};

bool LooksLike(std::string_view head) {
  return head.starts_with("\x89HDF") &&
         (head.find("INFOS_GENERALES") != head.npos || head.find("ENS_MAA") != head.npos);
}

/// HDF5 may keep the names that tell far behind.
bool MayBe(std::string_view head) { return head.starts_with("\x89HDF"); }

bool IsOwn(const std::string& path) {
  const Result<std::string> head = HeadOfFile(path);
  if (!head || !MayBe(*head)) return false;
  return IsTrueApart([&] {
    const auto file = H5Reader::Open(path);
    return file && (*file)->TextAttribute("/ENS_MAA/mesh", "DES") == kMedOwn;
  });
}

}  // namespace

Format MedFormat() {
  Format format;
  format.name = "med";
  format.title = "MED";
  format.extensions = kExtensions;
  format.capabilities = capability::kElements | capability::kSets | capability::kFields;
  format.looks_like = LooksLike;
  format.may_be = MayBe;
  format.is_own = IsOwn;
  format.read = ReadMed;
  format.write = WriteMed;
  return format;
}

}  // namespace qx::exchange
