// Material files of every form as tables, and conversion between them.

#include "qx_db/material/material_file.h"

#include <cmath>

#include "qx_db/material/material_library.h"

#include "tests/material/material_support.h"

namespace qx {
namespace {

constexpr MaterialForm kWritable[] = {MaterialForm::kText, MaterialForm::kBinary,
                                      MaterialForm::kFluid, MaterialForm::kParticle,
                                      MaterialForm::kGdbp};

/// Two materials with the properties that every form has.
MaterialTable Sample() {
  MaterialTable table;
  for (const StructuralColumn& column : StructuralColumns()) {
    table.columns.push_back({std::string(column.property), column.kind, LibraryUnits()});
  }
  for (const char16_t* name : {u"WATER", u"OIL"}) {
    Material material;
    material.name = name;
    material.values.assign(table.columns.size(), 0.0);
    for (const char* property :
         {"elastic modulus", "Poisson's ratio", "mass density", "conductivity", "specific heat"}) {
      material.values[*table.Find(property)] = 0.1 + static_cast<double>(table.materials.size());
    }
    table.materials.push_back(material);
  }
  return table;
}

using MaterialFile = MaterialFiles;

TEST_F(MaterialFile, EveryFormTurnsIntoEveryOther) {
  const UnitSystem inches = *SystemNamed("in,lbf,Btu,F", UnitSystem());
  const auto path = [&](MaterialForm form) {
    return folder_.Path("m") + std::string(InfoOf(form).extension);
  };
  const MaterialTable sample = Sample();
  for (const MaterialForm first : kWritable) {
    ASSERT_TRUE(WriteMaterials(sample, path(first), first, CodePage(), inches));
    const auto found = FormOfFile(path(first));
    ASSERT_TRUE(found && *found == first) << InfoOf(first).name;
    const auto table = ReadMaterials(path(first), first, CodePage());
    ASSERT_TRUE(table) << table.Error().Line();
    for (const MaterialForm second : kWritable) {
      const std::string target = folder_.Path("n") + std::string(InfoOf(second).extension);
      std::vector<std::string> lost;
      const Outcome written = WriteMaterials(*table, target, second, CodePage(), inches, &lost);
      ASSERT_TRUE(written) << written.Line();
      const auto again = ReadMaterials(target, second, CodePage());
      ASSERT_TRUE(again) << again.Error().Line();
      const MaterialTable back = WithColumns(*again, sample.columns);
      ASSERT_EQ(back.materials.size(), 2u);
      for (std::size_t m = 0; m < 2; ++m) {
        EXPECT_EQ(back.materials[m].name, sample.materials[m].name);
        for (std::size_t i = 0; i < sample.columns.size(); ++i) {
          const double value = sample.materials[m].values[i];
          EXPECT_NEAR(back.materials[m].values[i], value, 1e-12 * (std::abs(value) + 1))
              << InfoOf(first).name << " to " << InfoOf(second).name << ", "
              << sample.columns[i].property;
        }
      }
    }
  }
}

TEST_F(MaterialFile, SaysWhatAFormHasNoPlaceFor) {
  MaterialTable table = Sample();
  table.materials[0].category = u"Liquids";
  table.materials[0].values[*table.Find("cycles at endurance")] = 1e6;
  table.materials[1].values[*table.Find("stiffness proportional damping")] = 0.1;
  std::vector<std::string> lost;
  ASSERT_TRUE(WriteMaterials(table, folder_.Path("m.gdbp"), MaterialForm::kGdbp, CodePage(),
                             LibraryUnits(), &lost));
  EXPECT_EQ(lost, (std::vector<std::string>{"cycles at endurance of 1 material",
                                            "stiffness proportional damping of 1 material",
                                            "the categories of materials"}));
  EXPECT_FALSE(
      WriteMaterials(table, folder_.Path("m.gdb"), MaterialForm::kGdb, CodePage(), LibraryUnits()));
  EXPECT_FALSE(Exists("m.gdb"));
}

TEST_F(MaterialFile, UnitSystemsByNameAndText) {
  const auto system = SystemNamed(" kN, M ,ton,F", UnitSystem());
  ASSERT_TRUE(system);
  EXPECT_EQ(UnitText(unit::kStress, *system), "kN/m^2");
  EXPECT_EQ(UnitText(unit::kMassDensity, *system), "ton/m^3");
  EXPECT_EQ(UnitText(unit::kConductivity, *system), "J/(m.sec.F)");
  EXPECT_EQ(UnitText(unit::kThermalExpansion, *system), "1/F");
  EXPECT_EQ(UnitText(unit::kNone, *system), "");
  for (const char* bad : {"mm,cm", "parsec", "N,mm,J,C,lbf"}) {
    EXPECT_FALSE(SystemNamed(bad, UnitSystem())) << bad;
  }
}

TEST(WriteMaterials, NoFormTakesAValueThatIsNoNumber) {
  const ScratchFolder folder;
  for (const MaterialForm form : kWritable) {
    const std::string path = folder.Path(std::string(InfoOf(form).name));
    MaterialTable table = Sample();
    const auto write = [&] { return WriteMaterials(table, path, form, CodePage(), UnitSystem()); };
    table.materials[1].values[*table.Find("mass density")] = std::nan("");
    EXPECT_NE(write().Line().find("material \"" + table.materials[1].name.ToUtf8() +
                                  "\": has a value that is not a number; "),
              std::string::npos)
        << write().Line();
    EXPECT_FALSE(std::filesystem::exists(path));
    table.materials.pop_back();
    EXPECT_TRUE(write()) << write().Line();
  }
}

/// The library that comes with the system: both forms load, say the same, and are what they claim.
TEST(ShippedMaterials, LoadInBothForms) {
  const std::string folder = std::string(QX_SOURCE_DIR) + "/examples/materials/";
  const auto lint = [&](std::int64_t line, const std::string& why) {
    ADD_FAILURE() << "line " << line << ": " << why;
  };
  const auto text = ReadMaterials(folder + "common.txt", MaterialForm::kText, CodePage(), lint);
  const auto gdbp = ReadMaterials(folder + "common.gdbp", MaterialForm::kGdbp, CodePage(), lint);
  ASSERT_TRUE(text) << text.Error().Line();
  ASSERT_TRUE(gdbp) << gdbp.Error().Line();
  EXPECT_GE(text->materials.size(), 20u);
  ASSERT_EQ(text->materials.size(), gdbp->materials.size());
  const MaterialTable same = WithColumns(*gdbp, text->columns);
  const std::size_t e = *text->Find("elastic modulus");
  const std::size_t g = *text->Find("shear modulus");
  const std::size_t nu = *text->Find("Poisson's ratio");
  const std::size_t weight = *text->Find("weight density");
  const std::size_t mass = *text->Find("mass density");
  for (std::size_t i = 0; i < text->materials.size(); ++i) {
    const Material& material = text->materials[i];
    EXPECT_EQ(material.name, same.materials[i].name);
    EXPECT_EQ(material.values, same.materials[i].values) << material.name.ToUtf8();
    const std::vector<double>& v = material.values;
    EXPECT_NEAR(v[weight], v[mass] * 9.80665, 1e-3 * v[weight]) << material.name.ToUtf8();
    const bool isotropic = material.category.View().find(u"Timber") == std::u16string_view::npos;
    if (isotropic) {
      EXPECT_NEAR(v[g], v[e] / (2 * (1 + v[nu])), 0.02 * v[g]) << material.name.ToUtf8();
    }
  }
}

}  // namespace
}  // namespace qx
