#pragma once
// The HDF5 library, loaded when the first file is opened that needs it: linking it would cost every
// start of the command line the time that loading takes.
// Threads: any; the table never changes once it is there.

#include <hdf5.h>
#include <mutex>
#include <string>

namespace qx::exchange {

// Functions, without those that are macros.
#define QX_H5_FUNCTIONS(X)      \
  X(H5open)                     \
  X(H5dont_atexit)              \
  X(H5Aclose)                   \
  X(H5Acreate2)                 \
  X(H5Aexists)                  \
  X(H5Aget_space)               \
  X(H5Aget_type)                \
  X(H5Aopen)                    \
  X(H5Aread)                    \
  X(H5Awrite)                   \
  X(H5Dclose)                   \
  X(H5Dcreate2)                 \
  X(H5Dget_create_plist)        \
  X(H5Dget_space)               \
  X(H5Dget_type)                \
  X(H5Dopen2)                   \
  X(H5Dread)                    \
  X(H5Dwrite)                   \
  X(H5Eget_auto2)               \
  X(H5Eset_auto2)               \
  X(H5Fclose)                   \
  X(H5Fcreate)                  \
  X(H5Fopen)                    \
  X(H5Gclose)                   \
  X(H5Gcreate2)                 \
  X(H5Gget_create_plist)        \
  X(H5Gget_info)                \
  X(H5Gopen2)                   \
  X(H5Lexists)                  \
  X(H5Lget_info)                \
  X(H5Literate)                 \
  X(H5Oclose)                   \
  X(H5PLset_loading_state)      \
  X(H5Oopen)                    \
  X(H5Iget_type)                \
  X(H5Pclose)                   \
  X(H5Pcreate)                  \
  X(H5Pget_chunk)               \
  X(H5Pget_external_count)      \
  X(H5Pget_layout)              \
  X(H5Pget_link_creation_order) \
  X(H5Pset_fapl_core)           \
  X(H5Pset_file_locking)        \
  X(H5Pset_file_image)          \
  X(H5Pset_libver_bounds)       \
  X(H5Pset_link_creation_order) \
  X(H5Pset_obj_track_times)     \
  X(H5Sclose)                   \
  X(H5Screate)                  \
  X(H5Screate_simple)           \
  X(H5Sget_simple_extent_dims)  \
  X(H5Sget_simple_extent_ndims) \
  X(H5Sselect_hyperslab)        \
  X(H5Tarray_create2)           \
  X(H5Tclose)                   \
  X(H5Tcopy)                    \
  X(H5Tget_class)               \
  X(H5Tget_size)                \
  X(H5Tis_variable_str)         \
  X(H5Tset_size)                \
  X(H5Tset_strpad)

/// Classes of property lists and types of numbers, which are variables of the library.
#define QX_H5_IDS(X)           \
  X(H5P_CLS_DATASET_CREATE_ID) \
  X(H5P_CLS_FILE_ACCESS_ID)    \
  X(H5P_CLS_FILE_CREATE_ID)    \
  X(H5P_CLS_GROUP_CREATE_ID)   \
  X(H5T_C_S1)                  \
  X(H5T_IEEE_F32LE)            \
  X(H5T_IEEE_F64LE)            \
  X(H5T_NATIVE_DOUBLE)         \
  X(H5T_NATIVE_INT)            \
  X(H5T_NATIVE_LLONG)          \
  X(H5T_NATIVE_SCHAR)          \
  X(H5T_STD_I32LE)             \
  X(H5T_STD_I64LE)             \
  X(H5T_STD_I8LE)

// How files are opened. (The header's own names for these numbers call the library, which is not
// linked.)
inline constexpr unsigned kH5ReadOnly = 0;
inline constexpr unsigned kH5Truncate = 2;

/// The library's functions by their names.
struct H5Library {
#define QX_H5_DECLARE(f) decltype(&::f) f = nullptr;
  QX_H5_FUNCTIONS(QX_H5_DECLARE)
#undef QX_H5_DECLARE
#define QX_H5_DECLARE(id) hid_t id##_g = -1;
  QX_H5_IDS(QX_H5_DECLARE)
#undef QX_H5_DECLARE

  /// The library; null, with the reason in `wrong`, where it cannot be loaded. Once it is here no
  /// file makes it look for filters in files of code (HDF5_PLUGIN_PATH): it has the usual ones.
  static const H5Library* Get(std::string& wrong);
};

}  // namespace qx::exchange
