#pragma once
// How well elements are shaped: measures after the Verdict library's report (docs/mesh-quality.md).
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include <limits>
#include <optional>
#include <span>
#include <string_view>

#include "qx_db/mesh/point3.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/record/mesh_records.h"

namespace qx {

/// What is measured, always from the corners.
enum class Measure {
  kSize,
  kEdgeRatio,
  kAspectRatio,
  kSkew,
  kEquiangleSkew,
  kWarpage,
  kTaper,
  kMinAngle,
  kMaxAngle,
  kJacobian,
  kScaledJacobian,
  kShape,
  kCondition,
  kStretch,
  kCollapse,
  // Of interest to some; shown when asked for.
  kShear,
  kRadiusRatio,
  kAspectFrobenius,
  kMeanAspectFrobenius,
  kAspectGamma,
  kOddy,
  kDistortion,
  kJacobianRatio,
  kDiagonal,
  kDimension,
  kEquivolumeSkew,
  kSquish,
  kRelativeSize,
  kShapeAndSize,
  kShearAndSize,
};

/// When a table of measures has a row for one.
enum class Shown { kByDefault, kWhenNamed };

/// What users need to know of a measure.
struct MeasureInfo {
  Measure measure;
  std::string_view name;   ///< as on a command line: "aspect-ratio"
  std::string_view label;  ///< as in a table: "aspect ratio"
  std::string_view unit;   ///< "deg", or empty
  bool high_is_bad;
  /// The worst value that is still good; nothing for a measure that grows with the element.
  std::optional<double> acceptable;
  Shown shown = Shown::kByDefault;
  /// Whether it weighs an element's size against the mean size of its shape in the mesh.
  bool is_relative = false;
};

/// All measures in the order of the enumeration.
QXDB_API std::span<const MeasureInfo> Measures();
/// The measure of that name; null when there is none.
QXDB_API const MeasureInfo* FindMeasure(std::string_view name);

/// What a ratio without bound is given as, as in Verdict: of an element with a zero length, area
/// or volume, and of an inverted one where the measure divides by its Jacobian.
inline constexpr double kUnbounded = 1e30;

/// The value of a measure; NaN for a shape that does not have it. Coordinates must be finite. A
/// relative measure wants the mean length, area or volume of the mesh's elements of the shape.
QXDB_API double Quality(Measure measure, CornerShape shape, const Point3* corners,
                        double mean_size = std::numeric_limits<double>::quiet_NaN());

/// The same of an element, 1 to 15 by type; NaN also when it has too few nodes, one is gone, or a
/// coordinate is no number, and for a relative measure.
QXDB_API double Quality(Measure measure, const tagTElem& element);

}  // namespace qx
