#include "qx_db/app/app_util.h"

#include "qx_db/core/session.h"
#include "qx_db/model/coordinate_pool.h"

namespace qx {
namespace {

/// Whether a coordinate of points is a length, in a system of a type; otherwise it is an angle.
bool IsLength(std::int32_t type, int coordinate) {
  if (type == tagTCord::kCylindrical) return coordinate != 1;
  if (type == tagTCord::kSpherical) return coordinate == 0;
  return true;
}

bool IsFinite(const Tensor3& tensor) {
  for (const auto& row : tensor.at) {
    if (!qx::IsFinite(Vector3(row))) return false;
  }
  return true;
}

/// The components along other axes: T'(i, j) = axes(i) . T axes(j), where `axes` are the new ones
/// seen from the old.
Tensor3 Along(const Triad& axes, const Tensor3& tensor) {
  const Vector3 rows[3] = {Vector3(tensor.at[0]), Vector3(tensor.at[1]), Vector3(tensor.at[2])};
  const Vector3* to[3] = {&axes.x, &axes.y, &axes.z};
  Tensor3 result;
  for (int j = 0; j < 3; ++j) {
    const Vector3 image(Dot(rows[0], *to[j]), Dot(rows[1], *to[j]), Dot(rows[2], *to[j]));
    for (int i = 0; i < 3; ++i) result.at[i][j] = Dot(*to[i], image);
  }
  return result;
}

Triad Transposed(const Triad& axes) {
  return {{axes.x.x, axes.y.x, axes.z.x},
          {axes.x.y, axes.y.y, axes.z.y},
          {axes.x.z, axes.y.z, axes.z.z}};
}

}  // namespace

const DPoolCord* CQXAppUtil::Systems() const { return session_.GetPool<DPoolCord>(code::kCord); }

double CQXAppUtil::ToModel(int category, double value) const {
  return units_ == Units::kCurrent ? value * session_.Units().GetConvertFactorCurrent(category)
                                   : value;
}

double CQXAppUtil::FromModel(int category, double value) const {
  return units_ == Units::kCurrent ? value / session_.Units().GetConvertFactorCurrent(category)
                                   : value;
}

Vector3 CQXAppUtil::LengthsToModel(ITR system, const Vector3& coordinates) const {
  const std::int32_t type = system ? Systems()->GetAtNU(system).type : tagTCord::kRectangular;
  Vector3 result = coordinates;
  for (int i = 0; i < 3; ++i) {
    if (IsLength(type, i)) result[i] = ToModel(CQXCordUnit::Instance().Code(0), coordinates[i]);
  }
  return result;
}

Vector3 CQXAppUtil::LengthsFromModel(ITR system, const Vector3& coordinates) const {
  const std::int32_t type = system ? Systems()->GetAtNU(system).type : tagTCord::kRectangular;
  Vector3 result = coordinates;
  for (int i = 0; i < 3; ++i) {
    if (IsLength(type, i)) result[i] = FromModel(CQXCordUnit::Instance().Code(0), coordinates[i]);
  }
  return result;
}

// ---- axes ---------------------------------------------------------------------------------------

int CQXAppUtil::AxesAt(ITR system, const Vector3& at, Triad& axes) const {
  if (!IsFinite(at)) return 0;
  if (system == 0) {
    axes = Triad();
    return 1;
  }
  if (!Systems() || KeyedSetBase::IsRemoved(system)) return 0;
  Triad found;
  if (!Systems()->GetAxesAt(Systems()->GetAtNU(system), LengthsToModel(0, at), found)) return 0;
  axes = found;
  return 1;
}

// ---- points -------------------------------------------------------------------------------------

int CQXAppUtil::PointToGlobal(ITR system, const Vector3& coordinates, Vector3& point) const {
  return ConvertPoint(system, 0, coordinates, point);
}

int CQXAppUtil::PointFromGlobal(ITR system, const Vector3& point, Vector3& coordinates) const {
  return ConvertPoint(0, system, point, coordinates);
}

int CQXAppUtil::ConvertPoint(ITR from, ITR to, const Vector3& coordinates,
                             Vector3& converted) const {
  Triad ignored;
  if (!IsFinite(coordinates) || !AxesAt(from, {}, ignored) || !AxesAt(to, {}, ignored)) return 0;
  Vector3 point = LengthsToModel(from, coordinates);
  if (from && !Systems()->ToGlobal(from, point, point)) return 0;
  if (to && !Systems()->FromGlobal(to, point, point)) return 0;
  if (!IsFinite(point)) return 0;
  converted = LengthsFromModel(to, point);
  return 1;
}

// ---- directions ---------------------------------------------------------------------------------

int CQXAppUtil::DirectionToGlobal(ITR system, const Vector3& at, const Vector3& components,
                                  Vector3& direction, int category) const {
  Triad axes;
  if (!IsFinite(components) || !AxesAt(system, at, axes)) return 0;
  const Vector3 global = axes.ToGlobal(components);
  for (int i = 0; i < 3; ++i) direction[i] = ToModel(category, global[i]);
  return 1;
}

int CQXAppUtil::DirectionFromGlobal(ITR system, const Vector3& at, const Vector3& direction,
                                    Vector3& components, int category) const {
  Triad axes;
  if (!IsFinite(direction) || !AxesAt(system, at, axes)) return 0;
  const Vector3 local = axes.ToLocal(direction);
  for (int i = 0; i < 3; ++i) components[i] = FromModel(category, local[i]);
  return 1;
}

// ---- tensors ------------------------------------------------------------------------------------

int CQXAppUtil::TensorToGlobal(ITR system, const Vector3& at, const Tensor3& components,
                               Tensor3& tensor, int category) const {
  Triad axes;
  if (!IsFinite(components) || !AxesAt(system, at, axes)) return 0;
  tensor = Along(Transposed(axes), components);
  for (auto& row : tensor.at) {
    for (double& value : row) value = ToModel(category, value);
  }
  return 1;
}

int CQXAppUtil::TensorFromGlobal(ITR system, const Vector3& at, const Tensor3& tensor,
                                 Tensor3& components, int category) const {
  Triad axes;
  if (!IsFinite(tensor) || !AxesAt(system, at, axes)) return 0;
  components = Along(axes, tensor);
  for (auto& row : components.at) {
    for (double& value : row) value = FromModel(category, value);
  }
  return 1;
}

}  // namespace qx
