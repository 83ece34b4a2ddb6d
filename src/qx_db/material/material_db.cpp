#include "qx_db/material/material_db.h"

#include <iterator>

#include "qx_db/lib/message.h"
#include "qx_db/material/text_table.h"
#include "qx_db/platform/drive.h"

namespace qx {
namespace {

constexpr const char16_t* kTextPath = u"c:\\matl.txt";

std::string PathOf(const char16_t* path) { return SystemPath(path ? path : u""); }

void Append(MaterialCategories& to, MaterialCategories from) {
  to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
}

}  // namespace

int ReportFileError(const Failure& failure) {
  Failure reason = failure;
  reason.file.clear();
  qxMsgOut(Severity::kError, "IDS_QX_DB_MATL_FILE_ERROR", {failure.file, reason.Line()});
  return 0;
}

int CMaterialDB::LoadFromText(const char16_t*) {
  Result<MaterialCategories> read = ReadTextTable(SystemPath(kTextPath), code_page_);
  if (!read) return ReportFileError(read.Error());
  Append(categories_, std::move(*read));
  return 1;
}

int CMaterialDB::LoadFromBin(const char16_t* path) {
  Result<StructuralLibrary> read = ReadStructuralLibrary(PathOf(path));
  if (!read) return ReportFileError(read.Error());
  Append(categories_, std::move(read->categories));
  titles_ = std::move(read->titles);
  return 1;
}

int CMaterialDB::SaveToBin(const char16_t* path) {
  const Outcome written = WriteStructuralLibrary(categories_, PathOf(path));
  return written ? 1 : ReportFileError(written.Error());
}

int CMaterialDB::LoadFromCFD(const char16_t* path) {
  Result<FluidLibrary> read = ReadFluidFile(PathOf(path));
  if (!read) return ReportFileError(read.Error());
  fluids_ = std::move(*read);
  return 1;
}

int CMaterialDB::LoadParticleFromBin(const char16_t* path) {
  Result<FluidLibrary> read = ReadParticleLibrary(PathOf(path));
  if (!read) return ReportFileError(read.Error());
  fluids_ = std::move(*read);
  return 1;
}

int CMaterialDB::SaveToCFDBin(const char16_t* path) {
  const Outcome written = WriteParticleLibrary(fluids_, PathOf(path));
  return written ? 1 : ReportFileError(written.Error());
}

int CMaterialDB::IsString(CString field) const {
  return !field.Trim().IsEmpty() && !ParseNumber(field.ToUtf8()).whole;
}

}  // namespace qx
