#include "qx_db/mesh/element_shape.h"

#include <array>
#include <cmath>
#include <vector>

#include "qx_db/mesh/element_access.h"

namespace qx {
namespace {

constexpr std::size_t kMostNodes = 20;

/// A number with its derivatives by the three coordinates of a reference element.
struct Dual {
  double value = 0;
  double by[3]{};

  Dual(double constant) : value(constant) {}
  static Dual Coordinate(double at, int axis) {
    Dual dual(at);
    dual.by[axis] = 1;
    return dual;
  }
};

Dual operator+(Dual a, const Dual& b) {
  a.value += b.value;
  for (int i = 0; i < 3; ++i) a.by[i] += b.by[i];
  return a;
}
Dual operator-(Dual a, const Dual& b) {
  a.value -= b.value;
  for (int i = 0; i < 3; ++i) a.by[i] -= b.by[i];
  return a;
}
Dual operator*(const Dual& a, const Dual& b) {
  Dual product(a.value * b.value);
  for (int i = 0; i < 3; ++i) product.by[i] = a.by[i] * b.value + a.value * b.by[i];
  return product;
}
Dual operator/(const Dual& a, const Dual& b) {
  Dual ratio(a.value / b.value);
  for (int i = 0; i < 3; ++i) ratio.by[i] = (a.by[i] - ratio.value * b.by[i]) / b.value;
  return ratio;
}

using Functions = std::vector<Dual>;  // one for each node

/// Of a line, quadrilateral or hexahedron on [-1, 1] in each direction: the serendipity family.
Functions OfBlock(const ShapeTable& table, int dimension, const Dual (&at)[3]) {
  // Corners in the order of the table, whatever the dimension.
  constexpr double kCorner[8][3] = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                                    {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};
  Functions functions;
  for (int c = 0; c < table.corners; ++c) {
    Dual product(1), sum(1 - dimension);
    for (int i = 0; i < dimension; ++i) {
      product = product * (0.5 + 0.5 * kCorner[c][i] * at[i]);
      sum = sum + kCorner[c][i] * at[i];
    }
    functions.push_back(product * sum);
  }
  for (int e = 0; e < table.edges; ++e) {
    Dual product(1);
    for (int i = 0; i < dimension; ++i) {
      const double place = (kCorner[table.edge[e][0]][i] + kCorner[table.edge[e][1]][i]) / 2;
      product = product * (place == 0 ? 1 - at[i] * at[i] : 0.5 + 0.5 * place * at[i]);
    }
    functions.push_back(product);
  }
  return functions;
}

/// Of a triangle or tetrahedron by its barycentric coordinates.
Functions OfSimplex(const ShapeTable& table, const Dual* part) {
  Functions functions;
  for (int c = 0; c < table.corners; ++c) functions.push_back(part[c] * (2 * part[c] - 1));
  for (int e = 0; e < table.edges; ++e) {
    functions.push_back(4 * part[table.edge[e][0]] * part[table.edge[e][1]]);
  }
  return functions;
}

/// Of a wedge by the barycentric coordinates of its triangles and its height on [-1, 1].
Functions OfWedge(const ShapeTable& table, const Dual* part, const Dual& z) {
  Functions functions;
  const auto end = [&](int corner) { return corner < 3 ? 1 - z : 1 + z; };
  for (int c = 0; c < table.corners; ++c) {
    const Dual& p = part[c % 3];
    functions.push_back(0.5 * p * ((2 * p - 1) * end(c) - (1 - z * z)));
  }
  for (int e = 0; e < table.edges; ++e) {
    const int from = table.edge[e][0], to = table.edge[e][1];
    functions.push_back(to == from + 3 ? part[from] * (1 - z * z)
                                       : 2 * part[from % 3] * part[to % 3] * end(from));
  }
  return functions;
}

/// Of a pyramid whose base is [-1, 1] squared at t = 0 and whose apex is at t = 1.
Functions OfPyramid(const Dual& r, const Dual& s, const Dual& t) {
  const Dual left = 1 - t, twist = r * s * t / left;
  return {0.25 * (0 - r - s - 1) * ((1 - r) * (1 - s) - t + twist),
          0.25 * (r - s - 1) * ((1 + r) * (1 - s) - t - twist),
          0.25 * (r + s - 1) * ((1 + r) * (1 + s) - t + twist),
          0.25 * (s - r - 1) * ((1 - r) * (1 + s) - t - twist),
          t * (2 * t - 1),
          (left + r) * (left - r) * (left - s) / (2 * left),
          (left + s) * (left - s) * (left + r) / (2 * left),
          (left + r) * (left - r) * (left + s) / (2 * left),
          (left + s) * (left - s) * (left - r) / (2 * left),
          t * (left - r) * (left - s) / left,
          t * (left + r) * (left - s) / left,
          t * (left + r) * (left + s) / left,
          t * (left - r) * (left + s) / left};
}

/// The shape functions of a kind, at a place of the unit cube that is mapped onto its reference
/// element; `weight` is multiplied by what a volume grows there.
Functions FunctionsAt(CornerShape shape, const double (&cube)[3], double& weight) {
  const ShapeTable& table = TableOf(shape);
  const auto line = [&](int i) { return Dual::Coordinate(2 * cube[i] - 1, i); };
  // A triangle or tetrahedron is a square or cube of which one side is drawn together.
  const double v = cube[1], w = cube[2];
  switch (shape) {
    case CornerShape::kTriangle:
    case CornerShape::kWedge: {
      const Dual a = Dual::Coordinate(cube[0] * (1 - v), 0), b = Dual::Coordinate(v, 1);
      const Dual part[3] = {1 - a - b, a, b};
      weight *= 1 - v;
      if (shape == CornerShape::kTriangle) return OfSimplex(table, part);
      weight *= 2;
      return OfWedge(table, part, line(2));
    }
    case CornerShape::kTetrahedron: {
      const Dual a = Dual::Coordinate(cube[0] * (1 - v) * (1 - w), 0);
      const Dual b = Dual::Coordinate(v * (1 - w), 1), c = Dual::Coordinate(w, 2);
      const Dual part[4] = {1 - a - b - c, a, b, c};
      weight *= (1 - v) * (1 - w) * (1 - w);
      return OfSimplex(table, part);
    }
    case CornerShape::kPyramid: {
      weight *= 4 * (1 - w) * (1 - w);
      return OfPyramid(Dual::Coordinate((2 * cube[0] - 1) * (1 - w), 0),
                       Dual::Coordinate((2 * v - 1) * (1 - w), 1), Dual::Coordinate(w, 2));
    }
    default: {
      const int dimension = topology::DimensionOf(shape);
      const Dual at[3] = {line(0), line(1), line(2)};
      weight *= std::pow(2, dimension);
      return OfBlock(table, dimension, at);
    }
  }
}

/// A place at which a kind is integrated.
struct RulePoint {
  double weight = 1;
  std::array<double, kMostNodes> value{};
  std::array<double, kMostNodes> by[3]{};
};

/// Gauss points on [0, 1]: four, exact to degree seven, which is that of the mass centre of a
/// curved hexahedron in each direction, and of a curved tetrahedron in the one that is drawn
/// together twice.
constexpr int kPoints = 4;
constexpr double kAt[kPoints] = {0.069431844202973712, 0.33000947820757187, 0.66999052179242813,
                                 0.93056815579702629};
constexpr double kWeight[kPoints] = {0.17392742256872693, 0.32607257743127307, 0.32607257743127307,
                                     0.17392742256872693};

std::vector<RulePoint> MakeRule(CornerShape shape) {
  std::vector<RulePoint> rule;
  const int dimension = topology::DimensionOf(shape);
  const int along[3] = {kPoints, dimension > 1 ? kPoints : 1, dimension > 2 ? kPoints : 1};
  for (int i = 0; i < along[0]; ++i) {
    for (int j = 0; j < along[1]; ++j) {
      for (int k = 0; k < along[2]; ++k) {
        RulePoint& point = rule.emplace_back();
        const double cube[3] = {kAt[i], kAt[j], kAt[k]};
        point.weight =
            kWeight[i] * (along[1] > 1 ? kWeight[j] : 1) * (along[2] > 1 ? kWeight[k] : 1);
        const Functions functions = FunctionsAt(shape, cube, point.weight);
        for (std::size_t n = 0; n < functions.size(); ++n) {
          point.value[n] = functions[n].value;
          for (int d = 0; d < 3; ++d) point.by[d][n] = functions[n].by[d];
        }
      }
    }
  }
  return rule;
}

const std::vector<RulePoint>& RuleOf(CornerShape shape) {
  static const auto rules = [] {
    std::array<std::vector<RulePoint>, std::size(kShapeTables)> made;
    for (auto s = static_cast<std::size_t>(CornerShape::kLine); s < made.size(); ++s) {
      made[s] = MakeRule(static_cast<CornerShape>(s));
    }
    return made;
  }();
  return rules[static_cast<std::size_t>(shape)];
}

Point3 Sum(const std::array<double, kMostNodes>& factors, const Point3* p, std::size_t count) {
  Point3 sum;
  for (std::size_t n = 0; n < count; ++n) sum += factors[n] * p[n];
  return sum;
}

/// Whether a node between corners is off the middle of its edge by more than its coordinates are
/// rounded.
bool IsCurved(const ShapeTable& table, const Point3* p) {
  constexpr double kRounding = 1e-9;
  for (int e = 0; e < table.edges; ++e) {
    const Point3& from = p[table.edge[e][0]];
    const Point3& to = p[table.edge[e][1]];
    const Point3 off = p[table.corners + e] - 0.5 * (from + to);
    if (SquaredLength(off) > kRounding * kRounding * SquaredLength(to - from)) return true;
  }
  return false;
}

}  // namespace

Moments CurvedMoments(CornerShape shape, const Point3* nodes) {
  Moments moments;
  const ShapeTable& table = TableOf(shape);
  const auto count = static_cast<std::size_t>(table.corners + table.edges);
  const int dimension = topology::DimensionOf(shape);
  if (dimension < 1) return moments;
  for (const RulePoint& point : RuleOf(shape)) {
    Point3 along[3];
    for (int d = 0; d < dimension; ++d) along[d] = Sum(point.by[d], nodes, count);
    const double grows = dimension == 1   ? Length(along[0])
                         : dimension == 2 ? Length(Cross(along[0], along[1]))
                                          : Triple(along[0], along[1], along[2]);
    moments.Collect(Sum(point.value, nodes, count), point.weight * grows);
  }
  return moments;
}

ShapeMeasure MeasureShape(const tagTElem& element) {
  ShapeMeasure measure;
  Point3 p[kMostNodes];
  if (!CornersOf(element, measure.shape, p) || measure.shape < CornerShape::kLine) return {};
  const ShapeTable& table = TableOf(measure.shape);
  const std::int32_t nodes = table.corners + table.edges;
  measure.is_curved = ElementTopology(element.type).Nodes() == nodes &&
                      FirstPositions(element, nodes, p) && IsCurved(table, p);
  measure.moments =
      measure.is_curved ? CurvedMoments(measure.shape, p) : ShapeMoments(measure.shape, p);
  return measure;
}

double ElementSize(const tagTElem& element) {
  Point3 p[kMostNodes];
  CornerShape shape;
  if (!CornersOf(element, shape, p)) return 0;
  const ShapeMeasure measure = MeasureShape(element);
  return measure.is_curved ? measure.moments.size : ShapeSize(shape, p);
}

}  // namespace qx
