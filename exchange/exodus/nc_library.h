#pragma once
// The netCDF library, loaded when the first Exodus file is opened: linking it would cost every
// start of a program the time that it and the HDF5 and network libraries behind it take. Threads:
// any; the table never changes once it is there.

#include <netcdf.h>
#include <netcdf_mem.h>

#include "qx_db/platform/outcome.h"

namespace qx::exchange {

#define QX_NC_FUNCTIONS(X) \
  X(nc_close)              \
  X(nc_create)             \
  X(nc_def_dim)            \
  X(nc_def_var)            \
  X(nc_enddef)             \
  X(nc_get_att_text)       \
  X(nc_get_var_text)       \
  X(nc_get_vara_double)    \
  X(nc_get_vara_int)       \
  X(nc_get_vara_longlong)  \
  X(nc_inq_att)            \
  X(nc_inq_dimid)          \
  X(nc_inq_dimlen)         \
  X(nc_inq_format)         \
  X(nc_inq_nvars)          \
  X(nc_inq_vardimid)       \
  X(nc_inq_varid)          \
  X(nc_inq_varname)        \
  X(nc_inq_varndims)       \
  X(nc_inq_vartype)        \
  X(nc_open)               \
  X(nc_open_mem)           \
  X(nc_put_att_float)      \
  X(nc_put_att_int)        \
  X(nc_put_att_text)       \
  X(nc_put_var1_double)    \
  X(nc_put_var_double)     \
  X(nc_put_var_int)        \
  X(nc_put_var_text)       \
  X(nc_put_vara_double)    \
  X(nc_set_fill)           \
  X(nc_strerror)

/// The library's functions by their names.
struct NcLibrary {
#define QX_NC_DECLARE(f) decltype(&::f) f = nullptr;
  QX_NC_FUNCTIONS(QX_NC_DECLARE)
#undef QX_NC_DECLARE
};

/// Loads the library unless it is there. Fails, naming it, when it cannot be.
Outcome LoadNc();
/// The library, after LoadNc was successful.
const NcLibrary& Nc();

}  // namespace qx::exchange
