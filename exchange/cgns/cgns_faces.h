#pragma once
// Polygons and polyhedra of CGNS files: sections NGON_n list the nodes of faces, sections NFACE_n
// the faces of cells by their numbers, negative where a face looks into the cell. (SIDS, "Elements
// structure definition".)

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "exchange/cgns/cgns_tree.h"

namespace qx::exchange {

/// An element that a polyhedron is.
struct CgnsCell {
  std::int32_t code = 0;
  std::vector<std::int64_t> nodes;  ///< in this library's order
};

/// The tetrahedron, pyramid, wedge or hexahedron that closed faces bound, each of three or four
/// nodes around it as seen from outside; none for other cells, and for faces that do not fit.
std::optional<CgnsCell> CellOfFaces(std::span<const std::vector<std::int64_t>> faces);

/// The faces and cells of a zone.
class CgnsFaces {
 public:
  /// Reads a section of polygons or polyhedra, of elements from `first` to `last`. What is wrong
  /// with it is a failure of the file's.
  void Read(CgnsTree& tree, const std::string& section, bool of_cells, std::int64_t first,
            std::int64_t last);

  /// Whether two cells have a face.
  bool IsInner(std::int64_t face) const;
  /// What a polygon or polyhedron is; none where it is no element of the model.
  std::optional<CgnsCell> Element(std::int64_t number, bool is_cell) const;

 private:
  /// Lists of different lengths.
  struct Lists {
    std::int64_t first;               // number of the first
    std::vector<std::size_t> starts;  // in `values`, of each and behind the last
    std::vector<std::int64_t> values;
  };
  /// The nodes of a polygon, or the faces of a polyhedron; nothing for a number that is neither.
  std::span<const std::int64_t> Find(std::int64_t number) const;

  std::vector<Lists> sections_;
  std::vector<unsigned char> uses_;  // of each face by cells, up to two
};

}  // namespace qx::exchange
