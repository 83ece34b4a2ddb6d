#pragma once
// One lock for HDF5 and what rests on it.

#include <mutex>

namespace qx::exchange {

/// The library is not safe for threads, and netCDF calls it, too: whoever has a file open, of
/// whichever format, holds this.
inline std::mutex& Hdf5Mutex() {
  static std::mutex mutex;
  return mutex;
}

}  // namespace qx::exchange
