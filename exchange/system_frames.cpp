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

namespace {

/// Puts the angles of a system back that a conversion took for lengths.
void KeepAngles(const tagTCord& from, std::int32_t reference_type, tagTCord& to) {
  if (reference_type == tagTCord::kRectangular) return;
  for (tagTVector3<double> tagTCord::*const point :
       {&tagTCord::origin, &tagTCord::axis_point, &tagTCord::plane_point}) {
    (to.*point).y = (from.*point).y;
    if (reference_type == tagTCord::kSpherical) (to.*point).z = (from.*point).z;
  }
}

}  // namespace

void ConvertSystemIn(tagTCord& system, std::int32_t reference_type, const CQXUnitCtrl& units) {
  const tagTCord was = system;
  system.ConvertUnitIn(&units);
  KeepAngles(was, reference_type, system);
}

void ConvertSystemOut(tagTCord& system, std::int32_t reference_type, const CQXUnitCtrl& units) {
  const tagTCord was = system;
  system.ConvertUnitOut(&units);
  KeepAngles(was, reference_type, system);
}

}  // namespace qx::exchange
