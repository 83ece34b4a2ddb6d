#pragma once
// A selection list on a QComboBox.
// Threads: that of the user interface.

#include <QtCore/QEvent>
#include <QtCore/QPointer>
#include <QtWidgets/QComboBox>

#include "qx_db/ui/combo_box.h"

#include "adapters/qt/qt_item_model.h"

namespace qx {

/// What a list tells its parent window, as an event: override QWidget::customEvent to hear it, or
/// connect to QtComboWindow::Commanded.
class ComboCommandEvent final : public QEvent {
 public:
  ComboCommandEvent(std::uint16_t control_id, std::uint16_t what, QComboBox* source)
      : QEvent(Kind()), control_id_(control_id), what_(what), source_(source) {}
  static QEvent::Type Kind();

  std::uint16_t ControlId() const { return control_id_; }
  /// CComboBox::kSelectionChanged.
  std::uint16_t What() const { return what_; }
  /// Null when it is gone since.
  QComboBox* Source() const { return source_; }

 private:
  std::uint16_t control_id_;
  std::uint16_t what_;
  QPointer<QComboBox> source_;
};

/// The window of a list on a combo box, which owns it: `new QtComboWindow(box, list, id)`. The box
/// shows the items through a model of its own and stays free for the caller's connections, style
/// and shortcuts. One that was made editable before takes what is typed as a name, completed by a
/// list below it and never by itself; as long as that is not the name of the item selected, no item
/// is current. Leaving the field selects an item of exactly that name, where there is one, and
/// keeps the name otherwise. The list may end before the box or after it.
class QtComboWindow final : public QObject, public IComboWindow {
  Q_OBJECT
 public:
  QtComboWindow(QComboBox& box, CComboBox& list, std::uint16_t control_id);
  ~QtComboWindow() override;

  /// Index of the item of a record's key, -1 for none.
  int FindKey(Key key) const;

  void ShowItems(std::span<const ComboItem> items, int selected) override;
  void ShowItem(std::span<const ComboItem> items, int index) override;
  void Select(int index) override;
  CString EditText() const override { return FromQt(box_.currentText()); }
  void SetEditText(const CString& text) override;
  void FitWidth() override;
  std::uint16_t ControlId() const override { return control_id_; }
  bool HasParent() const override { return box_.parentWidget() != nullptr; }
  void PostToParent(std::uint32_t command) override;
  void ListGone() override { list_ = nullptr; }

 Q_SIGNALS:
  /// The same as the event that the parent widget gets, for those who are not the parent: a dialog
  /// whose boxes stand in a group or on a page. Comes once the current event is over.
  void Commanded(quint16 control_id, quint16 what);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void OnCurrentIndexChanged(int index);
  void OnEditTextChanged();
  template <class Edit>
  void Change(int selected, Edit&& edit);
  int WidestItem() const;
  void WidenPopup();

  QComboBox& box_;
  CComboBox* list_;
  std::uint16_t control_id_;
  int index_ = CComboBox::kNone;  // that the list knows of
  QtItemModel* model_;
  QWidget* popup_;  // that the list opens in
  bool width_known_ = false;
};

}  // namespace qx
