#include "apps/qxdb/files/cad_input.h"

#include "qx_db/platform/file.h"
#include "qx_db/platform/shared_library.h"

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
  constexpr const char* kRemedy = "install QX_db's adapter of CAD files, of the same version";
  // Loading the kernel takes longer than most commands do.
  const Result<SharedLibrary> kernel = SharedLibrary::Load(QX_OCCT_LIBRARY);
  if (!kernel) {
    const Failure& why = kernel.Error();
    return Failure{path, "", "cannot be read: the CAD kernel " + why.file + " " + why.what,
                   kRemedy};
  }
  const auto read =
      reinterpret_cast<decltype(&occt::qx_read_cad_file)>(kernel->Find("qx_read_cad_file"));
  if (!read) {
    return Failure{path, "", "cannot be read: the CAD kernel is of another version", kRemedy};
  }
  Result<std::unique_ptr<ICADSession>> cad = Failure{};
  read(path, unit.numerator / unit.denominator, cad);
  return cad;
}

#else

Result<std::unique_ptr<ICADSession>> OpenCad(const std::string& path, const CQXDBSession&) {
  return Failure{path, "", "cannot be read: this program was built without a CAD kernel",
                 "install Open CASCADE and build again"};
}

#endif

}  // namespace qx::app
