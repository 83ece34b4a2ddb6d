#include "qx_db/mesh/mesh_quality.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>

#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/element_volume.h"
#include "qx_db/mesh/quality_formulas.h"

namespace qx {
namespace {

constexpr MeasureInfo kMeasures[] = {
    {Measure::kSize, "size", "size", "", false, {}, Shown::kWhenNamed},
    {Measure::kEdgeRatio, "edge-ratio", "edge ratio", "", true, 5.0},
    {Measure::kAspectRatio, "aspect-ratio", "aspect ratio", "", true, 4.0},
    {Measure::kSkew, "skew", "skew", "", true, 0.5},
    {Measure::kEquiangleSkew, "equiangle-skew", "equiangle skew", "", true, 0.7},
    {Measure::kWarpage, "warpage", "warpage", "", true, 0.7},
    {Measure::kTaper, "taper", "taper", "", true, 0.7},
    {Measure::kMinAngle, "min-angle", "minimum angle", "deg", false, 30.0},
    {Measure::kMaxAngle, "max-angle", "maximum angle", "deg", true, 135.0},
    {Measure::kJacobian, "jacobian", "Jacobian", "", false, {}, Shown::kWhenNamed},
    {Measure::kScaledJacobian, "scaled-jacobian", "scaled Jacobian", "", false, 0.3},
    {Measure::kShape, "shape", "shape", "", false, 0.3},
    {Measure::kCondition, "condition", "condition", "", true, 4.0},
    {Measure::kStretch, "stretch", "stretch", "", false, 0.25},
    {Measure::kCollapse, "collapse", "collapse", "", false, 0.1},
    {Measure::kShear, "shear", "shear", "", false, 0.3, Shown::kWhenNamed},
    {Measure::kRadiusRatio, "radius-ratio", "radius ratio", "", true, 3.0, Shown::kWhenNamed},
    {Measure::kAspectFrobenius, "aspect-frobenius", "aspect Frobenius", "", true, 3.0,
     Shown::kWhenNamed},
    {Measure::kMeanAspectFrobenius, "mean-aspect-frobenius", "mean aspect Frobenius", "", true, 3.0,
     Shown::kWhenNamed},
    {Measure::kAspectGamma, "aspect-gamma", "aspect gamma", "", true, 3.0, Shown::kWhenNamed},
    {Measure::kOddy, "oddy", "Oddy", "", true, 0.5, Shown::kWhenNamed},
    {Measure::kDistortion, "distortion", "distortion", "", false, 0.5, Shown::kWhenNamed},
    {Measure::kJacobianRatio, "jacobian-ratio", "Jacobian ratio", "", true, 2.0, Shown::kWhenNamed},
    {Measure::kDiagonal, "diagonal", "diagonal", "", false, 0.65, Shown::kWhenNamed},
    {Measure::kDimension, "dimension", "dimension", "", false, {}, Shown::kWhenNamed},
    {Measure::kEquivolumeSkew, "equivolume-skew", "equivolume skew", "", true, 0.85,
     Shown::kWhenNamed},
    {Measure::kSquish, "squish", "squish", "", true, 0.8, Shown::kWhenNamed},
    {Measure::kRelativeSize, "relative-size", "relative size", "", false, 0.3, Shown::kWhenNamed,
     true},
    {Measure::kShapeAndSize, "shape-and-size", "shape and size", "", false, 0.2, Shown::kWhenNamed,
     true},
    {Measure::kShearAndSize, "shear-and-size", "shear and size", "", false, 0.2, Shown::kWhenNamed,
     true},
};

using Formula = double (*)(CornerShape, const Point3*);

/// The formulas of a measure for triangle, quadrilateral, tetrahedron, pyramid, wedge and
/// hexahedron; null where the shape does not have it.
using Row = std::array<Formula, 6>;

constexpr Row All(Formula formula) {
  return {formula, formula, formula, formula, formula, formula};
}

using namespace quality;

constexpr Row kShapeFormulas = {TriShape, QuadShape, TetShape, nullptr, nullptr, HexShape};
constexpr Row kShearFormulas = {nullptr, QuadShear, nullptr, nullptr, nullptr, HexShear};

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
    kShapeFormulas,
    {TriCondition, QuadCondition, TetCondition, nullptr, nullptr, HexCondition},
    {nullptr, QuadStretch, nullptr, nullptr, nullptr, HexStretch},
    {nullptr, nullptr, TetCollapse, nullptr, nullptr, nullptr},
    kShearFormulas,
    {TriRadiusRatio, QuadRadiusRatio, TetRadiusRatio, nullptr, nullptr, nullptr},
    {TriCondition, QuadFrobenius, TetFrobenius, nullptr, SolidFrobenius, SolidFrobenius},
    {nullptr, QuadMeanFrobenius, nullptr, nullptr, SolidMeanFrobenius, SolidMeanFrobenius},
    {nullptr, nullptr, TetGamma, nullptr, nullptr, nullptr},
    {nullptr, QuadOddy, nullptr, nullptr, nullptr, HexOddy},
    {nullptr, QuadDistortion, nullptr, nullptr, nullptr, HexDistortion},
    {nullptr, QuadJacobianRatio, nullptr, SolidJacobianRatio, SolidJacobianRatio,
     SolidJacobianRatio},
    {nullptr, nullptr, nullptr, nullptr, nullptr, HexDiagonal},
    {nullptr, nullptr, nullptr, nullptr, nullptr, HexDimension},
    {nullptr, nullptr, TetEquivolumeSkew, nullptr, nullptr, nullptr},
    {nullptr, nullptr, TetSquish, nullptr, nullptr, nullptr},
    // Of relative measures what the size is multiplied with.
    All([](CornerShape, const Point3*) { return 1.0; }),
    kShapeFormulas,
    kShearFormulas,
};

static_assert(std::size(kMeasures) == std::size(kFormulas));

/// The same for two elements at once, of the measures that whole meshes are asked for most.
struct RowOfTwo {
  Measure measure;
  std::array<FormulaOfTwo, 6> formulas;
};
constexpr RowOfTwo kFormulasOfTwo[] = {
    {Measure::kSize, {ShapeSize, ShapeSize, ShapeSize, ShapeSize, ShapeSize, ShapeSize}},
    {Measure::kEdgeRatio, {EdgeRatio, EdgeRatio, EdgeRatio, EdgeRatio, EdgeRatio, EdgeRatio}},
    {Measure::kAspectRatio, {TriAspect, QuadAspect, nullptr, EdgeRatio, EdgeRatio, nullptr}},
    {Measure::kSkew, {nullptr, nullptr, nullptr, nullptr, nullptr, HexSkew}},
    {Measure::kMinAngle,
     {MinFaceAngle, MinFaceAngle, MinDihedralAngle, MinFaceAngle, MinFaceAngle, MinFaceAngle}},
    {Measure::kMaxAngle,
     {MaxFaceAngle, MaxFaceAngle, MaxDihedralAngle, MaxFaceAngle, MaxFaceAngle, MaxFaceAngle}},
    {Measure::kScaledJacobian,
     {TriScaledJacobian, QuadScaledJacobian, TetScaledJacobian, SolidScaledJacobian,
      SolidScaledJacobian, SolidScaledJacobian}},
    {Measure::kShape, {TriShape, QuadShape, TetShape, nullptr, nullptr, HexShape}},
    {Measure::kCondition, {nullptr, QuadCondition, TetCondition, nullptr, nullptr, HexCondition}},
};

std::size_t ColumnOf(CornerShape shape) {
  return static_cast<std::size_t>(shape) - static_cast<std::size_t>(CornerShape::kTriangle);
}

constexpr double kNotDefined = std::numeric_limits<double>::quiet_NaN();

}  // namespace

FormulaOfTwo quality::FindFormulaOfTwo(Measure measure, CornerShape shape) {
  if (shape < CornerShape::kTriangle) return nullptr;
  for (const RowOfTwo& row : kFormulasOfTwo) {
    if (row.measure == measure) return row.formulas[ColumnOf(shape)];
  }
  return nullptr;
}

std::span<const MeasureInfo> Measures() { return kMeasures; }

const MeasureInfo* FindMeasure(std::string_view name) {
  const auto at = std::find_if(std::begin(kMeasures), std::end(kMeasures),
                               [&](const MeasureInfo& info) { return info.name == name; });
  return at == std::end(kMeasures) ? nullptr : at;
}

double Quality(Measure measure, CornerShape shape, const Point3* corners, double mean_size) {
  if (shape == CornerShape::kLine && measure == Measure::kSize) return ShapeSize(shape, corners);
  if (shape < CornerShape::kTriangle) return kNotDefined;
  const Formula formula = kFormulas[static_cast<std::size_t>(measure)][ColumnOf(shape)];
  if (!formula) return kNotDefined;
  const double value = formula(shape, corners);
  if (!kMeasures[static_cast<std::size_t>(measure)].is_relative) return value;
  return value * RelativeSize(ShapeSize(shape, corners), mean_size);
}

double Quality(Measure measure, const tagTElem& element) {
  Point3 corners[8];
  CornerShape shape;
  if (!CornersOf(element, shape, corners)) return kNotDefined;
  if (!std::all_of(corners, corners + TableOf(shape).corners, IsFinite)) return kNotDefined;
  return Quality(measure, shape, corners);
}

}  // namespace qx
