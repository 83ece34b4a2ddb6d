#include "exchange/exodus/nc_library.h"

#include "qx_db/platform/shared_library.h"

namespace qx::exchange {
namespace {

struct Loaded {
  NcLibrary library;
  Outcome outcome;
};

Loaded Load() {
  Loaded loaded;
  const Result<SharedLibrary> netcdf = SharedLibrary::Load(QX_NETCDF_FILE);
  if (!netcdf) {
    loaded.outcome = netcdf.Error();
    return loaded;
  }
#define QX_NC_FIND(f)                                                                \
  loaded.library.f = reinterpret_cast<decltype(loaded.library.f)>(netcdf->Find(#f)); \
  if (!loaded.library.f) loaded.outcome = Failure{QX_NETCDF_FILE, "", "has no " #f, ""};
  QX_NC_FUNCTIONS(QX_NC_FIND)
#undef QX_NC_FIND
  // HDF5 comes with it. No file is to make it look for filters in files of code
  // (HDF5_PLUGIN_PATH).
  if (void* const plugins = netcdf->Find("H5PLset_loading_state")) {
    reinterpret_cast<int (*)(unsigned)>(plugins)(0);
  }
  return loaded;
}

const Loaded& Library() {
  static const Loaded loaded = Load();
  return loaded;
}

}  // namespace

Outcome LoadNc() { return Library().outcome; }

const NcLibrary& Nc() { return Library().library; }

}  // namespace qx::exchange
