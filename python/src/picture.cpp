// A picture of the mesh without a display: the skin of solids, surfaces and lines, seen from the
// right, front and above, lit from the viewer, with a depth buffer.

#include <algorithm>
#include <array>
#include <cmath>
#include <pybind11/numpy.h>

#include "qx_db/mesh/mesh_adjacency.h"

#include "handle.h"

namespace qx::python {
namespace {

struct Canvas {
  py::ssize_t width, height;
  std::uint8_t* rgb;         ///< height x width x 3
  std::vector<float> depth;  ///< nearer is greater

  void Put(py::ssize_t x, py::ssize_t y, double z, const std::array<double, 3>& color) {
    if (x < 0 || y < 0 || x >= width || y >= height) return;
    const auto at = static_cast<std::size_t>(y * width + x);
    if (static_cast<float>(z) <= depth[at]) return;
    depth[at] = static_cast<float>(z);
    for (std::size_t i = 0; i < 3; ++i) {
      rgb[3 * at + i] = static_cast<std::uint8_t>(std::clamp(color[i], 0.0, 255.0));
    }
  }

  void Triangle(const Point3& a, const Point3& b, const Point3& c,
                const std::array<double, 3>& color) {
    const double area = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
    if (area == 0) return;
    const auto low = [](double p, double q, double r) {
      return static_cast<py::ssize_t>(std::floor(std::min({p, q, r})));
    };
    const auto high = [](double p, double q, double r) {
      return static_cast<py::ssize_t>(std::ceil(std::max({p, q, r})));
    };
    for (py::ssize_t y = std::max<py::ssize_t>(low(a.y, b.y, c.y), 0);
         y <= std::min(high(a.y, b.y, c.y), height - 1); ++y) {
      for (py::ssize_t x = std::max<py::ssize_t>(low(a.x, b.x, c.x), 0);
           x <= std::min(high(a.x, b.x, c.x), width - 1); ++x) {
        const auto px = static_cast<double>(x), py_ = static_cast<double>(y);
        const double u = ((b.x - px) * (c.y - py_) - (b.y - py_) * (c.x - px)) / area;
        const double v = ((c.x - px) * (a.y - py_) - (c.y - py_) * (a.x - px)) / area;
        const double w = 1 - u - v;
        if (u < 0 || v < 0 || w < 0) continue;
        Put(x, y, u * a.z + v * b.z + w * c.z, color);
      }
    }
  }

  void Line(const Point3& a, const Point3& b, double lift, const std::array<double, 3>& color) {
    const double steps = std::max(std::abs(b.x - a.x), std::abs(b.y - a.y));
    const auto count = static_cast<int>(std::min(steps, 1e5)) + 1;
    for (int i = 0; i <= count; ++i) {
      const Point3 p = a + (static_cast<double>(i) / count) * (b - a);
      Put(std::lround(p.x), std::lround(p.y), p.z + lift, color);
    }
  }
};

/// From model to canvas: x right, y down, z towards the viewer.
class View {
 public:
  View(const DenseMesh& mesh, py::ssize_t width, py::ssize_t height) {
    Point3 low{1e300, 1e300, 0}, high{-1e300, -1e300, 0};
    for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
      const Point3 p = Turn(mesh.Position(n));
      if (!IsFinite(p)) continue;
      low = {std::min(low.x, p.x), std::min(low.y, p.y), 0};
      high = {std::max(high.x, p.x), std::max(high.y, p.y), 0};
    }
    const auto w = static_cast<double>(width), h = static_cast<double>(height);
    const double across = std::max(high.x - low.x, 1e-300), up = std::max(high.y - low.y, 1e-300);
    scale_ = 0.92 * std::min(w / across, h / up);
    shift_ = {w / 2 - scale_ * (low.x + high.x) / 2, h / 2 + scale_ * (low.y + high.y) / 2, 0};
  }
  Point3 operator()(const Point3& p) const {
    const Point3 turned = Turn(p);
    return {shift_.x + scale_ * turned.x, shift_.y - scale_ * turned.y, scale_ * turned.z};
  }

 private:
  /// The model's z is up; the eye is at azimuth -60 and elevation 25 degrees.
  static Point3 Turn(const Point3& p) {
    constexpr double kSin = 0.8660254037844386, kCos = 0.5;
    constexpr double kSinUp = 0.42261826174069944, kCosUp = 0.9063077870366499;
    const double x = kSin * p.x + kCos * p.y;
    const double away = -kCos * p.x + kSin * p.y;
    return {x, kSinUp * away + kCosUp * p.z, kSinUp * p.z - kCosUp * away};
  }
  double scale_ = 1;
  Point3 shift_;
};

void DrawFace(Canvas& canvas, const View& view, const DenseMesh& mesh,
              std::span<const std::uint32_t> nodes, std::array<double, 3> color) {
  std::array<Point3, 4> p;
  const std::size_t count = std::min<std::size_t>(nodes.size(), 4);
  for (std::size_t i = 0; i < count; ++i) {
    p[i] = view(mesh.Position(nodes[i]));
    if (!IsFinite(p[i])) return;
  }
  Point3 normal = Cross(p[1] - p[0], p[2] - p[0]);
  if (!Normalize(normal)) return;
  const double light = 0.35 + 0.65 * std::abs(normal.z);
  std::array<double, 3> lit = color, edge = color;
  for (std::size_t i = 0; i < 3; ++i) {
    lit[i] *= light;
    edge[i] *= 0.45 * light;
  }
  for (std::size_t i = 2; i < count; ++i) canvas.Triangle(p[0], p[i - 1], p[i], lit);
  for (std::size_t i = 0; i < count; ++i) canvas.Line(p[i], p[(i + 1) % count], 0.5, edge);
}

/// height x width x 3 bytes, red green blue, on white.
py::array_t<std::uint8_t> Picture(Handle& handle, int width, int height) {
  const Guard guard(handle);
  if (width < 1 || height < 1 || width > 10000 || height > 10000) {
    Refuse(FaultKind::kValue, "picture", "has no such size", "give 1 to 10000 pixels each way");
  }
  py::array_t<std::uint8_t> out(
      {static_cast<py::ssize_t>(height), static_cast<py::ssize_t>(width), py::ssize_t{3}});
  Canvas canvas{width, height, out.mutable_data(), {}};
  const py::gil_scoped_release others_may_run;
  const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  std::fill_n(canvas.rgb, 3 * pixels, std::uint8_t{255});
  canvas.depth.assign(pixels, -3e38F);
  const DenseMesh mesh(handle.Session());
  const View view(mesh, width, height);
  constexpr std::array<double, 3> kSolid{118, 160, 205}, kSurface{150, 190, 140};
  constexpr std::array<double, 3> kLine{150, 60, 40};
  for (const DenseSide& side : OuterFaces(mesh)) {
    const auto nodes = mesh.Nodes(side.element);
    const ElementTopology topology(mesh.Element(side.element).type);
    std::array<std::uint32_t, 4> face{};
    std::size_t count = 0;
    for (const std::int32_t corner : topology.Face(static_cast<std::int32_t>(side.side), false)) {
      if (count < 4) face[count++] = nodes[static_cast<std::size_t>(corner)];
    }
    DrawFace(canvas, view, mesh, std::span(face).first(count), kSolid);
  }
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    if (!mesh.IsUsable(e)) continue;
    const auto corners = mesh.Corners(e);
    const CornerShape shape = mesh.Shape(e);
    if (shape == CornerShape::kTriangle || shape == CornerShape::kQuadrilateral) {
      DrawFace(canvas, view, mesh, corners, kSurface);
    } else if (shape == CornerShape::kLine) {
      canvas.Line(view(mesh.Position(corners[0])), view(mesh.Position(corners[1])), 1, kLine);
    }
  }
  return out;
}

}  // namespace

void BindPicture(py::class_<Handle, std::shared_ptr<Handle>>& model) {
  model.def("picture", Picture, py::arg("width"), py::arg("height"));
}

}  // namespace qx::python
