#include "exchange/hdf5/h5_library.h"

#include <fmt/format.h>

#include "qx_db/platform/shared_library.h"

namespace qx::exchange {
namespace {

struct Loaded {
  H5Library library;
  std::string wrong;
};

Loaded Load() {
  Loaded loaded;
  // Other HDF5 libraries that a process may have, such as that of MPI, keep to their own names.
  const Result<SharedLibrary> hdf5 = SharedLibrary::Load(QX_HDF5_FILE);
  if (!hdf5) {
    loaded.wrong = "the HDF5 library " + hdf5.Error().file + " " + hdf5.Error().what;
    return loaded;
  }
  const auto find = [&](const char* name) {
    void* const found = hdf5->Find(name);
    if (!found) loaded.wrong = fmt::format("the HDF5 library has no {}", name);
    return found;
  };
  H5Library& h5 = loaded.library;
#define QX_H5_FIND(f) h5.f = reinterpret_cast<decltype(h5.f)>(find(#f));
  QX_H5_FUNCTIONS(QX_H5_FIND)
#undef QX_H5_FIND
  if (!loaded.wrong.empty()) return loaded;
  // A damaged file may leave something open in there, and at the end of the program the library
  // would complain of it. Files that were written are closed.
  h5.H5dont_atexit();
  h5.H5open();  // the variables have no values before
#define QX_H5_FIND(id) \
  if (const void* const found = find(#id "_g")) h5.id##_g = *static_cast<const hid_t*>(found);
  QX_H5_IDS(QX_H5_FIND)
#undef QX_H5_FIND
  h5.H5PLset_loading_state(0);
  return loaded;
}

}  // namespace

const H5Library* H5Library::Get(std::string& wrong) {
  static const Loaded loaded = Load();
  wrong = loaded.wrong;
  return wrong.empty() ? &loaded.library : nullptr;
}

}  // namespace qx::exchange
