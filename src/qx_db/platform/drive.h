#pragma once
// Paths with a drive letter, on every system.
// Threads: any; nothing is kept between calls.

#include <string>
#include <string_view>

#include "qx_db/export.h"

namespace qx {

/// Makes a folder (UTF-8) stand for a drive, for this process; "" restores the default.
QXDB_API void SetDriveFolder(char letter, std::string folder);

/// The folder that stands for a drive: the one set; else that of the environment's variable
/// QX_DRIVE_C (of that letter); else on Windows the drive itself, elsewhere
/// $HOME/.qx_db/drive_c.
QXDB_API std::string DriveFolder(char letter);

/// The UTF-8 path that this system uses for a path of the interfaces. "c:\\a\\b" lies in the
/// folder of drive c; a path without a drive letter is taken as it is.
QXDB_API std::string SystemPath(std::u16string_view path);

}  // namespace qx
