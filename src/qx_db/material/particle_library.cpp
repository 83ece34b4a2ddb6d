// The binary library of fluid and particle materials.

#include <algorithm>
#include <vector>

#include "qx_db/material/fluid_library.h"
#include "qx_db/platform/file.h"

namespace qx {
namespace {

constexpr std::size_t kMaterialBytes = kBlockBytes + kFluidPropertyCount * sizeof(double);

/// What follows the magic.
struct Head {
  std::uint32_t materials = 0;
  std::uint32_t columns = kFluidPropertyCount + 1;  // the name is one
  std::int32_t numbering_offset = 0;
};

/// The columns must be the known ones, in their order: a value has no other mark of its meaning.
Outcome ReadColumns(BlockReader& reader, std::uint32_t count) {
  if (count != kFluidPropertyCount + 1) {
    return Failure{reader.File(), "counts", "has " + std::to_string(count) + " columns, not 26",
                   "use an undamaged copy of the file"};
  }
  for (std::size_t i = 0; i <= kFluidPropertyCount; ++i) {
    const std::u16string_view known = i == 0 ? u"*NAME" : FluidProperties()[i - 1].keyword;
    const std::string place = "column " + std::to_string(i + 1);
    CString keyword;
    if (Outcome read = reader.ReadText(keyword, place); !read) return read;
    if (keyword.View() != known) {
      return Failure{reader.File(), place, "is \"" + keyword.ToUtf8() + "\", not " + Utf8(known),
                     "use a library that this version wrote"};
    }
  }
  return {};
}

void WriteAll(const FluidLibrary& library, std::ostream& out) {
  CStdioFile file(out);
  WriteText(file, kParticleMagic);
  WriteValue(file, static_cast<std::uint32_t>(library.materials.size()));
  WriteValue(file, static_cast<std::uint32_t>(kFluidPropertyCount + 1));
  WriteValue(file, library.numbering_offset);
  WriteTextBlock(file, u"*NAME");
  for (const FluidProperty& property : FluidProperties()) WriteTextBlock(file, property.keyword);
  WriteTextBlock(file, library.title.View());
  for (const FluidMaterial& material : library.materials) {
    WriteTextBlock(file, material.name.View());
    WriteValue(file, material.values);
  }
}

}  // namespace

Result<FluidLibrary> ReadParticleLibrary(BlockReader& reader, const MaterialLint& lint) {
  if (Outcome magic = reader.ReadMagic(kParticleMagic); !magic) return magic.Error();
  Head head;
  static_assert(sizeof(head) == 12);
  if (Outcome read = reader.Read(&head, sizeof(head), "counts"); !read) return read.Error();
  if (Outcome columns = ReadColumns(reader, head.columns); !columns) return columns.Error();
  FluidLibrary library;
  library.numbering_offset = head.numbering_offset;
  if (Outcome read = reader.ReadText(library.title, "title"); !read) return read.Error();
  if (Outcome fits = reader.CheckCount(head.materials, kMaterialBytes, "counts"); !fits) {
    return fits.Error();
  }
  library.materials.resize(head.materials);
  for (std::size_t i = 0; i < library.materials.size(); ++i) {
    FluidMaterial& material = library.materials[i];
    const std::string place = "material " + std::to_string(i + 1);
    Outcome read = reader.ReadText(material.name, place);
    if (read) read = reader.Read(material.values.data(), sizeof(material.values), place);
    if (!read) return read.Error();
  }
  if (Outcome end = reader.CheckEnd(lint); !end) return end.Error();
  return library;
}

Result<FluidLibrary> ReadParticleLibrary(const std::string& path, const MaterialLint& lint) {
  Result<BlockReader> reader = BlockReader::Open(path);
  return reader ? ReadParticleLibrary(*reader, lint) : Result<FluidLibrary>(reader.Error());
}

Outcome WriteParticleLibrary(const FluidLibrary& library, const std::string& path) {
  if (Outcome may = CheckMayWrite(path); !may) return may;
  const auto unfit = std::find_if(library.materials.begin(), library.materials.end(),
                                  [](const FluidMaterial& m) { return !FitsBlock(m.name); });
  if (unfit != library.materials.end() || !FitsBlock(library.title)) {
    const CString& name = unfit == library.materials.end() ? library.title : unfit->name;
    return Failure{path, "\"" + name.Left(40).ToUtf8() + "\"",
                   "has over 255 characters or a NUL in it", "give it another name"};
  }
  for (const FluidMaterial& material : library.materials) {
    if (Outcome good = CheckValues(material.name, material.values, path); !good) return good;
  }
  return WriteFileBy(path, [&](std::ostream& out) { WriteAll(library, out); });
}

}  // namespace qx
