#include "exchange/abaqus/inp_model.h"

#include <algorithm>
#include <numbers>

#include "qx_db/model/coordinate_pool.h"
#include "qx_db/record/element_types.h"

namespace qx::exchange {

bool InpIndex::Add(Key number, std::size_t place) {
  if (Find(number) != kNoPlace) return false;
  const auto at = static_cast<std::size_t>(number);
  ++count_;
  if (at >= dense_.size() && at > 1024 + 8 * count_) {
    sparse_[number] = static_cast<std::uint32_t>(place);
    return true;
  }
  if (at >= dense_.size()) dense_.resize(std::max(at + 1, dense_.size() * 2));
  dense_[at] = static_cast<std::uint32_t>(place) + 1;
  return true;
}

std::size_t InpIndex::Find(Key number) const {
  const auto at = static_cast<std::size_t>(number);
  if (number > 0 && at < dense_.size() && dense_[at] > 0) return dense_[at] - 1;
  if (sparse_.empty()) return kNoPlace;
  const auto found = sparse_.find(number);
  return found == sparse_.end() ? kNoPlace : found->second;
}

namespace {

/// Spherical coordinates of the format are radius, angle about the polar axis, and angle from the
/// equator; those of ours are radius, angle from the polar axis, and angle about it.
Vector3 Turned(std::int32_t type, const Vector3& p) {
  return type == tagTCord::kSpherical ? Vector3{p.x, 90 - p.z, p.y} : p;
}
Vector3 TurnedBack(std::int32_t type, const Vector3& p) {
  return type == tagTCord::kSpherical ? Vector3{p.x, p.z, 90 - p.y} : p;
}

}  // namespace

Vector3 InpInput::To(const Vector3& given) const {
  return frame.To(type == 0 ? given : ToRectangular(type, Turned(type, given)));
}

Vector3 InpInput::From(const Vector3& point) const {
  const Vector3 local = frame.From(point);
  return type == 0 ? local : TurnedBack(type, FromRectangular(type, local));
}

bool InpModel::IsFlat() const { return placements.size() < 2; }

const InpRun& InpModel::RunOf(const std::vector<InpRun>& runs, std::size_t place) const {
  const auto behind =
      std::upper_bound(runs.begin(), runs.end(), place,
                       [](std::size_t at, const InpRun& run) { return at < run.first; });
  return *std::prev(behind);
}

std::size_t InpModel::NodesOf(const InpElement& element) {
  return static_cast<std::size_t>(FindElementType(element.type)->nodes);
}

}  // namespace qx::exchange
