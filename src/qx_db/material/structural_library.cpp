#include "qx_db/material/structural_library.h"

#include <algorithm>
#include <array>
#include <optional>
#include <sstream>

#include "qx_db/platform/file.h"

namespace qx {
namespace {

constexpr std::size_t kCategoryBytes = kBlockBytes + sizeof(std::uint32_t);
/// Rows are read by so many at a time: few calls, and the buffer stays in the cache.
constexpr std::size_t kRowsPerRead = 256;

constexpr const char* kUndamaged = "use an undamaged copy of the file";

std::string CategoryPlace(std::size_t index) { return "category " + std::to_string(index + 1); }

/// Rows of `values` numbers each.
Outcome ReadRows(BlockReader& reader, std::uint32_t count, std::size_t values,
                 const std::string& place, std::vector<MaterialRow>& rows) {
  const std::size_t row_bytes = kBlockBytes + values * sizeof(double);
  if (Outcome fits = reader.CheckCount(count, row_bytes, place); !fits) return fits;
  rows.resize(count);
  std::vector<char> buffer(row_bytes * std::min<std::size_t>(count, kRowsPerRead));
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t in_buffer = i % kRowsPerRead;
    if (in_buffer == 0) {
      const std::size_t rows_now = std::min(kRowsPerRead, count - i);
      if (Outcome read = reader.Read(buffer.data(), rows_now * row_bytes, place); !read) {
        return read;
      }
    }
    const char* row = buffer.data() + in_buffer * row_bytes;
    if (!TextOfBlock(row, rows[i].name)) {
      return Failure{reader.File(), place + ", material " + std::to_string(i + 1),
                     "has a name without a terminator", kUndamaged};
    }
    rows[i].values.resize(values);
    std::copy_n(row + kBlockBytes, values * sizeof(double),
                reinterpret_cast<char*>(rows[i].values.data()));
  }
  return {};
}

Outcome ReadCategory(BlockReader& reader, std::size_t index, std::size_t values,
                     MaterialCategory& category) {
  const std::string place = CategoryPlace(index);
  if (Outcome read = reader.ReadText(category.name, place); !read) return read;
  std::uint32_t rows = 0;
  if (Outcome read = reader.Read(&rows, sizeof(rows), place); !read) return read;
  return ReadRows(reader, rows, values, place, category.rows);
}

Outcome ReadTitles(BlockReader& reader, std::uint32_t count, CStringArray& titles) {
  for (std::uint32_t i = 0; i < count; ++i) {
    CString title;
    Outcome read = reader.ReadText(title, "title " + std::to_string(i + 1));
    if (!read) return read;
    titles.Add(std::move(title));
  }
  return {};
}

Outcome CheckBlock(const CString& name, const std::string& file) {
  if (FitsBlock(name)) return {};
  return Failure{file, "\"" + name.Left(40).ToUtf8() + "\"",
                 "has over 255 characters or a NUL in its name", "give it another name"};
}

Outcome CheckBlocks(const MaterialCategories& categories, const std::string& file) {
  for (const MaterialCategory& category : categories) {
    if (Outcome good = CheckBlock(category.name, file); !good) return good;
    for (const MaterialRow& row : category.rows) {
      if (Outcome good = CheckBlock(row.name, file); !good) return good;
      if (Outcome good = CheckValues(row.name, row.values, file); !good) return good;
      if (row.values.size() > kBinaryValues) {
        return Failure{file, "material \"" + row.name.ToUtf8() + "\"",
                       "has more than the 18 values of a binary library",
                       "leave out the values beyond"};
      }
    }
  }
  return {};
}

void WriteAll(const MaterialCategories& categories, std::ostream& out) {
  CStdioFile file(out);
  WriteText(file, kStructuralMagic);
  WriteValue(file, static_cast<std::uint32_t>(categories.size()));
  WriteValue(file, kStructuralColumnCount);
  WriteTextBlock(file, u"Name");
  for (const StructuralColumn& column : StructuralColumns()) {
    WriteTextBlock(file, Utf16(column.title));
  }
  for (const MaterialCategory& category : categories) {
    WriteTextBlock(file, category.name.View());
    WriteValue(file, static_cast<std::uint32_t>(category.rows.size()));
    for (const MaterialRow& row : category.rows) {
      WriteTextBlock(file, row.name.View());
      std::array<double, kBinaryValues> values{};
      std::copy(row.values.begin(), row.values.end(), values.begin());
      WriteValue(file, values);
    }
  }
}

}  // namespace

namespace {

/// What follows the counts of categories and columns, with so many titles.
Result<StructuralLibrary> ReadBody(BlockReader& reader, const std::uint32_t (&counts)[2],
                                   std::uint32_t titles) {
  StructuralLibrary library;
  if (Outcome read = ReadTitles(reader, titles, library.titles); !read) return read.Error();
  if (Outcome fits = reader.CheckCount(counts[0], kCategoryBytes, "counts"); !fits) {
    return fits.Error();
  }
  library.categories.resize(counts[0]);
  for (std::size_t i = 0; i < counts[0]; ++i) {
    Outcome read = ReadCategory(reader, i, counts[1] - 1, library.categories[i]);
    if (!read) return read.Error();
  }
  return library;
}

/// A library of fewer columns than are known. Its writer may have kept the two titles without
/// values, all titles, or only those that it counts: the number that leaves the fewest bytes over,
/// and less than a value takes.
Result<StructuralLibrary> ReadNarrow(BlockReader& reader, const std::uint32_t (&counts)[2],
                                     const MaterialLint& lint) {
  std::string rest(reader.Left(), '\0');
  if (Outcome read = reader.Read(rest.data(), rest.size(), "titles"); !read) return read.Error();
  std::optional<Result<StructuralLibrary>> best;
  std::uint64_t left = 0;
  for (const std::uint32_t titles :
       {counts[1] + kTitlesWithoutValues, counts[1], std::uint32_t{kStructuralTitleCount}}) {
    BlockReader again(std::make_unique<std::istringstream>(rest), rest.size(), reader.File());
    Result<StructuralLibrary> read = ReadBody(again, counts, titles);
    if (read && again.Left() >= sizeof(double)) {
      read = Failure{reader.File(), "end", "does not come out even", kUndamaged};
    }
    if (best && (!read || (*best && again.Left() >= left))) continue;
    left = again.Left();
    best = std::move(read);
  }
  const BlockReader behind(std::make_unique<std::istringstream>(), left, reader.File());
  Outcome end = *best ? behind.CheckEnd(lint) : Outcome();
  return end ? *best : Result<StructuralLibrary>(end.Error());
}

}  // namespace

Result<StructuralLibrary> ReadStructuralLibrary(BlockReader& reader, const MaterialLint& lint) {
  if (Outcome magic = reader.ReadMagic(kStructuralMagic); !magic) return magic.Error();
  std::uint32_t counts[2] = {0, 0};  // categories, columns
  if (Outcome read = reader.Read(counts, sizeof(counts), "counts"); !read) return read.Error();
  if (counts[1] != kStructuralColumnCount) {
    const Failure other{reader.File(), "counts",
                        "has " + std::to_string(counts[1]) + " columns where 19 are known",
                        kUndamaged};
    if (counts[1] < 1 || counts[1] > kStructuralColumnCount) return other;
    if (Outcome narrow = lint.Doubt(other); !narrow) return narrow.Error();
    return ReadNarrow(reader, counts, lint);
  }
  Result<StructuralLibrary> library = ReadBody(reader, counts, kStructuralTitleCount);
  if (!library) return library;
  if (Outcome end = reader.CheckEnd(lint); !end) return end.Error();
  return library;
}

Result<StructuralLibrary> ReadStructuralLibrary(const std::string& path, const MaterialLint& lint) {
  Result<BlockReader> reader = BlockReader::Open(path);
  return reader ? ReadStructuralLibrary(*reader, lint) : Result<StructuralLibrary>(reader.Error());
}

Outcome WriteStructuralLibrary(const MaterialCategories& categories, const std::string& path) {
  if (Outcome may = CheckMayWrite(path); !may) return may;
  if (Outcome good = CheckBlocks(categories, path); !good) return good;
  return WriteFileBy(path, [&](std::ostream& out) { WriteAll(categories, out); });
}

}  // namespace qx
