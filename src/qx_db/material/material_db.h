#pragma once
// The library of standard materials from which a user picks one.

#include "qx_db/core/document.h"
#include "qx_db/material/fluid_library.h"
#include "qx_db/material/structural_library.h"

namespace qx {

/// Structural materials by category, and a list of fluid or particle materials, read from and
/// written to their files (docs/material-files.md). Operations return 1, or 0 after one message to
/// the user that names file and place; the library is then as it was. Structural loaders add their
/// categories to those already there: call Clear for a library of its own.
/// Threads: shares nothing; one thread at a time.
class QXDB_API CMaterialDB {
 public:
  /// The document is not owned and may be null.
  explicit CMaterialDB(CQXDocBase* document) : document_(document) {}
  virtual ~CMaterialDB() = default;
  CQXDocBase* GetDoc() const { return document_; }

  /// Reads "c:\\matl.txt", whatever path is given: a text table has one place. Where drive c lies
  /// is for platform/drive.h to say.
  int LoadFromText(const char16_t* path);
  int LoadFromBin(const char16_t* path);
  int SaveToBin(const char16_t* path);
  /// These replace the fluid list as a whole.
  int LoadFromCFD(const char16_t* path);
  int LoadParticleFromBin(const char16_t* path);
  int SaveToCFDBin(const char16_t* path);
  /// Empties the category list.
  void Clear() { categories_.clear(); }

  const MaterialCategories& GetCategories() const { return categories_; }
  void SetCategories(MaterialCategories categories) { categories_ = std::move(categories); }
  /// The column titles of the binary library read last.
  const CStringArray& GetTitles() const { return titles_; }
  const FluidLibrary& GetFluids() const { return fluids_; }
  void SetFluids(FluidLibrary fluids) { fluids_ = std::move(fluids); }
  /// The code page of text tables; that of the locale until it is set.
  void SetCodePage(const CodePage& page) { code_page_ = page; }

 protected:
  /// Writes a text of printf's form without terminator; returns the bytes written. This and the
  /// next throw std::runtime_error, and write nothing, where the values do not suit the format.
  template <class... Values>
  unsigned Write(CStdioFile& file, const char16_t* format, const Values&... values) {
    return WriteText(file, FormatText(format, {FormatValue(values)...}));
  }
  /// Writes one as a block of 512 bytes; 0, and nothing written, when it does not fit.
  template <class... Values>
  int WriteCharBlock(CStdioFile& file, const char16_t* format, const Values&... values) {
    return WriteTextBlock(file, FormatText(format, {FormatValue(values)...}));
  }
  /// Whether a field is text: neither empty nor, blanks around it aside, a decimal number.
  int IsString(CString field) const;

 private:
  CQXDocBase* document_;
  MaterialCategories categories_;
  CStringArray titles_;
  FluidLibrary fluids_;
  CodePage code_page_ = CodePage::OfLocale();
};

/// Tells the user of a failure with a material file, as the system's own report of it. Returns 0.
int ReportFileError(const Failure& failure);

}  // namespace qx
