#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <memory>

#include "qx_db/material/gdb_file.h"
#include "qx_db/material/structural_library.h"
#include "qx_db/material/text_table.h"

#include "bench/harness.h"

namespace qx::bench {
namespace {

constexpr int kMaterials = 100000;

/// Values of the digits that published tables have, from 0.3 to 210000.
double SomeValue(int material, int column) {
  constexpr double kScales[] = {1e-6, 1e-3, 0.01, 1, 100, 1000};
  return kScales[(material + column) % 6] * ((material * 7 + column * 131) % 9973);
}

MaterialCategories SomeCategories() {
  MaterialCategories categories;
  for (int i = 0; i < kMaterials; ++i) {
    if (i % 100 == 0) {
      categories.push_back({CString::FromUtf8(fmt::format("Standard {}", i / 100)), {}});
    }
    MaterialRow& row = categories.back().rows.emplace_back();
    row.name = CString::FromUtf8(fmt::format("Material {}", i));
    for (int c = 0; c < static_cast<int>(kTextValues); ++c) row.values.push_back(SomeValue(i, c));
  }
  return categories;
}

std::vector<GdbMaterial> SomeGdbMaterials() {
  std::vector<GdbMaterial> materials(kMaterials);
  for (int i = 0; i < kMaterials; ++i) {
    GdbMaterial& material = materials[static_cast<std::size_t>(i)];
    material.name = CString::FromUtf8(fmt::format("Material {}", i));
    for (int c = 0; c < static_cast<int>(kGdbpValues); ++c) {
      material.values[static_cast<std::size_t>(c)] = SomeValue(i, c);
    }
  }
  return materials;
}

/// The peer: the whole file into memory, which nobody clears first.
double ReadPlain(const std::string& path) {
  return Time([&] {
    const std::size_t size = std::filesystem::file_size(path);
    const auto bytes = std::make_unique_for_overwrite<char[]>(size);
    std::FILE* file = std::fopen(path.c_str(), "rb");
    std::setvbuf(file, nullptr, _IONBF, 0);
    Keep(std::fread(bytes.get(), 1, size, file));
    std::fclose(file);
    Keep(bytes.get());
  });
}

template <class Read>
double Load(Read&& read) {
  return Time([&] {
    const auto result = read();
    if (!result) fmt::print("{}\n", result.Error().Line());
    Keep(result);
  });
}

double Megabytes(const std::string& path) {
  return static_cast<double>(std::filesystem::file_size(path)) / 1e6;
}

/// A text form beside a plain read, and its own speed: 10 ns a byte are 100 MB/s.
void TextForm(const std::string& what, const std::string& path,
              const std::function<double()>& load) {
  std::vector<double> ours;
  std::vector<double> plain;
  for (int i = 0; i < 6; ++i) {
    ours.push_back(load());
    plain.push_back(ReadPlain(path));
  }
  std::sort(ours.begin() + 1, ours.end());  // the first warms up
  std::sort(plain.begin() + 1, plain.end());
  const std::string unit = fmt::format("ns/byte, {:.0f} MB/s, {:.1f} plain reads",
                                       Megabytes(path) / ours[3], ours[3] / plain[3]);
  Figure(what, 1e3 * ours[3] / Megabytes(path), unit, 10);
}

}  // namespace

void Materials() {
  const auto folder = std::filesystem::temp_directory_path() / "qx_bench";
  std::filesystem::create_directories(folder);
  const std::string text = (folder / "m.txt").string();
  const std::string binary = (folder / "m.bin").string();
  const std::string gdbp = (folder / "m.gdbp").string();
  const MaterialCategories categories = SomeCategories();
  for (const Outcome& written :
       {WriteTextTable(categories, text, CodePage()), WriteStructuralLibrary(categories, binary),
        WriteGdbFile(gdbp, SomeGdbMaterials(), GdbTitles(), {}, CodePage(), kReadableStyle)}) {
    if (!written) return (void)fmt::print("{}\n", written.Line());
  }
  TextForm("load a text table of 100 000", text,
           [&] { return Load([&] { return ReadTextTable(text, CodePage()); }); });
  TextForm("load a .gdbp library of 100 000", gdbp,
           [&] { return Load([&] { return ReadGdbFile(gdbp, CodePage()); }); });
  // Half the speed of a plain read.
  Compare(
      "load a binary library of 100 000", "plain read", 2.0,
      [&] { return Load([&] { return ReadStructuralLibrary(binary); }); },
      [&] { return ReadPlain(binary); }, Memory::kFresh);
  std::filesystem::remove_all(folder);
}

}  // namespace qx::bench
