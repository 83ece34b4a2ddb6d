#include "examples/selection_dialog.h"

#include <QtWidgets/QComboBox>
#include <QtWidgets/QFormLayout>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QPushButton>

#include "adapters/qt/qt_combo_window.h"

namespace qx {

SelectionDialog::SelectionDialog(CQXDBSession& session, QWidget* parent)
    : QDialog(parent), session_(session) {
  setWindowTitle("Apply a Boundary Set");
  auto* form = new QFormLayout(this);
  mesh_sets_.SetParentName(1);
  systems_.EnableECord(1);
  AddBox(*form, "&Mesh set", "mesh_set", mesh_sets_, kMeshSet, false);
  set_box_ = AddBox(*form, "&Boundary set", "boundary_set", sets_, kSet, true);
  AddBox(*form, "M&aterial", "material", materials_, kMaterial, false);
  AddBox(*form, "&Coordinate system", "coordinate_system", systems_, kSystem, false);
  set_box_->lineEdit()->setPlaceholderText("Type a name to make a set");
  set_box_->lineEdit()->setMaxLength(63);
  connect(set_box_->lineEdit(), &QLineEdit::returnPressed, this, &SelectionDialog::TakeSet);

  const auto button = [&](const char* text, const char* name) {
    auto* made = new QPushButton(text);
    made->setObjectName(name);
    made->setAutoDefault(false);  // Enter in the field makes a set
    return made;
  };
  undo_ = button("&Undo", "undo");
  redo_ = button("&Redo", "redo");
  connect(undo_, &QPushButton::clicked, this, [this] { session_.Undo(), ShowState(); });
  connect(redo_, &QPushButton::clicked, this, [this] { session_.Redo(), ShowState(); });
  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  buttons->addWidget(undo_);
  buttons->addWidget(redo_);
  chosen_ = new QLabel;
  chosen_->setObjectName("chosen");
  chosen_->setTextFormat(Qt::PlainText);
  form->addRow(chosen_);
  form->addRow(buttons);

  for (SelectionList* list :
       std::initializer_list<SelectionList*>{&mesh_sets_, &sets_, &materials_, &systems_}) {
    list->SetDB(&session_);
  }
  ShowState();
}

QComboBox* SelectionDialog::AddBox(QFormLayout& form, const QString& label, const char* name,
                                   CComboBox& list, Control id, bool editable) {
  auto* box = new QComboBox;
  box->setObjectName(name);
  box->setEditable(editable);
  form.addRow(label, box);
  new QtComboWindow(*box, list, id);
  return box;
}

void SelectionDialog::TakeSet() {
  ITR set = 0;
  sets_.GetSelectedBsetOrCreate(set);
  ShowState();
}

void SelectionDialog::customEvent(QEvent* event) {
  if (event->type() == ComboCommandEvent::Kind()) ShowState();
  QDialog::customEvent(event);
}

void SelectionDialog::ShowState() {
  ITR set = 0;
  ITR material = 0;
  sets_.GetSelectedBset(set);
  materials_.GetSelectedMatl(material);
  const auto key = [](ITR record) { return record ? QString::number(KeyOf(record)) : "none"; };
  chosen_->setText(QString("Boundary set: %1   Material: %2").arg(key(set), key(material)));
  undo_->setEnabled(session_.CanUndo());
  redo_->setEnabled(session_.CanRedo());
}

}  // namespace qx
