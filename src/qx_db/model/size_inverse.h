#pragma once
// What an engineer knows of a graded edge, and the rest of it.
// Threads: any; nothing is kept between calls.

#include <optional>

#include "qx_db/export.h"
#include "qx_db/platform/outcome.h"

namespace qx {

/// How sizes grow along an edge: by the same amount, or by the same factor, from each to the next.
enum class Grading { kLinear, kGeometric };

/// What is given of an edge's seeding. `ratio` is the last size over the first.
struct SeedingKnown {
  std::optional<int> divisions;
  std::optional<double> first;
  std::optional<double> last;
  std::optional<double> ratio;
  std::optional<double> length;
};

/// All of it. The sizes add up to the length.
struct SeedingSolution {
  int divisions = 0;
  double first = 0;
  double last = 0;
  double ratio = 1;
  double length = 0;
  /// The sizes alone would have asked for a broken number of divisions; it was rounded, and the
  /// sizes were scaled to fit the length.
  bool rounded = false;
};

/// Solves for what is not given. Fails for values out of range, for too few (any three that do
/// not follow from each other will do), and for values that contradict each other, which it names.
/// Only when the number of divisions follows from sizes and length may sizes differ from those
/// given: see `rounded`.
QXDB_API Result<SeedingSolution> SolveSeeding(Grading grading, const SeedingKnown& known);

}  // namespace qx
