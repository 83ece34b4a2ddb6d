#include "qx_db/model/coordinate_pool.h"

#include <array>
#include <set>

#include "qx_db/core/session.h"
#include "qx_db/lib/message.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// The axes about which each rotation order turns, first to last.
constexpr std::array<std::array<int, 3>, 6> kRotationOrders = {
    {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}}};

/// The axes given by three points: the first axis through the axis point, the second one in the
/// half plane of the plane point. `plane` says which axes these are: x and y, y and z, z and x.
bool AxesOfPoints(std::int32_t plane, const Vector3& origin, const Vector3& axis_point,
                  const Vector3& plane_point, Triad& axes) {
  if (plane < 0 || plane > 2) return false;
  Vector3 first = axis_point - origin;
  Vector3 in_plane = plane_point - origin;
  Vector3 third;
  if (!Normalize(first) || !Normalize(in_plane) || !UnitNormal(first, in_plane, third)) {
    return false;
  }
  const Vector3 second = Cross(third, first);
  switch (plane) {
    case 0:
      axes = {first, second, third};
      break;
    case 1:
      axes = {third, first, second};
      break;
    default:
      axes = {second, third, first};
  }
  return true;
}

/// The axes given by three rotations, each about the axis as the rotations before have left it.
bool AxesOfAngles(std::int32_t order, const Vector3& rotation_deg, Triad& axes) {
  if (order < 0 || order > 5 || !IsFinite(rotation_deg)) return false;
  axes = Triad();
  for (const int about : kRotationOrders[static_cast<std::size_t>(order)]) {
    const Vector3 axis = about == 0 ? axes.x : about == 1 ? axes.y : axes.z;
    for (Vector3* each : {&axes.x, &axes.y, &axes.z}) {
      *each = Rotated(*each, axis, rotation_deg[about]);
    }
  }
  return true;
}

}  // namespace

Vector3 ToRectangular(std::int32_t type, const Vector3& c) {
  double s1 = 0;
  double c1 = 0;
  if (type == tagTCord::kCylindrical) {
    SinCos(c.y, s1, c1);
    return {c.x * c1, c.x * s1, c.z};
  }
  if (type == tagTCord::kSpherical) {
    double s2 = 0;
    double c2 = 0;
    SinCos(c.y, s1, c1);
    SinCos(c.z, s2, c2);
    return {c.x * s1 * c2, c.x * s1 * s2, c.x * c1};
  }
  return c;
}

Vector3 FromRectangular(std::int32_t type, const Vector3& p) {
  const Vector3 x(1, 0, 0);
  const Vector3 z(0, 0, 1);
  if (type == tagTCord::kCylindrical) {
    return {std::hypot(p.x, p.y), SignedAngle(x, {p.x, p.y, 0}, z), p.z};
  }
  if (type == tagTCord::kSpherical) {
    return {Length(p), AngleBetween(z, p), SignedAngle(x, {p.x, p.y, 0}, z)};
  }
  return p;
}

bool FrameIn(std::int32_t reference_type, const Frame& reference, const tagTCord& system,
             Frame& frame) {
  const auto global = [&](const tagTVector3<double>& p) {
    const Vector3 local = ToRectangular(reference_type, Vector3(p));
    return reference.origin + reference.axes.ToGlobal(local);
  };
  frame.origin = global(system.origin);
  if (!IsFinite(frame.origin)) return false;
  if (system.method == tagTCord::kByPoints) {
    return AxesOfPoints(system.plane, frame.origin, global(system.axis_point),
                        global(system.plane_point), frame.axes);
  }
  Triad turned;
  if (system.method != tagTCord::kByAngles ||
      !AxesOfAngles(system.rotation_order, Vector3(system.rotation_deg), turned)) {
    return false;
  }
  frame.axes = {reference.axes.ToGlobal(turned.x), reference.axes.ToGlobal(turned.y),
                reference.axes.ToGlobal(turned.z)};
  return true;
}

bool AxesAt(std::int32_t type, const Frame& frame, const Vector3& point, Triad& axes) {
  axes = frame.axes;
  if (type == tagTCord::kRectangular) return true;
  const Vector3 at = FromRectangular(type, frame.axes.ToLocal(point - frame.origin));
  if (!IsFinite(at)) return false;
  if (type == tagTCord::kCylindrical) {
    axes.x = Rotated(frame.axes.x, frame.axes.z, at.y);
    axes.y = Rotated(frame.axes.y, frame.axes.z, at.y);
    return true;
  }
  if (type != tagTCord::kSpherical) return false;
  const Vector3 outward = Rotated(frame.axes.x, frame.axes.z, at.z);
  const Vector3 along_phi = Cross(frame.axes.z, outward);
  axes.x = Rotated(frame.axes.z, along_phi, at.y);
  axes.y = Rotated(outward, along_phi, at.y);
  axes.z = along_phi;
  return true;
}

// ---- the default system -------------------------------------------------------------------------

int DPoolCord::AddDefault() {
  if (Find(kDefaultKey)) return 1;
  tagTCord system;
  system.key = kDefaultKey;
  system.name.Set(qxLoadText("IDS_QX_DB_DEFAULT_CORD").View());
  return InsertNU(system) != 0;
}

// ---- where systems are --------------------------------------------------------------------------

/// The system and those it is given in, outermost last. False for a cycle or a removed reference.
bool DPoolCord::Chain(const tagTCord& system, std::vector<const tagTCord*>& chain) const {
  chain.push_back(&system);
  // A chain longer than the pool has come back to itself.
  const auto most = static_cast<std::size_t>(GetSize()) + 1;
  for (ITR at = system.reference; at; at = chain.back()->reference) {
    if (KeyedSetBase::IsRemoved(at) || chain.size() > most) return false;
    chain.push_back(&GetAtNU(at));
  }
  return true;
}

bool DPoolCord::GetFrame(const tagTCord& system, Frame& frame) const {
  if (system.reference == 0) return FrameIn(tagTCord::kRectangular, Frame(), system, frame);
  std::vector<const tagTCord*> chain;
  if (!Chain(system, chain)) return false;
  Frame outer;
  std::int32_t outer_type = tagTCord::kRectangular;
  for (std::size_t i = chain.size(); i-- > 0;) {
    Frame inner;
    if (!FrameIn(outer_type, outer, *chain[i], inner)) return false;
    outer = inner;
    outer_type = chain[i]->type;
  }
  frame = outer;
  return true;
}

bool DPoolCord::GetFrame(ITR system, Frame& frame) const {
  if (system == 0) {
    frame = Frame();
    return true;
  }
  return !KeyedSetBase::IsRemoved(system) && GetFrame(GetAtNU(system), frame);
}

int DPoolCord::GetCoord(const tagTCord& system, double origin[3], double axes[3][3]) const {
  Frame frame;
  if (!GetFrame(system, frame)) return 0;
  frame.origin.CopyTo(origin);
  frame.axes.CopyTo(axes);
  return 1;
}

int DPoolCord::GetCoord(ITR system, double origin[3], double axes[3][3]) const {
  if (system == 0 || KeyedSetBase::IsRemoved(system)) return 0;
  return GetCoord(GetAtNU(system), origin, axes);
}

bool DPoolCord::GetAxesAt(const tagTCord& system, const Vector3& point, Triad& axes) const {
  Frame frame;
  return GetFrame(system, frame) && qx::AxesAt(system.type, frame, point, axes);
}

bool DPoolCord::ToGlobal(ITR system, const Vector3& coordinates, Vector3& point) const {
  Frame frame;
  if (!GetFrame(system, frame)) return false;
  const std::int32_t type = system ? GetAtNU(system).type : tagTCord::kRectangular;
  point = frame.origin + frame.axes.ToGlobal(ToRectangular(type, coordinates));
  return true;
}

bool DPoolCord::FromGlobal(ITR system, const Vector3& point, Vector3& coordinates) const {
  Frame frame;
  if (!GetFrame(system, frame)) return false;
  const std::int32_t type = system ? GetAtNU(system).type : tagTCord::kRectangular;
  coordinates = FromRectangular(type, frame.axes.ToLocal(point - frame.origin));
  return true;
}

// ---- rules --------------------------------------------------------------------------------------

int DPoolCord::SetAtNU(ITR pos, const tagTCord& record) {
  if (!Set().IsLinked(pos)) return 0;
  std::int32_t steps = 0;
  for (ITR at = record.reference; at; at = GetAtNU(at).reference) {
    if (at == pos || ++steps > GetSize()) {
      qxMsgOut(Severity::kRefusal, "IDS_QX_DB_CORD_CYCLE",
               {std::to_string(record.key), std::to_string(KeyOf(record.reference))});
      return 0;
    }
    if (KeyedSetBase::IsRemoved(at)) break;
  }
  return DPool::SetAtNU(pos, record);
}

namespace {

bool IsGlobal(const DPoolCord& systems, ITR system) {
  const tagTCord& record = systems.GetAtNU(system);
  Frame frame;
  if (record.type != tagTCord::kRectangular || record.reference != 0) return false;
  if (!systems.GetFrame(record, frame)) return false;
  const Frame global;
  const auto is_near = [](const Vector3& a, const Vector3& b) { return Distance(a, b) <= 1e-12; };
  return is_near(frame.origin, global.origin) && is_near(frame.axes.x, global.axes.x) &&
         is_near(frame.axes.y, global.axes.y);
}

}  // namespace

/// Whether the open step leaves the default system as the global one. One that a file brought
/// otherwise, and that the step does not touch, does not block it.
bool DPoolCord::KeepsDefault() const {
  const ITR now = GetDefaultItr();
  const Step& step = GetSession()->History().Current();
  std::set<ITR> inserted;
  for (const Change& change : step.changes) {
    if (change.type != code::kCord) continue;
    const ITR item = change.item;  // out of the packed notice
    if (now != 0) {
      if (item == now) return IsGlobal(*this, now);
      continue;
    }
    if (change.operation == tagTRNotify::kInserted) inserted.insert(item);
    if (inserted.contains(item)) continue;
    const Key key = change.operation == tagTRNotify::kRemoved
                        ? KeyOf(item)
                        : LoadAt<Key>(step.bytes.data() + step.images[change.list_epoch].before);
    if (key == kDefaultKey) return false;
  }
  return true;
}

int DPoolCord::ProcessRelation() {
  if (ChangeFlags() && !KeepsDefault()) {
    qxMsgOut(Severity::kRefusal, "IDS_QX_DB_CORD_DEFAULT", {std::to_string(kDefaultKey)});
    if (!GetSession()->IsRehearsing()) return 0;
  }
  return DPoolPlain::ProcessRelation();
}

}  // namespace qx
