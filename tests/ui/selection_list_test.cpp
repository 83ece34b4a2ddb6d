// The pattern of the selection lists: what they show, what stays selected, who hears of it.

#include <functional>
#include <gtest/gtest.h>
#include <memory>

#include "qx_db/core/transaction.h"
#include "qx_db/ui/selection_lists.h"

#include "host/application.h"
#include "tests/ui/fake_window.h"

namespace qx {
namespace {

using Texts = std::vector<std::string>;
constexpr std::uint32_t kSelectionChange = 1u << 16 | 7;

/// What a class of lists is, without its type.
struct ListClass {
  ComboFamily family;
  std::uint16_t pool;
  std::function<std::unique_ptr<SelectionList>()> make;
  std::function<int(SelectionList&, ITR&)> selected;
  std::function<int(SelectionList&, ITR&)> or_create;  // empty where the class has none
  const char16_t* command = nullptr;
};

template <class T>
std::unique_ptr<SelectionList> Make() {
  return std::make_unique<T>();
}

#define QX_LIST(Kind, Pool, Query)                                        \
  ListClass {                                                             \
    ComboFamily::k##Kind, code::Pool, Make<CCobx##Kind>,                  \
        [](SelectionList& list, ITR& out) {                               \
          return static_cast<CCobx##Kind&>(list).GetSelected##Query(out); \
        },                                                                \
    {}                                                                    \
  }
#define QX_SET(Kind, Pool, Command)                                                \
  ListClass {                                                                      \
    ComboFamily::k##Kind, code::Pool, Make<CCobx##Kind>,                           \
        [](SelectionList& list, ITR& out) {                                        \
          return static_cast<CCobx##Kind&>(list).GetSelected##Kind(out);           \
        },                                                                         \
        [](SelectionList& list, ITR& out) {                                        \
          return static_cast<CCobx##Kind&>(list).GetSelected##Kind##OrCreate(out); \
        },                                                                         \
        Command                                                                    \
  }

const ListClass kClasses[] = {
    QX_LIST(Mset, kMset, Mset),
    QX_LIST(Matl, kMatl, Matl),
    QX_LIST(Prop, kProp, Prop),
    QX_LIST(Cord, kCord, Cord),
    QX_LIST(ViewPoint, kViewPoint, ViewPoint),
    QX_LIST(Func, kFunc, Func),
    QX_LIST(FuncQX, kFunc, Func),
    QX_SET(Gset, kGset, u"GeometrySet"),
    QX_SET(Bset, kBset, u"BoundarySet"),
    QX_SET(Lset, kLset, u"LoadSet"),
    QX_SET(Dset, kDset, u"DynamicSet"),
    QX_SET(Tset, kTset, u"ThermalSet"),
    QX_SET(FRset, kFRset, u"FrequencyResponseSet"),
    QX_SET(TTset, kTTTset, u"ThermalTransientSet"),
    QX_SET(CFDset, kCFDset, u"FluidSet"),
    QX_SET(CFDPset, kCFDPset, u"FluidParticleSet"),
    QX_SET(Eset, kEset, u"ElectricSet"),
    QX_SET(TEset, kTEset, u"ThermoElectricSet"),
};
static_assert(std::size(kClasses) == kComboFamilyCount);

/// Adds a record of any named type.
ITR AddRecord(CQXDBSession& session, std::uint16_t type, Key key, std::u16string_view name) {
  DPoolBase& pool = *session.GetDataPool(type);
  TStructBase& record = *pool.GetDataPtrForUndoRedo();
  record.Init();
  char* const bytes = reinterpret_cast<char*>(&record);
  StoreAt(bytes + pool.GetSchema().Find(u"_KEY")->offset, key);
  StoreAt(bytes + pool.GetSchema().Find(u"_NAME")->offset, TString<64>(name));
  return pool.InsertNU(&record);
}

/// Runs edits as one step.
template <class Work>
void Step(CQXDBSession& session, Work&& work) {
  CTransaction transaction(&session);
  ASSERT_EQ(transaction.Begin(u"edit"), 1);
  work();
  ASSERT_EQ(transaction.Commit(), 1);
}

class EachList : public testing::TestWithParam<ListClass> {
 protected:
  /// As this class of lists words a record.
  std::string Item(Key key, const std::string& name) const {
    const bool with_key =
        GetParam().family == ComboFamily::kMatl || GetParam().family == ComboFamily::kProp;
    return with_key ? std::to_string(key) + ": " + name : name;
  }
  ITR Add(CQXDBSession& session, Key key, std::u16string_view name) const {
    return AddRecord(session, GetParam().pool, key, name);
  }
  ITR Selected(SelectionList& list, int expected = 1) const {
    ITR out = 99;
    EXPECT_EQ(GetParam().selected(list, out), expected);
    return out;
  }

  host::Application application_;
  CQXDBSession session_{host::SetUpModel};
};

INSTANTIATE_TEST_SUITE_P(Lists, EachList, testing::ValuesIn(kClasses), [](const auto& test) {
  return "Family" + std::to_string(static_cast<int>(test.param.family));
});

TEST_P(EachList, FollowsItsPoolThroughStepsUndoAndRedo) {
  std::unique_ptr<SelectionList> list = GetParam().make();
  FakeWindow window(*list);
  EXPECT_TRUE(window.Texts().empty());
  EXPECT_EQ(Selected(*list, 0), 0u);
  list->SetDB(&session_);
  EXPECT_EQ(list->GetDBSession(), &session_);
  EXPECT_TRUE(window.Texts().empty());

  ITR b = 0;
  ITR a = 0;
  Step(session_, [&] { b = Add(session_, 20, u"b"), a = Add(session_, 10, u"a"); });
  EXPECT_EQ(window.Texts(), (Texts{Item(20, "b"), Item(10, "a")})) << "pool order";
  EXPECT_EQ(Selected(*list), b) << "the first, as nothing was selected";
  window.Pick(1);
  EXPECT_EQ(Selected(*list), a);

  Step(session_, [&] { session_.GetDataPool(GetParam().pool)->Remove(b); });
  EXPECT_EQ(window.Texts(), (Texts{Item(10, "a")}));
  EXPECT_EQ(Selected(*list), a) << "the selection follows the record";
  ASSERT_EQ(session_.Undo(), 1);
  EXPECT_EQ(window.SelectedText(), Item(10, "a"));
  ASSERT_EQ(session_.Undo(), 1);
  EXPECT_TRUE(window.Texts().empty());
  EXPECT_EQ(Selected(*list, 0), 0u);
  ASSERT_EQ(session_.Redo(), 1);
  EXPECT_EQ(window.Texts(), (Texts{Item(20, "b"), Item(10, "a")}));
  EXPECT_EQ(Selected(*list), b);
}

TEST_P(EachList, SelectsByRecordAndFallsBackToTheFirst) {
  std::unique_ptr<SelectionList> list = GetParam().make();
  FakeWindow window(*list);
  std::vector<ITR> records;
  Step(session_, [&] {
    for (Key key : {1, 2, 3}) records.push_back(Add(session_, key, u"same"));
  });
  list->SetDB(&session_);
  EXPECT_EQ(list->ChangeSelect(records[2]), 1);
  EXPECT_EQ(window.selected, 2) << "by record where names are equal";
  EXPECT_EQ(list->ChangeSelect(ITR{12345}), 0);
  EXPECT_EQ(window.selected, CComboBox::kNone);
  EXPECT_EQ(Selected(*list, 0), 0u);
  list->ChangeSelect(records[2]);
  Step(session_, [&] { session_.GetDataPool(GetParam().pool)->Remove(records[2]); });
  EXPECT_EQ(Selected(*list), records[0]) << "the selected record is gone";
}

TEST_P(EachList, RefreshesOnlyListsOfItsClassBoundToTheSession) {
  CQXDBSession other(host::SetUpModel);
  std::unique_ptr<SelectionList> lists[] = {GetParam().make(), GetParam().make()};
  FakeWindow windows[] = {FakeWindow(*lists[0]), FakeWindow(*lists[1])};
  lists[0]->SetDB(&session_);
  lists[1]->SetDB(&other);
  for (FakeWindow& window : windows) window.posted.clear();
  SelectionList::RefreshAll(GetParam().family, &session_);
  EXPECT_EQ(windows[0].posted, std::vector{kSelectionChange});
  EXPECT_TRUE(windows[1].posted.empty());
  const auto another = static_cast<ComboFamily>((static_cast<int>(GetParam().family) + 1) % 18);
  SelectionList::RefreshAll(another, &session_);
  EXPECT_EQ(windows[0].posted.size(), 1u);
}

TEST_P(EachList, AreRegisteredFromTheirMakingToTheirEndInOrder) {
  const auto live = [&] {
    const auto lists = SelectionList::Live(GetParam().family);
    return std::vector<SelectionList*>(lists.begin(), lists.end());
  };
  ASSERT_TRUE(live().empty());
  auto first = GetParam().make();
  auto second = GetParam().make();
  auto third = GetParam().make();
  EXPECT_EQ(live(), (std::vector{first.get(), second.get(), third.get()}));
  second.reset();
  EXPECT_EQ(live(), (std::vector{first.get(), third.get()}));
}

TEST_P(EachList, OutlivesItsWindowAndTheWindowOutlivesIt) {
  auto list = GetParam().make();
  list->SetDB(&session_);
  ITR second = 0;
  Step(session_, [&] { Add(session_, 1, u"a"), second = Add(session_, 2, u"b"); });
  {
    FakeWindow window(*list);
    EXPECT_EQ(window.items.size(), 2u) << "a window that comes late is filled";
    window.Pick(1);
  }
  Step(session_, [&] { Add(session_, 3, u"c"); });
  EXPECT_EQ(list->GetCount(), 0);
  FakeWindow window(*list);
  EXPECT_EQ(window.items.size(), 3u);
  EXPECT_EQ(Selected(*list), second);
  list.reset();
  EXPECT_FALSE(window.HasList());
}

TEST_P(EachList, ShowsNothingAnewWhenNothingChanged) {
  auto list = GetParam().make();
  FakeWindow window(*list);
  Step(session_, [&] { Add(session_, 1, u"a"), Add(session_, 2, u"b"); });
  list->SetDB(&session_);
  window.Pick(1);
  window.Type(u"half typed");
  const int shows = window.shows;
  const int selects = window.selects;
  SelectionList::RefreshAll(GetParam().family, &session_);
  EXPECT_EQ(window.shows, shows);
  EXPECT_EQ(window.selects, selects);
  EXPECT_EQ(window.edit, u"half typed");
  Step(session_, [&] { Add(session_, 3, u"c"); });
  EXPECT_EQ(window.shows, shows + 1) << "one change is shown once";
}

TEST_P(EachList, TellsItsParentWithoutWaiting) {
  auto list = GetParam().make();
  list->NotifyChangeToParent();  // no window: nothing to tell
  FakeWindow window(*list);
  list->SetDB(&session_);
  EXPECT_EQ(window.posted, std::vector{kSelectionChange});
  EXPECT_EQ(window.fits, 1);
  Step(session_, [&] { Add(session_, 1, u"a"); });
  window.posted.clear();
  window.Pick(0);
  EXPECT_EQ(window.posted, std::vector{kSelectionChange}) << "a pick reaches the parent too";
  window.has_parent = false;
  list->NotifyChangeToParent();
  EXPECT_EQ(window.posted.size(), 1u);
}

TEST_P(EachList, AreEmptyWithoutASessionAndForgetTheFormerOne) {
  auto list = GetParam().make();
  FakeWindow window(*list);
  Step(session_, [&] { Add(session_, 1, u"a"), Add(session_, 2, u"b"); });
  list->SetDB(&session_);
  window.Pick(1);
  list->SetDB(nullptr);
  EXPECT_TRUE(window.items.empty());
  EXPECT_EQ(window.selected, CComboBox::kNone);
  CQXDBSession bare;
  list->SetDB(&bare);
  EXPECT_TRUE(window.items.empty()) << "a session without pools";
  list->SetDB(&session_);
  EXPECT_EQ(window.selected, 0);
}

/// A list that ends or makes others while it is refreshed.
struct Meddling final : TSelectionList<ComboFamily::kBset> {
  void OnUpdateList() override {
    ++updates;
    if (work) work();
  }
  std::function<void()> work;
  int updates = 0;
};

TEST(ComboBox, FilledItemByItemShowsEachOnce) {
  CComboBox list;
  FakeWindow window(list);
  for (int i = 0; i < 100; ++i) {
    list.SetItemData(list.AddString(CString(Utf16(std::to_string(i)))), static_cast<ITR>(i));
  }
  EXPECT_EQ(window.items, list.Items());
  EXPECT_EQ(window.shows, 0);
  EXPECT_EQ(window.item_shows, 199) << "a text, and a datum that is not 0";
  EXPECT_EQ(window.selected, CComboBox::kNone);
}

TEST(SelectionLists, EachIsRefreshedOnceWhateverListsDoMeanwhile) {
  CQXDBSession session;
  auto first = std::make_unique<Meddling>();
  Meddling second;
  Meddling third;
  auto fourth = std::make_unique<Meddling>();
  std::unique_ptr<Meddling> made;
  for (Meddling* list : {first.get(), &second, &third, fourth.get()}) list->SetDB(&session);
  second.work = [&] {
    first.reset();
    made = std::make_unique<Meddling>();
    made->SetDB(&session);
  };
  third.work = [&] { fourth.reset(); };
  SelectionList::RefreshAll(ComboFamily::kBset, &session);
  EXPECT_EQ(second.updates, 2);
  EXPECT_EQ(third.updates, 2) << "the end of the first moved it up";
  EXPECT_EQ(fourth, nullptr);
  EXPECT_EQ(made->updates, 1) << "it was filled when it was bound";
}

/// The lists of sets that a typed name makes.
class EachSetList : public EachList {};

std::vector<ListClass> SetClasses() {
  std::vector<ListClass> classes;
  for (const ListClass& list : kClasses) {
    if (list.or_create) classes.push_back(list);
  }
  return classes;
}
INSTANTIATE_TEST_SUITE_P(Lists, EachSetList, testing::ValuesIn(SetClasses()), [](const auto& test) {
  return "Family" + std::to_string(static_cast<int>(test.param.family));
});

TEST_P(EachSetList, CreatesWhatIsTypedOnce) {
  auto list = GetParam().make();
  FakeWindow window(*list);
  list->SetDB(&session_);
  DPoolBase& pool = *session_.GetDataPool(GetParam().pool);
  const auto create = [&](std::u16string name, int expected = 1) {
    window.Type(std::move(name));
    ITR out = 99;
    EXPECT_EQ(GetParam().or_create(*list, out), expected);
    return out;
  };

  const ITR wall = create(u"Wall");
  EXPECT_EQ(pool.GetSize(), 1);
  EXPECT_EQ(session_.UndoName(), GetParam().command);
  EXPECT_EQ(window.Texts(), Texts{"Wall"});
  EXPECT_EQ(Selected(*list), wall);
  EXPECT_EQ(create(u"Wall"), wall);
  EXPECT_EQ(pool.GetSize(), 1);

  const std::u16string longest(63, u'x');
  const ITR cut = create(longest + u"yz");
  EXPECT_EQ(KeyedSetBase::RecordAt(cut)->GetName().View(), longest);
  EXPECT_EQ(create(longest + u" other"), cut) << "the first 63 characters are the name";
  // A character of two units that would be cut in half is left out.
  const ITR pair = create(std::u16string(62, u'p') + u"\U0001F600");
  EXPECT_EQ(KeyedSetBase::RecordAt(pair)->GetName().View(), std::u16string(62, u'p'));
  EXPECT_EQ(pool.GetSize(), 3);

  for (const char16_t* blank : {u"", u"  ", u"\t"}) EXPECT_EQ(create(blank, 0), 0u);
  EXPECT_EQ(pool.GetSize(), 3);

  // One step each: three undos and the pool is empty.
  for (int left : {2, 1, 0}) {
    EXPECT_EQ(session_.Undo(), 1);
    EXPECT_EQ(pool.GetSize(), left);
    EXPECT_EQ(window.items.size(), static_cast<std::size_t>(left));
  }
  EXPECT_EQ(session_.Undo(), 0);
}

TEST_P(EachSetList, TakesTheSelectedOneOfSeveralWithTheTypedName) {
  auto list = GetParam().make();
  FakeWindow window(*list);
  std::vector<ITR> records;
  Step(session_, [&] {
    for (Key key : {1, 2}) records.push_back(Add(session_, key, u"same"));
  });
  list->SetDB(&session_);
  window.Pick(1);
  ITR out = 0;
  EXPECT_EQ(GetParam().or_create(*list, out), 1);
  EXPECT_EQ(out, records[1]);
  list->ChangeSelect(0);
  window.Type(u"same");
  EXPECT_EQ(GetParam().or_create(*list, out), 1);
  EXPECT_EQ(out, records[0]) << "else the first";
}

TEST_P(EachSetList, HasNoCurrentItemWhileAnotherNameIsTyped) {
  auto list = GetParam().make();
  FakeWindow window(*list);
  Step(session_, [&] { Add(session_, 1, u"Wall"), Add(session_, 2, u"Roof"); });
  list->SetDB(&session_);
  window.Pick(1);
  window.posted.clear();
  window.Type(u"Roo");
  EXPECT_EQ(Selected(*list, 0), 0u);
  EXPECT_EQ(list->GetCurSel(), CComboBox::kNone);
  window.Type(u"Ro");
  EXPECT_EQ(window.posted.size(), 1u) << "the parent hears of it once";
  SelectionList::RefreshAll(GetParam().family, &session_);
  EXPECT_EQ(window.edit, u"Ro");
  EXPECT_EQ(Selected(*list, 0), 0u) << "a rebuild leaves what is typed";
  window.posted.clear();
  window.Type(u"Roof");
  EXPECT_EQ(KeyOf(Selected(*list)), 2);
  EXPECT_EQ(window.posted, std::vector{kSelectionChange});
  list->SetWindowText(u"Floor");
  EXPECT_EQ(Selected(*list, 0), 0u) << "a text that a program sets counts as much";
  EXPECT_EQ(list->ChangeSelect(list->GetItemData(0)), 1);
  EXPECT_EQ(KeyOf(Selected(*list)), 1);
}

TEST_P(EachSetList, CreatesAlsoWhereNoHostRefreshes) {
  const StepHook hook = SetStepHook(nullptr);
  auto list = GetParam().make();
  FakeWindow window(*list);
  list->SetDB(&session_);
  window.Type(u"Wall");
  ITR out = 0;
  EXPECT_EQ(GetParam().or_create(*list, out), 1);
  EXPECT_EQ(window.Texts(), Texts{"Wall"});
  EXPECT_EQ(Selected(*list), out);
  SetStepHook(hook);
}

TEST_P(EachSetList, DropsARecordOfATransactionThatIsRolledBack) {
  auto list = GetParam().make();
  FakeWindow window(*list);
  Step(session_, [&] { Add(session_, 1, u"Wall"); });
  list->SetDB(&session_);
  ITR out = 0;
  CTransaction dialog(&session_);
  dialog.Begin(u"dialog");
  window.Type(u"Roof");
  EXPECT_EQ(GetParam().or_create(*list, out), 1);
  EXPECT_EQ(window.Texts(), (Texts{"Wall", "Roof"}));
  dialog.Rollback();
  EXPECT_EQ(window.Texts(), Texts{"Wall"});
  EXPECT_EQ(KeyOf(Selected(*list)), 1);
  // A part of a transaction is no news; the record that then takes the place is another one.
  dialog.Begin(u"dialog");
  {
    CTransaction part(&session_);
    part.Begin(u"part");
    window.Type(u"Roof");
    EXPECT_EQ(GetParam().or_create(*list, out), 1);
  }
  Add(session_, 7, u"Door");
  dialog.Commit();
  EXPECT_EQ(window.Texts(), (Texts{"Wall", "Door"}));
  EXPECT_EQ(KeyOf(Selected(*list)), 1);
  // Also where nothing else comes of the outer one, however it ends.
  for (const bool commit : {true, false}) {
    dialog.Begin(u"dialog");
    {
      CTransaction part(&session_);
      part.Begin(u"part");
      window.Type(u"Roof");
      EXPECT_EQ(GetParam().or_create(*list, out), 1);
    }
    EXPECT_EQ(Selected(*list, 0), 0u) << "listed still, but no record";
    EXPECT_EQ(commit ? dialog.Commit() : dialog.Rollback(), 1);
    EXPECT_EQ(window.Texts(), (Texts{"Wall", "Door"}));
    EXPECT_EQ(KeyOf(Selected(*list)), 1);
  }
}

TEST(SelectionLists, AreTakenFromASessionThatEnds) {
  const host::Application application;
  CCobxBset list, other;
  FakeWindow window(list);
  {
    CQXDBSession session(host::SetUpModel);
    EXPECT_FALSE(session.HasViews());
    Step(session, [&] { AddRecord(session, code::kBset, 1, u"Wall"); });
    list.SetDB(&session);
    other.SetDB(&session);
    other.SetDB(&session);
    EXPECT_EQ(window.Texts(), Texts{"Wall"});
    other.SetDB(nullptr);
    EXPECT_TRUE(session.HasViews());
  }
  EXPECT_EQ(list.GetDBSession(), nullptr);
  EXPECT_EQ(window.Texts(), Texts{});
}

}  // namespace
}  // namespace qx
