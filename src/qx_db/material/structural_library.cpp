#include "qx_db/material/structural_library.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "qx_db/platform/file.h"

namespace qx {
namespace {

constexpr std::size_t kRowBytes = kBlockBytes + kBinaryValues * sizeof(double);
constexpr std::size_t kCategoryBytes = kBlockBytes + sizeof(std::uint32_t);
/// Rows are read by so many at a time: few calls, and the buffer stays in the cache.
constexpr std::size_t kRowsPerRead = 256;

std::string CategoryPlace(std::size_t index) { return "category " + std::to_string(index + 1); }

Outcome ReadRows(BlockReader& reader, std::uint32_t count, const std::string& place,
                 std::vector<MaterialRow>& rows) {
  if (Outcome fits = reader.CheckCount(count, kRowBytes, place); !fits) return fits;
  rows.resize(count);
  std::vector<char> buffer(kRowBytes * std::min<std::size_t>(count, kRowsPerRead));
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t in_buffer = i % kRowsPerRead;
    if (in_buffer == 0) {
      const std::size_t rows_now = std::min(kRowsPerRead, count - i);
      if (Outcome read = reader.Read(buffer.data(), rows_now * kRowBytes, place); !read) {
        return read;
      }
    }
    const char* row = buffer.data() + in_buffer * kRowBytes;
    if (!TextOfBlock(row, rows[i].name)) {
      return Failure{reader.File(), place + ", material " + std::to_string(i + 1),
                     "has a name without a terminator", "use an undamaged copy of the file"};
    }
    rows[i].values.resize(kBinaryValues);
    std::memcpy(rows[i].values.data(), row + kBlockBytes, kBinaryValues * sizeof(double));
  }
  return {};
}

Outcome ReadCategory(BlockReader& reader, std::size_t index, MaterialCategory& category) {
  const std::string place = CategoryPlace(index);
  if (Outcome read = reader.ReadText(category.name, place); !read) return read;
  std::uint32_t rows = 0;
  if (Outcome read = reader.Read(&rows, sizeof(rows), place); !read) return read;
  return ReadRows(reader, rows, place, category.rows);
}

Outcome ReadTitles(BlockReader& reader, CStringArray& titles) {
  for (int i = 0; i < kStructuralTitleCount; ++i) {
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

Result<StructuralLibrary> ReadStructuralLibrary(BlockReader& reader) {
  if (Outcome magic = reader.ReadMagic(kStructuralMagic); !magic) return magic.Error();
  std::uint32_t counts[2] = {0, 0};  // categories, columns
  if (Outcome read = reader.Read(counts, sizeof(counts), "counts"); !read) return read.Error();
  if (counts[1] != kStructuralColumnCount) {
    return Failure{reader.File(), "counts",
                   "has " + std::to_string(counts[1]) + " columns where 19 are known",
                   "use an undamaged copy of the file"};
  }
  StructuralLibrary library;
  if (Outcome read = ReadTitles(reader, library.titles); !read) return read.Error();
  if (Outcome fits = reader.CheckCount(counts[0], kCategoryBytes, "counts"); !fits) {
    return fits.Error();
  }
  library.categories.resize(counts[0]);
  for (std::size_t i = 0; i < counts[0]; ++i) {
    if (Outcome read = ReadCategory(reader, i, library.categories[i]); !read) return read.Error();
  }
  if (Outcome end = reader.CheckEnd(); !end) return end.Error();
  return library;
}

Result<StructuralLibrary> ReadStructuralLibrary(const std::string& path) {
  Result<BlockReader> reader = BlockReader::Open(path);
  return reader ? ReadStructuralLibrary(*reader) : Result<StructuralLibrary>(reader.Error());
}

Outcome WriteStructuralLibrary(const MaterialCategories& categories, const std::string& path) {
  if (Outcome may = CheckMayWrite(path); !may) return may;
  if (Outcome good = CheckBlocks(categories, path); !good) return good;
  return WriteFileBy(path, [&](std::ostream& out) { WriteAll(categories, out); });
}

}  // namespace qx
