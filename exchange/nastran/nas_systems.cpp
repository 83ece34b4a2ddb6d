#include "exchange/nastran/nas_systems.h"

#include "qx_db/model/standard_pools.h"

namespace qx::exchange {

struct NasSystems::Pool {
  CQXDBSession session{AddStandardPools};
  DPoolCord& systems = *session.GetPool<DPoolCord>(code::kCord);
};

NasSystems::NasSystems() = default;
NasSystems::NasSystems(NasSystems&&) noexcept = default;
NasSystems& NasSystems::operator=(NasSystems&&) noexcept = default;
NasSystems::~NasSystems() = default;

NasSystems::NasSystems(const std::vector<tagTCord>& systems) : NasSystems() {
  std::vector<char> done(systems.size(), 0);
  for (bool goes_on = true; goes_on;) {
    goes_on = false;
    for (std::size_t i = 0; i < systems.size(); ++i) {
      if (done[i] || !Knows(static_cast<Key>(systems[i].reference))) continue;
      done[i] = 1;
      goes_on = Add(systems[i]) || goes_on;
    }
  }
}

bool NasSystems::Add(tagTCord system) {
  const auto reference = static_cast<Key>(system.reference);
  if (!Knows(reference)) return false;
  if (!pool_) {
    pool_ = std::make_unique<Pool>();
    pool_->systems.RemoveAll();
  }
  system.reference = reference == 0 ? 0 : known_.at(reference).item;
  const ITR added = pool_->systems.InsertNU(system);
  Frame frame;
  if (!added || !pool_->systems.GetFrame(added, frame)) return false;
  known_[system.key] = {added, system.type, frame};
  return true;
}

bool NasSystems::IsRectangular(Key number) const {
  const auto found = known_.find(number);
  return number == 0 || (found != known_.end() && found->second.type == tagTCord::kRectangular);
}

std::optional<Frame> NasSystems::FrameOf(Key number) const {
  if (number == 0) return Frame();
  const auto found = known_.find(number);
  if (found == known_.end()) return std::nullopt;
  return found->second.frame;
}

std::optional<Vector3> NasSystems::ToBasic(Key number, const Vector3& at) const {
  if (number == 0) return at;
  const auto found = known_.find(number);
  if (found == known_.end()) return std::nullopt;
  const auto& [item, type, frame] = found->second;
  return frame.origin + frame.axes.ToGlobal(ToRectangular(type, at));
}

std::optional<Vector3> NasSystems::FromBasic(Key number, const Vector3& point) const {
  if (number == 0) return point;
  const auto found = known_.find(number);
  if (found == known_.end()) return std::nullopt;
  const auto& [item, type, frame] = found->second;
  return FromRectangular(type, frame.axes.ToLocal(point - frame.origin));
}

std::optional<Triad> NasSystems::AxesAt(Key number, const Vector3& point) const {
  if (number == 0) return Triad();
  const auto found = known_.find(number);
  Triad axes;
  if (found == known_.end()) return std::nullopt;
  const tagTCord& system = pool_->systems.GetAtNU(found->second.item);
  if (!pool_->systems.GetAxesAt(system, point, axes)) return std::nullopt;
  return axes;
}

}  // namespace qx::exchange
