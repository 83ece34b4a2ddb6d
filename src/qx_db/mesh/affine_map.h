#pragma once
// Maps of space that keep lines straight: shifts, turns, scalings, reflections and what follows
// from doing one after another.
// Threads: values: one at a time for each object.

#include "qx_db/mesh/point3.h"

namespace qx {

/// p -> A p + shift. Lengths are in the unit of the points that it is applied to.
struct AffineMap {
  Triad rows;  ///< of A
  Vector3 shift;

  Point3 operator()(const Point3& p) const { return rows.ToLocal(p) + shift; }
  /// The image of a difference of two points.
  Vector3 Direction(const Vector3& v) const { return rows.ToLocal(v); }
  /// Negative for what turns right into left.
  double Determinant() const { return Triple(rows.x, rows.y, rows.z); }
  bool IsMirror() const { return Determinant() < 0; }
  /// Whether directions come out as others: false for shifts and for scaling alike in all of them.
  bool TurnsDirections() const {
    return !(rows.x.x > 0) || rows.y.y != rows.x.x || rows.z.z != rows.x.x || rows.x.y != 0 ||
           rows.x.z != 0 || rows.y.x != 0 || rows.y.z != 0 || rows.z.x != 0 || rows.z.y != 0;
  }
  /// Whether lengths come out as others.
  bool ChangesLengths() const {
    constexpr double kRounding = 1e-12;
    for (const Vector3& axis : {Vector3(1, 0, 0), Vector3(0, 1, 0), Vector3(0, 0, 1)}) {
      if (std::abs(Length(Direction(axis)) - 1) > kRounding) return true;
    }
    return false;
  }

  /// This one first, then `next`.
  AffineMap Then(const AffineMap& next) const {
    AffineMap both;
    // The columns of a product are the images of columns.
    const Vector3 x = next.Direction({rows.x.x, rows.y.x, rows.z.x});
    const Vector3 y = next.Direction({rows.x.y, rows.y.y, rows.z.y});
    const Vector3 z = next.Direction({rows.x.z, rows.y.z, rows.z.z});
    both.rows = {{x.x, y.x, z.x}, {x.y, y.y, z.y}, {x.z, y.z, z.z}};
    both.shift = next(shift);
    return both;
  }

  static AffineMap Translation(const Vector3& by) { return {{}, by}; }
  /// About the line through a point along a unit direction, by the right-hand rule.
  static AffineMap Rotation(const Point3& on_axis, const Vector3& axis, double angle_deg) {
    return About(on_axis, Rotated({1, 0, 0}, axis, angle_deg), Rotated({0, 1, 0}, axis, angle_deg),
                 Rotated({0, 0, 1}, axis, angle_deg));
  }
  /// By a factor along each of three unit axes at right angles, from a fixed centre.
  static AffineMap Scaling(const Point3& centre, const Triad& axes, const Vector3& factors) {
    const auto scaled = [&](const Vector3& v) {
      const Vector3 local = axes.ToLocal(v);
      return axes.ToGlobal({factors.x * local.x, factors.y * local.y, factors.z * local.z});
    };
    if (factors.x == factors.y && factors.y == factors.z) {  // without the rounding of axes
      const double f = factors.x;
      return About(centre, {f, 0, 0}, {0, f, 0}, {0, 0, f});
    }
    return About(centre, scaled({1, 0, 0}), scaled({0, 1, 0}), scaled({0, 0, 1}));
  }
  /// In the plane through a point with a unit normal.
  static AffineMap Mirror(const Point3& on_plane, const Vector3& normal) {
    const auto mirrored = [&](const Vector3& v) { return v - (2 * Dot(v, normal)) * normal; };
    return About(on_plane, mirrored({1, 0, 0}), mirrored({0, 1, 0}), mirrored({0, 0, 1}));
  }
  /// What lies in one system of unit axes comes to lie the same way in another.
  static AffineMap Between(const Point3& from_origin, const Triad& from, const Point3& to_origin,
                           const Triad& to) {
    const auto moved = [&](const Vector3& v) { return to.ToGlobal(from.ToLocal(v)); };
    AffineMap map = About({}, moved({1, 0, 0}), moved({0, 1, 0}), moved({0, 0, 1}));
    map.shift = to_origin - map.Direction(from_origin);
    return map;
  }

 private:
  /// By the images of the axes, with a point that stays.
  static AffineMap About(const Point3& fixed, const Vector3& x, const Vector3& y,
                         const Vector3& z) {
    AffineMap map;
    map.rows = {{x.x, y.x, z.x}, {x.y, y.y, z.y}, {x.z, y.z, z.z}};
    map.shift = fixed - map.Direction(fixed);
    return map;
  }
};

}  // namespace qx
