#include "qx_db/app/mesh_quality.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>

#include "qx_db/app/element_access.h"
#include "qx_db/app/element_volume.h"
#include "qx_db/app/quality_formulas.h"
#include "qx_db/record/element_types.h"

namespace qx {
namespace {

constexpr MeasureInfo kMeasures[] = {
    {Measure::kSize, "size", "size", "", false, {}},
    {Measure::kEdgeRatio, "edge-ratio", "edge ratio", "", true, 5.0},
    {Measure::kAspectRatio, "aspect-ratio", "aspect ratio", "", true, 4.0},
    {Measure::kSkew, "skew", "skew", "", true, 0.5},
    {Measure::kEquiangleSkew, "equiangle-skew", "equiangle skew", "", true, 0.7},
    {Measure::kWarpage, "warpage", "warpage", "", true, 0.7},
    {Measure::kTaper, "taper", "taper", "", true, 0.7},
    {Measure::kMinAngle, "min-angle", "minimum angle", "deg", false, 30.0},
    {Measure::kMaxAngle, "max-angle", "maximum angle", "deg", true, 135.0},
    {Measure::kJacobian, "jacobian", "Jacobian", "", false, {}},
    {Measure::kScaledJacobian, "scaled-jacobian", "scaled Jacobian", "", false, 0.3},
    {Measure::kShape, "shape", "shape", "", false, 0.3},
    {Measure::kCondition, "condition", "condition", "", true, 4.0},
    {Measure::kStretch, "stretch", "stretch", "", false, 0.25},
    {Measure::kCollapse, "collapse", "collapse", "", false, 0.1},
};

using Formula = double (*)(CornerShape, const Point3*);

/// The formulas of a measure for triangle, quadrilateral, tetrahedron, pyramid, wedge and
/// hexahedron; null where the shape does not have it.
using Row = std::array<Formula, 6>;

constexpr Row All(Formula formula) {
  return {formula, formula, formula, formula, formula, formula};
}

using namespace quality;

constexpr Row kFormulas[] = {
    All(ShapeSize),
    All(EdgeRatio),
    {TriAspect, QuadAspect, TetAspect, EdgeRatio, EdgeRatio, HexAspect},
    {nullptr, QuadSkew, nullptr, nullptr, nullptr, HexSkew},
    All(EquiangleSkew),
    {nullptr, FaceWarpage, nullptr, FaceWarpage, FaceWarpage, FaceWarpage},
    {nullptr, QuadTaper, nullptr, nullptr, nullptr, HexTaper},
    {MinFaceAngle, MinFaceAngle, MinDihedralAngle, MinFaceAngle, MinFaceAngle, MinFaceAngle},
    {MaxFaceAngle, MaxFaceAngle, MaxDihedralAngle, MaxFaceAngle, MaxFaceAngle, MaxFaceAngle},
    {nullptr, QuadJacobian, SolidJacobian, SolidJacobian, SolidJacobian, SolidJacobian},
    {TriScaledJacobian, QuadScaledJacobian, TetScaledJacobian, SolidScaledJacobian,
     SolidScaledJacobian, SolidScaledJacobian},
    {TriShape, QuadShape, TetShape, nullptr, nullptr, HexShape},
    {TriCondition, QuadCondition, TetCondition, nullptr, nullptr, HexCondition},
    {nullptr, QuadStretch, nullptr, nullptr, nullptr, HexStretch},
    {nullptr, nullptr, TetCollapse, nullptr, nullptr, nullptr},
};

static_assert(std::size(kMeasures) == std::size(kFormulas));

constexpr double kNotDefined = std::numeric_limits<double>::quiet_NaN();

}  // namespace

std::span<const MeasureInfo> Measures() { return kMeasures; }

const MeasureInfo* FindMeasure(std::string_view name) {
  const auto at = std::find_if(std::begin(kMeasures), std::end(kMeasures),
                               [&](const MeasureInfo& info) { return info.name == name; });
  return at == std::end(kMeasures) ? nullptr : at;
}

double Quality(Measure measure, CornerShape shape, const Point3* corners) {
  if (shape == CornerShape::kLine && measure == Measure::kSize) return ShapeSize(shape, corners);
  if (shape < CornerShape::kTriangle) return kNotDefined;
  const auto column =
      static_cast<std::size_t>(shape) - static_cast<std::size_t>(CornerShape::kTriangle);
  const Formula formula = kFormulas[static_cast<std::size_t>(measure)][column];
  return formula ? formula(shape, corners) : kNotDefined;
}

double Quality(Measure measure, const tagTElem& element) {
  if (element.type < element::kPoint || element.type > element::kHex20) return kNotDefined;
  Point3 corners[8];
  const std::int32_t count = ElementTopology(element.type).Corners();
  if (!FirstPositions(element, count, corners)) return kNotDefined;
  if (!std::all_of(corners, corners + count, IsFinite)) return kNotDefined;
  return Quality(measure, topology::ShapeOf(element.type), corners);
}

}  // namespace qx
