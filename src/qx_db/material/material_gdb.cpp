#include "qx_db/material/material_gdb.h"

#include <algorithm>
#include <filesystem>

#include "qx_db/core/session.h"
#include "qx_db/lib/message.h"
#include "qx_db/material/material_db.h"
#include "qx_db/platform/drive.h"
#include "qx_db/platform/file.h"

namespace qx {
namespace fs = std::filesystem;

namespace {

constexpr std::string_view kOldExtension = ".gdb";
constexpr std::string_view kNewExtension = ".gdbp";

/// A failure at a line of a library, which has a text of its own, or with the file as such.
int Report(const Failure& failure) {
  constexpr std::string_view kLine = "line ";
  if (!failure.place.starts_with(kLine)) return ReportFileError(failure);
  const Failure reason{"", "", failure.what, failure.remedy};
  qxMsgOut(Severity::kError, "IDS_QX_DB_MATLGDB_ERROR_IN__s_LINE__d",
           {failure.file, failure.place.substr(kLine.size()), reason.Line()});
  return 0;
}

/// The folder's libraries in the order of their names, which is no directory's.
std::vector<fs::path> LibrariesIn(const fs::path& folder) {
  std::vector<fs::path> found;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    const std::string extension = Utf8FromPath(it->path().extension());
    if (EqualNoCase(extension, kOldExtension) || EqualNoCase(extension, kNewExtension)) {
      found.push_back(it->path());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

/// The folder "DBase" of a folder, in the case it has there; empty when there is none.
fs::path LibraryFolder(const fs::path& folder) {
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    if (EqualNoCase(Utf8FromPath(it->path().filename()), "DBase")) return it->path();
  }
  return {};
}

/// A text of what "%s:%s" makes of a folder and a file in it.
CString EntryName(const fs::path& folder, const fs::path& file) {
  std::error_code error;
  const fs::path whole = fs::weakly_canonical(folder, error);
  const fs::path& named = error ? folder : whole;
  const fs::path last = named.has_filename() ? named.filename() : named.parent_path().filename();
  return CString::FromUtf8(Utf8FromPath(last) + ":" + Utf8FromPath(file.stem()));
}

bool HasOldExtension(std::string_view path) {
  return path.size() >= kOldExtension.size() &&
         EqualNoCase(path.substr(path.size() - kOldExtension.size()), kOldExtension);
}

/// The units that a file in a system is written in: its four, and kg and sec for the others.
T_UNIT_INDEX FileUnitsOf(const UnitSystem& system) {
  return {system[UnitBase::kForce], system[UnitBase::kLength], system[UnitBase::kHeat],
          system[UnitBase::kTemperature], 1};
}

}  // namespace

CMaterialGDB::CMaterialGDB(CString* paths, int count, CQXDocBase* document) : document_(document) {
  for (int i = 0; i < count; ++i) {
    const fs::path path = PathFromUtf8(SystemPath(paths[i].View()));
    Load(paths[i].c_str(), CString::FromUtf8(Utf8FromPath(path.stem())).c_str());
  }
}

const CQXUnitCtrl* CMaterialGDB::Units() const {
  return document_ ? &document_->GetDBSession()->Units() : nullptr;
}

void CMaterialGDB::SetCodePage(int index, const CodePage& page) {
  entries_[static_cast<std::size_t>(index)].page = page;
}

int CMaterialGDB::FindFileList(const char16_t* folder) {
  const fs::path root = PathFromUtf8(SystemPath(folder ? folder : u""));
  int loaded = 0;
  for (const fs::path& file : LibrariesIn(LibraryFolder(root))) {
    loaded += Load(CString::FromUtf8(Utf8FromPath(file)).c_str(), EntryName(root, file).c_str());
  }
  return loaded;
}

int CMaterialGDB::Load(const char16_t* path, const char16_t* name) {
  const CString given(path);
  Result<GdbFile> read = ReadGdbFile(SystemPath(given.View()), page_);
  if (!read) return Report(read.Error());
  const UnitSystem of_file = SystemOfFile(read->units);
  const UnitSystem held = Units() ? Units()->Current() : of_file;
  ConvertMaterials(read->materials, of_file, held);
  entries_.push_back(
      {given, CString(name), std::move(read->materials), read->units, held, read->page});
  return 1;
}

int CMaterialGDB::Save(int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= entries_.size() || titles_.empty()) return 0;
  MaterialEntry& entry = entries_[static_cast<std::size_t>(index)];
  const std::string old_path = SystemPath(entry.path.View());
  const bool renewed = HasOldExtension(old_path);
  CString new_path = entry.path;
  if (renewed) {
    const auto old_length = static_cast<int>(kOldExtension.size());
    new_path = entry.path.Left(entry.path.GetLength() - old_length) + CString(u".gdbp");
    if (Outcome may = CheckMayWrite(old_path); !may) return Report(may.Error());
    const std::string target = SystemPath(new_path.View());
    std::error_code unknown;
    if (fs::exists(fs::symlink_status(PathFromUtf8(target), unknown))) {
      return Report(
          {target, "",
           "is a library of its own, which saving " + old_path + " in the newer form would replace",
           "rename or move one of the two"});
    }
  }
  T_UNIT_INDEX written = Units() ? FileUnitsOf(Units()->Current()) : entry.units;
  written.time = 0;  // the line that is written has no place for it
  std::vector<GdbMaterial> materials = entry.materials;
  ConvertMaterials(materials, entry.value_units, SystemOfFile(written));
  Outcome saved = WriteGdbFile(SystemPath(new_path.View()), materials, titles_, written, entry.page,
                               kSavedStyle);
  if (!saved) return Report(saved.Error());
  entry.path = new_path;
  if (!renewed) return 1;
  // The new file is safe by now; an old one that stays is no loss.
  std::error_code error;
  fs::remove(PathFromUtf8(old_path), error);
  if (error) {
    ReportFileError({old_path, "", "cannot be deleted: " + error.message(), "delete it yourself"});
  }
  return 1;
}

int CMaterialGDB::GetUnitIndex(CString line, T_UNIT_INDEX& units, int is_gdbp) const {
  return ParseUnitLine(line.ToUtf8(), is_gdbp != 0, units) ? 0 : 1;
}

void CMaterialGDB::GetUnitString(const T_UNIT_INDEX& units, CString& force, CString& length,
                                 CString& heat, CString& temperature) const {
  const auto name = [](UnitBase base, std::int32_t index) {
    const auto list = UnitsOf(base);
    const bool known = index >= 0 && static_cast<std::size_t>(index) < list.size();
    return known ? CString::FromUtf8(list[static_cast<std::size_t>(index)].name) : CString();
  };
  force = name(UnitBase::kForce, units.force);
  length = name(UnitBase::kLength, units.length);
  heat = name(UnitBase::kHeat, units.heat);
  temperature = name(UnitBase::kTemperature, units.temperature);
}

}  // namespace qx
