// The selection lists on real widgets, driven by events on Qt's offscreen platform.

#include <QtCore/QTimer>
#include <QtGui/QAccessible>
#include <QtTest/QTest>
#include <QtWidgets/QAbstractItemView>
#include <QtWidgets/QApplication>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QCompleter>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QScrollBar>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>

#include "qx_db/core/transaction.h"
#include "qx_db/model/standard_pools.h"

#include "adapters/qt/qt_combo_window.h"
#include "adapters/qt/qt_credential_prompt.h"
#include "examples/sample_model.h"
#include "examples/selection_dialog.h"
#include "host/application.h"
#include "host/session.h"
#include "host/texts.h"

namespace qx {
namespace {

QStringList Texts(const QComboBox& box) {
  QStringList texts;
  for (int i = 0; i < box.count(); ++i) texts.append(box.itemText(i));
  return texts;
}

/// Parent of a box, counting the commands it gets.
struct Parent : QWidget {
  void customEvent(QEvent* event) override {
    ASSERT_EQ(event->type(), ComboCommandEvent::Kind());
    const auto& command = static_cast<const ComboCommandEvent&>(*event);
    EXPECT_EQ(command.What(), CComboBox::kSelectionChanged);
    ids.push_back(command.ControlId());
    source = command.Source();
  }
  std::vector<int> ids;
  QComboBox* source = nullptr;
};

class QtLists : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    static int count = 1;
    static char name[] = "test_qt";
    static char* arguments[] = {name, nullptr};
    qt_ = std::make_unique<QApplication>(count, arguments);
    ASSERT_TRUE(host::RegisterTexts());
  }
  // Before the program ends: what Qt keeps in statics is gone when ours are.
  static void TearDownTestSuite() { qt_.reset(); }

  ITR AddSet(Key key, std::u16string_view name) {
    tagTBset set;
    set.key = key;
    set.name.Set(name);
    return Pool<tagTBset>(session_).InsertNU(set);
  }
  template <class Work>
  void Step(Work&& work) {
    CTransaction transaction(&session_);
    transaction.Begin(u"edit");
    work();
    ASSERT_EQ(transaction.Commit(), 1);
  }

  inline static std::unique_ptr<QApplication> qt_;
  host::Application application_;
  CQXDBSession session_{host::SetUpModel};
};

TEST_F(QtLists, TheSampleMakesASetByTypingAndFollowsUndo) {
  FillSampleModel(session_);
  SelectionDialog dialog(session_);
  dialog.show();
  const auto box = [&](const char* name) -> QComboBox& {
    return *dialog.findChild<QComboBox*>(name);
  };
  const auto press = [&](const char* name) {
    QTest::mouseClick(dialog.findChild<QPushButton*>(name), Qt::LeftButton);
    QApplication::processEvents();
  };
  EXPECT_EQ(Texts(box("mesh_set")), (QStringList{"Whole Mesh", "Deck", "Girders", "Piers"}));
  EXPECT_EQ(Texts(box("material")),
            (QStringList{"1: Steel S355", "2: Concrete C40/50", "3: Bearing rubber"}));
  EXPECT_EQ(Texts(box("coordinate_system")), (QStringList{"Element Axes", "Global", "Pier axes"}));

  QComboBox& sets = box("boundary_set");
  const QStringList before{"Pier feet", "South abutment"};
  const QStringList after = before + QStringList{"North abutment"};
  EXPECT_EQ(Texts(sets), before);
  sets.setFocus();
  sets.lineEdit()->selectAll();
  QTest::keyClicks(&sets, "North abutment");
  EXPECT_EQ(Texts(sets), before) << "typing alone makes nothing";
  QTest::keyClick(&sets, Qt::Key_Return);
  EXPECT_EQ(Texts(sets), after);
  EXPECT_EQ(sets.currentText(), "North abutment");
  EXPECT_EQ(session_.UndoName(), u"BoundarySet");
  QTest::keyClick(&sets, Qt::Key_Return);
  EXPECT_EQ(Texts(sets), after) << "the name is there now";

  QApplication::processEvents();
  auto& chosen = *dialog.findChild<QLabel*>("chosen");
  EXPECT_EQ(chosen.text(), "Boundary set: 3   Material: 1");
  press("undo");
  EXPECT_EQ(Texts(sets), before);
  EXPECT_EQ(sets.currentText(), "Pier feet");
  EXPECT_EQ(chosen.text(), "Boundary set: 1   Material: 1");
  press("redo");
  EXPECT_EQ(Texts(sets), after);

  QAccessibleInterface* spoken = QAccessible::queryAccessibleInterface(&sets);
  ASSERT_NE(spoken, nullptr);
  EXPECT_EQ(spoken->role(), QAccessible::ComboBox);
  const auto labels = spoken->relations(QAccessible::Label);
  ASSERT_EQ(labels.size(), 1);
  EXPECT_EQ(labels[0].first->text(QAccessible::Name), "Boundary set");
  EXPECT_EQ(spoken->text(QAccessible::Value), "Pier feet");

  // Keyboard: down through a list that is closed.
  QComboBox& materials = box("material");
  materials.setFocus();
  QTest::keyClick(&materials, Qt::Key_Down);
  QApplication::processEvents();
  EXPECT_EQ(chosen.text(), "Boundary set: 1   Material: 2");
}

// A dialog whose boxes stand in a group is not their parent.
TEST_F(QtLists, CommandsReachWhoConnects) {
  QWidget dialog;
  QWidget group(&dialog);
  QComboBox box(&group);
  AddSet(1, u"a");
  AddSet(2, u"b");
  CCobxBset list;
  auto* window = new QtComboWindow(box, list, 9);
  list.SetDB(&session_);
  QApplication::processEvents();
  int heard = 0;
  QObject::connect(window, &QtComboWindow::Commanded, &dialog, [&](quint16 id, quint16 what) {
    EXPECT_EQ(id, 9);
    EXPECT_EQ(what, CComboBox::kSelectionChanged);
    ++heard;
  });
  box.setCurrentIndex(1);
  EXPECT_EQ(heard, 0) << "not amid the change";
  QApplication::processEvents();
  EXPECT_EQ(heard, 1);
}

TEST_F(QtLists, ItemsComeOneByOneWithoutSelectingOne) {
  QWidget dialog;
  QComboBox box(&dialog);
  CComboBox list;
  new QtComboWindow(box, list, 1);
  for (const char16_t* text : {u"a", u"b", u"c"}) list.SetItemData(list.AddString(text), 7);
  EXPECT_EQ(Texts(box), (QStringList{"a", "b", "c"}));
  EXPECT_EQ(box.currentIndex(), -1);
  EXPECT_EQ(list.GetCurSel(), -1);
  EXPECT_EQ(box.itemData(2, QtItemModel::kRecordRole).toLongLong(), 7);
}

TEST_F(QtLists, WhatIsTypedStaysWhileItemsCome) {
  QWidget dialog;
  QComboBox box(&dialog);
  box.setEditable(true);
  CComboBox list;
  new QtComboWindow(box, list, 1);
  box.lineEdit()->setText("Wal");
  list.AddString(u"Wall");
  EXPECT_EQ(box.currentText(), "Wal");
}

TEST_F(QtLists, CommandsReachTheParentThroughTheEventLoop) {
  Parent parent;
  QComboBox box(&parent);
  CCobxBset list;
  auto* window = new QtComboWindow(box, list, 42);
  Step([&] { AddSet(1, u"a"), AddSet(2, u"b"); });
  list.SetDB(&session_);
  EXPECT_TRUE(parent.ids.empty()) << "posted, not sent";
  QApplication::processEvents();
  EXPECT_EQ(parent.ids, std::vector{42});
  EXPECT_EQ(parent.source, &box);
  QTest::keyClick(&box, Qt::Key_Down);
  ITR out = 0;
  EXPECT_EQ(list.GetSelectedBset(out), 1);
  EXPECT_EQ(KeyOf(out), 2);
  QApplication::processEvents();
  EXPECT_EQ(parent.ids.size(), 2u);
  EXPECT_EQ(window->FindKey(2), 1);
  EXPECT_EQ(window->FindKey(3), -1);
  box.setParent(nullptr);
  list.NotifyChangeToParent();
  QApplication::processEvents();
  EXPECT_EQ(parent.ids.size(), 2u);
}

TEST_F(QtLists, ItemsAreFoundByRecordWhereNamesAreEqual) {
  QComboBox box;
  box.setEditable(true);
  CCobxBset list;
  new QtComboWindow(box, list, 1);
  ITR last = 0;
  Step([&] { AddSet(1, u"same"), AddSet(2, u"same"), last = AddSet(3, u"same"); });
  list.SetDB(&session_);
  EXPECT_EQ(list.ChangeSelect(last), 1);
  EXPECT_EQ(box.currentIndex(), 2);
  EXPECT_EQ(box.findData(static_cast<qlonglong>(last), QtItemModel::kRecordRole), 2);
  QTest::keyClick(&box, Qt::Key_Return);
  EXPECT_EQ(box.currentIndex(), 2) << "Enter does not move to another of the name";
  Step([&] { session_.GetDataPool(code::kBset)->Remove(Pool<tagTBset>(session_).Find(1)); });
  EXPECT_EQ(box.currentIndex(), 1);
  EXPECT_EQ(box.currentData(QtItemModel::kKeyRole).toInt(), 3);
}

TEST_F(QtLists, AnOpenListStaysOpenAndInPlace) {
  QWidget parent;
  QComboBox box(&parent);
  CCobxBset list;
  new QtComboWindow(box, list, 1);
  Step([&] {
    for (Key key = 1; key <= 500; ++key) AddSet(key, u"set " + Utf16(std::to_string(key)));
  });
  list.SetDB(&session_);
  box.setCurrentIndex(300);
  parent.show();
  box.showPopup();
  QApplication::processEvents();
  ASSERT_TRUE(box.view()->isVisible());
  const int place = box.view()->verticalScrollBar()->value();
  EXPECT_GT(place, 0);
  CCobxBset::UpdateDB(&session_);
  Step([&] { AddSet(501, u"one more"); });
  QApplication::processEvents();
  EXPECT_TRUE(box.view()->isVisible());
  EXPECT_EQ(box.view()->verticalScrollBar()->value(), place);
  EXPECT_EQ(box.currentIndex(), 300);
  EXPECT_EQ(box.count(), 501);
}

TEST_F(QtLists, WhatIsTypedStaysAsLongAsItsRecord) {
  QComboBox box;
  box.setEditable(true);
  CCobxBset list;
  new QtComboWindow(box, list, 1);
  Step([&] { AddSet(1, u"Wall"), AddSet(2, u"Roof"); });
  list.SetDB(&session_);
  box.lineEdit()->selectAll();
  QTest::keyClicks(&box, "Wa");
  EXPECT_EQ(box.currentText(), "Wa") << "not completed in place";
  box.lineEdit()->setCursorPosition(1);
  Step([&] { AddSet(3, u"Floor"); });
  EXPECT_EQ(box.currentText(), "Wa");
  EXPECT_EQ(box.lineEdit()->cursorPosition(), 1);
  Step([&] { session_.GetDataPool(code::kBset)->Remove(Pool<tagTBset>(session_).Find(1)); });
  EXPECT_EQ(box.currentText(), "Roof");
  list.ChangeSelect(0);
  EXPECT_EQ(box.currentText(), "");
  EXPECT_EQ(box.currentIndex(), -1);
}

TEST_F(QtLists, TheSelectedRecordIsTheOneThatIsRead) {
  QWidget parent;
  QComboBox box(&parent);
  QLineEdit other(&parent);
  box.setEditable(true);
  CCobxBset list;
  new QtComboWindow(box, list, 1);
  Step([&] { AddSet(1, u"Wall"), AddSet(2, u"Roof"); });
  list.SetDB(&session_);
  parent.show();
  parent.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&parent));
  const auto leave_with = [&](const char* typed) {
    box.setFocus();
    box.lineEdit()->selectAll();
    QTest::keyClicks(&box, typed);
    QWidget* const proposals = box.completer()->popup();
    QTest::keyClick(proposals->isVisible() ? proposals : &box, Qt::Key_Tab);
    EXPECT_TRUE(other.hasFocus());
    EXPECT_EQ(box.currentText(), typed) << "it stays as it was typed";
    ITR out = 0;
    const int selected = list.GetSelectedBset(out);
    EXPECT_EQ(selected, out ? 1 : 0);
    return out ? KeyOf(out) : 0;
  };
  EXPECT_EQ(leave_with("Brand new"), 0);
  EXPECT_EQ(leave_with("Roof"), 2);
  EXPECT_EQ(leave_with("roof"), 0);
  EXPECT_EQ(leave_with("wall"), 0) << "names differ by case";
  ITR made = 0;
  EXPECT_EQ(list.GetSelectedBsetOrCreate(made), 1);
  EXPECT_EQ(KeyOf(made), 3);
  EXPECT_EQ(Texts(box), (QStringList{"Wall", "Roof", "wall"}));
  EXPECT_EQ(leave_with("wa"), 0);
  box.setCurrentIndex(2);
  EXPECT_EQ(list.GetCurSel(), 2) << "the same item picked again";
}

TEST_F(QtLists, WhatIsTypedIsCompletedInWhateverCase) {
  QWidget parent;
  QComboBox box(&parent);
  box.setEditable(true);
  CCobxBset list;
  new QtComboWindow(box, list, 1);
  Step([&] { AddSet(1, u"East Wall"), AddSet(2, u"Roof"), AddSet(3, u"WALL \u00C4"); });
  list.SetDB(&session_);
  parent.show();
  box.setFocus();
  const auto type = [&](const QString& text) {
    box.lineEdit()->selectAll();
    QTest::keyClicks(&box, text);
    QStringList proposed;
    const QAbstractItemModel& model = *box.completer()->completionModel();
    for (int i = 0; i < model.rowCount(); ++i) {
      proposed.append(model.index(i, 0).data().toString());
    }
    return proposed;
  };
  EXPECT_EQ(type("wALL"), (QStringList{"East Wall", QString("WALL \u00C4")}));
  EXPECT_EQ(type("roo"), QStringList{"Roof"});
  EXPECT_EQ(box.currentText(), "roo");
  QTest::keyClick(box.completer()->popup(), Qt::Key_Down);
  QTest::keyClick(box.completer()->popup(), Qt::Key_Return);
  EXPECT_EQ(box.currentText(), "Roof");
  EXPECT_EQ(list.GetCurSel(), 1);
}

TEST_F(QtLists, RenamingShowsTheNewName) {
  QComboBox box;
  CCobxBset list;
  new QtComboWindow(box, list, 1);
  Step([&] { AddSet(1, u"Wall"), AddSet(2, u"Roof"); });
  list.SetDB(&session_);
  list.ChangeSelect(Pool<tagTBset>(session_).Find(2));
  Step([&] {
    auto& pool = Pool<tagTBset>(session_);
    tagTBset set = pool.GetAtNU(pool.Find(2));
    set.name.Set(u"Ceiling");
    pool.SetAtNU(pool.Find(2), set);
  });
  EXPECT_EQ(Texts(box), (QStringList{"Wall", "Ceiling"}));
  EXPECT_EQ(box.currentText(), "Ceiling");
}

TEST_F(QtLists, TheOpenedListIsAsWideAsItsWidestItem) {
  QComboBox box;
  CCobxBset list;
  new QtComboWindow(box, list, 1);
  Step([&] { AddSet(1, u"i"), AddSet(2, std::u16string(63, u'W')); });
  list.SetDB(&session_);
  const auto text_width = [&] {
    return box.view()->fontMetrics().horizontalAdvance(QString(63, 'W'));
  };
  const auto open_width = [&] {
    box.showPopup();
    QApplication::processEvents();
    const int width = box.view()->width();
    box.hidePopup();
    return width;
  };
  box.resize(60, 20);
  EXPECT_GE(open_width(), text_width());
  QFont other = box.view()->font();
  other.setPointSize(other.pointSize() / 2);
  const int wide = text_width();
  box.view()->setFont(other);
  EXPECT_LT(text_width(), wide);
  EXPECT_GE(open_width(), text_width());
  EXPECT_LT(open_width(), wide) << "it follows the font";
  Step([&] { session_.GetDataPool(code::kBset)->Remove(Pool<tagTBset>(session_).Find(2)); });
  EXPECT_LT(open_width(), text_width());
  box.showPopup();
  Step([&] { AddSet(3, std::u16string(50, u'W')); });
  EXPECT_GE(box.view()->width(), box.view()->fontMetrics().horizontalAdvance(QString(50, 'W')))
      << "an open list widens";
}

TEST_F(QtLists, BoxAndListMayEndInEitherOrder) {
  auto list = std::make_unique<CCobxBset>();
  Step([&] { AddSet(1, u"a"); });
  {
    QComboBox box;
    new QtComboWindow(box, *list, 1);
    list->SetDB(&session_);
    EXPECT_EQ(box.count(), 1);
  }
  EXPECT_FALSE(list->HasWindow());
  CCobxBset::UpdateDB(&session_);
  QComboBox box;
  new QtComboWindow(box, *list, 1);
  EXPECT_EQ(box.count(), 1);
  list.reset();
  box.setCurrentIndex(-1);
  EXPECT_EQ(box.currentIndex(), -1);
}

TEST_F(QtLists, TheCredentialDialogAnswersAsItsButtons) {
  QtCredentialPrompt prompt;
  const auto ask = [&](int attempt, Qt::Key key, const QString& user, const QString& password,
                       ProxyCredentials& credentials) {
    QTimer::singleShot(0, [&] {
      QWidget* dialog = QApplication::activeModalWidget();
      ASSERT_NE(dialog, nullptr);
      EXPECT_EQ(dialog->objectName(), "proxy_credentials");
      auto& field = *dialog->findChild<QLineEdit*>("password");
      EXPECT_EQ(field.echoMode(), QLineEdit::Password);
      QTest::keyClicks(dialog->findChild<QLineEdit*>("user"), user);
      QTest::keyClicks(&field, password);
      QTest::keyClick(&field, key);
    });
    return prompt.Ask({"http://proxy:80/", "http://far.test/", attempt}, credentials);
  };
  ProxyCredentials credentials;
  EXPECT_EQ(ask(1, Qt::Key_Return, "ann", "open", credentials), ICredentialPrompt::kForceRetry);
  EXPECT_EQ(credentials.user, "ann");
  EXPECT_EQ(credentials.password, "open");
  EXPECT_EQ(ask(2, Qt::Key_Return, "", "other", credentials), ICredentialPrompt::kForceRetry);
  EXPECT_EQ(credentials.user, "ann") << "the user is kept";
  EXPECT_EQ(credentials.password, "other") << "the password is not";
  EXPECT_NE(ask(3, Qt::Key_Escape, "", "", credentials), ICredentialPrompt::kForceRetry);

  QTimer::singleShot(0, [] {
    QWidget* dialog = QApplication::activeModalWidget();
    ASSERT_NE(dialog, nullptr);
    for (const auto* field : dialog->findChildren<QLineEdit*>()) EXPECT_FALSE(field->isVisible());
    QTest::keyClick(dialog, Qt::Key_Escape);
  });
  EXPECT_EQ(prompt.Ask({"", "http://far.test/"}, credentials), 0u)
      << "nobody would get what is typed";
}

}  // namespace
}  // namespace qx
