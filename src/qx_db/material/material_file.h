#pragma once
// Material files of every form, as tables: what is listed, converted and imported.
// Threads: functions from any; objects are values, one at a time for each.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/material/material_table.h"
#include "qx_db/material/text_lines.h"

namespace qx {

/// The forms of material files, in the order of MaterialForms().
enum class MaterialForm { kText, kBinary, kFluid, kParticle, kGdb, kGdbp };

struct MaterialFormInfo {
  std::string_view name;
  std::string_view extension;  ///< that chooses it for a file to be written
  std::string_view what;
};
QXDB_API std::span<const MaterialFormInfo> MaterialForms();
QXDB_API const MaterialFormInfo& InfoOf(MaterialForm form);

/// By name, whatever the case; fails with the names that there are.
QXDB_API Result<MaterialForm> FormNamed(std::string_view name);
/// Of a file by how it begins, or else by its extension; a text table when neither tells.
QXDB_API Result<MaterialForm> FormOfFile(const std::string& path);
/// By extension alone, for a file to be written; fails with the extensions that there are.
QXDB_API Result<MaterialForm> FormOfName(const std::string& path);

/// The code page that a text file without a mark seems to be in: UTF-8 where its bytes are that,
/// else that of the locale. `told` is set where the choice matters: a byte is not ASCII. UTF-8, and
/// not told, for the forms that are no text. Fails as reading the file does.
QXDB_API Result<CodePage> GuessPage(const std::string& path, MaterialForm form,
                                    bool* told = nullptr);

/// Reads a file as a table in the units that its values are in. Fails as the reader of its form
/// does.
QXDB_API Result<MaterialTable> ReadMaterials(const std::string& path, MaterialForm form,
                                             const CodePage& page, const MaterialLint& lint = {});

/// The one system of all columns; LibraryUnits() when they differ.
QXDB_API UnitSystem UnitsOfTable(const MaterialTable& table);

/// Writes a table. The units are those of a .gdbp file, the only form that chooses: its mass is in
/// kg and its time in sec whatever they say. `lost` hears of what the form has no place for. The
/// older form .gdb is read only.
QXDB_API Outcome WriteMaterials(const MaterialTable& table, const std::string& path,
                                MaterialForm form, const CodePage& page, const UnitSystem& units,
                                std::vector<std::string>* lost = nullptr);

}  // namespace qx
