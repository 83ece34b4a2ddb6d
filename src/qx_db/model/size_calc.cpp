#include "qx_db/model/size_calc.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "qx_db/model/standard_pools.h"

namespace qx {
namespace {

using Seeds = CArray<double, double>;

constexpr double kSameSize = 1e-6;
constexpr double kNone = 1e-10;  // below it a fraction or a ratio counts as zero

bool IsPositive(double value) { return value > 0 && std::isfinite(value); }
bool IsCount(int n) { return n >= 1 && n <= CQXCalcSzct::kMostDivisions; }

// The Estimate operations fill a CArray<double>, the others a CArray<double, double>.
template <class Array>
bool FillIntervals(double a, double b, int n, double length, Array& out) {
  out.RemoveAll();
  if (std::fabs(a - b) < kSameSize) {
    for (int i = 0; i < n; ++i) out.Add(a);
    return false;
  }
  if (n == 1) {
    out.Add(length);
    return false;
  }
  const double step = (b - a) / (n - 1.0);
  for (int i = 0; i < n; ++i) out.Add(a + i * step);
  return true;
}

template <class Array>
double Sum(const Array& values) {
  double sum = 0;
  for (const double value : values) sum += value;
  return sum;
}

template <class Array>
bool FillByLength(double a, double b, int n, double length, Array& out) {
  CArray<double> sizes;
  if (n >= 2) FillIntervals(a, b, n, length, sizes);
  out.RemoveAll();
  out.Add(0.0);
  const double scale = length / Sum(sizes);
  double at = 0;
  for (int i = 0; i + 1 < n; ++i) {
    at += scale * sizes[i];
    out.Add(at / length);
  }
  out.Add(1.0);
  return true;
}

template <class Array>
bool FillByRatio(double r, int n, Array& out) {
  if (!(r >= kNone && std::isfinite(r)) || n < 2) return false;
  const double q = std::pow(r, 1 / (n - 1.0));
  double step = 2 / ((r + 1) * n);
  out.RemoveAll();
  out.Add(step);
  for (int i = 1; i < n; ++i) {
    step *= q;
    out.Add(out[i - 1] + step);
  }
  const auto last = out.GetSize() - 1;
  const double total = out[last];
  for (double& fraction : out) fraction /= total;
  out[last] = 1.0;
  return true;
}

/// Halves the array and appends its mirror image. A geometric half has no leading 0.0, whose image
/// would be the end, so the end is added there.
void Mirror(Seeds& seeds) {
  for (double& fraction : seeds) fraction *= 0.5;
  for (auto i = seeds.GetSize() - 2; i >= 0; --i) seeds.Add(1.0 - seeds[i]);
  if (seeds[seeds.GetSize() - 1] != 1.0) seeds.Add(1.0);
}

/// How many uniform intervals of about `size` fill `length`; -1 when too many.
int UniformCount(double length, double size) {
  const double count = length / size;
  return count <= CQXCalcSzct::kMostDivisions ? CQXCalcSzct::RealToInt(count) : -1;
}

/// A graded part over 1 - part of the edge, then uniform intervals of `size`.
int AppendUniform(double part, double length, double size, Seeds& seeds) {
  const int count = UniformCount(part * length, size);
  if (count < 0) return 0;
  const double graded = 1 - part;
  const double step = part / count;
  for (double& fraction : seeds) fraction *= graded;
  for (int j = 1; j < count; ++j) seeds.Add(j * step + graded);
  seeds.Add(1.0);
  return 1;
}

/// Uniform intervals of `size` over `part` of the edge, then the graded part.
int PrependUniform(double part, double length, double size, Seeds& seeds) {
  const int count = UniformCount(part * length, size);
  if (count < 0) return 0;
  const double graded = 1 - part;
  const double step = part / count;
  Seeds all;
  for (int j = 0; j < count; ++j) all.Add(j * step);
  for (const double fraction : seeds) all.Add(graded * fraction + part);
  all[all.GetSize() - 1] = 1.0;
  seeds.Swap(all);
  return 1;
}

double LengthOf(const ICADSession* cad, int edge) { return cad ? cad->GetEdgeLength(edge) : 0; }

// ---- the hyperbolic method ----------------------------------------------------------------------

/// Newton's method from a start. False when x leaves for infinity or vanishes, or after 1001 steps
/// that did not converge. The first step never converges.
template <class Step>
bool Solve(double start, double& x, Step&& step) {
  x = start;
  double former = start + 1e100;
  for (int i = 0; i <= 1000; ++i) {
    if (x > 1e100 || x < -1e100 || std::fabs(x) < kNone) return false;
    x -= step(x);
    if (std::fabs(x - former) < 1e-10) return true;
    former = x;
  }
  return false;
}

int TwoSided(double s1, double s2, double length, int n, Seeds& out) {
  if (std::sqrt(s1 * s2) / length > 1.0 / n - 1e-10) return 0;
  const double a = std::sqrt(s2 / s1);
  const double b = std::sqrt((s2 / length) * (s1 / length));
  const double m = 1 / (b * n);
  double x;
  if (!Solve(CQXCalcSzct::acosh(m) + 1, x,
             [&](double at) { return (m * at - std::sinh(at)) / (m - std::cosh(at)); })) {
    return 0;
  }
  const double scale = std::tanh(x / 2);
  out.Add(0.0);
  for (int i = 1; i <= n; ++i) {
    const double t = (std::tanh((static_cast<double>(i) / n - 0.5) * x) / scale + 1) * 0.5;
    out.Add(t / ((1 - a) * t + a));
  }
  out[n] = 1.0;  // the quotient may be off by a rounding
  return 1;
}

int OneSided(double s1, double length, int n, Seeds& out) {
  const double rho = s1 / length;
  if (rho > 1.0 / n - 1e-10) return 0;
  const double near = 1.0 / n - 1;
  const auto step = [&](double x) {
    const double cosh_near = std::cosh(near * x);
    const double cosh_x = std::cosh(x);
    const double f = std::tanh(near * x) - (rho - 1) * std::tanh(x);
    return f / (near / (cosh_near * cosh_near) - (rho - 1) / (cosh_x * cosh_x));
  };
  constexpr double kStarts[] = {2.0, 1.5, 1.0, 0.5};
  double x = 0;
  if (std::none_of(std::begin(kStarts), std::end(kStarts),
                   [&](double start) { return Solve(start, x, step); })) {
    return 0;
  }
  const double scale = std::tanh(x);
  out.Add(0.0);
  for (int i = 1; i <= n; ++i) {
    out.Add(std::tanh((static_cast<double>(i) / n - 1) * x) / scale + 1);
  }
  return 1;
}

}  // namespace

void ReverseSeeds(std::span<double> seeds) {
  if (seeds.empty()) return;
  if (seeds.front() != 0) seeds = seeds.first(seeds.size() - 1);  // the closing 1.0 stays
  std::reverse(seeds.begin(), seeds.end());
  for (double& fraction : seeds) fraction = 1 - fraction;
}

int CQXCalcSzct::RealToInt(double value) {
  if (std::isnan(value)) return 0;
  constexpr double kLeast = std::numeric_limits<int>::min();
  constexpr double kMost = std::numeric_limits<int>::max();
  return static_cast<int>(std::clamp(value, kLeast, kMost));
}

double CQXCalcSzct::acosh(double x) { return std::log(std::sqrt(x * x - 1) + x); }

bool CQXCalcSzct::EstimateSeedInterval(double a, double b, int n, double length,
                                       CArray<double>& out) {
  return FillIntervals(a, b, n, length, out);
}

bool CQXCalcSzct::EstimateRatioArrayLength(double a, double b, int n, double length,
                                           CArray<double>& out) {
  return FillByLength(a, b, n, length, out);
}

bool CQXCalcSzct::EstimateRatioArrayRatio(double r, int n, CArray<double>& out) {
  return FillByRatio(r, n, out);
}

int CQXCalcSzct::GetIdealDivision(double a, double b, double length) {
  if (std::fabs(a - b) < kSameSize) return RealToInt(length / a);
  const auto sum_of = [&](int n) {
    // As FillIntervals adds them up; without the array, which a search has no use for.
    const double step = (b - a) / (n - 1.0);
    double sum = 0;
    for (int i = 0; i < n; ++i) sum += a + i * step;
    return sum;
  };
  // S(n) is n (a + b) / 2, so the misfit falls until about 2 L / (a + b), each time by some 1 / n,
  // far more than the rounding of a sum. The search can start a little before.
  const double meets = 2 * length / (a + b);
  if (!(meets < kMostDivisions) || !(a + b > 0) || !(length > 0)) return 0;
  int n = std::max(3, RealToInt(meets) - 2);
  double misfit = std::fabs(length / (n == 3 ? a + b : sum_of(n - 1)) - 1);
  for (; n <= kMostDivisions + 1; ++n) {
    const double next = std::fabs(length / sum_of(n) - 1);
    if (next > misfit) return n - 1;
    misfit = next;
  }
  return 0;
}

int CQXCalcSzct::GetRationArrayOnSzct_SM_L_GRADE(int edge, ICADSession* cad,
                                                 const tagTSzct& control, Seeds& out) {
  out.RemoveAll();
  const double length = LengthOf(cad, edge);
  const double a = control.dbl_params[1];
  const double b = control.dbl_params[2];
  const double p = control.dbl_params[3];
  const bool symmetric = control.int_params[2] != 0;
  if (!IsPositive(length) || !IsPositive(a) || !IsPositive(b) || !(std::fabs(p) < 1)) return 0;
  const int n = control.int_params[1] ? control.int_params[1] : GetIdealDivision(a, b, length);
  if (!IsCount(n)) return 0;
  const int half = symmetric ? n / 2 : n;
  if (std::fabs(p) < kNone) {
    FillByLength(a, b, half, symmetric ? length * 0.5 : length, out);
    if (symmetric) Mirror(out);
    return 1;
  }
  const double part = std::fabs(p);
  const double graded = length - part * length;
  FillByLength(a, b, half, graded, out);
  if (p < 0) {
    const double last = (1 - out[out.GetSize() - 2]) * graded;
    return AppendUniform(part, length, b > a ? std::max(b, last) : std::min(b, last), out);
  }
  const double first = out[1] * graded;
  return PrependUniform(part, length, b > a ? std::min(a, first) : std::max(a, first), out);
}

int CQXCalcSzct::GetRationArrayOnSzct_SM_R_GRADE(int edge, ICADSession* cad,
                                                 const tagTSzct& control, Seeds& out) {
  out.RemoveAll();
  const double length = LengthOf(cad, edge);
  const double r = control.dbl_params[6];
  const double p = control.dbl_params[7];
  const int n = control.int_params[5];
  const bool symmetric = control.int_params[6] != 0;
  if (!IsPositive(length) || !IsPositive(r) || !(std::fabs(p) < 1) || !IsCount(n)) return 0;
  if (!FillByRatio(r, symmetric ? n / 2 : n, out)) return 0;
  if (std::fabs(p) < kNone) {
    if (symmetric) Mirror(out);
    return 1;
  }
  if (out.GetSize() < 2) return 0;
  const double part = std::fabs(p);
  const double graded = length - part * length;
  if (p < 0) return AppendUniform(part, length, (1 - out[out.GetSize() - 2]) * graded, out);
  // Deliberate: the second entry, which is the first interval of an array that begins with 0.0,
  // and the first two of this one, which does not.
  return PrependUniform(part, length, out[1] * graded, out);
}

int CQXCalcSzct::GetRationArrayOnSzct_SM_HYPERBOLA(int edge, ICADSession* cad,
                                                   const tagTSzct& control, Seeds& out) {
  out.RemoveAll();
  const double length = LengthOf(cad, edge);
  const double s1 = control.dbl_params[4];
  const double s2 = control.dbl_params[5];
  const int n = control.int_params[3];
  if (!IsPositive(length) || !IsPositive(s1) || !IsCount(n)) return 0;
  if (control.int_params[4] == 0) return OneSided(s1, length, n, out);
  return IsPositive(s2) ? TwoSided(s1, s2, length, n, out) : 0;
}

bool CQXCalcSzct::IsOverlap(const CQXDBSession* session, int edge, const TArray<ITR>& edges) {
  if (!session) return false;
  const auto& keys = Pool<tagTGKey>(*session);
  return std::any_of(edges.begin(), edges.end(), [&](ITR itr) {
    if (itr == 0) return false;
    const tagTGKey& key = keys.GetAtNU(itr);
    return key.ItemType() == tagTGKey::kEdge && key.ItemNumber() == edge;
  });
}

void CQXCalcSzct::CArrayToTArrayWithReverse(const CQXDBSession* session, int edge,
                                            const tagTSzct& control, const Seeds& seeds,
                                            TArray<double>& out) {
  out.Assign(seeds.GetData(), static_cast<std::size_t>(seeds.GetSize()));
  if (seeds.IsEmpty() || !IsOverlap(session, edge, control.reversed_edges)) return;
  ReverseSeeds({out.data(), out.size()});
}

}  // namespace qx
