#include "exchange/system_frames.h"

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
  for (ITR at = pool->GetHeadPosition(); at; pool->Next(at)) {
    Frame frame;
    if (!pool->GetFrame(at, frame)) continue;
    const tagTCord& record = pool->GetAtNU(at);
    systems.emplace(
        record.key,
        SystemFrame{record.type, (1 / unit) * frame.origin, frame.axes.ToGlobal({1, 0, 0}),
                    frame.axes.ToGlobal({0, 1, 0}), frame.axes.ToGlobal({0, 0, 1})});
  }
  return systems;
}

}  // namespace qx::exchange
