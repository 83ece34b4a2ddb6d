#pragma once
// What conditions ask a session for, found once for all of them: numbers of its nodes and elements,
// its mesh, its surface, and the ways from nodes to elements to faces and back.
// Threads: one at a time for each object; it reads the session and writes nothing to it.

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qx_db/mesh/dense_mesh.h"
#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/select/marks.h"
#include "qx_db/select/term.h"

namespace qx::select {

/// Numbers of what is asked about: of all records of a pool, in its order, or of a few.
class Numbering {
 public:
  /// Of all; the numbers must outlive it.
  explicit Numbering(const PoolNumbers& all) : all_(&all) {}
  explicit Numbering(std::vector<ITR> few);

  /// PoolNumbers::kNone for what is not asked about.
  std::uint32_t Find(ITR item) const;
  std::uint32_t Count() const { return static_cast<std::uint32_t>(Records().size()); }
  const std::vector<ITR>& Records() const { return all_ ? all_->Records() : few_; }

 private:
  const PoolNumbers* all_ = nullptr;
  std::vector<ITR> few_;
  std::unordered_map<ITR, std::uint32_t> places_;  // of the few
};

/// Numbers are those of PoolNumbers and DenseMesh: the order of the pools. A face's number is eight
/// times its element's plus its own by the topology table.
class MeshView {
 public:
  /// `text` is what places of failures are counted in; it must outlive the view.
  MeshView(const CQXDBSession& session, std::string_view text) : session_(session), text_(text) {}

  /// Of a few nodes and elements alone, with the nodes of these among them, for conditions that
  /// look at one at a time (LooksAtOne); `tolerance` is that of the whole model.
  MeshView(const CQXDBSession& session, std::string_view text, std::vector<ITR> nodes,
           std::vector<ITR> elements, double tolerance)
      : session_(session),
        text_(text),
        is_part_(true),
        nodes_(std::in_place, std::move(nodes)),
        elements_(std::in_place, std::move(elements)),
        tolerance_(tolerance) {}
  /// What it holds points into it.
  MeshView(const MeshView&) = delete;

  const CQXDBSession& Session() const { return session_; }
  bool IsPart() const { return is_part_; }
  Failure Fault(std::size_t at, std::string what, std::string remedy) const;

  // ---- numbers ----------------------------------------------------------------------------------

  const Numbering& Nodes() const;
  const Numbering& Elements() const;
  const tagTElem& Element(std::size_t e) const {
    return *static_cast<const tagTElem*>(KeyedSetBase::RecordAt(Elements().Records()[e]));
  }
  std::size_t Count(SelectKind kind) const;
  Marks None(SelectKind kind) const { return Marks(Count(kind)); }
  /// Everything of a kind: of faces those of solids and surfaces that are usable.
  const Marks& All(SelectKind kind) const;

  // ---- geometry ---------------------------------------------------------------------------------

  /// Taken when it is first needed, which what asks for records alone never does.
  const DenseMesh& Mesh() const;
  bool HasMesh() const { return mesh_.has_value(); }
  Point3 Position(std::size_t node) const;
  /// A billionth of the largest coordinate (UsualReach): what is nearer to a boundary than this is
  /// on it.
  double Tolerance() const;

  static constexpr std::size_t kFacesPerElement = 8;
  static std::size_t FaceNumber(std::size_t e, std::size_t side) {
    return kFacesPerElement * e + side;
  }
  /// Faces of a solid, 1 of a surface, 0 of anything else and of what is unusable.
  std::uint32_t FaceCount(std::uint32_t e) const;
  /// The nodes of a face, at most 8, corners first.
  std::span<const std::uint32_t> FaceNodes(std::size_t face, bool all,
                                           std::array<std::uint32_t, 8>& room) const;
  /// Along the normal, outwards from a solid; of length 0 where it has none.
  Point3 FaceNormal(std::size_t face) const;
  /// The numbers of the free faces of solids, and of all surface elements, ascending.
  const std::vector<std::size_t>& Surface() const;

  // ---- from one kind to another -----------------------------------------------------------------

  Marks NodesOfElements(const Marks& elements) const;
  Marks NodesOfFaces(const Marks& faces) const;
  /// Elements and faces with all their nodes, of which there is at least one, among these.
  Marks ElementsWithin(const Marks& nodes) const;
  Marks FacesWithin(const Marks& nodes) const;
  /// Elements with any of their nodes among these.
  Marks ElementsTouching(const Marks& nodes) const;
  Marks ElementsOfFaces(const Marks& faces) const;
  Marks FacesOfElements(const Marks& elements) const;

 private:
  const CQXDBSession& session_;
  const std::string_view text_;
  const bool is_part_ = false;
  mutable std::optional<PoolNumbers> all_nodes_, all_elements_;
  mutable std::optional<Numbering> nodes_, elements_;
  mutable std::optional<DenseMesh> mesh_;
  mutable std::array<std::optional<Marks>, 3> all_;
  mutable std::optional<std::vector<std::size_t>> surface_;
  mutable std::optional<double> tolerance_;
};

}  // namespace qx::select
