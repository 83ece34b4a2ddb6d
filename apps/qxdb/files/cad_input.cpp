#include "apps/qxdb/files/cad_input.h"

#include "qx_db/platform/file.h"

#ifdef QX_HAS_OCCT
#include "adapters/occt/occt_cad.h"
#endif

namespace qx::app {

std::string FileName(const std::string& path) {
  return Utf8FromPath(PathFromUtf8(path).filename());
}

void UseMillimetres(CQXDBSession& session) {
  UnitSystem units = session.Units().Model();
  units[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  session.Units().SetModel(units);
  session.Units().SetCurrent(units);
}

#ifdef QX_HAS_OCCT

Result<std::unique_ptr<ICADSession>> OpenCad(const std::string& path, const CQXDBSession& session) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file.Error();
  const auto index = static_cast<std::size_t>(session.Units().Model()[UnitBase::kLength]);
  const UnitDefinition& unit = UnitsOf(UnitBase::kLength)[index];
  return occt::ReadCadFile(path, unit.numerator / unit.denominator);
}

#else

Result<std::unique_ptr<ICADSession>> OpenCad(const std::string& path, const CQXDBSession&) {
  return Failure{path, "", "cannot be read: this program was built without a CAD kernel",
                 "install Open CASCADE and build again"};
}

#endif

}  // namespace qx::app
