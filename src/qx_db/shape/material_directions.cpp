#include "qx_db/shape/material_directions.h"

#include <cmath>
#include <unordered_set>

#include "qx_db/model/standard_pools.h"
#include "qx_db/record/attribute_records.h"
#include "qx_db/shape/attached_data.h"

namespace qx {

void MaterialDirections::Take(std::span<const ITR> elements) {
  auto& pool = Pool<tagTE2DMatlCsys>(session_);
  auto& mesh = Pool<tagTElem>(session_);
  if (pool.IsEmpty()) return;
  const std::unordered_set<ITR> wanted(elements.begin(), elements.end());
  for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
    const tagTE2DMatlCsys& record = pool.GetAtNU(at);
    if (record.type != tagTE2DMatlCsys::kByAngle) continue;
    for (const ITR element : record.elements) {
      double axes[3][3];
      if (!wanted.contains(element)) continue;
      if (!mesh.Calc2DElemLocalVector(mesh.GetAtNU(element), axes)) continue;
      directions_[element] = Rotated(Vector3(axes[0]), Vector3(axes[2]), record.angle_deg);
    }
  }
}

void MaterialDirections::Inherit(ITR of, ITR made) {
  const auto found = directions_.find(of);
  if (found == directions_.end()) return;
  const Vector3 direction = found->second;
  directions_[made] = direction;
}

void MaterialDirections::Turn(const std::function<Vector3(const Vector3&)>& map) {
  for (auto& [element, direction] : directions_) direction = map(direction);
}

bool MaterialDirections::Put() {
  if (directions_.empty()) return true;
  const auto& mesh = Pool<tagTElem>(session_);
  using Numbers = AttributeNumbers<1>;
  const auto get = [](const tagTE2DMatlCsys& record) { return Numbers{record.angle_deg}; };
  const auto concerned = [&](const tagTE2DMatlCsys& record, ITR element) {
    return record.type == tagTE2DMatlCsys::kByAngle && directions_.contains(element);
  };
  const auto numbers = [&](const tagTE2DMatlCsys& record, ITR element) {
    const double was = record.angle_deg;
    const Vector3 direction = directions_.at(element);
    const double v[3] = {direction.x, direction.y, direction.z};
    double angle = was;
    if (!mesh.Calc2DElemVectorAngle(mesh.GetAtNU(element), v, angle)) return Numbers{was};
    // Angles of one record differ by rounding; a turn more or less is the same direction.
    constexpr double kRounding = 1e-9;
    if (std::abs(std::remainder(angle - was, 360.0)) < kRounding) return Numbers{was};
    return Numbers{std::round(angle / kRounding) * kRounding};
  };
  const auto put = [](tagTE2DMatlCsys& record, const Numbers& now) { record.angle_deg = now[0]; };
  return Regroup<tagTE2DMatlCsys, 1>(session_, concerned, get, numbers, put);
}

}  // namespace qx
