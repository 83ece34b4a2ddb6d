#include "viewer/seeds.h"

#include "viewer/extent.h"
#include "viewer/pack.h"

namespace qx::viewer {

std::string SeedPack(std::span<const SeededEdge> edges, double length) {
  Pack pack;
  Point3 origin;
  for (const SeededEdge& edge : edges) {
    if (edge.curve.empty()) continue;
    origin = edge.curve.front();
    break;
  }
  std::vector<float> curves, seeds;
  std::vector<std::int32_t> curve_controls, seed_controls;
  const auto add = [&](const Point3& p, std::vector<float>& to) {
    for (int i = 0; i < 3; ++i) to.push_back(ToFloat(length * (p[i] - origin[i])));
  };
  for (const SeededEdge& edge : edges) {
    for (std::size_t i = 1; i < edge.curve.size(); ++i) {
      add(edge.curve[i - 1], curves);
      add(edge.curve[i], curves);
      curve_controls.push_back(edge.control);
    }
    for (const Point3& seed : edge.seeds) {
      add(seed, seeds);
      seed_controls.push_back(edge.control);
    }
  }
  Json& json = pack.Text();
  json.Name("origin").StartArray();
  for (int i = 0; i < 3; ++i) json.Number(length * origin[i]);
  json.EndArray();
  pack.Floats("curves", curves);
  pack.Integers("curve_control", curve_controls);
  pack.Floats("seeds", seeds);
  pack.Integers("seed_control", seed_controls);
  return pack.Finish();
}

}  // namespace qx::viewer
