// Seeding: microseconds a point on a spline, and a hundred thousand edges by every method.

#include <cmath>
#include <fmt/format.h>

#include "qx_db/qx_db.h"

#include "bench/harness.h"

namespace qx::bench {
namespace {

struct Named {
  const char* name;
  tagTSzct control;
};

/// A control for each method; `n` divisions or about as many, on edges about `length` long.
std::vector<Named> ControlsOf(double length, int n) {
  std::vector<Named> all{{"by size", {}},     {"by divisions", {}}, {"linear", {}},
                         {"geometric", {}},   {"hyperbolic", {}},   {"hyperbolic, two-sided", {}},
                         {"by positions", {}}};
  const double mean = length / n;
  all[0].control.dbl_params[0] = mean;
  all[1].control.method = tagTSzct::kByDivisions;
  all[1].control.int_params[0] = n;
  all[2].control.method = tagTSzct::kLinearGrading;
  all[2].control.dbl_params[1] = mean / 2;
  all[2].control.dbl_params[2] = mean;
  all[2].control.int_params[1] = n;
  all[3].control.method = tagTSzct::kGeometricGrading;
  all[3].control.dbl_params[6] = 4;
  all[3].control.int_params[5] = n;
  for (const std::size_t i : {4u, 5u}) {
    all[i].control.method = tagTSzct::kHyperbolic;
    all[i].control.dbl_params[4] = mean / 3;
    all[i].control.dbl_params[5] = mean / 2;
    all[i].control.int_params[3] = n;
  }
  all[5].control.int_params[4] = 1;
  all[6].control.method = tagTSzct::kByPositions;
  for (int i = 1; i < n; ++i) all[6].control.custom_ratios.Add(static_cast<double>(i) / n);
  return all;
}

/// The best of several runs: what the work takes when nothing else is in the way.
template <class Work>
double Best(int runs, Work&& work) {
  double best = HUGE_VAL;
  for (int i = 0; i < runs; ++i) best = std::min(best, Time(work));
  return best;
}

void SeedSpline(DPoolSzct& pool, AnalyticCad& cad) {
  constexpr int kDivisions = 1000;
  std::vector<CadPoint> points;
  for (int i = 0; i < 12; ++i)
    points.push_back({1.0 * i, 3 * std::sin(1.7 * i), std::cos(2.3 * i)});
  const int spline = *cad.AddSpline(points);
  std::vector<tagTVector3<float>> seeds;
  for (const auto& [name, control] : ControlsOf(cad.GetEdgeLength(spline), kDivisions)) {
    const double seconds = Best(20, [&] { Keep(pool.GetPointsOnSzct(spline, control, seeds)); });
    Figure(fmt::format("{} points on a spline, {}", seeds.size(), name),
           seconds * 1e6 / static_cast<double>(seeds.size()), "us a point", 3);
  }
}

void SeedManyEdges(DPoolSzct& pool, AnalyticCad& cad) {
  constexpr int kEdges = 100'000;
  const int first = cad.GetEdgeCount() + 1;
  for (int i = 0; i < kEdges; ++i) {
    const CadPoint from{0.01 * i, 0, 0};
    const CadPoint to = from + CadPoint{0, 10, 0};
    if (i % 2) {
      Keep(*cad.AddArc(from, {0, 0, 1}, from + CadPoint{10, 0, 0}, 1));
    } else {
      Keep(*cad.AddLine(from, to));
    }
  }
  std::vector<tagTVector3<float>> seeds;
  double together = 0;
  for (const auto& [name, control] : ControlsOf(10, 10)) {
    int done = 0;
    const double seconds = Best(3, [&] {
      done = 0;
      for (int edge = first; edge < first + kEdges; ++edge) {
        done += pool.GetPointsOnSzct(edge, control, seeds);
      }
    });
    if (done != kEdges) fmt::print("only {} of {} edges were seeded {}\n", done, kEdges, name);
    fmt::print("{:<44} {:9.3f} s\n", fmt::format("100 000 lines and arcs in 10, {}", name),
               seconds);
    together += seconds;
  }
  Figure("all of these together", together, "s", 1);
}

}  // namespace

void Seed() {
  CQXDBSession session(AddStandardPools);
  AnalyticCad cad;
  DPoolSzct& pool = Pool<tagTSzct>(session);
  pool.SetCadSession(&cad);
  SeedSpline(pool, cad);
  SeedManyEdges(pool, cad);
}

}  // namespace qx::bench
