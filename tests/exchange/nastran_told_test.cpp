// What Nastran decks cannot say of a model, and a model of a deck: all of it is told. And decks
// that are made to cost much.

#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <set>

#include "exchange/nastran/nas_reader.h"
#include "nastran_model.h"

namespace qx::exchange {
namespace {

TEST(NastranParts, ThatNoCardSaysAreTold) {
  for (const bool is_anew : {false, true}) {
    NastranModel model;
    model.Import(DeckWith(""));
    model.Edit([&] {
      model.Change<tagTMatl>(1, [](tagTMatl& material) {
        material.specific_heat = 3;
        material.endurance_cycles = 4;
        material.density = 5;
      });
      model.Change<tagTProp>(1, [](tagTProp& property) {
        property.perimeter = 2;
        property.damping[4] = 1;
      });
      if (is_anew) model.Remove<tagTCarried>(1);
    });
    for (const char* name : {"out.bdf", "out.inp"}) {
      const std::string told = model.ExportAs(name);
      const bool is_nastran = std::string_view(name) == "out.bdf";
      EXPECT_NE(told.find(is_nastran ? "parts of materials were left out: specific heat, endurance "
                                       "cycles: 1"
                                     : "parts of materials were left out: endurance cycles"),
                std::string::npos)
          << name << "\n"
          << told;
      EXPECT_NE(told.find("parts of properties were left out: perimeter, damping"),
                std::string::npos)
          << name << "\n"
          << told;
    }
  }
}

TEST(NastranBoundarySets, HaveTheNamesOfTheirKinds) {
  NastranModel model;
  model.Import(
      DeckWith("SPCD    11      2       3       .1\nDLOAD   12      1.      1.      13\n"
               "TLOAD1  13      14                      15\nTEMPRB  16      2       1.\n"
               "DEFORM  17      2       .1\nSUPORT1 18      1       123\nMPCADD  19      1\n"));
  std::set<std::string> names;
  host::ForEach<tagTBset>(&model.Session(), [&](ITR, const tagTBset& set) {
    names.insert(Utf8(set.name.View()));
    return true;
  });
  EXPECT_EQ(names, (std::set<std::string>{"LOAD 11", "DLOAD 12", "DLOAD 13", "LOAD 16", "LOAD 17",
                                          "SUPORT1 18", "MPC 19"}));
}

// A small file neither fills the memory nor takes minutes.
TEST(NastranHostile, CostsWhatItsSizeSays) {
  std::string sets;
  std::string grids;
  std::string labels;
  for (int i = 1; i < 20000; ++i) {
    sets += fmt::format("SET {} = 1 THRU 99999999\nDISP = {}\n", i, i);
    grids += fmt::format("GRID,{},,0.,0.,0.\n", i);
    labels += fmt::format("GRID,{},,0.,0.,0.,,,,+{}\n", 20000 + i, i % 7);
  }
  for (int i = 1; i < 20000; ++i) labels += fmt::format("+{},\n", 900 + i);
  std::string list = "SET1,7";
  for (int i = 1; i < 20000; ++i) list += fmt::format(",{}{}", i, i % 8 == 6 ? "\n," : "");
  NastranModel model;
  model.Import(sets + "BEGIN BULK\n" + grids + labels + list + "\nPANEL,A,7\nENDDATA\n");
  EXPECT_NE(model.ToldIn().find("they list no numbers, or too many"), std::string::npos);
  model.Edit([&] {
    for (Key key = 1; key < 20000; key += 2) model.Renumber<tagTNode>(key, key + 50000);
  });
  EXPECT_NE(model.Export().find(",50001,"), std::string::npos);
}

// Ranges cost what they come to, not all that they range over.
TEST(NastranHostile, RangesOverTheWholeMesh) {
  constexpr Key kNodes = 20000;
  std::string deck = "BEGIN BULK\n";
  for (Key key = 1; key <= kNodes; ++key) deck += fmt::format("GRID,{},,{}.,0.,0.\n", key, key);
  for (int i = 1; i <= 4000; ++i) deck += fmt::format("SPC1,{},123,1,THRU,{}\n", i, kNodes - i);
  NastranModel model;
  model.Import(deck + "ENDDATA\n");
  model.Edit([&] {
    for (Key key = kNodes; key > 0; --key) model.Renumber<tagTNode>(key, key + 7);
  });
  const std::string text = model.Export();
  EXPECT_NE(text.find("\nSPC1,4000,123,8,THRU,16007\n"), std::string::npos);
  // Every second one elsewhere: each range is 10000 numbers, which no deck lists 4000 times.
  model.Edit([&] {
    for (Key key = 8; key <= kNodes; key += 2) model.Renumber<tagTNode>(key, key + 50000);
  });
  EXPECT_NE(model.Refusal().find("come to many times more numbers"), std::string::npos);
}

// In other units than those of the file, what is text of it stays; no word of what was converted.
TEST(NastranUnits, CardsWhoseNumbersStayAreTold) {
  NastranModel model;
  model.Import(DeckWith("PTUBE   5       1       20.     2.\nCTUBE   60      5       1       2\n"
                        "FORCE   1       9               1.      1.      0.      0.\n"
                        "FORCE   1       8               1.      1.      0.      0.\n"
                        "SPC1    1       123     1       2\n"
                        "MAT8    9       1.+5    1.+4    .3      1.+4                    1.-9\n"),
               "in.bdf", "mm,N,ton");
  model.Export("mm,N,ton");
  EXPECT_EQ(model.ToldOut().find("keep the units"), std::string::npos) << model.ToldOut();
  model.Export("m,N,kg");
  const std::string told = model.ToldOut();
  for (const char* part : {"FORCE cards keep the units that the deck was read in: 2",
                           "parts of PTUBE cards keep the units that the deck was read in: 1",
                           "parts of MAT8 cards keep the units that the deck was read in: 1"}) {
    EXPECT_NE(told.find(part), std::string::npos) << part << "\n" << told;
  }
  for (const char* part : {"were left out", "SPC1", "GRID", "PROD", "CTUBE", "MAT1", "PSHELL"}) {
    EXPECT_EQ(told.find(part), std::string::npos) << part << "\n" << told;
  }
}

// Each system is given in the one that follows, which is a step away and turned by a right angle.
TEST(NastranHostile, LongChainsOfSystems) {
  constexpr int kSystems = 20000;  // a multiple of four: the last turn closes
  std::string deck = "BEGIN BULK\n";
  for (int i = 1; i <= kSystems; ++i) {
    deck += fmt::format("CORD2R,{},{},1.,0.,0.,1.,0.,1.,\n,1.,1.,0.\n", i,
                        i == kSystems ? "" : std::to_string(i + 1));
  }
  deck += "GRID,1,1,0.,0.,5.\nGRID,2,4,0.,0.,5.\nPLOTEL,1,1,2\nENDDATA\n";
  NastranModel model;
  model.Import(deck);
  const Deck now = DeckOf(model.Session());
  ASSERT_EQ(now.coordinates.size(), 6u);
  const double expected[] = {0, 0, 5, 1, 0, 5};
  for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(now.coordinates[i], expected[i], 1e-9) << i;
  EXPECT_EQ(model.Export(), deck);
  model.ExportAs("out.inp");
}

// Places in its text are kept in 32 bits; it is not even read.
TEST(NastranHostile, DecksOfTwoGibibytesAreRefused) {
  const ScratchFolder folder;
  const std::string path = folder.Path("large.bdf");
  ASSERT_TRUE(WriteWholeFile(path, DeckWith("")));
  std::filesystem::resize_file(path, std::uintmax_t{1} << 31);
  std::vector<Failure> faults;
  EXPECT_FALSE(ReadNastran(path, {}, faults));
  ASSERT_EQ(faults.size(), 1u);
  EXPECT_EQ(faults[0].Line(), path +
                                  ": makes a deck of over 2 GiB with what it includes; divide "
                                  "the deck");
}

TEST(NastranElsewhere, WhatOnlyItsTextSaysIsTold) {
  NastranModel model;
  model.Import(
      DeckWith("FORCE   1       9               1.      1.      0.      0.\n"
               "CONROD  70      1       2       1       2.5\n"
               "GRID    71              0.      0.      0.              123\n"));
  for (const char* name : {"out.msh", "out.vtu", "out.inp"}) {
    const std::string told = model.ExportAs(name);
    for (const char* part : {"cards carried as text were left out: 1 (FORCE 1",
                             "what CONROD cards say besides was left out: 1",
                             "permanent constraints of nodes were left out: 1"}) {
      EXPECT_NE(told.find(part), std::string::npos) << name << "\n" << told;
    }
  }
  model.Export();
  EXPECT_EQ(model.ToldOut().find("left out"), std::string::npos) << model.ToldOut();
}

}  // namespace
}  // namespace qx::exchange
