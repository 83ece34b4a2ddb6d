#include "exchange/nastran/nas_systems.h"

namespace qx::exchange {

NasSystems::NasSystems(const std::vector<tagTCord>& systems) {
  std::unordered_map<Key, std::vector<const tagTCord*>> waiting;  // by what they wait for
  std::vector<const tagTCord*> ready;
  for (const tagTCord& system : systems) {
    const auto reference = static_cast<Key>(system.reference);
    (reference == 0 ? ready : waiting[reference]).push_back(&system);
  }
  while (!ready.empty()) {
    const tagTCord& system = *ready.back();
    ready.pop_back();
    if (!Add(system)) continue;
    const auto found = waiting.find(system.key);
    if (found == waiting.end()) continue;
    ready.insert(ready.end(), found->second.begin(), found->second.end());
    waiting.erase(found);
  }
}

bool NasSystems::Add(const tagTCord& system) {
  const auto reference = known_.find(static_cast<Key>(system.reference));
  const bool is_basic = system.reference == 0;
  if (!is_basic && reference == known_.end()) return false;
  const Known in = is_basic ? Known{tagTCord::kRectangular, Frame()} : reference->second;
  Frame frame;
  if (!FrameIn(in.type, in.frame, system, frame)) return false;
  known_[system.key] = {system.type, frame};
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
  const auto& [type, frame] = found->second;
  return frame.origin + frame.axes.ToGlobal(ToRectangular(type, at));
}

std::optional<Vector3> NasSystems::FromBasic(Key number, const Vector3& point) const {
  if (number == 0) return point;
  const auto found = known_.find(number);
  if (found == known_.end()) return std::nullopt;
  const auto& [type, frame] = found->second;
  return FromRectangular(type, frame.axes.ToLocal(point - frame.origin));
}

std::optional<Triad> NasSystems::AxesAt(Key number, const Vector3& point) const {
  if (number == 0) return Triad();
  const auto found = known_.find(number);
  Triad axes;
  if (found == known_.end()) return std::nullopt;
  if (!qx::AxesAt(found->second.type, found->second.frame, point, axes)) return std::nullopt;
  return axes;
}

}  // namespace qx::exchange
