#include "qx_db/model/size_inverse.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "qx_db/model/size_calc.h"

namespace qx {
namespace {

/// How far two values may differ that stand for one.
constexpr double kAgree = 1e-6;

bool Agree(double a, double b) { return std::fabs(a - b) <= kAgree * std::max(a, b); }

/// (x - 1) / log-like differences lose digits near 1; these are exact there.
double PowerSum(double log_q, int n) {  // 1 + q + ... + q^(n - 1)
  if (std::fabs(log_q) * n < 1e-9) return n * (1 + log_q * (n - 1) / 2);
  return std::expm1(n * log_q) / std::expm1(log_q);
}

/// One kind of grading: the sum of the sizes over the first, the last over the first given that
/// sum, and the number of divisions (not whole) that first, last and length ask for.
struct Law {
  double (*sum)(double ratio, int n);
  double (*ratio)(double sum, int n);  ///< 0 when there is none
  double (*divisions)(double first, double last, double length);
};

double LinearSum(double ratio, int n) { return n * (1 + ratio) / 2; }
double LinearRatio(double sum, int n) { return std::max(2 * sum / n - 1, 0.0); }
double LinearDivisions(double first, double last, double length) {
  return 2 * length / (first + last);
}

double GeometricSum(double ratio, int n) { return PowerSum(std::log(ratio) / (n - 1), n); }

double GeometricRatio(double sum, int n) {
  if (!(sum > 1)) return 0;
  // The sum grows with q from 1 towards infinity; ln q is bracketed, then halved down to the last
  // bit. A first size that is the length over n gives q = 1 exactly.
  if (sum == n) return 1;
  double low = -1;
  double high = 1;
  while (PowerSum(low, n) > sum && low > -700) low *= 2;
  while (PowerSum(high, n) < sum && high < 700) high *= 2;
  for (int i = 0; i < 200; ++i) {
    const double middle = low + (high - low) / 2;
    if (middle <= low || middle >= high) break;
    (PowerSum(middle, n) < sum ? low : high) = middle;
  }
  return std::exp(low * (n - 1));
}

double GeometricDivisions(double first, double last, double length) {
  if (Agree(first, last)) return 2 * length / (first + last);
  return 1 + std::log(last / first) / std::log((length - first) / (length - last));
}

const Law& LawOf(Grading grading) {
  static constexpr Law kLaws[] = {{LinearSum, LinearRatio, LinearDivisions},
                                  {GeometricSum, GeometricRatio, GeometricDivisions}};
  return kLaws[static_cast<std::size_t>(grading)];
}

Failure Contradiction(std::string what) {
  return {"", "seeding", std::move(what), "leave one of them out or correct it"};
}

struct Named {
  const char* name;
  const std::optional<double>& value;
};

Outcome CheckGiven(const SeedingKnown& known) {
  for (const Named& given : {Named{"first size", known.first}, Named{"last size", known.last},
                             Named{"ratio", known.ratio}, Named{"length", known.length}}) {
    if (given.value && !(*given.value > 0 && std::isfinite(*given.value))) {
      return Failure{"", given.name, fmt::format("{} is not a positive number", *given.value),
                     "give a positive number"};
    }
  }
  const int n = known.divisions.value_or(1);
  if (n < 1 || n > CQXCalcSzct::kMostDivisions) {
    return Failure{"", "divisions",
                   fmt::format("{} is not from 1 to {}", n, CQXCalcSzct::kMostDivisions),
                   "give another number of divisions"};
  }
  for (const Named& size : {Named{"first size", known.first}, Named{"last size", known.last}}) {
    if (size.value && known.length && *size.value > *known.length * (1 + kAgree)) {
      return Contradiction(fmt::format("the {} {} is larger than the length {}", size.name,
                                       *size.value, *known.length));
    }
  }
  return {};
}

/// First, last and ratio complete each other: any two give the third.
Outcome CompleteSizes(SeedingKnown& known) {
  if (known.first && known.last) {
    const double ratio = *known.last / *known.first;
    if (known.ratio && !Agree(*known.ratio, ratio)) {
      return Contradiction(
          fmt::format("first size {} and last size {} make a ratio of {:.9g}, not {}", *known.first,
                      *known.last, ratio, *known.ratio));
    }
    known.ratio = ratio;
  } else if (known.first && known.ratio) {
    known.last = *known.first * *known.ratio;
  } else if (known.last && known.ratio) {
    known.first = *known.last / *known.ratio;
  }
  return {};
}

Result<SeedingSolution> SolveOne(SeedingKnown known) {
  const auto& size = known.first ? known.first : known.last ? known.last : known.length;
  if (!size) return Contradiction("1 division needs a size or the length");
  for (const Named& other : {Named{"last size", known.last}, Named{"length", known.length}}) {
    if (other.value && !Agree(*size, *other.value)) {
      return Contradiction(fmt::format("1 division of size {} does not go with the {} {}", *size,
                                       other.name, *other.value));
    }
  }
  if (known.ratio && !Agree(*known.ratio, 1)) {
    return Contradiction(fmt::format("1 division has a ratio of 1, not {}", *known.ratio));
  }
  const double length = known.length.value_or(*size);
  return SeedingSolution{1, length, length, 1, length, false};
}

/// With the number of divisions: two sizes, or one of them and the length.
Result<SeedingSolution> SolveForSizes(const Law& law, const SeedingKnown& known) {
  const int n = *known.divisions;
  if (n == 1) return SolveOne(known);
  double ratio = known.ratio.value_or(0);
  if (!known.ratio) {
    // Seen from its end, a grading is the same one with the inverse ratio.
    const double size = known.first ? *known.first : *known.last;
    ratio = law.ratio(*known.length / size, n);
    if (!known.first && ratio > 0) ratio = 1 / ratio;
    if (!(ratio > 0 && std::isfinite(ratio))) {
      return Contradiction(
          fmt::format("{} divisions with a {} size of {} cannot make a length of {}", n,
                      known.first ? "first" : "last", size, *known.length));
    }
  }
  const double sum = law.sum(ratio, n);
  const double first = known.first    ? *known.first
                       : known.length ? *known.length / sum
                                      : *known.last / ratio;
  const double made = first * sum;
  if (!(std::isfinite(made) && made > 0)) {
    return Contradiction(
        fmt::format("a ratio of {:.9g} over {} divisions has no length", ratio, n));
  }
  if (known.length && !Agree(made, *known.length)) {
    return Contradiction(
        fmt::format("{} divisions from {:.9g} to {:.9g} make a length of {:.9g}, not {}", n, first,
                    first * ratio, made, *known.length));
  }
  return SeedingSolution{n, first, first * ratio, ratio, known.length.value_or(made), false};
}

/// Without it: both sizes and the length.
Result<SeedingSolution> SolveForDivisions(const Law& law, const SeedingKnown& known) {
  const double first = *known.first;
  const double last = *known.last;
  const double length = *known.length;
  const bool one = Agree(first, length) && Agree(last, length);
  if (!one && first + last > length * (1 + kAgree)) {
    return Contradiction(
        fmt::format("first size {:.9g} and last size {:.9g} do not fit into a length of {}", first,
                    last, length));
  }
  const double wanted = one ? 1 : law.divisions(first, last, length);
  if (!(wanted <= CQXCalcSzct::kMostDivisions)) {
    return Contradiction(
        fmt::format("sizes {:.9g} and {:.9g} in a length of {} need more than {} divisions", first,
                    last, length, CQXCalcSzct::kMostDivisions));
  }
  const int n = std::max(one ? 1 : 2, static_cast<int>(std::lround(wanted)));
  if (n == 1) return SolveOne({1, first, last, {}, length});
  SeedingKnown whole{n, {}, {}, *known.ratio, length};
  auto solution = SolveForSizes(law, whole);
  if (solution) solution->rounded = std::fabs(wanted - n) > kAgree * n;
  return solution;
}

}  // namespace

Result<SeedingSolution> SolveSeeding(Grading grading, const SeedingKnown& given) {
  SeedingKnown known = given;
  if (Outcome checked = CheckGiven(known); !checked) return checked.Error();
  if (Outcome completed = CompleteSizes(known); !completed) return completed.Error();
  const bool one = known.divisions == 1;
  const bool any_size = known.first || known.last;
  const bool two_facts = (known.ratio && (any_size || known.length)) || (any_size && known.length);
  if (known.divisions && (one ? any_size || known.length : two_facts)) {
    return SolveForSizes(LawOf(grading), known);
  }
  if (!known.divisions && known.first && known.last && known.length) {
    return SolveForDivisions(LawOf(grading), known);
  }
  return Failure{"", "seeding", "too little is given to solve for the rest",
                 "give three of divisions, first size, last size, ratio and length (with a length, "
                 "if the first three do not include the divisions)"};
}

}  // namespace qx
