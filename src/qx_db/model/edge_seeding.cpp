#include "qx_db/model/edge_seeding.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace qx {
namespace {

using Seeds = CArray<double, double>;

/// Given positions closer to each other, as a fraction of the length, are one place: floats, which
/// the seeds become, hardly tell them apart.
constexpr double kApart = 1e-6;

Failure Bad(std::string what, std::string remedy) {
  return {"", "size control", std::move(what), std::move(remedy)};
}

// ---- what each method needs ---------------------------------------------------------------------

Outcome CheckSize(const char* name, double size, double most) {
  if (!(size > 0 && std::isfinite(size))) {
    return Bad(fmt::format("the {} {} is not a positive number", name, size),
               "give a size above zero");
  }
  if (size > most) {
    return Bad(fmt::format("the {} {} is too large for an edge of length {:.9g}", name, size, most),
               "give a smaller size, or divisions instead");
  }
  return {};
}

Outcome CheckCount(int n, int least) {
  if (n >= least && n <= CQXCalcSzct::kMostDivisions) return {};
  return Bad(
      fmt::format("{} divisions are not from {} to {}", n, least, CQXCalcSzct::kMostDivisions),
      "give another number of divisions");
}

Outcome CheckUniformPart(double part) {
  if (std::fabs(part) < 1) return {};
  return Bad(fmt::format("the uniform part {} is not between -1 and 1", part),
             "give the fraction of the edge, negative for its end");
}

/// One at least: a size is one for long and short edges.
double UniformDivisions(const tagTSzct& control, double length) {
  return std::max(1.0, std::round(length / control.dbl_params[0]));
}

Outcome CheckBySize(const tagTSzct& control, double length) {
  const double size = control.dbl_params[0];
  if (Outcome checked = CheckSize("element size", size, HUGE_VAL); !checked) return checked;
  const double n = UniformDivisions(control, length);
  if (n <= CQXCalcSzct::kMostDivisions) return {};
  return Bad(fmt::format("the element size {} makes {:.0f} divisions, more than {}", size, n,
                         CQXCalcSzct::kMostDivisions),
             "give a larger size");
}

Outcome CheckByDivisions(const tagTSzct& control, double) {
  return CheckCount(control.int_params[0], 1);
}

Outcome CheckLinear(const tagTSzct& control, double length) {
  const bool symmetric = control.int_params[2] != 0;
  if (Outcome checked = CheckSize("start size", control.dbl_params[1], length); !checked) {
    return checked;
  }
  if (Outcome checked = CheckSize("end size", control.dbl_params[2], length); !checked) {
    return checked;
  }
  if (Outcome checked = CheckUniformPart(control.dbl_params[3]); !checked) return checked;
  const int n = control.int_params[1];
  return n == 0 ? Outcome() : CheckCount(n, symmetric ? 2 : 1);
}

Outcome CheckGeometric(const tagTSzct& control, double) {
  const double ratio = control.dbl_params[6];
  if (!(ratio >= 1e-10 && ratio <= 1e10)) {
    return Bad(fmt::format("the ratio {} is not from 1e-10 to 1e10", ratio), "give another ratio");
  }
  if (Outcome checked = CheckUniformPart(control.dbl_params[7]); !checked) return checked;
  return CheckCount(control.int_params[5], control.int_params[6] ? 4 : 2);
}

Outcome CheckHyperbolic(const tagTSzct& control, double length) {
  const int n = control.int_params[3];
  const bool two_sided = control.int_params[4] != 0;
  if (Outcome checked = CheckCount(n, 1); !checked) return checked;
  if (Outcome checked = CheckSize("start size", control.dbl_params[4], length); !checked) {
    return checked;
  }
  if (two_sided) {
    if (Outcome checked = CheckSize("end size", control.dbl_params[5], length); !checked) {
      return checked;
    }
  }
  const double start = control.dbl_params[4];
  const double size = two_sided ? std::sqrt(start * control.dbl_params[5]) : start;
  if (size / length <= 1.0 / n - 1e-10) return {};
  return Bad(fmt::format("the size {:.9g} is not below the length over the divisions, {:.9g}", size,
                         length / n),
             "give smaller sizes or fewer divisions");
}

Outcome CheckByPositions(const tagTSzct& control, double) {
  const bool fractions = !control.custom_ratios.IsEmpty();
  if (fractions == !control.custom_seeds.IsEmpty()) {
    return Bad(fractions ? "positions are given both as fractions and as points"
                         : "no positions are given",
               "give either fractions or points");
  }
  if (std::max(control.custom_ratios.GetSize(), control.custom_seeds.GetSize()) >=
      CQXCalcSzct::kMostDivisions) {
    return Bad(fmt::format("more than {} positions are given", CQXCalcSzct::kMostDivisions),
               "give fewer positions");
  }
  double former = -1;
  for (const double fraction : control.custom_ratios) {
    if (!(fraction >= 0 && fraction <= 1 && fraction > former)) {
      return Bad(fmt::format("the fraction {} does not follow in the order from 0 to 1", fraction),
                 "give fractions of the length, each once, in ascending order");
    }
    former = fraction;
  }
  return {};
}

// ---- fractions by each method -------------------------------------------------------------------

void UniformFractions(int n, Seeds& out) {
  for (int i = 0; i < n; ++i) out.Add(static_cast<double>(i) / n);
  out.Add(1.0);
}

Outcome FillBySize(ICADSession& cad, int edge, const tagTSzct& control, Seeds& out) {
  UniformFractions(static_cast<int>(UniformDivisions(control, cad.GetEdgeLength(edge))), out);
  return {};
}

Outcome FillByDivisions(ICADSession&, int, const tagTSzct& control, Seeds& out) {
  UniformFractions(control.int_params[0], out);
  return {};
}

using Calculate = int (*)(int, ICADSession*, const tagTSzct&, Seeds&);
template <Calculate kCalculate>
Outcome FillByCalculator(ICADSession& cad, int edge, const tagTSzct& control, Seeds& out) {
  if (kCalculate(edge, &cad, control, out)) return {};
  return Bad("no seeding has such sizes", "change the sizes or the number of divisions");
}

/// Arc length fraction of each given point, ascending.
Outcome FillByPoints(ICADSession& cad, int edge, const tagTSzct& control, Seeds& out) {
  const double length = cad.GetEdgeLength(edge);
  for (std::int32_t i = 0; i < control.custom_seeds.GetSize(); ++i) {
    double parameter;
    double distance;
    double at;
    if (!FindNearest(cad, edge, control.custom_seeds[i], parameter, distance) ||
        !(distance <= 1e-4 * length) || !cad.GetLengthAt(edge, parameter, at)) {
      return Bad(fmt::format("point {} is not on the edge", i + 1), "correct the point");
    }
    const double fraction = at / length;
    out.Add(fraction < kApart ? 0.0 : fraction > 1 - kApart ? 1.0 : fraction);  // an end is an end
  }
  std::sort(out.begin(), out.end());
  return {};
}

Outcome FillByPositions(ICADSession& cad, int edge, const tagTSzct& control, Seeds& out) {
  if (control.custom_ratios.IsEmpty()) return FillByPoints(cad, edge, control, out);
  for (const double fraction : control.custom_ratios) out.Add(fraction);
  return {};
}

struct Method {
  std::int32_t code;
  Outcome (*check)(const tagTSzct& control, double length);
  Outcome (*fill)(ICADSession& cad, int edge, const tagTSzct& control, Seeds& out);
  bool by_parameter;  ///< fractions are of the parameter range, not of the length
};

constexpr Method kMethods[] = {
    {tagTSzct::kBySize, CheckBySize, FillBySize, true},
    {tagTSzct::kByDivisions, CheckByDivisions, FillByDivisions, true},
    {tagTSzct::kLinearGrading, CheckLinear,
     FillByCalculator<CQXCalcSzct::GetRationArrayOnSzct_SM_L_GRADE>, false},
    {tagTSzct::kGeometricGrading, CheckGeometric,
     FillByCalculator<CQXCalcSzct::GetRationArrayOnSzct_SM_R_GRADE>, false},
    {tagTSzct::kHyperbolic, CheckHyperbolic,
     FillByCalculator<CQXCalcSzct::GetRationArrayOnSzct_SM_HYPERBOLA>, false},
    {tagTSzct::kByPositions, CheckByPositions, FillByPositions, false},
};

const Method* FindMethod(std::int32_t code) {
  for (const Method& method : kMethods) {
    if (method.code == code) return &method;
  }
  return nullptr;
}

// ---- from fractions to points -------------------------------------------------------------------

/// Adds the ends where the method leaves them out.
void Close(Seeds& seeds) {
  if (seeds.IsEmpty() || seeds[seeds.GetSize() - 1] != 1.0) seeds.Add(1.0);
  if (seeds[0] != 0.0) {
    seeds.Add(0.0);
    std::rotate(seeds.begin(), seeds.end() - 1, seeds.end());
  }
}

/// Fails when the fractions are not strictly increasing: positions that are one place, or sizes so
/// far apart that doubles cannot tell the seeds apart.
Outcome CheckApart(const Seeds& seeds, bool given) {
  const double least = given ? kApart : 0;
  const auto first = std::adjacent_find(seeds.begin(), seeds.end(),
                                        [&](double a, double b) { return !(b - a > least); });
  if (first == seeds.end()) return {};
  return Bad(fmt::format("seeds would coincide at {:.9g} of the length", *first),
             given ? "leave one of them out" : "give sizes less far apart");
}

/// A geometric array has no leading 0.0, and so does not say where a uniform part at the start
/// ends.
void MarkUniformStart(const tagTSzct& control, Seeds& seeds) {
  const double part = control.dbl_params[7];
  if (control.method != tagTSzct::kGeometricGrading || !(part >= 1e-10)) return;
  const auto behind =
      std::find_if(seeds.begin(), seeds.end(), [&](double at) { return at > part; });
  const std::vector<double> graded(behind, seeds.end());
  seeds.SetSize(behind - seeds.begin());
  seeds.Add(part);
  for (const double at : graded) seeds.Add(at);
}

bool MapToCurve(const ICADSession& cad, int edge, bool by_parameter, EdgeSeeds& out) {
  double first;
  double last;
  if (!cad.GetEdgeParameters(edge, first, last)) return false;
  const auto count = static_cast<std::size_t>(out.fractions.GetSize());
  const double* fractions = out.fractions.GetData();
  out.parameters.resize(count);
  out.points.resize(count);
  const double span = by_parameter ? last - first : cad.GetEdgeLength(edge);
  const double start = by_parameter ? first : 0;
  for (std::size_t i = 0; i < count; ++i) out.parameters[i] = start + span * fractions[i];
  if (!by_parameter && !cad.GetParametersAtLengths(edge, out.parameters, out.parameters.data())) {
    return false;
  }
  out.parameters.front() = first;
  out.parameters.back() = last;
  return cad.GetPoints(edge, out.parameters, out.points.data());
}

Failure AtEdge(int edge, Failure failure) {
  failure.place = fmt::format("edge {}", edge);
  return failure;
}

}  // namespace

Outcome CheckSizeControl(const tagTSzct& control, double edge_length) {
  const Method* method = FindMethod(control.method);
  if (!method) {
    return Bad(fmt::format("method {} is not known", control.method), "use method 1 to 5 or 8");
  }
  if (!(edge_length > 0 && std::isfinite(edge_length))) {
    return Bad("the edge has no length", "leave it out of the size control");
  }
  return method->check(control, edge_length);
}

Outcome SeedEdge(ICADSession& cad, int edge, const tagTSzct& control, bool reversed,
                 EdgeSeeds& out) {
  out.fractions.RemoveAll();
  if (cad.GetEdgeKind(edge) == EdgeKind::kNone) {
    return Failure{"", fmt::format("edge {}", edge), "is not in the geometry", "give another edge"};
  }
  if (Outcome checked = CheckSizeControl(control, cad.GetEdgeLength(edge)); !checked) {
    return AtEdge(edge, checked.Error());
  }
  const Method& method = *FindMethod(control.method);
  if (Outcome filled = method.fill(cad, edge, control, out.fractions); !filled) {
    return AtEdge(edge, filled.Error());
  }
  MarkUniformStart(control, out.fractions);
  Close(out.fractions);
  const bool given = control.method == tagTSzct::kByPositions;
  if (reversed && !(given && !control.custom_seeds.IsEmpty())) {
    ReverseSeeds({out.fractions.GetData(), static_cast<std::size_t>(out.fractions.GetSize())});
  }
  if (Outcome apart = CheckApart(out.fractions, given); !apart) {
    return AtEdge(edge, apart.Error());
  }
  if (!MapToCurve(cad, edge, method.by_parameter, out)) {
    return AtEdge(edge, Bad("the curve gives no points", "repair the geometry"));
  }
  return {};
}

}  // namespace qx
