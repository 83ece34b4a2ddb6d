// Conditions on where things are and how large: places, coordinates, measures. An element or face
// is in a place when all its nodes are.

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <tuple>

#include "qx_db/lib/units.h"
#include "qx_db/mesh/quality_values.h"
#include "qx_db/model/coordinate_pool.h"
#include "qx_db/select/conditions.h"

namespace qx::select {
namespace {

/// Marks nodes whose place passes a test, or what lies on such nodes alone.
template <class Test>
void MarkPlaces(const MeshView& mesh, const Term& term, Marks& marks, const Test& test) {
  if (term.kind != SelectKind::kNodes && !mesh.IsPart())
    mesh.Mesh();  // whose positions lie closer together
  Marks nodes = mesh.None(SelectKind::kNodes);
  nodes.Fill([&](std::size_t n) { return test(mesh.Position(n)); });
  marks = term.kind == SelectKind::kNodes      ? std::move(nodes)
          : term.kind == SelectKind::kElements ? mesh.ElementsWithin(nodes)
                                               : mesh.FacesWithin(nodes);
}

// ---- numbers with units -------------------------------------------------------------------------

double SizeOf(UnitBase base, std::string_view unit) {
  const auto& definition = UnitsOf(base)[static_cast<std::size_t>(FindUnit(base, unit))];
  return definition.numerator / definition.denominator;
}

/// A number in current units to the power of a length; fails for a unit of something else.
Result<double> Current(const MeshView& mesh, const Quantity& quantity, int power) {
  if (quantity.unit.empty()) return quantity.value;
  if (FindUnit(UnitBase::kLength, quantity.unit) < 0 || quantity.power != power || power == 0) {
    const std::string written =
        quantity.unit + (quantity.power == 1 ? "" : std::to_string(quantity.power));
    const char* const kWanted[] = {"has no unit", "is a length", "is an area", "is a volume"};
    return mesh.Fault(quantity.at,
                      fmt::format("the number is in {}, but {}", written, kWanted[power]),
                      power == 0   ? "write it without a unit"
                      : power == 1 ? "write it in mm or another unit of length"
                                   : fmt::format("write it in mm{}, or without a unit", power));
  }
  const UnitSystem& units = mesh.Session().Units().Current();
  const auto& current =
      UnitsOf(UnitBase::kLength)[static_cast<std::size_t>(units[UnitBase::kLength])];
  const double factor =
      SizeOf(UnitBase::kLength, quantity.unit) * current.denominator / current.numerator;
  return quantity.value * std::pow(factor, power);
}

/// A length in model units.
Result<double> LengthOf(const MeshView& mesh, const Quantity& quantity) {
  const auto current = Current(mesh, quantity, 1);
  if (!current) return current.Error();
  return mesh.Session().Units().In(unit::kLength, *current);
}

/// An angle in degrees.
Result<double> DegreesOf(const MeshView& mesh, const Quantity& quantity) {
  if (quantity.unit.empty()) return quantity.value;
  if (FindUnit(UnitBase::kAngle, quantity.unit) < 0) {
    return mesh.Fault(quantity.at, fmt::format("the angle is in {}", quantity.unit),
                      "write it in deg or rad");
  }
  return quantity.value * SizeOf(UnitBase::kAngle, quantity.unit);
}

// ---- coordinate systems -------------------------------------------------------------------------

/// The coordinates in which places are given: of a system, or global ones.
class Coordinates {
 public:
  static Result<Coordinates> Of(const MeshView& mesh, const Term& term) {
    Coordinates own;
    const Arguments& arguments = term.arguments;
    if (arguments.system_at == 0) return own;
    const auto* const pool = mesh.Session().GetPool<DPoolCord>(code::kCord);
    const ITR system = pool ? pool->Find(arguments.system) : 0;
    if (system == 0) {
      return mesh.Fault(arguments.system_at,
                        fmt::format("there is no coordinate system {}", arguments.system),
                        "name one of qxdb show MODEL cord");
    }
    if (!pool->GetFrame(system, own.frame_)) {
      return mesh.Fault(arguments.system_at,
                        fmt::format("coordinate system {} has no axes", arguments.system),
                        "give it three points that are not on one line");
    }
    own.is_global_ = false;
    own.type_ = pool->GetAtNU(system).type;
    return own;
  }

  bool IsAngle(int coordinate) const {
    return (type_ == tagTCord::kCylindrical && coordinate == 1) ||
           (type_ == tagTCord::kSpherical && coordinate > 0);
  }
  /// A point's own coordinates.
  Point3 From(const Point3& point) const {
    return is_global_ ? point : FromRectangular(type_, frame_.axes.ToLocal(point - frame_.origin));
  }
  Point3 ToGlobal(const Point3& coordinates) const {
    return is_global_ ? coordinates
                      : frame_.origin + frame_.axes.ToGlobal(ToRectangular(type_, coordinates));
  }
  Point3 DirectionToGlobal(const Point3& direction) const {
    return is_global_ ? direction : frame_.axes.ToGlobal(direction);
  }

  /// Three numbers of a condition: lengths in model units, angles in degrees.
  Result<Point3> Read(const MeshView& mesh, const Term& term, std::size_t first) const {
    Point3 point;
    for (int i = 0; i < 3; ++i) {
      const Quantity& quantity = term.arguments.numbers[first + static_cast<std::size_t>(i)];
      const auto number = IsAngle(i) ? DegreesOf(mesh, quantity) : LengthOf(mesh, quantity);
      if (!number) return number.Error();
      point[i] = *number;
    }
    return point;
  }

 private:
  bool is_global_ = true;
  std::int32_t type_ = tagTCord::kRectangular;
  Frame frame_;
};

constexpr double kAngleTolerance = 1e-9 * 360;

bool IsBetween(double value, double low, double high, double room) {
  return value >= low - room && value <= high + room;
}
/// From an angle up to another, all in degrees, from 0 to 360.
double TurnTo(double from, double to) {
  const double turn = std::fmod(to - from, 360);
  return turn < 0 ? turn + 360 : turn;
}
/// Whether an angle is met on the way from one up to another.
bool IsOnTurn(double value, double from, double to) {
  const double way = to - from >= 360 ? 360 : TurnTo(from, to);
  const double place = TurnTo(from, value);
  return place <= way + kAngleTolerance || place >= 360 - kAngleTolerance;
}

/// Whether a number is as a limit wants it; what is within `room` of the limit is equal to it.
bool Compares(Comparison comparison, double value, double limit, double room) {
  switch (comparison) {
    case Comparison::kLess:
      return value < limit - room;
    case Comparison::kAtMost:
      return value <= limit + room;
    case Comparison::kMore:
      return value > limit + room;
    case Comparison::kAtLeast:
      return value >= limit - room;
    case Comparison::kEqual:
      return std::abs(value - limit) <= room;
    case Comparison::kOther:
      return std::abs(value - limit) > room;
  }
  return false;
}

/// A direction of three plain numbers, of length 1.
Result<Point3> DirectionOf(const MeshView& mesh, const Term& term, std::size_t first) {
  const std::vector<Quantity>& numbers = term.arguments.numbers;
  Point3 direction;
  double largest = 0;
  for (int i = 0; i < 3; ++i) {
    const Quantity& number = numbers[first + static_cast<std::size_t>(i)];
    if (!number.unit.empty()) {
      return mesh.Fault(number.at, fmt::format("a direction is not in {}", number.unit),
                        "write its numbers without units");
    }
    direction[i] = number.value;
    largest = std::max(largest, std::abs(number.value));
  }
  // So that no square is too large or too small for a number.
  if (largest > 0)
    direction = Point3(direction.x / largest, direction.y / largest, direction.z / largest);
  if (Normalize(direction)) return direction;
  return mesh.Fault(numbers[first].at, "the direction has no length", "write one such as 0,0,1");
}

Outcome MarkSideOfPlane(const MeshView& mesh, const Term& term, Marks& marks, double sign) {
  const auto system = Coordinates::Of(mesh, term);
  if (!system) return system.AsOutcome();
  const auto through = system->Read(mesh, term, 0);
  if (!through) return through.AsOutcome();
  const auto normal = DirectionOf(mesh, term, 3);
  if (!normal) return normal.AsOutcome();
  const Point3 point = system->ToGlobal(*through);
  const Point3 up = sign * system->DirectionToGlobal(*normal);
  const double room = mesh.Tolerance();
  MarkPlaces(mesh, term, marks, [&](const Point3& p) { return Dot(p - point, up) >= -room; });
  return {};
}

}  // namespace

Outcome MarkBox(const MeshView& mesh, const Term& term, Marks& marks) {
  const auto system = Coordinates::Of(mesh, term);
  if (!system) return system.AsOutcome();
  const auto one = system->Read(mesh, term, 0), other = system->Read(mesh, term, 3);
  if (!one) return one.AsOutcome();
  if (!other) return other.AsOutcome();
  Point3 low, high;
  bool is_angle[3];
  for (int i = 0; i < 3; ++i) {
    // There are two ways from an angle to another: the one meant is that of growing angles.
    is_angle[i] = system->IsAngle(i);
    low[i] = is_angle[i] ? (*one)[i] : std::min((*one)[i], (*other)[i]);
    high[i] = is_angle[i] ? (*other)[i] : std::max((*one)[i], (*other)[i]);
  }
  const double room = mesh.Tolerance();
  MarkPlaces(mesh, term, marks, [&](const Point3& point) {
    const Point3 p = system->From(point);
    bool is_in = true;
    for (int i = 0; i < 3; ++i) {
      is_in &=
          is_angle[i] ? IsOnTurn(p[i], low[i], high[i]) : IsBetween(p[i], low[i], high[i], room);
    }
    return is_in;
  });
  return {};
}

Outcome MarkSphere(const MeshView& mesh, const Term& term, Marks& marks) {
  const auto system = Coordinates::Of(mesh, term);
  if (!system) return system.AsOutcome();
  const auto centre = system->Read(mesh, term, 0);
  if (!centre) return centre.AsOutcome();
  const auto radius = LengthOf(mesh, term.arguments.numbers[3]);
  if (!radius) return radius.AsOutcome();
  const Point3 middle = system->ToGlobal(*centre);
  const double reach = *radius + mesh.Tolerance();
  MarkPlaces(mesh, term, marks, [&](const Point3& p) { return Distance(p, middle) <= reach; });
  return {};
}

Outcome MarkCylinder(const MeshView& mesh, const Term& term, Marks& marks) {
  const auto system = Coordinates::Of(mesh, term);
  if (!system) return system.AsOutcome();
  const auto one = system->Read(mesh, term, 0), other = system->Read(mesh, term, 3);
  if (!one) return one.AsOutcome();
  if (!other) return other.AsOutcome();
  const auto radius = LengthOf(mesh, term.arguments.numbers[6]);
  if (!radius) return radius.AsOutcome();
  const Point3 begin = system->ToGlobal(*one);
  Point3 axis = system->ToGlobal(*other) - begin;
  const double length = Length(axis);
  if (!Normalize(axis)) {
    return mesh.Fault(term.arguments.numbers[0].at, "the axis of the cylinder has no length",
                      "write two points that differ");
  }
  const double room = mesh.Tolerance(), reach = *radius + room;
  MarkPlaces(mesh, term, marks, [&](const Point3& p) {
    return IsBetween(Dot(p - begin, axis), 0, length, room) &&
           Length(Across(p - begin, axis)) <= reach;
  });
  return {};
}

Outcome MarkAbove(const MeshView& mesh, const Term& term, Marks& marks) {
  return MarkSideOfPlane(mesh, term, marks, 1);
}

Outcome MarkBelow(const MeshView& mesh, const Term& term, Marks& marks) {
  return MarkSideOfPlane(mesh, term, marks, -1);
}

Outcome MarkCoordinate(const MeshView& mesh, const Term& term, Marks& marks) {
  const auto system = Coordinates::Of(mesh, term);
  if (!system) return system.AsOutcome();
  const int axis = term.arguments.word[0] - 'x';
  const Quantity& quantity = term.arguments.numbers[0];
  const bool is_angle = system->IsAngle(axis);
  const auto limit = is_angle ? DegreesOf(mesh, quantity) : LengthOf(mesh, quantity);
  if (!limit) return limit.AsOutcome();
  const Comparison comparison = term.arguments.comparison;
  const bool is_order = comparison != Comparison::kEqual && comparison != Comparison::kOther;
  if (is_angle && is_order && std::abs(*limit) > 180) {
    return mesh.Fault(quantity.at, "angles are from -180 to 180 degrees where they are compared",
                      "write the range from one angle up to another by a box");
  }
  const double room = is_angle ? kAngleTolerance : mesh.Tolerance();
  MarkPlaces(mesh, term, marks, [&](const Point3& point) {
    double value = system->From(point)[axis];
    // Equal are angles that are whole turns apart.
    if (is_angle && !is_order) value = *limit + std::remainder(value - *limit, 360);
    return Compares(comparison, value, *limit, room);
  });
  return {};
}

namespace {

/// Marks elements whose value of a measure is as the limit wants it, or their faces.
void MarkValues(const MeshView& mesh, const Term& term, Marks& marks, const MeasureInfo& info,
                double limit, int dimension) {
  constexpr double kRounding = 1e-9;  // as of limits in a check
  const CQXDBSession& session = mesh.Session();
  const double factor = session.Units().Out(unit::kLength, 1.0);
  const std::vector<double> values =
      mesh.HasMesh() ? ValuesOf(mesh.Mesh(), info, factor) : ValuesOf(session, info, factor);
  const double room = kRounding * std::abs(limit);
  Marks elements = mesh.None(SelectKind::kElements);
  elements.Fill([&](std::size_t e) {
    if (dimension > 0) {
      const CornerShape shape = topology::ShapeOf(mesh.Element(e).type);
      if (shape == CornerShape::kNone || topology::DimensionOf(shape) != dimension) return false;
    }
    return !std::isnan(values[e]) && Compares(term.arguments.comparison, values[e], limit, room);
  });
  marks = term.kind == SelectKind::kFaces ? mesh.FacesOfElements(elements) : std::move(elements);
}

}  // namespace

Outcome MarkMeasure(const MeshView& mesh, const Term& term, Marks& marks) {
  const MeasureInfo& info = *FindMeasure(term.arguments.word);
  const Quantity& quantity = term.arguments.numbers[0];
  constexpr std::string_view kDegrees = "deg";
  const int power = info.measure == Measure::kDimension ? 1 : 0;
  const auto limit =
      info.unit == kDegrees ? DegreesOf(mesh, quantity) : Current(mesh, quantity, power);
  if (!limit) return limit.AsOutcome();
  MarkValues(mesh, term, marks, info, *limit, 0);
  return {};
}

Outcome MarkSize(const MeshView& mesh, const Term& term, Marks& marks) {
  const std::string& word = term.arguments.word;
  const int dimension = word == "length" ? 1 : word == "area" ? 2 : 3;
  const auto limit = Current(mesh, term.arguments.numbers[0], dimension);
  if (!limit) return limit.AsOutcome();
  MarkValues(mesh, term, marks, *FindMeasure("size"), *limit, dimension);
  return {};
}

Outcome MarkFacing(const MeshView& mesh, const Term& term, Marks& marks) {
  const auto direction = DirectionOf(mesh, term, 0);
  if (!direction) return direction.AsOutcome();
  const auto angle = DegreesOf(mesh, term.arguments.numbers[3]);
  if (!angle) return angle.AsOutcome();
  mesh.All(SelectKind::kFaces).ForEach([&](std::size_t face) {
    Point3 normal = mesh.FaceNormal(face);
    if (!Normalize(normal)) return;
    if (AngleBetween(normal, *direction) <= *angle + kAngleTolerance) marks.Add(face);
  });
  return {};
}

Outcome MarkSpread(const MeshView& mesh, const Term& term, Marks& marks) {
  const auto angle = DegreesOf(mesh, term.arguments.numbers[0]);
  if (!angle) return angle.AsOutcome();
  if (Outcome marked = Mark(mesh, term.parts[0], marks); !marked) return marked;
  const std::vector<std::size_t>& surface = mesh.Surface();
  std::vector<Point3> normals(surface.size());
  /// An edge of a face, by its ends in ascending order, and whether the face runs so along it.
  struct Edge {
    std::uint32_t low, high, face;
    bool ascends;
  };
  std::vector<Edge> edges;
  std::array<std::uint32_t, 8> room;
  for (std::uint32_t f = 0; f < surface.size(); ++f) {
    normals[f] = mesh.FaceNormal(surface[f]);
    Normalize(normals[f]);
    const auto corners = mesh.FaceNodes(surface[f], false, room);
    for (std::size_t i = 0; i < corners.size(); ++i) {
      const std::uint32_t a = corners[i], b = corners[(i + 1) % corners.size()];
      edges.push_back({std::min(a, b), std::max(a, b), f, a < b});
    }
  }
  std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) {
    return std::tie(a.low, a.high, a.face) < std::tie(b.low, b.high, b.face);
  });
  // Neighbours by face: over a smooth edge, and only those.
  std::vector<std::pair<std::uint32_t, std::uint32_t>> links;
  for (std::size_t first = 0, end; first < edges.size(); first = end) {
    for (end = first + 1; end < edges.size() && edges[end].low == edges[first].low &&
                          edges[end].high == edges[first].high;) {
      ++end;
    }
    for (std::size_t i = first; i < end; ++i) {
      for (std::size_t j = i + 1; j < end; ++j) {
        // Faces that run the same way along an edge are turned against each other.
        const double turn = edges[i].ascends == edges[j].ascends ? -1 : 1;
        const std::uint32_t a = edges[i].face, b = edges[j].face;
        if (AngleBetween(normals[a], turn * normals[b]) > *angle + kAngleTolerance) continue;
        links.emplace_back(a, b);
        links.emplace_back(b, a);
      }
    }
  }
  std::sort(links.begin(), links.end());
  std::vector<std::uint32_t> open;
  for (std::uint32_t f = 0; f < surface.size(); ++f) {
    if (marks.Has(surface[f])) open.push_back(f);
  }
  while (!open.empty()) {
    const std::uint32_t f = open.back();
    open.pop_back();
    for (auto link = std::lower_bound(links.begin(), links.end(), std::pair(f, 0u));
         link != links.end() && link->first == f; ++link) {
      if (marks.Has(surface[link->second])) continue;
      marks.Add(surface[link->second]);
      open.push_back(link->second);
    }
  }
  return {};
}

}  // namespace qx::select
