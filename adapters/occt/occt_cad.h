#pragma once
// The CAD session on real geometry, read from STEP, IGES and BREP files by Open CASCADE.
// Threads: a CAD session is for one at a time; reading files from any.

#include <memory>
#include <string>

#include "qx_db/model/cad_session.h"
#include "qx_db/platform/outcome.h"

class TopoDS_Shape;

namespace qx::occt {

/// The geometry of a CAD file, told apart by its extension. STEP and IGES files name their unit; a
/// BREP file is taken to be in millimetres. Lengths come out in units of `unit_in_metres`. Fails,
/// naming the file, when it cannot be read, was cut short, or holds no edges.
Result<std::unique_ptr<ICADSession>> ReadCadFile(const std::string& path,
                                                 double unit_in_metres = 0.001);

/// Calls ReadCadFile, for programs that load this library (kOcctLibrary) only when a CAD file comes
/// up: the kernel takes longer to load than most runs of a program.
extern "C" void qx_read_cad_file(const std::string& path, double unit_in_metres,
                                 Result<std::unique_ptr<ICADSession>>& into);

/// The geometry of a shape, its lengths multiplied by `scale`. Edges are numbered in the order in
/// which a walk through the shape meets them first; an edge that two faces share has one number.
/// Null for a shape whose geometry cannot be evaluated.
std::unique_ptr<ICADSession> MakeCadSession(const TopoDS_Shape& shape, double scale = 1);

}  // namespace qx::occt
