// The picture of seeds: every edge as a curve, every seed as a dot.

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <set>

#include "host/seed_preview.h"

namespace qx::host {
namespace {

struct Flat {
  double x = 0;
  double y = 0;
};

constexpr double kPictureWidth = 900;
constexpr double kPictureMargin = 40;
constexpr double kLegend = 36;  // height below the drawing

/// From space onto the picture.
class Projection {
 public:
  explicit Projection(const std::vector<CadPoint>& all) {
    const auto [low, high] = std::minmax_element(
        all.begin(), all.end(), [](const CadPoint& a, const CadPoint& b) { return a.z < b.z; });
    double size = 0;
    for (const CadPoint& point : all) size = std::max(size, Distance(point, all.front()));
    flat_ = all.empty() || high->z - low->z <= 1e-9 * size;
    Flat from{HUGE_VAL, HUGE_VAL};
    Flat to{-HUGE_VAL, -HUGE_VAL};
    for (const CadPoint& point : all) {
      const Flat at = Project(point);
      from = {std::min(from.x, at.x), std::min(from.y, at.y)};
      to = {std::max(to.x, at.x), std::max(to.y, at.y)};
    }
    const double across = std::max({to.x - from.x, (to.y - from.y) * 1.2, 1e-300});
    scale_ = (kPictureWidth - 2 * kPictureMargin) / across;
    origin_ = {(from.x + to.x) / 2 - (kPictureWidth / 2) / scale_,
               from.y - kPictureMargin / scale_};
    height_ = std::ceil((to.y - from.y) * scale_ + 2 * kPictureMargin);
  }

  double Height() const { return height_; }
  Flat operator()(const CadPoint& point) const {
    const Flat at = Project(point);
    return {(at.x - origin_.x) * scale_, (at.y - origin_.y) * scale_};
  }

 private:
  /// y runs down, as in the picture. In space, x runs to the lower right and y to the upper right,
  /// at angles that keep the lines of a cube apart.
  Flat Project(const CadPoint& p) const {
    if (flat_) return {p.x, -p.y};
    return {0.88 * p.x + 0.53 * p.y, -p.z + 0.27 * p.x - 0.44 * p.y};
  }

  bool flat_ = false;
  double scale_ = 1;
  double height_ = 0;
  Flat origin_;
};

struct Style {
  const char* name;
  const char* label;
  const char* color;
};
constexpr Style kPlain{"plain", "not seeded", "#9aa0a6"};
constexpr Style kSeeded{"seeded", "seeded", "#1a56db"};
constexpr Style kReversed{"reversed", "seeded in reverse", "#d9480f"};
constexpr Style kMismatch{"mismatch", "does not match", "#d6006c"};
constexpr Style kFault{"fault", "cannot be seeded", "#202124"};
constexpr const Style* kStyles[] = {&kSeeded, &kReversed, &kMismatch, &kFault, &kPlain};

const Style& StyleOf(const SeedPreview& preview, int edge) {
  for (const SeedPreview::Fault& fault : preview.faults) {
    if (fault.edge == edge) return kFault;
  }
  for (const SeedMismatch& mismatch : preview.mismatches) {
    if (mismatch.edge == edge || mismatch.other == edge) return kMismatch;
  }
  const auto source = preview.sources.find(edge);
  if (source == preview.sources.end()) return kPlain;
  return source->second.reversed ? kReversed : kSeeded;
}

void DrawCurve(const std::vector<CadPoint>& points, const Projection& project, const Style& style,
               std::string& out) {
  out += fmt::format("<polyline class=\"{}\" points=\"", style.name);
  for (const CadPoint& point : points) {
    const Flat at = project(point);
    out += fmt::format("{:.1f},{:.1f} ", at.x, at.y);
  }
  out += "\"/>\n";
}

/// An arrow head in the middle of a reversed edge, against the direction of its parameter: the way
/// in which the size control runs.
void DrawArrow(const SeedPreview& preview, int edge, const Projection& project, std::string& out) {
  const ICADSession& cad = *preview.cad;
  double parameter;
  CadPoint middle;
  CadPoint tangent;
  if (!cad.GetParameterAtLength(edge, cad.GetEdgeLength(edge) * 0.5, parameter) ||
      !cad.GetPoint(edge, parameter, middle) || !cad.GetTangent(edge, parameter, tangent)) {
    return;
  }
  const Flat at = project(middle);
  const Flat ahead = project(middle - 0.01 * cad.GetEdgeLength(edge) * tangent);
  const double size = std::hypot(ahead.x - at.x, ahead.y - at.y);
  if (!(size > 0)) return;  // seen end on
  const Flat way{(ahead.x - at.x) / size, (ahead.y - at.y) / size};
  out += fmt::format(
      "<polygon class=\"arrow\" points=\"{:.1f},{:.1f} {:.1f},{:.1f} {:.1f},{:.1f}\"/>\n",
      at.x + 11 * way.x, at.y + 11 * way.y, at.x - 5 * way.x - 6 * way.y,
      at.y - 5 * way.y + 6 * way.x, at.x - 5 * way.x + 6 * way.y, at.y - 5 * way.y - 6 * way.x);
}

/// The key of an edge, and those of its twins, which would be written over it.
void DrawLabel(const SeedPreview& preview, int edge, const std::vector<CadPoint>& points,
               const Projection& project, std::string& out) {
  std::string text = std::to_string(preview.KeyOf(edge));
  for (const auto& [a, b] : preview.twins) {
    if (b == edge) return;
    if (a == edge) text += fmt::format(", {}", preview.KeyOf(b));
  }
  // A third of the way along, clear of the arrow.
  const Flat a = project(points[points.size() / 3]);
  const Flat b = project(points[points.size() / 3 + 1]);
  const double t = points.size() == 2 ? 0.36 : 0;
  // Beside the line, above it unless it is upright.
  const double length = std::max(std::hypot(b.x - a.x, b.y - a.y), 1e-300);
  Flat beside{(b.y - a.y) / length, (a.x - b.x) / length};
  if (beside.y > 1e-6 || (beside.y > -1e-6 && beside.x < 0)) beside = {-beside.x, -beside.y};
  const char* anchor = beside.x > 0.3 ? "start" : beside.x < -0.3 ? "end" : "middle";
  out += fmt::format("<text text-anchor=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\">{}</text>\n", anchor,
                     a.x + t * (b.x - a.x) + 10 * beside.x,
                     a.y + t * (b.y - a.y) + 10 * beside.y + 4, text);
}

/// What the colours mean of those that are in the picture.
void DrawLegend(double y, const std::set<const Style*>& used, std::string& out) {
  double x = kPictureMargin;
  for (const Style* style : kStyles) {
    if (!used.contains(style)) continue;
    out += fmt::format("<line class=\"{}\" x1=\"{}\" y1=\"{}\" x2=\"{}\" y2=\"{}\"/>\n",
                       style->name, x, y, x + 30, y);
    out += fmt::format("<text x=\"{}\" y=\"{}\">{}</text>\n", x + 38, y + 4, style->label);
    x += 170;
  }
}

}  // namespace

std::vector<CadPoint> SampleEdge(const ICADSession& cad, int edge) {
  const EdgeKind kind = cad.GetEdgeKind(edge);
  if (kind == EdgeKind::kDegenerate) return {};
  const std::size_t count = kind == EdgeKind::kLine ? 2 : 97;
  std::vector<double> at(count);
  std::vector<CadPoint> points(count);
  for (std::size_t i = 0; i < count; ++i) {
    at[i] = cad.GetEdgeLength(edge) * static_cast<double>(i) / static_cast<double>(count - 1);
  }
  if (!cad.GetParametersAtLengths(edge, at, at.data()) || !cad.GetPoints(edge, at, points.data())) {
    return {};
  }
  return points;
}

std::string SeedPicture(const SeedPreview& preview) {
  const ICADSession& cad = *preview.cad;
  std::map<int, std::vector<CadPoint>> curves;
  std::vector<CadPoint> all;
  for (const auto& [edge, key] : preview.keys.edges) {
    curves[edge] = SampleEdge(cad, edge);
    all.insert(all.end(), curves[edge].begin(), curves[edge].end());
  }
  const Projection project(all);
  const double height = project.Height() + kLegend;
  std::string out = fmt::format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
      "viewBox=\"0 0 {0} {1}\">\n<style>polyline,line{{fill:none;stroke-width:1.6}} "
      "text{{font:12px sans-serif;fill:#3c4043;stroke:#fff;stroke-width:3;paint-order:stroke}} "
      ".arrow{{fill:{2}}}",
      kPictureWidth, height, kReversed.color);
  for (const Style* style : kStyles) {
    out += fmt::format(" .{0}{{stroke:{1}}} circle.{0}{{fill:{1};stroke:#fff;stroke-width:0.6}}",
                       style->name, style->color);
  }
  out += "</style>\n<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n";
  constexpr std::size_t kMostLabels = 80;
  std::string labels;  // over the curves
  std::set<const Style*> used;
  for (const auto& [edge, points] : curves) {
    if (points.empty()) continue;
    const Style& style = StyleOf(preview, edge);
    used.insert(&style);
    DrawCurve(points, project, style, out);
    const auto seeds = preview.seeds.find(edge);
    if (seeds != preview.seeds.end()) {
      Flat former{-kPictureWidth, 0};
      for (const CadPoint& point : seeds->second.points) {
        const Flat at = project(point);
        if (std::hypot(at.x - former.x, at.y - former.y) < 0.4) continue;  // one dot to the eye
        former = at;
        out += fmt::format("<circle class=\"{}\" cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"3.2\"/>\n",
                           style.name, at.x, at.y);
      }
      if (preview.sources.at(edge).reversed) DrawArrow(preview, edge, project, out);
    }
    if (curves.size() <= kMostLabels) DrawLabel(preview, edge, points, project, labels);
  }
  out += labels;
  DrawLegend(project.Height() + kLegend / 3, used, out);
  return out + "</svg>\n";
}

}  // namespace qx::host
