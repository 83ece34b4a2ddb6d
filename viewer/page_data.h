#pragma once
// A model as the page draws it: packs of numbers (pack.h), each made when it is asked for.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/mesh/mesh_surface.h"

#include "viewer/extent.h"
#include "viewer/pack.h"

namespace qx::viewer {

/// What the page is told besides what the session holds.
struct PageInfo {
  std::string name;  ///< of the model, for people
  bool editable = false;
  bool seeds = false;    ///< there are some to be shown
  bool served = false;   ///< rather than a file of its own
  std::size_t step = 0;  ///< the steps done in the state that is shown
};

/// A picture of one state of a session, in current units. Editing the session makes it out of date.
///
/// Elements are numbered in the order of their pool. Nodes are numbered in the order of theirs, but
/// those that are seen come first: the base has their positions, the volume those of the rest.
class PageData {
 public:
  /// The session is to outlive this. Throws std::length_error for more than 2^29 nodes.
  explicit PageData(const CQXDBSession& session);

  /// Everything that the first picture takes, with the names of what can be shown.
  std::string Base(const PageInfo& info) const;
  /// The solids by their corners, and the nodes inside: to cut, and to look behind what is hidden.
  std::string Volume() const;
  /// A number for each element, NaN where there is none: a measure of quality by its name, or a
  /// field ("thickness", "part", "x", "y", "z", or one of the model: see FindField), which may have
  /// numbers for the nodes as well. Empty for a name that is neither.
  std::string Values(std::string_view name) const;
  /// What `check` finds, and free and shared edges, by the numbers of elements and nodes.
  std::string Findings() const;
  /// Local and material axes of elements, orientations of lines.
  std::string Glyphs() const;

  /// What the surface costs: bytes a corner before compression, and after it.
  const MeshSurface& Surface() const { return surface_; }
  std::uint32_t ElementCount() const { return mesh_.ElementCount(); }
  std::uint32_t SolidCount() const;

 private:
  std::vector<std::int32_t> Renumbered(std::span<const std::uint32_t> nodes) const;
  void AddPositions(Pack& pack, std::uint32_t begin, std::uint32_t end) const;
  void AddMesh(Pack& pack) const;
  void AddSets(Pack& pack) const;
  void AddBox(Json& json) const;

  const CQXDBSession& session_;
  const double length_;  // current units in one of the model's
  DenseMesh mesh_;       // elements at nodes that no picture has are unusable in it
  const Extent extent_;
  MeshSurface surface_;
  std::vector<std::uint32_t> order_;   // the mesh's node numbers, those seen first
  std::vector<std::uint32_t> number_;  // of a node of the mesh, here
  std::uint32_t seen_ = 0;
  Point3 origin_;  // positions are given from here, so that floats are fine enough
};

/// The steps of the history as a JSON list, oldest first.
void WriteSteps(Json& json, const CQXDBSession& session);
/// What the last done step of a session changed: keys of elements and nodes that it added and
/// changed, outlines of the elements that it removed and of the first that it added, and counts of
/// the records of every pool. Of the elements that it turned, `turned`, no step tells.
std::string LastChanges(const CQXDBSession& session, std::span<const Key> turned = {});
/// The same in a few words for a list: {"node": [added, removed, changed], ...}.
void WriteChangeCounts(Json& json, const CQXDBSession& session, const Step& step);

/// What a name of the page's data may be besides "base", "volume", "findings" and "glyphs".
inline constexpr std::string_view kValuesPrefix = "values/";

}  // namespace qx::viewer
