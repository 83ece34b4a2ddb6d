#pragma once
// Geometry of a CAD session in the model: an object a body, and a key for each body, face and edge.
// Threads: the one that drives the session.

#include <map>
#include <string>

#include "qx_db/core/session.h"
#include "qx_db/model/cad_session.h"
#include "qx_db/platform/outcome.h"

namespace qx {

/// One CAD model inside a model. Its number is the `instance` of its geometry keys.
struct CadInstance {
  std::int32_t number = 0;
  std::map<int, ITR> bodies;  ///< geometry keys by number in the CAD session
  std::map<int, ITR> faces;
  std::map<int, ITR> edges;
};

/// Brings the geometry of a CAD session into the model under a name (that of its file): an object
/// "name:body" for each body, and keys in the order bodies, faces, edges. One undoable step; fails
/// when the step is refused.
QXDB_API Result<CadInstance> AddCadGeometry(CQXDBSession& session, const ICADSession& cad,
                                            const std::string& name);

/// The latest instance that came in under a name. Fails when there is none, or when its edges are
/// not those of the CAD session by number: the file is another one by now.
QXDB_API Result<CadInstance> FindCadGeometry(const CQXDBSession& session, const ICADSession& cad,
                                             const std::string& name);

}  // namespace qx
