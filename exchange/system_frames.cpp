#include "exchange/system_frames.h"

#include <optional>
#include <unordered_map>
#include <vector>

#include "qx_db/model/coordinate_pool.h"

namespace qx::exchange {

Vector3 SystemFrame::FromGlobal(const Vector3& point) const {
  const Vector3 d = point - origin;
  return FromRectangular(type, {Dot(d, x), Dot(d, y), Dot(d, z)});
}

SystemFrames SystemsOf(const CQXDBSession& session) {
  SystemFrames systems;
  const auto* pool = session.GetPool<DPoolCord>(code::kCord);
  if (!pool) return systems;
  const double unit = session.Units().GetConvertFactorCurrent(unit::kLength);
  // A chain of systems is walked once: those that others are given in come before them.
  std::unordered_map<ITR, std::optional<Frame>> frames;
  std::vector<ITR> chain;
  for (ITR at = pool->GetHeadPosition(); at; pool->Next(at)) {
    for (ITR next = at; next && !frames.contains(next); next = pool->GetAtNU(next).reference) {
      frames.emplace(next, std::nullopt);  // as what leads back to itself, or to what is gone
      if (KeyedSetBase::IsRemoved(next)) break;
      chain.push_back(next);
    }
    for (; !chain.empty(); chain.pop_back()) {
      const tagTCord& record = pool->GetAtNU(chain.back());
      const ITR in = record.reference;
      const std::optional<Frame> outer = in ? frames.at(in) : Frame();
      const std::int32_t type = in && outer ? pool->GetAtNU(in).type : tagTCord::kRectangular;
      Frame frame;
      if (outer && FrameIn(type, *outer, record, frame)) frames[chain.back()] = frame;
    }
    const std::optional<Frame>& frame = frames.at(at);
    if (!frame) continue;
    const tagTCord& record = pool->GetAtNU(at);
    systems.emplace(
        record.key,
        SystemFrame{record.type, (1 / unit) * frame->origin, frame->axes.ToGlobal({1, 0, 0}),
                    frame->axes.ToGlobal({0, 1, 0}), frame->axes.ToGlobal({0, 0, 1})});
  }
  return systems;
}

}  // namespace qx::exchange
