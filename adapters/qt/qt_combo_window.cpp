#include "adapters/qt/qt_combo_window.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QSignalBlocker>
#include <QtGui/QFontMetrics>
#include <QtGui/QScreen>
#include <QtWidgets/QAbstractItemView>
#include <QtWidgets/QCompleter>
#include <QtWidgets/QLayout>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QStyle>
#include <algorithm>

namespace qx {
namespace {

/// Proposes, in a list below the field, the items that hold what is typed in whatever case; in
/// place, the new name "Wall" would become "Wall 2". To the box it counts as one that knows case:
/// of any other Qt takes the leave to select "Wall" for a typed "wall" as the field loses the
/// focus.
class NameCompleter final : public QCompleter {
 public:
  NameCompleter(QtItemModel* names, QObject* parent) : QCompleter(names, parent) {
    setCompletionMode(PopupCompletion);
    setFilterMode(Qt::MatchContains);
    setCaseSensitivity(Qt::CaseSensitive);
    setCompletionRole(QtItemModel::kFoldedRole);
    setMaxVisibleItems(20);
  }
  QStringList splitPath(const QString& typed) const override { return {typed.toCaseFolded()}; }
  QString pathFromIndex(const QModelIndex& index) const override {
    return index.data(Qt::EditRole).toString();
  }
};

}  // namespace

QEvent::Type ComboCommandEvent::Kind() {
  static const auto kind = static_cast<QEvent::Type>(QEvent::registerEventType());
  return kind;
}

QtComboWindow::QtComboWindow(QComboBox& box, CComboBox& list, std::uint16_t control_id)
    : QObject(&box),
      box_(box),
      list_(&list),
      control_id_(control_id),
      model_(new QtItemModel(this)),
      popup_(box.view()->parentWidget()) {
  {
    const QSignalBlocker silence(box_);
    box_.setModel(model_);
  }
  box_.setInsertPolicy(QComboBox::NoInsert);
  // The closed box keeps its size: measuring every item at each change would cost more than showing
  // them, and move the dialog's layout.
  box_.setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  if (box_.minimumContentsLength() == 0) box_.setMinimumContentsLength(16);
  box_.setMaxVisibleItems(20);
  if (box_.completer()) box_.setCompleter(new NameCompleter(model_, this));
  connect(&box_, &QComboBox::currentIndexChanged, this, &QtComboWindow::OnCurrentIndexChanged);
  connect(&box_, &QComboBox::editTextChanged, this, &QtComboWindow::OnEditTextChanged);
  box_.installEventFilter(this);
  box_.view()->installEventFilter(this);
  popup_->installEventFilter(this);
  list_->Attach(this);
}

QtComboWindow::~QtComboWindow() {
  if (list_) list_->Attach(nullptr);
}

int QtComboWindow::FindKey(Key key) const {
  const auto& items = model_->Items();
  const auto found = std::find_if(items.begin(), items.end(),
                                  [&](const ComboItem& item) { return item.key == key; });
  return found == items.end() ? CComboBox::kNone : static_cast<int>(found - items.begin());
}

/// Changes what the box shows; a text that the user is typing stays as long as the selected record
/// does.
template <class Edit>
void QtComboWindow::Change(int selected, Edit&& edit) {
  const auto record_at = [&](int index) { return box_.itemData(index, QtItemModel::kRecordRole); };
  QLineEdit* const field = box_.lineEdit();
  const QString typed = box_.currentText();
  const bool typing = field && typed != box_.itemText(box_.currentIndex());
  const int cursor = field ? field->cursorPosition() : 0;
  const QVariant former = record_at(box_.currentIndex());
  const QSignalBlocker silence(box_);
  edit();
  width_known_ = false;
  Select(selected);
  if (typing && record_at(selected) == former) {
    field->setText(typed);
    field->setCursorPosition(cursor);
  }
}

void QtComboWindow::ShowItems(std::span<const ComboItem> items, int selected) {
  Change(selected, [&] { model_->SetItems(items); });
}

void QtComboWindow::ShowItem(std::span<const ComboItem> items, int index) {
  // Of its own accord a box selects the first item that it gets.
  Change(index_, [&] { model_->SetItem(index, items[static_cast<std::size_t>(index)]); });
}

void QtComboWindow::Select(int index) {
  const QSignalBlocker silence(box_);
  index_ = index;
  box_.setCurrentIndex(index);
  // An unchanged index leaves the text as it was typed.
  if (box_.isEditable()) box_.setEditText(box_.itemText(index));
}

void QtComboWindow::SetEditText(const CString& text) {
  const QSignalBlocker silence(box_);
  if (box_.isEditable()) box_.setEditText(ToQt(text.View()));
}

void QtComboWindow::FitWidth() {
  // Measuring ten thousand texts takes longer than listing them: it waits until they are seen.
  if (!width_known_ && popup_->isVisible()) WidenPopup();
}

int QtComboWindow::WidestItem() const {
  const QFontMetrics metrics = box_.view()->fontMetrics();
  int widest = 0;
  for (const ComboItem& item : model_->Items()) {
    widest = std::max(widest, metrics.horizontalAdvance(ToQt(item.text)));
  }
  const QStyle& style = *box_.style();
  const int margin = style.pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, &box_) +
                     style.pixelMetric(QStyle::PM_DefaultFrameWidth, nullptr, &box_) + 2;
  return widest + 2 * margin + style.pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, &box_);
}

void QtComboWindow::WidenPopup() {
  if (!width_known_) box_.view()->setMinimumWidth(WidestItem());
  width_known_ = true;
  // The layout keeps the former minimum until it is asked.
  if (QLayout* layout = popup_->layout()) layout->activate();
  const QRect screen = box_.screen()->availableGeometry();
  QRect place = popup_->geometry();
  const int width = std::max(box_.width(), popup_->minimumSizeHint().width());
  place.setWidth(std::min(width, screen.width()));
  if (place.right() > screen.right()) place.moveRight(screen.right());
  popup_->setGeometry(place);
}

void QtComboWindow::PostToParent(std::uint32_t command) {
  const auto low = static_cast<std::uint16_t>(command & 0xFFFF);
  const auto high = static_cast<std::uint16_t>(command >> 16);
  QCoreApplication::postEvent(box_.parentWidget(), new ComboCommandEvent(low, high, &box_));
  QMetaObject::invokeMethod(
      this, [this, low, high] { emit Commanded(low, high); }, Qt::QueuedConnection);
}

void QtComboWindow::OnCurrentIndexChanged(int index) {
  index_ = index;
  if (list_) list_->WindowSelected(index);
}

void QtComboWindow::OnEditTextChanged() {
  // The text of another item comes before the word that it is selected, which tells all.
  if (list_ && box_.currentIndex() == index_) list_->WindowEdited();
}

bool QtComboWindow::eventFilter(QObject* watched, QEvent* event) {
  const QEvent::Type type = event->type();
  if (watched == popup_) {
    if (type == QEvent::Show) WidenPopup();
  } else if (type == QEvent::FontChange || type == QEvent::StyleChange ||
             type == QEvent::ScreenChangeInternal) {
    width_known_ = false;
    FitWidth();
  }
  return QObject::eventFilter(watched, event);
}

}  // namespace qx
