#include "host/axes_picture.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <map>

#include "qx_db/mesh/topology_table.h"

namespace qx::host {
namespace {

constexpr double kWidth = 560;
constexpr double kHeight = 420;
constexpr double kMargin = 60;

struct Point {
  double x;
  double y;
};

/// A parallel projection along a slanted direction, fitted to the page.
class Projection {
 public:
  Projection() {
    Vector3 towards(1.1, -2.0, 1.2);  // the viewer
    Normalize(towards);
    UnitNormal({0, 0, 1}, towards, right_);
    up_ = Cross(towards, right_);
  }
  void Fit(const std::vector<Vector3>& points) {
    double low[2] = {std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
    double high[2] = {-low[0], -low[1]};
    for (const Vector3& p : points) {
      const double at[2] = {Dot(p, right_), Dot(p, up_)};
      for (int i = 0; i < 2; ++i) {
        low[i] = std::min(low[i], at[i]);
        high[i] = std::max(high[i], at[i]);
      }
    }
    constexpr double kTiny = 1e-12;
    scale_ = std::min((kWidth - 2 * kMargin) / std::max(high[0] - low[0], kTiny),
                      (kHeight - 2 * kMargin) / std::max(high[1] - low[1], kTiny));
    shift_ = {kWidth / 2 - scale_ * (low[0] + high[0]) / 2,
              kHeight / 2 + scale_ * (low[1] + high[1]) / 2};
  }
  Point operator()(const Vector3& p) const {
    return {shift_.x + scale_ * Dot(p, right_), shift_.y - scale_ * Dot(p, up_)};
  }

 private:
  Vector3 right_;
  Vector3 up_;
  double scale_ = 1;
  Point shift_{};
};

std::string Line(Point a, Point b, const char* attributes) {
  return fmt::format("<line x1='{:.1f}' y1='{:.1f}' x2='{:.1f}' y2='{:.1f}' {}/>\n", a.x, a.y, b.x,
                     b.y, attributes);
}

std::string Arrow(Point from, Point to, const char* colour, char name) {
  const double dx = to.x - from.x;
  const double dy = to.y - from.y;
  const double length = std::hypot(dx, dy);
  std::string out = Line(from, to, fmt::format("stroke='{}' stroke-width='2'", colour).c_str());
  if (length > 8) {
    const Point u{dx / length, dy / length};
    out += fmt::format("<polygon points='{:.1f},{:.1f} {:.1f},{:.1f} {:.1f},{:.1f}' fill='{}'/>\n",
                       to.x, to.y, to.x - 9 * u.x + 3.5 * u.y, to.y - 9 * u.y - 3.5 * u.x,
                       to.x - 9 * u.x - 3.5 * u.y, to.y - 9 * u.y + 3.5 * u.x, colour);
    return out + fmt::format("<text x='{:.1f}' y='{:.1f}' fill='{}'>{}</text>\n",
                             to.x + 10 * u.x - 4, to.y + 10 * u.y + 4, colour, name);
  }
  // Seen from its tip: a dot, named beside it.
  return out + fmt::format(
                   "<circle cx='{:.1f}' cy='{:.1f}' r='3' fill='{}'/>\n"
                   "<text x='{:.1f}' y='{:.1f}' fill='{}'>{}</text>\n",
                   to.x, to.y, colour, to.x + 6, to.y - 6, colour, name);
}

/// Half the extent of an element, the length of its arrows; that of a point is 0.
double ArrowLength(const std::vector<Vector3>& points, const Vector3& center) {
  double reach = 0;
  for (const Vector3& p : points) reach = std::max(reach, Distance(p, center));
  return 0.6 * reach;
}

}  // namespace

std::string AxesSvg(const CQXDBSession& session, const std::vector<DrawnElement>& elements) {
  auto& nodes = Pool<tagTNode>(session);
  const auto& pool = Pool<tagTElem>(session);
  struct Drawing {
    std::vector<Vector3> points;
    Vector3 center;
    double arrow;
  };
  std::vector<Drawing> drawings;
  std::map<ITR, Vector3> corners;  // with the way out of the elements around
  double usual = 0;
  for (const DrawnElement& element : elements) {
    Drawing drawing{};
    for (const ITR node : pool.GetAtNU(element.item).nodes) {
      if (node == 0) continue;
      drawing.points.push_back(nodes.Position(node));
      drawing.center += drawing.points.back();
    }
    if (!drawing.points.empty()) {
      drawing.center = 1.0 / static_cast<double>(drawing.points.size()) * drawing.center;
    }
    for (const ITR node : pool.GetAtNU(element.item).nodes) {
      if (node) corners[node] += nodes.Position(node) - drawing.center;
    }
    drawing.arrow = ArrowLength(drawing.points, drawing.center);
    usual = std::max(usual, drawing.arrow);
    drawings.push_back(std::move(drawing));
  }
  if (usual == 0) usual = 1;
  std::vector<Vector3> shown;
  for (std::size_t i = 0; i < drawings.size(); ++i) {
    Drawing& drawing = drawings[i];
    if (drawing.arrow == 0) drawing.arrow = 0.5 * usual;
    shown.insert(shown.end(), drawing.points.begin(), drawing.points.end());
    for (const Vector3* axis : {&elements[i].axes.x, &elements[i].axes.y, &elements[i].axes.z}) {
      if (elements[i].has_axes) shown.push_back(drawing.center + drawing.arrow * *axis);
    }
  }
  Projection at;
  at.Fit(shown);

  std::string out = fmt::format(
      "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 {0} {1}' width='{0}' height='{1}' "
      "font-family='sans-serif' font-size='13'>\n<rect width='{0}' height='{1}' fill='white'/>\n",
      kWidth, kHeight);
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const tagTElem& element = pool.GetAtNU(elements[i].item);
    for (const auto& [a, b] : topology::OutlineOf(element.type, element.nodes.GetSize())) {
      if (element.nodes[a] == 0 || element.nodes[b] == 0) continue;
      out += Line(at(nodes.Position(element.nodes[a])), at(nodes.Position(element.nodes[b])),
                  "stroke='#555' stroke-width='1.5'");
    }
  }
  constexpr std::size_t kMostLabels = 60;
  for (const auto& [node, way_out] : corners) {
    const Point p = at(nodes.Position(node));
    out += fmt::format("<circle cx='{:.1f}' cy='{:.1f}' r='3' fill='#555'/>\n", p.x, p.y);
    if (corners.size() > kMostLabels) continue;
    // Beside the node, away from its elements, whose axes are drawn inside.
    const Point away = at(nodes.Position(node) + way_out);
    const double reach = std::hypot(away.x - p.x, away.y - p.y);
    const double scale = reach > 1e-9 ? 13 / reach : 0;
    const Point label{p.x + scale * (away.x - p.x),
                      p.y + (scale > 0 ? scale * (away.y - p.y) : 13) + 4};
    out += fmt::format(
        "<text x='{:.1f}' y='{:.1f}' fill='#555' font-size='11' text-anchor='middle'>{}</text>\n",
        label.x, label.y, nodes.GetAtNU(node).key);
  }
  for (std::size_t i = 0; i < elements.size(); ++i) {
    if (!elements[i].has_axes) continue;
    const Drawing& drawing = drawings[i];
    const auto tip = [&](const Vector3& axis) { return at(drawing.center + drawing.arrow * axis); };
    const Point origin = at(drawing.center);
    out += Arrow(origin, tip(elements[i].axes.z), "#1f5fd0", 'z');
    out += Arrow(origin, tip(elements[i].axes.y), "#1a8f3c", 'y');
    out += Arrow(origin, tip(elements[i].axes.x), "#d02b1f", 'x');
  }
  // The global directions, in the corner.
  const Point origin = at({0, 0, 0});
  const char* kNames[] = {"X", "Y", "Z"};
  for (int i = 0; i < 3; ++i) {
    Vector3 direction;
    direction[i] = 1;
    const Point p = at(direction);
    const double along = std::max(std::hypot(p.x - origin.x, p.y - origin.y), 1e-9);
    const Point base{40, kHeight - 40};
    const Point end{base.x + 24 * (p.x - origin.x) / along, base.y + 24 * (p.y - origin.y) / along};
    out += Line(base, end, "stroke='#999'");
    out += fmt::format("<text x='{:.1f}' y='{:.1f}' fill='#999' font-size='11'>{}</text>\n",
                       end.x + 3, end.y - 2, kNames[i]);
  }
  return out + "</svg>\n";
}

}  // namespace qx::host
