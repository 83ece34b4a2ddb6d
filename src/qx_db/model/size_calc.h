#pragma once
// From a size control to the fractions at which an edge is seeded.
// Threads: values: one at a time for each object.

#include "qx_db/model/cad_session.h"
#include "qx_db/platform/c_array.h"
#include "qx_db/record/control_records.h"

namespace qx {

class CQXDBSession;

/// Mirrors a seed array in place: each fraction f becomes 1 - f, in ascending order; the last is
/// 1.0 again, and a leading 0.0 stays or stays away.
QXDB_API void ReverseSeeds(std::span<double> seeds);

/// The seeding calculator. A seed array holds strictly increasing fractions of an edge, the last
/// exactly 1.0. Whether it begins with 0.0 depends on the method and is as stated. Results are
/// false or 0 for failure; nothing is shown.
class QXDB_API CQXCalcSzct {
 public:
  /// The most divisions of one edge. No mesh has as many on an edge; a search that comes here is
  /// on inputs that have no answer.
  static constexpr int kMostDivisions = 1'000'000;

  /// Towards zero; bounded to what an int holds, 0 for NaN.
  static int RealToInt(double value);
  /// log(sqrt(x x - 1) + x)
  static double acosh(double x);

  /// The n sizes of a grading linear from a to b. Deliberate: false, although `out` is filled,
  /// when a and b are within 1e-6 (n times a) and when n is 1 (the length).
  static bool EstimateSeedInterval(double a, double b, int n, double length, CArray<double>& out);
  /// The fractions of such a grading, from 0.0 to 1.0: n + 1 of them, 2 when n < 2. Always true.
  static bool EstimateRatioArrayLength(double a, double b, int n, double length,
                                       CArray<double>& out);
  /// The fractions of a geometric grading whose last interval is r times its first: n of them.
  /// Deliberate: no leading 0.0. False, `out` untouched, when r is below 1e-10 or not finite, or n
  /// below 2.
  static bool EstimateRatioArrayRatio(double r, int n, CArray<double>& out);

  /// The number of divisions whose linear grading from a to b fills the length best. 0 when there
  /// is none up to kMostDivisions (sizes not positive, or not numbers).
  static int GetIdealDivision(double a, double b, double length);

  /// The seed array of an edge by methods 3, 4 and 5. 0, with `out` empty or partly filled, when
  /// the requested sizes cannot fit, or a parameter is out of its range (see CheckSizeControl).
  static int GetRationArrayOnSzct_SM_L_GRADE(int edge, ICADSession* cad, const tagTSzct& control,
                                             CArray<double, double>& out);
  static int GetRationArrayOnSzct_SM_R_GRADE(int edge, ICADSession* cad, const tagTSzct& control,
                                             CArray<double, double>& out);
  static int GetRationArrayOnSzct_SM_HYPERBOLA(int edge, ICADSession* cad, const tagTSzct& control,
                                               CArray<double, double>& out);

  /// Whether an edge number of the CAD session is among geometry keys: those that locate an edge
  /// of that number.
  static bool IsOverlap(const CQXDBSession* session, int edge, const TArray<ITR>& edges);
  /// Copies a seed array, reversed when the edge is among the control's reversed ones.
  static void CArrayToTArrayWithReverse(const CQXDBSession* session, int edge,
                                        const tagTSzct& control,
                                        const CArray<double, double>& seeds, TArray<double>& out);
};

}  // namespace qx
