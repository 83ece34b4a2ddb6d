#pragma once
// The surface of a model, or of some of its sets, on its way into a file of faces.
// Threads: shares nothing; one at a time for each object.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "exchange/format.h"

namespace qx::exchange {

/// "sets", of every writer of surfaces.
inline constexpr FormatOption kSurfaceSets{
    "sets", "all", "whose elements' surface is written: names or numbers with commas", "NAMES"};

/// Free faces of solids and all surface elements: triangles and quadrilaterals, quadratic ones
/// divided at their nodes, of those points alone that they have.
struct SurfaceModel {
  struct Face {
    std::array<std::uint32_t, 4> points;
    std::uint8_t corners;
    std::uint32_t element_class;  ///< place in `classes`
  };
  struct Set {
    std::string name;
    std::int32_t color;
    std::uint64_t faces = 0;
  };

  std::vector<std::array<double, 3>> points;  ///< in current units
  std::vector<Face> faces;                    ///< those of one class follow each other
  std::vector<Set> sets;                      ///< that have faces
  /// Places of the sets that the faces of a class are in, ascending; of the first class none.
  std::vector<std::vector<std::uint32_t>> classes;

  /// The one set by which a face of a class is known where there is room for one: that with the
  /// fewest faces; null for none.
  const Set* SetOf(std::uint32_t element_class) const;
};

/// Fails where the option "sets" names none, or nothing is there to be written. What of the model
/// is no part of its surface is told in `report`, for the format of that name.
Result<SurfaceModel> MakeSurface(const CQXDBSession& session, const std::string& path,
                                 std::string_view format, const WriteOptions& options,
                                 LossReport& report);

/// Tells of faces that are in several sets, of which the file says one; and of quadrilaterals that
/// become triangles.
void ReportFurtherSets(const SurfaceModel& surface, LossReport& report);
void ReportDivided(const SurfaceModel& surface, LossReport& report);

/// Calls `visit` with the corners of each triangle of a face.
template <class Visit>
void ForEachTriangle(const SurfaceModel::Face& face, Visit&& visit) {
  const auto& p = face.points;
  visit(std::array{p[0], p[1], p[2]});
  if (face.corners == 4) visit(std::array{p[0], p[2], p[3]});
}

}  // namespace qx::exchange
