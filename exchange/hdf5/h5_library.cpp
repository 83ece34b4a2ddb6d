#include "exchange/hdf5/h5_library.h"

#include <dlfcn.h>
#include <fmt/format.h>

namespace qx::exchange {
namespace {

struct Loaded {
  H5Library library;
  std::string wrong;
};

Loaded Load() {
  Loaded loaded;
  // Other HDF5 libraries that a process may have, such as that of MPI, keep to their own names.
  void* const handle = dlopen(QX_HDF5_FILE, RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    loaded.wrong = fmt::format("the HDF5 library cannot be loaded: {}", dlerror());
    return loaded;
  }
  const auto find = [&](const char* name) {
    void* const found = dlsym(handle, name);
    if (!found) loaded.wrong = fmt::format("the HDF5 library has no {}", name);
    return found;
  };
  H5Library& h5 = loaded.library;
#define QX_H5_FIND(f) h5.f = reinterpret_cast<decltype(h5.f)>(find(#f));
  QX_H5_FUNCTIONS(QX_H5_FIND)
#undef QX_H5_FIND
  if (!loaded.wrong.empty()) return loaded;
  h5.H5open();  // the variables have no values before
#define QX_H5_FIND(id) \
  if (const void* const found = find(#id "_g")) h5.id##_g = *static_cast<const hid_t*>(found);
  QX_H5_IDS(QX_H5_FIND)
#undef QX_H5_FIND
  return loaded;
}

}  // namespace

const H5Library* H5Library::Get(std::string& wrong) {
  static const Loaded loaded = Load();
  wrong = loaded.wrong;
  return wrong.empty() ? &loaded.library : nullptr;
}

}  // namespace qx::exchange
