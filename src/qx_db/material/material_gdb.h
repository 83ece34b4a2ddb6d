#pragma once
// The material libraries that users edit: found, loaded in the session's units, and saved.

#include "qx_db/core/document.h"
#include "qx_db/material/gdb_file.h"

namespace qx {

/// One library file as it was loaded.
struct MaterialEntry {
  CString path;
  CString name;  ///< for display
  std::vector<GdbMaterial> materials;
  T_UNIT_INDEX units;      ///< those that the file named
  UnitSystem value_units;  ///< those of the values: the session's when it was loaded, or the file's
  CodePage page;           ///< that the file is in
};

/// Library files of the forms .gdb and .gdbp (docs/material-files.md), in the order they were
/// loaded. Operations return 1, or 0 after one message to the user that names file and line; the
/// entries, and the files, are then as they were.
/// Threads: one at a time, that of the session it is given.
class QXDB_API CMaterialGDB {
 public:
  /// The document is not owned and may be null: values then stay in the units of their file.
  explicit CMaterialGDB(CQXDocBase* document) : document_(document) {}
  /// Loads `count` files, each under its file name without extension; those that fail are left out.
  CMaterialGDB(CString* paths, int count, CQXDocBase* document);
  virtual ~CMaterialGDB() = default;
  CQXDocBase* GetDoc() const { return document_; }

  /// Loads the .gdb and .gdbp files in the folder "DBase" (whatever its case) of `folder`, in the
  /// order of their names. Each is called "folder:file", by the folder's name and the file's, both
  /// without what stands before or behind. Returns how many were loaded.
  int FindFileList(const char16_t* folder);
  /// Appends an entry, its values converted to the session's current units.
  int Load(const char16_t* path, const char16_t* name);
  /// Writes an entry in the form .gdbp, in the session's current units; an entry of a .gdb file
  /// becomes one of a .gdbp file, which replaces it; where there is a .gdbp file of that name
  /// already, which is another library, nothing is saved. The version written is not one that Load
  /// takes: a saved file is for a user to look at, who then sets its version to 2.7.0. Returns 0,
  /// without a message, for an index of no entry and without titles.
  int Save(int index);

  /// The units that a "**Unit" line names; 0 and `units` unchanged when it names none or others.
  /// `is_gdbp` tells the newer form, which needs all four, from the older, where heat and
  /// temperature may be left out.
  int GetUnitIndex(CString line, T_UNIT_INDEX& units, int is_gdbp) const;
  /// The names of units; "" for an index beyond the table.
  void GetUnitString(const T_UNIT_INDEX& units, CString& force, CString& length, CString& heat,
                     CString& temperature) const;

  const std::vector<MaterialEntry>& GetEntries() const { return entries_; }
  /// The titles of the header line, "Name" first. Nothing is saved without any.
  const std::vector<CString>& GetTitles() const { return titles_; }
  void SetTitles(std::vector<CString> titles) { titles_ = std::move(titles); }
  /// The code page of files without a mark, from the next Load on; that of the locale until it is
  /// set. An entry is saved in that of its file, or in the one set for it.
  void SetCodePage(const CodePage& page) { page_ = page; }
  /// Requires an index of an entry.
  void SetCodePage(int index, const CodePage& page);

 private:
  const CQXUnitCtrl* Units() const;

  CQXDocBase* document_;
  std::vector<MaterialEntry> entries_;
  std::vector<CString> titles_ = GdbTitles();
  CodePage page_ = CodePage::OfLocale();
};

}  // namespace qx
