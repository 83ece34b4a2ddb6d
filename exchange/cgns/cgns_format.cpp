#include "exchange/cgns/cgns_format.h"

#include "exchange/cgns/cgns_reader.h"
#include "exchange/cgns/cgns_tree.h"
#include "exchange/cgns/cgns_writer.h"
#include "exchange/hdf5/h5_apart.h"
#include "exchange/hdf5/h5_reader.h"

namespace qx::exchange {
namespace {

constexpr std::string_view kExtensions[] = {".cgns"};

/// The old container is known as well, so that the reader can say what to do with it.
bool LooksLike(std::string_view head) {
  const bool is_hdf5 = head.starts_with("\x89HDF");
  return (is_hdf5 && head.find("CGNSLibraryVersion") != head.npos) ||
         head.substr(0, 64).find("ADF Database Version") != head.npos;
}

/// HDF5 may keep the names that tell far behind.
bool MayBe(std::string_view head) { return head.starts_with("\x89HDF"); }

bool IsOwn(const std::string& path) {
  const Result<std::string> head = HeadOfFile(path);
  if (!head || !MayBe(*head)) return false;
  return IsTrueApart([&] {
    const auto file = H5Reader::Open(path);
    return file && (*file)->IsGroup(std::string("/Base/") + kCgnsOwn);
  });
}

}  // namespace

Format CgnsFormat() {
  Format format;
  format.name = "cgns";
  format.title = "CGNS";
  format.extensions = kExtensions;
  format.capabilities =
      capability::kElements | capability::kSets | capability::kFields | capability::kUnits;
  format.looks_like = LooksLike;
  format.may_be = MayBe;
  format.is_own = IsOwn;
  format.read = ReadCgns;
  format.write = WriteCgns;
  return format;
}

}  // namespace qx::exchange
