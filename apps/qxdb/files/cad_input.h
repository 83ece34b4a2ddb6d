#pragma once
// CAD files on the command line.

#include <memory>
#include <string>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/model/cad_session.h"
#include "qx_db/platform/outcome.h"

namespace qx::app {

/// What the names of CAD files end with.
inline const std::vector<std::string> kCadExtensions = {".step", ".stp", ".iges", ".igs", ".brep"};

/// The geometry of a CAD file in the model's length unit. Fails as well when this program was built
/// without a CAD kernel.
Result<std::unique_ptr<ICADSession>> OpenCad(const std::string& path, const CQXDBSession& session);

/// A path without its folders: the name under which a file's geometry is in a model.
std::string FileName(const std::string& path);

/// Makes millimetres the unit of an empty model: CAD files are drawn in it.
void UseMillimetres(CQXDBSession& session);

}  // namespace qx::app
