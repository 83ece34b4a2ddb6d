#include "qx_db/pool/record_units.h"

#include "qx_db/pool/keyed_set_base.h"

namespace qx {
namespace {

using Conversion = void (TStructBase::*)(const CQXUnitCtrl*);

constexpr tagTVector3<double> tagTCord::*kPoints[] = {&tagTCord::origin, &tagTCord::axis_point,
                                                      &tagTCord::plane_point};

void ConvertSystem(tagTCord& system, std::int32_t reference_type, const CQXUnitCtrl& units,
                   Conversion convert) {
  const tagTCord was = system;
  (system.*convert)(&units);
  if (reference_type == tagTCord::kRectangular) return;
  for (const auto point : kPoints) {
    (system.*point).y = (was.*point).y;
    if (reference_type == tagTCord::kSpherical) (system.*point).z = (was.*point).z;
  }
}

void Convert(TStructBase& record, const CQXUnitCtrl& units, Conversion convert) {
  if (record.GetType() != code::kCord) return (record.*convert)(&units);
  auto& system = static_cast<tagTCord&>(record);
  const ITR reference = system.reference;
  const std::int32_t type =
      reference ? static_cast<const tagTCord&>(*KeyedSetBase::RecordAt(reference)).type
                : tagTCord::kRectangular;
  ConvertSystem(system, type, units, convert);
}

}  // namespace

void ConvertUnitsIn(TStructBase& record, const CQXUnitCtrl& units) {
  Convert(record, units, &TStructBase::ConvertUnitIn);
}
void ConvertUnitsOut(TStructBase& record, const CQXUnitCtrl& units) {
  Convert(record, units, &TStructBase::ConvertUnitOut);
}
void ConvertUnitsIn(tagTCord& system, std::int32_t reference_type, const CQXUnitCtrl& units) {
  ConvertSystem(system, reference_type, units, &TStructBase::ConvertUnitIn);
}
void ConvertUnitsOut(tagTCord& system, std::int32_t reference_type, const CQXUnitCtrl& units) {
  ConvertSystem(system, reference_type, units, &TStructBase::ConvertUnitOut);
}

}  // namespace qx
