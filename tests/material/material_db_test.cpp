// The library of standard materials: its four file forms.

#include "qx_db/material/material_db.h"

#include <rapidcheck.h>
#include <sstream>

#include "qx_db/lib/variants.h"
#include "qx_db/material/material_file.h"
#include "qx_db/material/text_table.h"
#include "qx_db/platform/drive.h"

#include "tests/material/material_support.h"

namespace qx {
namespace {

constexpr const char* kTitles[] = {
    "Name",
    "Elastic Modulus(N,mm)",
    "Poisson's Ratio",
    "Shear Modulus",
    "Expansion Coeff.",
    "Weight Density(N,mm)",
    "Mass Density(kg,mm)",
    "Structural Damping",
    "Ref. Temperature",
    "Conductivity(W/mmK)",
    "Specific Heat(J/kgK)",
    "Heat Gen. Factor",
    "Tension(N,mm)",
    "Compression(N,mm)",
    "Shear(N,mm)",
    "Elasto-Plastic (Bi-Linear)_ Tangent Modulus, Et(MPa)",
    "Elasto-Plastic (Bi-Linear)_ Initial Yield Stress(MPa) (Von Mises/Tresca)",
    "Endurance(N,mm)",
    "Cycles at Endurance",
    "Mass Proportional Damping",
    "Stiffness Proportional Damping",
};

/// One category, one material with the values 1 to 18.
std::string GoldenLibrary() {
  std::string bytes = Wide16("PelorMatl") + U32(1) + U32(19);
  for (const char* title : kTitles) bytes += Block(title);
  bytes += Block("Steel") + U32(1) + Block("S235");
  for (int i = 1; i <= 18; ++i) bytes += F64(i);
  return bytes;
}

MaterialCategories GoldenCategories() {
  MaterialCategories categories = {{u"Steel", {{u"S235", {}}}}};
  for (int i = 1; i <= 18; ++i) categories[0].rows[0].values.push_back(i);
  return categories;
}

Result<StructuralLibrary> ParseStructural(const std::string& bytes, const MaterialLint& lint = {}) {
  BlockReader reader(std::make_unique<std::istringstream>(bytes), bytes.size(), "golden.bin");
  return ReadStructuralLibrary(reader, lint);
}

class MaterialDb : public MaterialFiles {
 protected:
  MaterialDb() { SetDriveFolder('c', folder_.Path().string()); }
  ~MaterialDb() override { SetDriveFolder('c', ""); }
  CMaterialDB db_{nullptr};
};

TEST_F(MaterialDb, BinaryLibraryIsAsItsGoldenFile) {
  db_.SetCategories(GoldenCategories());
  ASSERT_EQ(db_.SaveToBin(Wide("out.bin").c_str()), 1);
  EXPECT_EQ(Bytes("out.bin"), GoldenLibrary());
  CMaterialDB again(nullptr);
  ASSERT_EQ(again.LoadFromBin(Wide("out.bin").c_str()), 1);
  EXPECT_EQ(again.GetCategories(), GoldenCategories());
  ASSERT_EQ(again.GetTitles().GetSize(), 21);
  for (int i = 0; i < 21; ++i) EXPECT_EQ(again.GetTitles()[i].ToUtf8(), kTitles[i]);
  EXPECT_TRUE(messages_.all.empty());
}

TEST_F(MaterialDb, BinaryLibraryReadsBackUnchanged) {
  rc::check("any categories", [&] {
    MaterialCategories categories;
    const auto text = [] {
      const auto units = *rc::gen::container<std::u16string>(rc::gen::inRange<char16_t>(1, 0xFFFF));
      return CString(std::u16string(units).substr(0, 255));
    };
    categories.resize(*rc::gen::inRange<std::size_t>(0, 4));
    for (MaterialCategory& category : categories) {
      category.name = text();
      category.rows.resize(*rc::gen::inRange<std::size_t>(0, 300));
      for (MaterialRow& row : category.rows) row = {u"a", std::vector<double>(18, 0.5)};
      if (!category.rows.empty()) {
        category.rows.back().name = text();
        category.rows.back().values[17] = *rc::gen::arbitrary<double>();
      }
    }
    db_.SetCategories(categories);
    RC_ASSERT(db_.SaveToBin(Wide("law.bin").c_str()) == 1);
    db_.Clear();
    RC_ASSERT(db_.GetCategories().empty());
    RC_ASSERT(db_.LoadFromBin(Wide("law.bin").c_str()) == 1);
    RC_ASSERT(db_.GetCategories() == categories);
  });
}

TEST_F(MaterialDb, DoubtfulLibrariesAreReadButByAStrictReader) {
  // Of 3 columns, a name and 2 values a row, with the titles that three writers might keep.
  const auto narrow = [](int titles) {
    std::string bytes = Wide16("PelorMatl") + U32(1) + U32(3);
    for (int i = 0; i < titles; ++i) bytes += Block("title");
    return bytes + Block("steel") + U32(1) + Block("S235") + F64(1) + F64(2);
  };
  const MaterialCategories two = {{u"steel", {{u"S235", {1, 2}}}}};
  struct Case {
    std::string bytes;
    MaterialCategories categories;
  };
  const Case cases[] = {{GoldenLibrary() + "x", GoldenCategories()},
                        {narrow(5), two},
                        {narrow(3), two},
                        {narrow(21), two},
                        {narrow(5) + "x", two}};
  for (const Case& c : cases) {
    const std::size_t at = static_cast<std::size_t>(&c - cases);
    Put("doubtful.bin", c.bytes);
    db_.Clear();
    EXPECT_EQ(db_.LoadFromBin(Wide("doubtful.bin").c_str()), 1) << at;
    EXPECT_EQ(db_.GetCategories(), c.categories) << at;
    int notes = 0;
    const auto count = [&](std::int64_t, const std::string&) { ++notes; };
    EXPECT_FALSE(ReadStructuralLibrary(folder_.Path("doubtful.bin"), {count, true})) << at;
    const auto form = FormOfFile(folder_.Path("doubtful.bin"));
    ASSERT_TRUE(form && *form == MaterialForm::kBinary) << at;
    const auto table = ReadMaterials(folder_.Path("doubtful.bin"), *form, {}, count);
    ASSERT_TRUE(table) << at;
    EXPECT_EQ(table->materials[0].values.size(), table->columns.size()) << at;
    EXPECT_EQ(notes, at + 1 == std::size(cases) ? 2 : 1) << at;
  }
  const std::string name_only = Wide16("PelorMatl") + U32(1) + U32(1) + Block("Name") +
                                Block("steel") + U32(1) + Block("S235");
  Put("doubtful.bin", name_only);
  const auto table = ReadMaterials(folder_.Path("doubtful.bin"), MaterialForm::kBinary, {});
  ASSERT_TRUE(table);
  EXPECT_TRUE(table->columns.empty() && table->materials[0].values.empty());
  EXPECT_TRUE(
      WriteMaterials(*table, folder_.Path("w.gdbp"), MaterialForm::kGdbp, {}, UnitSystem()));
  Put("doubtful.bin", narrow(4));
  EXPECT_EQ(db_.LoadFromBin(Wide("doubtful.bin").c_str()), 0) << "no number of titles fits";
}

TEST_F(MaterialDb, TextTableComesFromItsFixedPlace) {
  Put("matl.txt",
      "before | 1|2|3|4|5|6|7|8|9|10|11|12|13|14|15|16\n"
      "*  EN 10025 \r\n"
      " S235 | 210000 |0.3|3|4|5|6|7|8|9|10|x|12|-1.5e3|14|15|16\r\n"
      "short|1|2|3|4|5|6|7|8|9|10|11|12|13|14|15\n"
      "long|1|2|3|4|5|6|7|8|9|10|11|12|13|14|15|16|17\n"
      "**Second*third\n");
  ASSERT_EQ(db_.LoadFromText(u"/no/such/file"), 1);
  const MaterialCategories& found = db_.GetCategories();
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[0].name, CString());
  EXPECT_EQ(found[1].name, CString(u"EN 10025"));
  ASSERT_EQ(found[1].rows.size(), 2u);
  EXPECT_EQ(found[1].rows[0].name, CString(u"S235"));
  const std::vector<double> values = {210000, 0.3, 3, 4,  5,     6,  7,  8,
                                      9,      10,  0, 12, -1500, 14, 15, 16};
  EXPECT_EQ(found[1].rows[0].values, values);
  EXPECT_EQ(found[1].rows[1].values.back(), 16);
  EXPECT_EQ(found[2].name, CString(u"Second"));
}

TEST_F(MaterialDb, LintNamesEachLineThatIsNotReadAsItLooks) {
  const std::string seventeen = "|1|2|3|4|5|6|7|8|9|10|11|12|13|14|15|16\n";
  const std::string table = "*Steel\n# a remark\n\nshort|1|2\n" + ("a" + seventeen) + "odd|zero" +
                            seventeen.substr(2) + "*\n# R" + seventeen;
  std::vector<std::int64_t> lines;
  std::string all;
  const auto lint = [&](std::int64_t line, const std::string& why) {
    lines.push_back(line);
    all += why + "\n";
  };
  ASSERT_TRUE(ParseTextTable(table, "t", CodePage(), lint));
  EXPECT_EQ(lines, (std::vector<std::int64_t>{4, 6, 7, 8}));
  EXPECT_NE(all.find("3 fields where 17"), std::string::npos) << all;
  EXPECT_NE(all.find("so it is read as a material"), std::string::npos) << all;
  EXPECT_NE(all.find("\"zero\" is read as 0"), std::string::npos) << all;
  const std::string utf8 = "*Steel\nSt\xC3\xA4hle" + seventeen;
  lines.clear();
  ASSERT_TRUE(ParseTextTable(utf8, "t", CodePage(), lint));
  EXPECT_TRUE(lines.empty());
  ASSERT_TRUE(ParseTextTable(utf8, "t", CodePage::OfLocaleName("C"), lint));
  EXPECT_EQ(lines, std::vector<std::int64_t>{2}) << "it could be UTF-8 as well";
}

TEST(TextTable, WritesWhatItReads) {
  const ScratchFolder folder;
  const std::string path = folder.Path("t.txt");
  rc::check("numbers and names of a table", [&] {
    MaterialCategories categories = {{u"Stähle", {}}, {u"", {}}};
    for (MaterialCategory& category : categories) {
      MaterialRow row{u"Größe \u6F22", {}};
      for (int i = 0; i < 16; ++i) {
        const double value = *rc::gen::arbitrary<double>();
        row.values.push_back(std::isfinite(value) ? value : 0.0);
      }
      category.rows.push_back(row);
    }
    RC_ASSERT(static_cast<bool>(WriteTextTable(categories, path, CodePage())));
    const auto read = ReadTextTable(path, CodePage::OfLocaleName("C"));
    RC_ASSERT(static_cast<bool>(read));
    RC_ASSERT(*read == categories);
  });
}

// ---- fluids -------------------------------------------------------------------------------------

/// A record of the keyword file: 80 characters.
std::string Record(const std::string& keyword, const std::string& value = "") {
  std::string text = keyword;
  text.resize(30, ' ');
  text += value;
  text.resize(79, ' ');
  return Wide16(text + "\n");
}

struct Keyword {
  const char* keyword;
  double factor;
};
constexpr Keyword kKeywords[] = {
    {"*E", 1e-6},
    {"*G", 1e-6},
    {"*NU", 1},
    {"*SPECIFIC_WEIGHT", 1},
    {"*MAXIMUM_STRESS", 1},
    {"*DENSITY", 1e-9},
    {"*VISCOSITY", 0.001},
    {"*COMPRESSIBILITY", 1e-6},
    {"*MOLARMASS", 1},
    {"*DARCY_MATRIX", 1},
    {"*ACCELERATION_FIELD_X", 1000},
    {"*ACCELERATION_FIELD_Y", 1000},
    {"*ACCELERATION_FIELD_Z", 1000},
    {"*DENSITY_HEATRANS", 1},
    {"*SPECIFIC_HEAT", 1},
    {"*THERMAL_CONDUCTIVITY", 0.001},
    {"*FLOATABILITY", 1},
    {"*HEAT_SOURCE", 1e-9},
    {"*HEAT_REACTION", 1e-9},
    {"*OLS_SURFTENSION", 1},
    {"*MECHANICAL_STRAIN", 1},
    {"*DIFFUSIVITY", 1e6},
    {"*CONDUCTIVITY", 0.001},
    {"*RESTITUTION_COEFFICIENT", 1},
    {"*HAMAKER_CONSTANT", 1},
};

std::string FluidHead(const std::string& count) {
  return Record("a PelorMatl file") + Record("count", "* " + count);
}

std::string GoldenFluid() {
  std::string bytes = FluidHead("2") + Record("*SMaterialNo", "-5") + Record("*Name", " Water ");
  double value = 2;
  for (const Keyword& k : kKeywords) bytes += Record(k.keyword, std::to_string(value++));
  bytes += Record("*END") + Record("remark") + Record("*name", "Air") + Record("*e", "7e6");
  return bytes + Record("*End");
}

FluidLibrary GoldenFluids() {
  FluidLibrary library;
  library.title = u"a PelorMatl file";
  library.numbering_offset = 7;
  library.materials.resize(2);
  double value = 2;
  for (std::size_t i = 0; i < std::size(kKeywords); ++i) {
    library.materials[0].values[i] = value++ * kKeywords[i].factor;
  }
  library.materials[0].name = u"WATER";
  library.materials[1].name = u"AIR";
  library.materials[1].values[0] = 7e6 * 1e-6;
  return library;
}

class Online {
 public:
  Online() { SetEdition(Edition::kB, true); }
  ~Online() { SetEdition(Edition::kGeneral); }
};

TEST_F(MaterialDb, KeywordFileIsReadRecordByRecord) {
  Put("water.cfd", GoldenFluid());
  {
    const Online online;
    ASSERT_EQ(db_.LoadFromCFD(Wide("water.cfd").c_str()), 1);
  }
  EXPECT_EQ(db_.GetFluids(), GoldenFluids());
  ASSERT_EQ(db_.LoadFromCFD(Wide("water.cfd").c_str()), 1);
  EXPECT_EQ(db_.GetFluids().materials[0].name.Left(7), CString(u" WATER "))
      << "only that edition trims names";
}

TEST_F(MaterialDb, KeywordFileNumbersAndCounts) {
  struct Case {
    std::string bytes;
    int loaded;
    std::int32_t offset;
    std::size_t materials;
    bool doubtful = false;  // read, but for a strict reader
  };
  const std::string material = Record("*END");
  const Case cases[] = {
      {FluidHead("0") + material, 1, 13, 0},
      {FluidHead("-3"), 1, 13, 0},
      {FluidHead("1") + Record("*SMATERIALNO", "0") + material, 1, 1, 1},
      {FluidHead("1") + Record("*SMATERIALNO", "1") + material, 1, 13, 1},
      {FluidHead("1") + Record("*SMATERIALNO", "-4294967296") + material, 1, 13, 1},
      {FluidHead("1") + material + "x", 1, 13, 1, true},
      {FluidHead("1"), 1, 13, 0, true},
      {FluidHead("2") + material + Record("x"), 1, 13, 2, true},
      {FluidHead("1") + material + Record("*E", "1") + material, 1, 13, 1, true},
      {FluidHead("one") + material, 1, 13, 0, true},
      {FluidHead("4294967296") + material, 1, 13, 1, true},
      {FluidHead("1") + Record("*E", "1e999") + material, 0, 0, 0},
      {Record("another file") + Record("", "1") + material, 0, 0, 0},
  };
  for (const Case& c : cases) {
    Put("c.cfd", c.bytes);
    FluidLibrary before = GoldenFluids();
    db_.SetFluids(before);
    messages_.all.clear();
    const std::size_t at = static_cast<std::size_t>(&c - cases);
    EXPECT_EQ(db_.LoadFromCFD(Wide("c.cfd").c_str()), c.loaded) << at;
    EXPECT_EQ(messages_.all.size(), c.loaded ? 0u : 1u) << at;
    int notes = 0;
    const auto count = [&](std::int64_t, const std::string&) { ++notes; };
    EXPECT_EQ(bool(ParseFluidFile(c.bytes, "c.cfd", count)), c.loaded == 1) << at;
    EXPECT_EQ(notes > 0, c.doubtful) << at;
    EXPECT_EQ(bool(ParseFluidFile(c.bytes, "c.cfd", {count, true})), c.loaded && !c.doubtful) << at;
    if (c.loaded) {
      EXPECT_EQ(db_.GetFluids().numbering_offset, c.offset) << at;
      EXPECT_EQ(db_.GetFluids().materials.size(), c.materials) << at;
    } else {
      EXPECT_EQ(db_.GetFluids(), before) << at;
    }
  }
}

std::string GoldenParticles() {
  const FluidLibrary library = GoldenFluids();
  std::string bytes = Wide16("KavexVRNCFDParticleMatl") + U32(2) + U32(26) + U32(7);
  bytes += Block("*NAME");
  for (const Keyword& k : kKeywords) bytes += Block(k.keyword);
  bytes += Block("a PelorMatl file");
  for (const FluidMaterial& material : library.materials) {
    bytes += Block(material.name.ToUtf8());
    for (const double value : material.values) bytes += F64(value);
  }
  return bytes;
}

Result<FluidLibrary> ParseParticles(const std::string& bytes, const MaterialLint& lint = {}) {
  BlockReader reader(std::make_unique<std::istringstream>(bytes), bytes.size(), "golden.cfdbin");
  return ReadParticleLibrary(reader, lint);
}

TEST_F(MaterialDb, ParticleLibraryIsAsItsGoldenFile) {
  db_.SetFluids(GoldenFluids());
  ASSERT_EQ(db_.SaveToCFDBin(Wide("p.cfdbin").c_str()), 1);
  EXPECT_EQ(Bytes("p.cfdbin"), GoldenParticles());
  db_.SetFluids({});
  ASSERT_EQ(db_.LoadParticleFromBin(Wide("p.cfdbin").c_str()), 1);
  EXPECT_EQ(db_.GetFluids(), GoldenFluids());
}

TEST_F(MaterialDb, WrittenKeywordFileReadsBack) {
  const FluidLibrary fluids = GoldenFluids();
  ASSERT_TRUE(WriteFluidFile(fluids, folder_.Path("w.cfd")));
  const Online online;
  const auto read = ReadFluidFile(folder_.Path("w.cfd"));
  ASSERT_TRUE(read) << read.Error().Line();
  EXPECT_EQ(read->numbering_offset, fluids.numbering_offset);
  ASSERT_EQ(read->materials.size(), fluids.materials.size());
  for (std::size_t m = 0; m < fluids.materials.size(); ++m) {
    EXPECT_EQ(read->materials[m].name, fluids.materials[m].name);
    for (std::size_t i = 0; i < kFluidPropertyCount; ++i) {
      EXPECT_DOUBLE_EQ(read->materials[m].values[i], fluids.materials[m].values[i]);
    }
  }
}

// ---- bad input ----------------------------------------------------------------------------------

TEST(MaterialAttack, BinaryFormsRefuseEveryCutAndStandEveryFlip) {
  const auto check = [](bool good, const Failure* failure, bool cut) {
    if (cut) {
      ASSERT_FALSE(good);
    }
    if (!good) {
      ASSERT_TRUE(IsClear(*failure)) << failure->Line();
    }
  };
  const MaterialLint strict([](std::int64_t, const std::string&) {}, true);
  std::string small = GoldenLibrary();
  Attack(small, [&](const std::string& bytes, bool cut) {
    const auto read = ParseStructural(bytes, strict);
    check(static_cast<bool>(read), read ? nullptr : &read.Error(), cut);
  });
  // Of the particle library, whose title blocks are alike, what stands around them.
  const std::string particles = GoldenParticles();
  for (std::size_t length = 0; length < particles.size(); ++length) {
    ASSERT_FALSE(ParseParticles(particles.substr(0, length), strict)) << length;
  }
  for (std::size_t i = 0; i < 8 * 80; ++i) {
    std::string flipped = particles;
    flipped[i / 8] = static_cast<char>(flipped[i / 8] ^ 1 << i % 8);
    const bool offset = i / 8 >= 46 + 8 && i / 8 < 46 + 12;  // any number is one
    const bool filler = i / 8 >= 46 + 12 + 2 * 6;
    ASSERT_EQ(static_cast<bool>(ParseParticles(flipped, strict)), offset || filler) << i;
  }
}

TEST(MaterialAttack, TextFormsStandEveryCutAndFlip) {
  const MaterialLint strict([](std::int64_t, const std::string&) {}, true);
  const std::string table = "*Steel\nS235|1|2|3|4|5|6|7|8|9|10|11|12|13|14|15|16\n";
  Attack(table, [](const std::string& bytes, bool) {
    const auto read = ParseTextTable(bytes, "t.txt", CodePage::OfLocaleName("ja"));
    ASSERT_TRUE(read || IsClear(read.Error()));
  });
  const std::string fluid =
      FluidHead("1") + Record("*NAME", "AIR") + Record("*E", "7e6") + Record("*END");
  Attack(fluid, [&](const std::string& bytes, bool cut) {
    const auto lenient = ParseFluidFile(bytes, "f.cfd");
    ASSERT_TRUE(lenient || IsClear(lenient.Error()));
    const auto read = ParseFluidFile(bytes, "f.cfd", strict);
    ASSERT_TRUE(read || IsClear(read.Error()));
    // Of the last record, the two bytes that are never read may be missing.
    if (cut) {
      ASSERT_EQ(static_cast<bool>(read), bytes.size() + 2 == fluid.size()) << bytes.size();
    }
  });
}

TEST_F(MaterialDb, RefusesOutsideFaultsInOneMessageAndKeepsItsLibrary) {
  const std::string row = "|1|2|3|4|5|6|7|8|9|10|11|12|13|14|15|16\n";
  const std::string golden = GoldenLibrary();
  const auto with = [&](std::size_t at, const std::string& bytes) {
    return std::string(golden).replace(at, bytes.size(), bytes);
  };
  struct Case {
    const char* fault;
    std::string bytes;
    int (CMaterialDB::*load)(const char16_t*);
    const char* said;
  };
  const Case cases[] = {
      {"magic", with(4, "X"), &CMaterialDB::LoadFromBin, "PelorMatl"},
      {"4 GiB of categories", with(18, U32(0xFFFFFFFF)), &CMaterialDB::LoadFromBin, "4294967295"},
      {"a category too many", with(18, U32(2)), &CMaterialDB::LoadFromBin, "category 2"},
      {"columns", with(22, U32(20)), &CMaterialDB::LoadFromBin, "20 columns"},
      {"4 GiB of rows", with(26 + 22 * 512, U32(0xFFFFFFFF)), &CMaterialDB::LoadFromBin,
       "category 1"},
      {"no terminator", with(26, std::string(512, 'a')), &CMaterialDB::LoadFromBin, "title 1"},
      {"NUL", "*a\nb" + std::string(1, '\0') + row, &CMaterialDB::LoadFromText, "line 2"},
      {"UTF-16", "\xFF\xFE*\0", &CMaterialDB::LoadFromText, "UTF-16"},
      {"a megabyte in a line", "*a\nb" + std::string(1 << 20, ' ') + row,
       &CMaterialDB::LoadFromText, "line 2"},
      {"too large", "*a\nb|1e400" + row, &CMaterialDB::LoadFromText, "line 2"},
      {"bad UTF-8", "\xEF\xBB\xBF*a\n\n*\xFF\n", &CMaterialDB::LoadFromText, "line 3"},
      {"particles", golden, &CMaterialDB::LoadParticleFromBin, "Particle"},
      {"fluids", GoldenParticles(), &CMaterialDB::LoadFromCFD, "PelorMatl"},
  };
  for (const Case& c : cases) {
    Put("matl.txt", c.bytes);
    db_.SetCategories(GoldenCategories());
    db_.SetFluids(GoldenFluids());
    messages_.all.clear();
    EXPECT_EQ((db_.*c.load)(Wide("matl.txt").c_str()), 0) << c.fault;
    EXPECT_EQ(db_.GetCategories(), GoldenCategories()) << c.fault;
    EXPECT_EQ(db_.GetFluids(), GoldenFluids()) << c.fault;
    EXPECT_EQ(db_.GetTitles().GetSize(), 0) << c.fault;
    ASSERT_EQ(messages_.all.size(), 1u) << c.fault;
    const std::string said = messages_.all[0].text;
    EXPECT_NE(said.find("matl.txt"), std::string::npos) << said;
    EXPECT_NE(said.find(c.said), std::string::npos) << c.fault << ": " << said;
  }
}

TEST_F(MaterialDb, RefusesWhatIsNoFileAndLeavesTargetsAlone) {
  const std::string old = Put("kept.bin", "old");
  std::filesystem::permissions(old, std::filesystem::perms::owner_read);
  const std::string too_long(256, 'n');
  db_.SetCategories({{CString::FromUtf8(too_long), {}}});
  std::filesystem::create_directory(folder_.Path("sub"));
  const std::function<int()> refused[] = {
      [&] { return db_.LoadFromBin(Wide("none").c_str()); },
      [&] { return db_.LoadFromBin(Wide("sub").c_str()); },
      [&] { return db_.LoadFromText(nullptr); },
      [&] { return db_.LoadFromCFD(Wide("sub").c_str()); },
      [&] { return db_.LoadParticleFromBin(nullptr); },
      [&] { return db_.SaveToBin(Wide("new.bin").c_str()); },
      [&] {
        db_.SetCategories(GoldenCategories());
        return db_.SaveToBin(Wide("kept.bin").c_str());
      },
      [&] { return db_.SaveToBin(Wide("sub").c_str()); },
      [&] { return db_.SaveToBin(Wide("no/such/folder").c_str()); },
      [&] { return db_.SaveToCFDBin(Wide("kept.bin").c_str()); },
      [&] { return db_.SaveToBin(u"/dev/null"); },
      [&] {
        const FullDisk full(4096);
        return db_.SaveToBin(Wide("full.bin").c_str());
      },
  };
  for (const auto& operation : refused) {
    messages_.all.clear();
    const std::size_t at = static_cast<std::size_t>(&operation - refused);
    EXPECT_EQ(operation(), 0) << at;
    EXPECT_EQ(messages_.all.size(), 1u) << at;
  }
  EXPECT_EQ(Bytes("kept.bin"), "old");
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
  EXPECT_EQ(FileCount(), 2u) << "kept.bin and sub: nothing half-written stays";
}

// ---- what subclasses use ------------------------------------------------------------------------

class Open : public CMaterialDB {
 public:
  using CMaterialDB::CMaterialDB;
  using CMaterialDB::IsString;
  using CMaterialDB::Write;
  using CMaterialDB::WriteCharBlock;
};

TEST(MaterialDbInside, WritesTextsAndBlocks) {
  std::ostringstream out;
  CStdioFile file(out);
  Open db(nullptr);
  EXPECT_EQ(db.Write(file, u"%d%%%s", 5, u"ab"), 8u);
  EXPECT_EQ(db.WriteCharBlock(file, u"%g", 0.25), 1);
  EXPECT_EQ(out.str(), Wide16("5%ab") + Block("0.25"));
  const std::u16string full(256, u'x');
  EXPECT_EQ(db.WriteCharBlock(file, u"%s", full.c_str()), 0);
  EXPECT_EQ(out.str().size(), 520u) << "what does not fit is not begun";
}

// Each with what printf makes of it.
TEST(MaterialDbInside, TakesTheFormatsOfPrintf) {
  const std::pair<std::u16string, const char*> cases[] = {
      {FormatText(u"%.3f|%e|%g", {2.5, 0.5, 1e-7}), "2.500|5.000000e-01|1e-07"},
      {FormatText(u"%5d|%-5d|%05d|%+d", {42, 42, 42, 42}), "   42|42   |00042|+42"},
      {FormatText(u"%-4s|%4s|%.2s", {u"ab", u"ab", u"abc"}), "ab  |  ab|ab"},
      {FormatText(u"%x|%X|%#o|%u", {255, 255u, 8, -1}), "ff|FF|010|4294967295"},
      {FormatText(u"%ld|%lld|%c%%", {-7L, 1LL << 40, 65}), "-7|1099511627776|A%"},
      {FormatText(u"%s", {u"\u00e9"}), "\u00e9"},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(Utf8(text), expected);
  EXPECT_EQ(FormatText(u"%-4s|%4s|%c", {u"\u65e5\u672c", u"\U0001d11e", 0xe9}),
            u"\u65e5\u672c  |   \U0001d11e|\u00e9");
  EXPECT_THROW(FormatText(u"%d %d", {1}), std::runtime_error);
  EXPECT_THROW(FormatText(u"%d", {u"text"}), std::runtime_error);
}

TEST(MaterialDbInside, TellsTextFromNumbers) {
  Open db(nullptr);
  for (const char16_t* text : {u"steel", u"12a", u"1,5", u"-", u"nan", u"0x10", u"1 2"}) {
    EXPECT_EQ(db.IsString(text), 1) << Utf8(text);
  }
  for (const char16_t* number : {u"", u"  ", u"1", u"-1.5e-3", u"+2", u" .5 ", u"1."}) {
    EXPECT_EQ(db.IsString(number), 0) << Utf8(number);
  }
}

}  // namespace
}  // namespace qx
