#pragma once
// What is to be seen of seeds before meshing: where they are, what does not fit, a picture.
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include <map>
#include <span>
#include <string>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/model/cad_keys.h"
#include "qx_db/model/seed_match.h"

namespace qx::host {

/// The seeds of a part with what they come from.
struct SeedPreview {
  struct Source {
    Key control = 0;
    std::int32_t method = 0;
    bool reversed = false;
  };
  const ICADSession* cad = nullptr;
  CadInstance keys;
  SeedsByEdge seeds;
  /// An edge that its control cannot seed, and why.
  struct Fault {
    int edge = 0;
    Key control = 0;
    Failure failure;
  };
  std::map<int, Source> sources;  ///< for each seeded edge
  std::vector<Fault> faults;
  std::vector<std::pair<int, int>> twins;
  std::vector<SeedMismatch> mismatches;

  /// Key of the geometry key of an edge.
  Key KeyOf(int edge) const { return KeyedSetBase::RecordAt(keys.edges.at(edge))->GetKey(); }
};

/// Seeds all edges of the part that have a size control; of several, the first in the pool.
void SeedPart(CQXDBSession& session, ICADSession& cad, SeedPreview& preview);

/// Points along an edge, near enough to each other to look smooth; none for one without length.
std::vector<CadPoint> SampleEdge(const ICADSession& cad, int edge);

/// A picture of all edges with their seeds, as SVG: seen along z when all lies in one plane of that
/// direction, otherwise from the right, front and above.
std::string SeedPicture(const SeedPreview& preview);

}  // namespace qx::host
