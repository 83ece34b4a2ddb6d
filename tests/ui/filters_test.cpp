// What the options of the lists admit, against the host's pools.

#include <functional>
#include <gtest/gtest.h>

#include "qx_db/callback/callbacks.h"
#include "qx_db/record/catalogue.h"
#include "qx_db/ui/selection_lists.h"

#include "host/application.h"
#include "host/texts.h"
#include "tests/ui/fake_window.h"

namespace qx {
namespace {

using Texts = std::vector<std::string>;

class Filters : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(host::RegisterTexts()); }
  static void TearDownTestSuite() { SetTextSource(nullptr); }

  template <class T>
  ITR Add(Key key, std::u16string_view name, const std::function<void(T&)>& set = {}) {
    T record;
    record.key = key;
    record.name.Set(name);
    if (set) set(record);
    return session_.GetDataPool(T::kType)->InsertNU(&record);
  }

  host::Application application_;
  CQXDBSession session_{host::SetUpModel};
};

TEST_F(Filters, TheWholeMeshStandsBeforeTheSets) {
  CCobxMset list;
  FakeWindow window(list);
  const ITR set = Add<tagTMset>(3, u"Wall");
  list.SetDB(&session_);
  ITR out = 0;
  EXPECT_EQ(list.GetSelectedMset(out), 1);
  EXPECT_EQ(out, set);
  list.SetParentName(1);
  EXPECT_EQ(window.Texts(), (Texts{"Whole Mesh", "Wall"}));
  EXPECT_EQ(window.selected, 1) << "the set stays selected";
  window.Pick(0);
  EXPECT_EQ(list.GetSelectedMset(out), 1);
  EXPECT_EQ(out, 0u);
  list.OnUpdateList();
  EXPECT_EQ(window.selected, 0) << "the whole mesh stays selected";
  window.Pick(1);
  session_.GetDataPool(code::kMset)->Remove(set);
  list.OnUpdateList();
  EXPECT_EQ(window.Texts(), Texts{"Whole Mesh"});
  EXPECT_EQ(list.GetSelectedMset(out), 1) << "what is left is selected";
  EXPECT_EQ(out, 0u);
  list.SetParentName(0);
  EXPECT_EQ(list.GetSelectedMset(out), 0);
}

TEST_F(Filters, OfMaterials) {
  const auto type = [](std::int32_t value) {
    return [value](tagTMatl& record) { record.type = value; };
  };
  Add<tagTMatl>(1, u"Steel", type(tagTMatl::kIsotropic));
  Add<tagTMatl>(2, u"Water", type(tagTMatl::kFluid));
  Add<tagTMatl>(5, u"Sand", type(tagTMatl::kParticle));
  const struct {
    const char* what;
    std::function<void(CCobxMatl&)> set;
    Texts expected;
  } kCases[] = {
      {"all", [](CCobxMatl&) {}, {"1: Steel", "2: Water", "5: Sand"}},
      {"one type", [](CCobxMatl& list) { list.SetTypeFilter(tagTMatl::kFluid); }, {"2: Water"}},
      {"two types",
       [](CCobxMatl& list) {
         list.SetTypeFilter({tagTMatl::kFluid, tagTMatl::kParticle});
       },
       {"2: Water", "5: Sand"}},
      {"a type that none has", [](CCobxMatl& list) { list.SetTypeFilter(77); }, {}},
      {"a sub-type that none has", [](CCobxMatl& list) { list.SetSubTypeFilter(4); }, {}},
      {"cleared",
       [](CCobxMatl& list) {
         list.SetTypeFilter(tagTMatl::kFluid);
         list.SetSubTypeFilter(4);
         list.ClearTypeFilter();
       },
       {"1: Steel", "2: Water", "5: Sand"}},
      {"structural ones besides",
       [](CCobxMatl& list) {
         list.SetTypeFilter(tagTMatl::kFluid);
         list.SetStructure(1);
       },
       {"1: Steel", "2: Water"}},
      {"structural ones only",
       [](CCobxMatl& list) {
         list.SetTypeFilter(tagTMatl::kFluid);
         list.SetOnlyStructure(1);
       },
       {"1: Steel"}},
      {"for membranes", [](CCobxMatl& list) { list.EnableMembraneOpt(1); }, {"1: Steel"}},
      {"for membranes of a fluid",
       [](CCobxMatl& list) {
         list.SetTypeFilter(tagTMatl::kFluid);
         list.EnableMembraneOpt(1);
       },
       {}},
  };
  for (const auto& test : kCases) {
    CCobxMatl before;  // the option is set before the session, and after it
    test.set(before);
    FakeWindow before_window(before);
    before.SetDB(&session_);
    EXPECT_EQ(before_window.Texts(), test.expected) << test.what;
    CCobxMatl after;
    FakeWindow after_window(after);
    after.SetDB(&session_);
    test.set(after);
    EXPECT_EQ(after_window.Texts(), test.expected) << test.what << ", set on a live list";
  }
}

TEST_F(Filters, OfProperties) {
  const ITR water =
      Add<tagTMatl>(1, u"Water", [](tagTMatl& record) { record.type = tagTMatl::kFluid; });
  const auto type = [](std::int32_t value) {
    return [value](tagTProp& record) { record.type = value; };
  };
  Add<tagTProp>(1, u"Girder", type(tagTProp::kBeam));
  Add<tagTProp>(2, u"Bar", type(tagTProp::kTruss));
  Add<tagTProp>(3, u"Deck", type(tagTProp::kPlate));
  Add<tagTProp>(4, u"Basin", [&](tagTProp& record) {
    record.type = tagTProp::kSolid;
    record.material = water;
  });
  const struct {
    const char* what;
    std::function<void(CCobxProp&)> set;
    Texts expected;
  } kCases[] = {
      {"all", [](CCobxProp&) {}, {"1: Girder", "2: Bar", "3: Deck", "4: Basin"}},
      {"two types",
       [](CCobxProp& list) {
         list.AddTypeFilter(tagTProp::kPlate);
         list.AddTypeFilter(tagTProp::kTruss);
         list.AddTypeFilter(tagTProp::kTruss);
       },
       {"2: Bar", "3: Deck"}},
      {"cleared",
       [](CCobxProp& list) {
         list.AddTypeFilter(tagTProp::kPlate);
         list.ClearTypeFilter();
       },
       {"1: Girder", "2: Bar", "3: Deck", "4: Basin"}},
      {"beams", [](CCobxProp& list) { list.EnableBeamOnly(1); }, {"1: Girder"}},
      {"fluids", [](CCobxProp& list) { list.EnableCFDOnly(1); }, {"4: Basin"}},
      {"beams of fluid",
       [](CCobxProp& list) {
         list.EnableBeamOnly(1);
         list.EnableCFDOnly(1);
       },
       {}},
      {"none", [](CCobxProp& list) { list.EnableProp(0); }, {}},
      {"again",
       [](CCobxProp& list) {
         list.EnableProp(0);
         list.EnableProp(1);
       },
       {"1: Girder", "2: Bar", "3: Deck", "4: Basin"}},
  };
  for (const auto& test : kCases) {
    CCobxProp list;
    FakeWindow window(list);
    list.SetDB(&session_);
    test.set(list);
    EXPECT_EQ(window.Texts(), test.expected) << test.what;
  }
}

TEST_F(Filters, OfCoordinateSystems) {
  const std::pair<const char16_t*, std::int32_t> systems[] = {{u"box", tagTCord::kRectangular},
                                                              {u"pipe", tagTCord::kCylindrical},
                                                              {u"ball", tagTCord::kSpherical}};
  for (Key key = 1; const auto& system : systems) {
    Add<tagTCord>(key++, system.first, [&](tagTCord& record) { record.type = system.second; });
  }
  const struct {
    const char* what;
    std::function<void(CCobxCord&)> set;
    Texts expected;
  } kCases[] = {
      {"all", [](CCobxCord&) {}, {"box", "pipe", "ball"}},
      {"no curved ones", [](CCobxCord& list) { list.EnableCylind(0); }, {"box"}},
      {"cylindrical", [](CCobxCord& list) { list.SetOnlyCylindrical(1); }, {"pipe"}},
      {"rectangular", [](CCobxCord& list) { list.SetOnlyRectangle(1); }, {"box"}},
      {"the last of two",
       [](CCobxCord& list) {
         list.SetOnlyRectangle(1);
         list.SetOnlyCylindrical(1);
       },
       {"pipe"}},
      {"the type goes first",
       [](CCobxCord& list) {
         list.EnableCylind(0);
         list.SetOnlyCylindrical(1);
       },
       {"pipe"}},
      {"off again",
       [](CCobxCord& list) {
         list.SetOnlyCylindrical(1);
         list.SetOnlyCylindrical(0);
       },
       {"box", "pipe", "ball"}},
      {"the axes of element and material",
       [](CCobxCord& list) {
         list.EnableMCord(1);
         list.EnableECord(1);
         list.SetOnlyRectangle(1);
       },
       {"Element Axes", "Material Axes", "box"}},
  };
  for (const auto& test : kCases) {
    CCobxCord list;
    FakeWindow window(list);
    list.SetDB(&session_);
    test.set(list);
    EXPECT_EQ(window.Texts(), test.expected) << test.what;
  }
}

TEST_F(Filters, TheTwoItemsForNoSystemAreToldApart) {
  Add<tagTCord>(1, u"box");
  CCobxCord list;
  FakeWindow window(list);
  list.EnableECord(1);
  list.EnableMCord(1);
  list.SetDB(&session_);
  EXPECT_EQ(list.IsECordSelected(), 1);
  window.Pick(1);
  list.OnUpdateList();
  EXPECT_EQ(window.selected, 1);
  EXPECT_EQ(list.IsMCordSelected(), 1);
  EXPECT_EQ(list.IsECordSelected(), 0);
  ITR out = 99;
  EXPECT_EQ(list.GetSelectedCord(out), 1);
  EXPECT_EQ(out, 0u);
  list.EnableECord(0);
  EXPECT_EQ(list.IsMCordSelected(), 1) << "it moved to the first place";
  window.Pick(1);
  EXPECT_EQ(list.IsMCordSelected(), 0);
}

/// An application with a data type of its own, under the number 4711.
struct OneDataType final : IFuncDB {
  int AddDataTypeInCombo(CQXDBSession*, CComboBox* combo) override {
    combo->SetItemData(combo->AddString(u"rainfall"), 4711);
    return 1;
  }
};

TEST_F(Filters, OfFunctions) {
  const auto function = [&](Key key, std::u16string_view name, std::int32_t values,
                            std::int32_t variable, std::int32_t variable2 = -1) {
    Add<tagTFunc>(key, name, [&](tagTFunc& record) {
      record.type = values;
      record.variable = variable;
      if (variable2 < 0) return;
      record.variables = 2;
      record.variable2 = variable2;
    });
  };
  // Kinds: 1 length, 2 time, 3 temperature, 6 force, 8 stress.
  function(1, u"pulse", 6, 2);
  function(2, u"slope", 6, 1);
  function(3, u"map", 8, 1, 2);
  function(4, u"softening", 8, 3);
  function(5, u"odd", 8, 40);
  const struct {
    const char* what;
    std::function<void(CCobxFunc&)> set;
    Texts expected;
  } kCases[] = {
      {"all", [](CCobxFunc&) {}, {"pulse", "slope", "map", "softening", "odd"}},
      {"no space",
       [](CCobxFunc& list) { list.EnableSpaceFunc(0); },
       {"pulse", "map", "softening", "odd"}},
      {"no surfaces",
       [](CCobxFunc& list) { list.EnableSurfaceFunc(0); },
       {"pulse", "slope", "softening", "odd"}},
      {"a mask that is off",
       [](CCobxFunc& list) { list.SetVariableFilterMask(1u << 2); },
       {"pulse", "slope", "map", "softening", "odd"}},
      {"of time",
       [](CCobxFunc& list) {
         list.SetVariableFilterMask(1u << 2);
         list.EnableFilterVariable(1);
       },
       {"pulse"}},
      {"of length and time",
       [](CCobxFunc& list) {
         list.SetVariableFilterMask(1u << 1 | 1u << 2);
         list.EnableFilterVariable(1);
       },
       {"pulse", "slope", "map"}},
      {"of any known variable",
       [](CCobxFunc& list) { list.EnableFilterVariable(1); },
       {"pulse", "slope", "map", "softening"}},
  };
  for (const auto& test : kCases) {
    CCobxFunc list;
    FakeWindow window(list);
    list.SetDB(&session_);
    test.set(list);
    EXPECT_EQ(window.Texts(), test.expected) << test.what;
  }

  const struct {
    std::int32_t values;
    std::int32_t variable;
    Texts expected;
  } kPairs[] = {{-1, -1, {"pulse", "slope", "map", "softening", "odd"}},
                {6, -1, {"pulse", "slope"}},
                {8, 1, {"map"}},
                {-1, 3, {"softening"}},
                {6, 3, {}}};
  for (const auto& test : kPairs) {
    CCobxFuncQX list;
    FakeWindow window(list);
    list.SetDB(&session_);
    list.SetDepVar(test.values);
    list.SetIndepVar(test.variable);
    EXPECT_EQ(window.Texts(), test.expected) << test.values << " of " << test.variable;
  }
}

TEST_F(Filters, DataTypesOfTheApplicationFollowTheFunctions) {
  Add<tagTFunc>(1, u"pulse");
  CCobxFunc list;
  CCobxFuncQX other;
  FakeWindow window(list);
  FakeWindow other_window(other);
  list.SetDB(&session_);
  other.SetDB(&session_);
  EXPECT_EQ(window.Texts(), Texts{"pulse"});
  const OneDataType application;
  list.SetFuncComboBoxList();
  other.SetFuncComboBoxList();
  EXPECT_EQ(window.Texts(), (Texts{"pulse", "rainfall"}));
  EXPECT_EQ(other_window.Texts(), Texts{"pulse"});
  EXPECT_EQ(window.selected, 0);
  window.Pick(1);
  list.SetFuncComboBoxList();
  ITR out = 0;
  EXPECT_EQ(list.GetSelectedFunc(out), 1);
  EXPECT_EQ(out, 4711u);
}

TEST_F(Filters, GeometrySetsByName) {
  const ITR wall = Add<tagTGset>(1, u"Wall");
  CCobxGset list;
  FakeWindow window(list);
  list.SetDB(&session_);
  ITR out = 0;
  EXPECT_EQ(list.SetCurrentGsetOrCreate(u"Roof", out), 1);
  EXPECT_EQ(CCobxGset::IsNew(), 1);
  EXPECT_EQ(window.SelectedText(), "Roof");
  EXPECT_EQ(list.SetCurrentGsetOrCreate(u"Wall", out), 1);
  EXPECT_EQ(CCobxGset::IsNew(), 0);
  EXPECT_EQ(out, wall);
  EXPECT_EQ(list.SetCurrentSet(u"Roof"), 1);
  EXPECT_EQ(window.SelectedText(), "Roof");
  EXPECT_EQ(list.SetCurrentSet(u"Floor"), 0);
  EXPECT_EQ(window.SelectedText(), "");
}

TEST_F(Filters, NamesOfSelectedSets) {
  CCobxDset list;
  FakeWindow window(list);
  CString name = u"before";
  EXPECT_EQ(list.GetSelectedName(name), 0);
  EXPECT_TRUE(name.IsEmpty());
  Add<tagTDset>(1, u"quake");
  list.SetDB(&session_);
  EXPECT_EQ(list.GetSelectedName(name), 1);
  EXPECT_EQ(name, u"quake");
}

TEST_F(Filters, WithoutAnApplicationMaterialsAndPropertiesAreNotListed) {
  CQXDBSession session(host::SetUpModel);
  CCobxMatl materials;
  FakeWindow window(materials);
  {
    host::HostAppDB last;  // its end empties the slot
  }
  tagTMatl record;
  record.key = 1;
  session.GetDataPool(code::kMatl)->InsertNU(&record);
  materials.SetDB(&session);
  EXPECT_TRUE(window.items.empty());
}

}  // namespace
}  // namespace qx
