// The libraries that users edit: .gdb and .gdbp.

#include "qx_db/material/material_gdb.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <rapidcheck.h>

#include "qx_db/core/session.h"
#include "qx_db/material/material_table.h"
#include "qx_db/model/standard_pools.h"

#include "tests/material/material_support.h"

namespace qx {
namespace {

constexpr const char* kLineError = "IDS_QX_DB_MATLGDB_ERROR_IN__s_LINE__d";

/// "a, 1, 2, ... n".
std::string Line(const std::string& name, int values) {
  std::string line = name;
  for (int i = 1; i <= values; ++i) line += ", " + std::to_string(i);
  return line + "\n";
}

std::string Library(const std::string& lines) {
  return "; remark\n**Version, 2.7.0\n**Unit, N, mm, J, C\n\n" + lines;
}

std::string DateLine() {
  const std::time_t now = std::time(nullptr);
  const std::tm* today = std::localtime(&now);
  return ";  Date : " + std::to_string(today->tm_year + 1900) + "/" +
         std::to_string(today->tm_mon + 1) + "/" + std::to_string(today->tm_mday) + "\n";
}

class MaterialGdb : public MaterialFiles {
 protected:
  MaterialGdb() { session_.Units().SetModel(mm_), session_.Units().SetCurrent(mm_); }
  int Load(const std::string& name) { return db_.Load(Wide(name).c_str(), u"library"); }
  const GdbMaterial& First() const { return db_.GetEntries().back().materials.front(); }

  const UnitSystem mm_ = *SystemNamed("mm,N", UnitSystem());
  CQXDocBase document_{AddStandardPools};
  CQXDBSession& session_ = *document_.GetDBSession();
  CMaterialGDB db_{&document_};
};

TEST_F(MaterialGdb, SavedFileIsAsItsGoldenFile) {
  Put("a.gdbp", Library("Steel, 1000000,0.3,1e-5,1234567,-1" + Line("", 12)));
  ASSERT_EQ(Load("a.gdbp"), 1);
  db_.SetTitles({u"Name", u"E", u"nu"});
  ASSERT_EQ(db_.Save(0), 1);
  const std::string rule = ";" + std::string(75, '-') + "\n";
  std::string golden = rule + ";  Material DataBase File.\n" + DateLine() + rule + "\n" +
                       "**Version, 3.7.0\n**Unit, N, mm, J, C\n\n;Name, E, nu\n" +
                       "Steel,\t1e+06,\t0.3,\t1e-05,\t1.23457e+06,\t-1";
  for (int i = 1; i <= 12; ++i) golden += ",\t" + std::to_string(i);
  EXPECT_EQ(Bytes("a.gdbp"), golden + "\n");
  // Deliberately, what was saved is refused at its version until someone has set that.
  ASSERT_TRUE(messages_.all.empty());
  EXPECT_EQ(Load("a.gdbp"), 0);
  ASSERT_EQ(messages_.all.size(), 1u);
  EXPECT_EQ(messages_.all[0].key, kLineError);
  EXPECT_EQ(messages_.all[0].arguments[0], folder_.Path("a.gdbp"));
  EXPECT_EQ(messages_.all[0].arguments[1], "6");
  EXPECT_EQ(db_.GetEntries().size(), 1u);
  Put("b.gdbp", golden.replace(golden.find("3.7.0"), 5, "2.7.0") + "\n");
  ASSERT_EQ(Load("b.gdbp"), 1);
  EXPECT_EQ(First().values[0], 1e6);
}

TEST_F(MaterialGdb, OldFormBecomesTheNewOneWhenSaved) {
  Put("old.GDB", "**Unit, n, MM, j, c\n" + Line("Steel", 12) + Line("too long", 17));
  ASSERT_EQ(Load("old.GDB"), 1);
  ASSERT_EQ(db_.GetEntries()[0].materials.size(), 1u);
  EXPECT_EQ(First().values[11], 12);
  EXPECT_EQ(First().values[12], 0);
  {
    const FullDisk full(100);
    EXPECT_EQ(db_.Save(0), 0);
  }
  EXPECT_EQ(messages_.all.size(), 1u);
  EXPECT_EQ(FileCount(), 1u) << "the old file is there until the new one is";
  EXPECT_EQ(db_.GetEntries()[0].path.ToUtf8(), folder_.Path("old.GDB"));
  ASSERT_EQ(db_.Save(0), 1);
  EXPECT_FALSE(Exists("old.GDB"));
  EXPECT_EQ(db_.GetEntries()[0].path.ToUtf8(), folder_.Path("old.gdbp"));
  EXPECT_NE(Bytes("old.gdbp").find("\nSteel,\t1,\t2,\t3"), std::string::npos);
}

TEST_F(MaterialGdb, AnotherLibraryOfTheNewNameIsNotReplaced) {
  Put("steel.gdb", "**Unit, N, mm, J, C\n" + Line("Old", 12));
  const std::string other = Library(Line("New", 17));
  Put("steel.gdbp", other);
  ASSERT_EQ(Load("steel.gdb"), 1);
  ASSERT_EQ(Load("steel.gdbp"), 1);
  EXPECT_EQ(db_.Save(0), 0);
  ASSERT_EQ(messages_.all.size(), 1u);
  EXPECT_NE(messages_.all[0].text.find("steel.gdbp"), std::string::npos) << messages_.all[0].text;
  EXPECT_EQ(Bytes("steel.gdbp"), other);
  EXPECT_TRUE(Exists("steel.gdb"));
  EXPECT_EQ(db_.Save(1), 1) << "its own file";
}

TEST_F(MaterialGdb, ReadsOrRefusesWithTheLine) {
  struct Case {
    const char* what;
    const char* name;
    std::string text;
    int line;  // of the failure; 0: loads
    std::size_t materials;
  };
  const std::string head = Library("");
  const std::string data = Line("Steel", 17);
  const Case cases[] = {
      {"plain", "a.gdbp", head + data, 0, 1},
      {"mark and mixed line ends", "a.gdbp",
       "\xEF\xBB\xBF**Version,2.7.0\r\n**Unit,N,mm,J,C\r" + data + "\r\n" + data, 0, 2},
      {"no end of the last line", "a.gdbp", head + data.substr(0, data.size() - 1), 0, 1},
      {"17 fields", "a.gdbp", head + Line("short", 16) + data, 0, 1},
      {"remarks", "a.gdbp", head + "; x\n// " + data + "a // b\n" + data, 0, 1},
      {"13 fields of the older version", "a.gdbp",
       "**version\n**Version, 2.6.5\n**Unit, N, mm, J, C\n" + Line("a", 12), 1, 0},
      {"older version", "a.gdbp", "**Version, 2.6.5\n**Unit, N, mm, J, C\n" + Line("a", 12), 0, 1},
      {"older form", "a.gdb", "**Unit, kgf, cm, kcal, F\n" + Line("a", 12) + data, 0, 1},
      {"any other extension", "a.mat", "**Unit, N, mm\n" + Line("a", 12), 0, 1},
      {"a second unit line is data", "a.gdb", "**Unit,N,mm\n**Unit,kN,m\n" + Line("a", 12), 0, 1},
      {"newest version", "a.gdbp", "\n**Version, 3.7.0\n", 2, 0},
      {"version of three fields", "a.gdbp", "**Version, 2.7.0, x\n", 1, 0},
      {"no version", "a.gdbp", "**Unit, N, mm, J, C\n\n" + data, 3, 0},
      {"data before units", "a.gdb", ";\n" + Line("a", 12) + "**Unit, N, mm, J, C\n", 2, 0},
      {"data before units, newer", "a.gdbp", "**Version, 2.7.0\n" + data, 2, 0},
      {"unknown unit", "a.gdb", "**Unit, N, furlong, J, C\n", 1, 0},
      {"a unit of another kind", "a.gdb", "**Unit, mm, N, J, C\n", 1, 0},
      {"milli is not mega", "a.gdb", "**Unit, N, mm, mJ, C\n", 1, 0},
      {"two units", "a.gdbp", "**Unit, N, mm\n", 1, 0},
      {"remarks only", "a.gdb", "; empty\n", 0, 0},
      {"remarks only, newer", "a.gdbp", "; empty\n", 0, 0},
      {"no materials", "a.gdbp", head, 0, 0},
      {"too large", "a.gdb", "**Unit, N, mm\na, 1e999,,,,,,,,,,,\n", 2, 0},
      {"NUL", "a.gdb", "**Unit, N, mm\n\n" + std::string(1, '\0'), 3, 0},
      {"a megabyte", "a.gdb", "**Unit, N, mm\n" + std::string(1 << 20, ','), 2, 0},
      {"UTF-16", "a.gdb", "\xFF\xFE*", 1, 0},
  };
  for (const Case& c : cases) {
    Put(c.name, c.text);
    messages_.all.clear();
    const std::size_t before = db_.GetEntries().size();
    EXPECT_EQ(Load(c.name), c.line == 0 ? 1 : 0) << c.what;
    if (c.line == 0) {
      ASSERT_EQ(db_.GetEntries().size(), before + 1) << c.what;
      EXPECT_EQ(db_.GetEntries().back().materials.size(), c.materials) << c.what;
      EXPECT_TRUE(messages_.all.empty()) << c.what;
    } else {
      EXPECT_EQ(db_.GetEntries().size(), before) << c.what;
      ASSERT_EQ(messages_.all.size(), 1u) << c.what;
      EXPECT_EQ(messages_.all[0].severity, Severity::kError);
      EXPECT_EQ(messages_.all[0].key, kLineError) << c.what;
      EXPECT_EQ(messages_.all[0].arguments[1], std::to_string(c.line)) << c.what;
    }
  }
}

TEST_F(MaterialGdb, ValuesArriveInTheSessionsUnits) {
  // Steel in kN, m, kJ, F: each kind of quantity once, beside what it is in N, mm, J, C.
  struct Value {
    std::size_t place;
    const char* text;
    double in_mm;
  };
  const Value values[] = {
      {0, "2.1e8", 210000},            // kN/m2
      {1, "0.3", 0.3},                 // a ratio
      {3, "1.2e-5", 1.2e-5 * 1.8},     // 1/F
      {4, "77", 77e-6},                // kN/m3
      {5, "7850", 7850e-9},            // kg/m3
      {7, "68", 20},                   // F
      {8, "0.03", 0.03 * 1.8},         // kJ/(s m F)
      {9, "0.25", 0.25 * 1000 * 1.8},  // kJ/(kg F)
  };
  std::string line = "S";
  for (std::size_t i = 0; i < 12; ++i) {
    const auto value = std::find_if(std::begin(values), std::end(values),
                                    [&](const Value& v) { return v.place == i; });
    line += std::string(",") + (value == std::end(values) ? "0" : value->text);
  }
  Put("a.gdb", "**Unit, kN, m, kJ, F\n" + line + "\n");
  ASSERT_EQ(Load("a.gdb"), 1);
  for (const Value& v : values) {
    EXPECT_NEAR(First().values[v.place], v.in_mm, 1e-13 * std::abs(v.in_mm)) << v.place;
  }
  EXPECT_EQ(First().units.force, FindUnit(UnitBase::kForce, "kN"));
  CMaterialGDB alone(nullptr);
  ASSERT_EQ(alone.Load(Wide("a.gdb").c_str(), u""), 1);
  EXPECT_EQ(alone.GetEntries()[0].materials[0].values[0], 2.1e8) << "no session, no conversion";
  ASSERT_EQ(alone.Save(0), 1);
  EXPECT_NE(Bytes("a.gdbp").find("**Unit, kN, m, kJ, F\n"), std::string::npos);
}

TEST_F(MaterialGdb, EverySystemOfUnitsGoesThereAndBack) {
  rc::check("a library through two unit systems", [&] {
    const auto any_system = [] {
      UnitSystem system;
      for (int b = 0; b < kUnitBaseCount; ++b) {
        const auto count = UnitsOf(static_cast<UnitBase>(b)).size();
        system.index[static_cast<std::size_t>(b)] =
            static_cast<std::int32_t>(*rc::gen::inRange<std::size_t>(0, count));
      }
      return system;
    };
    session_.Units().SetModel(any_system());
    session_.Units().SetCurrent(any_system());
    Put("u.gdbp", Library(Line("x", 17)));
    RC_ASSERT(Load("u.gdbp") == 1);
    const int index = static_cast<int>(db_.GetEntries().size()) - 1;
    session_.Units().SetCurrent(any_system());  // changed between loading and saving
    RC_ASSERT(db_.Save(index) == 1);
    std::string saved = Bytes("u.gdbp");
    Put("u.gdbp", saved.replace(saved.find("3.7.0"), 5, "2.7.0"));
    session_.Units().SetCurrent(mm_);
    RC_ASSERT(Load("u.gdbp") == 1);
    for (int i = 0; i < 17; ++i) {
      // Six digits are written; a temperature has them behind its offset.
      const double slack = i == 7 ? 0.01 : 1e-5 * (i + 1);
      RC_ASSERT(std::abs(First().values[static_cast<std::size_t>(i)] - (i + 1)) <= slack);
    }
  });
}

TEST_F(MaterialGdb, KnowsUnitsByName) {
  T_UNIT_INDEX units;
  const auto read = [&](const char16_t* line, int gdbp = 1) {
    return db_.GetUnitIndex(line, units, gdbp);
  };
  CString names[4];
  ASSERT_EQ(read(u"**Unit, KIPS , Um, INLBF, r, min"), 1);
  EXPECT_EQ(units.flag, 1);
  EXPECT_EQ(units.time, FindUnit(UnitBase::kTime, "min"));
  db_.GetUnitString(units, names[0], names[1], names[2], names[3]);
  EXPECT_EQ(names[0].ToUtf8() + names[1].ToUtf8() + names[2].ToUtf8() + names[3].ToUtf8(),
            "kipsuminlbfR");
  const T_UNIT_INDEX before = units;
  for (const char16_t* bad : {u"", u"**Unit", u"**Unit, N, mm, J", u"**Unit, N, mm, J, C, sec, x",
                              u"**Unit, N, mm, J, parsec", u"**Unit, mn, mm, J, C"}) {
    EXPECT_EQ(read(bad), 0) << Utf8(bad);
    EXPECT_EQ(units, before);
  }
  EXPECT_EQ(read(u"**Unit, N, mm", 0), 1) << "the older form may leave out heat and temperature";
  for (const UnitBase base : {UnitBase::kForce, UnitBase::kLength, UnitBase::kHeat}) {
    for (std::size_t i = 0; i < UnitsOf(base).size(); ++i) {
      const std::u16string name = Utf16(UnitsOf(base)[i].name);
      const std::u16string line = base == UnitBase::kForce    ? u"**Unit," + name + u",mm,J,C"
                                  : base == UnitBase::kLength ? u"**Unit,N," + name + u",J,C"
                                                              : u"**Unit,N,mm," + name + u",C";
      ASSERT_EQ(read(line.c_str()), 1) << Utf8(line);
      db_.GetUnitString(units, names[0], names[1], names[2], names[3]);
      EXPECT_EQ(names[base == UnitBase::kForce ? 0 : base == UnitBase::kLength ? 1 : 2], name);
    }
  }
  units = {-1, 99, 99, 99, 0};
  db_.GetUnitString(units, names[0], names[1], names[2], names[3]);
  EXPECT_TRUE(names[0].IsEmpty() && names[1].IsEmpty() && names[3].IsEmpty());
}

TEST_F(MaterialGdb, FindsLibrariesInTheirFolder) {
  std::filesystem::create_directories(folder_.Path("company/dbase/sub"));
  Put("company/dbase/b.gdbp", Library(Line("Steel", 17)));
  Put("company/dbase/a.gdb", "**Unit, N, mm\n" + Line("Wood", 12));
  Put("company/dbase/bad.gdb", Line("Wood", 12));
  Put("company/dbase/notes.txt", "");
  EXPECT_EQ(db_.FindFileList(Wide("company").c_str()), 2);
  ASSERT_EQ(db_.GetEntries().size(), 2u);
  EXPECT_EQ(db_.GetEntries()[0].name, CString(u"company:a"));
  EXPECT_EQ(db_.GetEntries()[1].name, CString(u"company:b"));
  EXPECT_EQ(messages_.all.size(), 1u) << "one for the file that cannot be read";
  EXPECT_EQ(db_.FindFileList(Wide("no such").c_str()), 0);
  CString paths[] = {Wide("company/dbase/b.gdbp"), Wide("none.gdb"), Wide("company/dbase/a.gdb")};
  const CMaterialGDB loaded(paths, 3, &document_);
  ASSERT_EQ(loaded.GetEntries().size(), 2u);
  EXPECT_EQ(loaded.GetEntries()[1].name, CString(u"a"));
}

TEST_F(MaterialGdb, RefusesToSaveWhatWouldNotReadBack) {
  Put("a.gdbp", Library(Line("Steel", 17)));
  ASSERT_EQ(Load("a.gdbp"), 1);
  EXPECT_EQ(db_.Save(-1), 0);
  EXPECT_EQ(db_.Save(1), 0);
  const auto titles = db_.GetTitles();
  db_.SetTitles({});
  EXPECT_EQ(db_.Save(0), 0);
  db_.SetTitles(titles);
  EXPECT_EQ(Bytes("a.gdbp"), Library(Line("Steel", 17)));
  std::vector<GdbMaterial> one(1);
  const T_UNIT_INDEX units;
  for (const char16_t* name : {u"a,b", u"a\nb", u"; a", u"a//b", u" a", u"**Unit", u"a**Version"}) {
    one[0].name = name;
    const Outcome saved =
        WriteGdbFile(folder_.Path("b.gdbp"), one, titles, units, CodePage(), kReadableStyle);
    EXPECT_FALSE(saved) << Utf8(name);
  }
  one[0].name = u"a";
  one[0].values[3] = std::nan("");
  EXPECT_FALSE(
      WriteGdbFile(folder_.Path("b.gdbp"), one, titles, units, CodePage(), kReadableStyle));
  EXPECT_FALSE(Exists("b.gdbp"));
}

TEST_F(MaterialGdb, CodePagesGoBothWaysOrSayWhichCharacter) {
  const CodePage western = *CodePage::Named("1252");
  const CodePage korean = *CodePage::Named("949");
  db_.SetCodePage(western);
  Put("a.gdbp", Library("St\xE4hle" + Line("", 17)));
  ASSERT_EQ(Load("a.gdbp"), 1);
  EXPECT_EQ(First().name, CString(u"Stähle"));
  ASSERT_EQ(db_.Save(0), 1);
  const std::string saved = Bytes("a.gdbp");
  EXPECT_NE(saved.find("\nSt\xE4hle,\t1"), std::string::npos);
  db_.SetCodePage(0, korean);
  EXPECT_EQ(db_.Save(0), 0);
  ASSERT_EQ(messages_.all.size(), 1u);
  EXPECT_EQ(messages_.all[0].arguments[1], "10") << "the line that would have been written";
  EXPECT_NE(messages_.all[0].text.find("U+00E4"), std::string::npos) << messages_.all[0].text;
  EXPECT_EQ(Bytes("a.gdbp"), saved);
  db_.SetCodePage(0, CodePage());
  ASSERT_EQ(db_.Save(0), 1);
  EXPECT_TRUE(Bytes("a.gdbp").starts_with("\xEF\xBB\xBF;---"));
  db_.SetCodePage(korean);
  Put("k.gdbp", Library("\xB0\xAD\xC3\xB6" + Line("", 17)));
  ASSERT_EQ(Load("k.gdbp"), 1);
  EXPECT_EQ(First().name, CString(u"강철"));
}

TEST(GdbAttack, StandsEveryCutAndFlip) {
  const std::string bytes = Library(Line("Steel", 17));
  const std::size_t head = bytes.find("Steel");
  for (const bool gdbp : {true, false}) {
    Attack(bytes, [&](const std::string& attacked, bool cut) {
      const auto read = ParseGdbFile(attacked, "a.gdbp", gdbp, *CodePage::Named("932"));
      ASSERT_TRUE(read || IsClear(read.Error()));
      if (cut && gdbp && attacked.size() + 4 < head) {
        const MaterialLint strict([](std::int64_t, const std::string&) {}, true);
        ASSERT_FALSE(ParseGdbFile(attacked, "a.gdbp", gdbp, *CodePage::Named("932"), strict))
            << attacked.size();
      }
    });
  }
}

}  // namespace
}  // namespace qx
