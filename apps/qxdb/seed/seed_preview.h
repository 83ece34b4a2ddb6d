#pragma once
// What is to be seen of seeds before meshing: a table, a picture, points.

#include <map>
#include <span>
#include <string>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/model/cad_keys.h"
#include "qx_db/model/seed_match.h"

#include "apps/qxdb/command/console.h"

namespace qx::app {

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

/// The methods of size controls by the names that commands use.
struct MethodNameEntry {
  std::int32_t method;
  const char* name;
};
std::span<const MethodNameEntry> MethodNames();
/// "unknown" for a method that is not among them.
const char* MethodName(std::int32_t method);

/// The table, with faults and mismatches below it; and the same as JSON members.
std::string SeedTable(const SeedPreview& preview, std::string_view unit);
void WriteSeedJson(const SeedPreview& preview, JsonText& json);

/// Points along an edge, near enough to each other to look smooth; none for one without length.
std::vector<CadPoint> SampleEdge(const ICADSession& cad, int edge);

/// A picture of all edges with their seeds, as SVG: seen along z when all lies in one plane of that
/// direction, otherwise from the right, front and above.
std::string SeedPicture(const SeedPreview& preview);

/// The points of all seeded edges as a JSON text, and as a VTK file of lines.
std::string SeedPointsJson(const SeedPreview& preview);
Outcome WriteSeedVtu(const SeedPreview& preview, const UnitSystem& units, const std::string& path);

}  // namespace qx::app
