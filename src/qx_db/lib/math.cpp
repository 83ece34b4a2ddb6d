#include "qx_db/lib/math.h"

#include <numbers>

namespace qx {
namespace {

constexpr double kRadiansPerDegree = std::numbers::pi / 180;

}  // namespace

void SinCos(double angle_deg, double& sine, double& cosine) {
  // Reduced to 45 degrees about the nearest quarter turn, where nothing is lost.
  int quarter = 0;
  const double rest = std::remquo(angle_deg, 90.0, &quarter);
  const double s = std::sin(rest * kRadiansPerDegree);
  const double c = std::cos(rest * kRadiansPerDegree);
  switch (quarter & 3) {
    case 0:
      sine = s, cosine = c;
      break;
    case 1:
      sine = c, cosine = -s;
      break;
    case 2:
      sine = -s, cosine = -c;
      break;
    default:
      sine = -c, cosine = s;
  }
}

Vector3 Rotated(const Vector3& a, const Vector3& axis, double angle_deg) {
  double sine = 0;
  double cosine = 0;
  SinCos(angle_deg, sine, cosine);
  return cosine * a + sine * Cross(axis, a) + ((1 - cosine) * Dot(axis, a)) * axis;
}

double AngleBetween(const Vector3& a, const Vector3& b) {
  // Of no length the product may be -0, which an arc tangent takes for a half turn.
  return std::atan2(Length(Cross(a, b)), Dot(a, b) + 0.0) / kRadiansPerDegree;
}

double SignedAngle(const Vector3& a, const Vector3& b, const Vector3& axis) {
  const double angle = std::atan2(Dot(axis, Cross(a, b)), Dot(a, b)) / kRadiansPerDegree;
  return angle <= -180 ? 180 : angle;
}

}  // namespace qx
