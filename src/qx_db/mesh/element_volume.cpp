#include "qx_db/mesh/element_volume.h"

#include <array>
#include <cstddef>

namespace qx {
namespace {

/// Six times the volume between the origin and a triangle.
template <class P>
NumberOf<P> Cone(const P& a, const P& b, const P& c) {
  return Triple(a, b, c);
}

/// Six times the volume between the origin and a bilinear surface: the mean of both ways to cut
/// it into two triangles.
template <class P>
NumberOf<P> Cone(const P& a, const P& b, const P& c, const P& d) {
  return 0.5 * (Cone(a, b, c) + Cone(a, c, d) + Cone(a, b, d) + Cone(b, c, d));
}

template <class P>
NumberOf<P> TetrahedronVolume(const P* p) {
  return Triple(p[1] - p[0], p[2] - p[0], p[3] - p[0]) / 6;
}

template <class P>
NumberOf<P> PyramidVolume(const P* p) {
  const P& apex = p[4];
  return Cone(p[0] - apex, p[3] - apex, p[2] - apex, p[1] - apex) / 6;
}

template <class P>
NumberOf<P> WedgeVolume(const P* p) {
  P q[6];
  for (int i = 0; i < 6; ++i) q[i] = p[i] - p[0];
  return (Cone(q[3], q[4], q[5]) + Cone(q[0], q[1], q[4], q[3]) + Cone(q[1], q[2], q[5], q[4]) +
          Cone(q[2], q[0], q[3], q[5])) /
         6;
}

/// The surface integral of the position over six bilinear faces, collected into three products
/// (J. Grandy, Efficient Computation of Volume of Hexahedral Cells, UCRL-ID-128886, 1997).
template <class P>
NumberOf<P> HexahedronVolume(const P* p) {
  return (Triple((p[3] - p[1]) + (p[7] - p[2]), p[6] - p[3], p[2] - p[0]) +
          Triple((p[4] - p[3]) + (p[5] - p[7]), p[6] - p[4], p[7] - p[0]) +
          Triple((p[1] - p[4]) + (p[2] - p[5]), p[6] - p[1], p[5] - p[0])) /
         12;
}

// ---- moments ------------------------------------------------------------------------------------

/// Three Gauss points on [0, 1]: exact to degree five.
constexpr double kAt[3] = {0.11270166537925831148, 0.5, 0.88729833462074168852};
constexpr double kWeight[3] = {5.0 / 18, 8.0 / 18, 5.0 / 18};

/// Every surface is a quadrilateral, and every solid a hexahedron, some of whose corners coincide:
/// one rule serves all.
constexpr std::array<int, 8> kAsHexahedron[] = {
    {0, 1, 2, 2, 3, 3, 3, 3},
    {0, 1, 2, 3, 4, 4, 4, 4},
    {0, 1, 2, 2, 3, 4, 5, 5},
    {0, 1, 2, 3, 4, 5, 6, 7},
};

Point3 Between(const Point3& a, const Point3& b, double t) { return (1 - t) * a + t * b; }

Moments LineMoments(const Point3* p) {
  Moments m;
  const double length = Distance(p[0], p[1]);
  for (int i = 0; i < 3; ++i) m.Collect(Between(p[0], p[1], kAt[i]), kWeight[i] * length);
  return m;
}

Moments SurfaceMoments(const Point3* q) {
  Moments m;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      const Point3 low = Between(q[0], q[1], kAt[i]), high = Between(q[3], q[2], kAt[i]);
      const Point3 du = Between(q[1] - q[0], q[2] - q[3], kAt[j]);
      const double area = Length(Cross(du, high - low));
      m.Collect(Between(low, high, kAt[j]), kWeight[i] * kWeight[j] * area);
    }
  }
  return m;
}

Moments SolidMoments(const Point3* h) {
  Moments m;
  for (int i = 0; i < 3; ++i) {
    // The four corners of the slice at u, and how they move with u.
    Point3 slice[4], along[4];
    constexpr int kLow[4] = {0, 3, 4, 7}, kHigh[4] = {1, 2, 5, 6};
    for (int c = 0; c < 4; ++c) {
      slice[c] = Between(h[kLow[c]], h[kHigh[c]], kAt[i]);
      along[c] = h[kHigh[c]] - h[kLow[c]];
    }
    for (int j = 0; j < 3; ++j) {
      const Point3 low = Between(slice[0], slice[1], kAt[j]);
      const Point3 high = Between(slice[2], slice[3], kAt[j]);
      for (int k = 0; k < 3; ++k) {
        const Point3 du = Between(Between(along[0], along[1], kAt[j]),
                                  Between(along[2], along[3], kAt[j]), kAt[k]);
        const Point3 dv = Between(slice[1] - slice[0], slice[3] - slice[2], kAt[k]);
        const double volume = Triple(du, dv, high - low);
        m.Collect(Between(low, high, kAt[k]), kWeight[i] * kWeight[j] * kWeight[k] * volume);
      }
    }
  }
  return m;
}

}  // namespace

double SolidVolume(int corners, const Point3* p) {
  switch (corners) {
    case 4:
      return TetrahedronVolume(p);
    case 5:
      return PyramidVolume(p);
    case 6:
      return WedgeVolume(p);
    case 8:
      return HexahedronVolume(p);
    default:
      return 0;
  }
}

namespace {

template <class P>
NumberOf<P> SizeOf(CornerShape shape, const P* p) {
  switch (shape) {
    case CornerShape::kLine:
      return Root(SquaredLength(p[1] - p[0]));
    case CornerShape::kTriangle:
      return TriangleArea(p[0], p[1], p[2]);
    case CornerShape::kQuadrilateral:
      return QuadrilateralArea(p);
    case CornerShape::kTetrahedron:
      return TetrahedronVolume(p);
    case CornerShape::kPyramid:
      return PyramidVolume(p);
    case CornerShape::kWedge:
      return WedgeVolume(p);
    case CornerShape::kHexahedron:
      return HexahedronVolume(p);
    default:
      return NumberOf<P>{};
  }
}

}  // namespace

double ShapeSize(CornerShape shape, const Point3* p) { return SizeOf(shape, p); }

Lanes ShapeSize(CornerShape shape, const LanePoint* p) { return SizeOf(shape, p); }

void Moments::Add(const Moments& other, double factor) {
  size += factor * other.size;
  first += factor * other.first;
  xx += factor * other.xx;
  yy += factor * other.yy;
  zz += factor * other.zz;
  xy += factor * other.xy;
  yz += factor * other.yz;
  zx += factor * other.zx;
}

Moments ShapeMoments(CornerShape shape, const Point3* p) {
  if (shape == CornerShape::kLine) return LineMoments(p);
  if (shape == CornerShape::kQuadrilateral) return SurfaceMoments(p);
  if (shape == CornerShape::kTriangle) {
    const Point3 q[4] = {p[0], p[1], p[2], p[2]};
    return SurfaceMoments(q);
  }
  if (shape < CornerShape::kTetrahedron) return {};
  const auto& as = kAsHexahedron[static_cast<std::size_t>(shape) -
                                 static_cast<std::size_t>(CornerShape::kTetrahedron)];
  Point3 h[8];
  for (std::size_t i = 0; i < 8; ++i) h[i] = p[as[i]];
  return SolidMoments(h);
}

}  // namespace qx
