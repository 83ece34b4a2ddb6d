#pragma once
// A dialog that picks records of a model: its sets, materials and coordinate systems.

#include <QtWidgets/QDialog>

#include "qx_db/core/session.h"
#include "qx_db/ui/selection_lists.h"

class QComboBox;
class QFormLayout;
class QLabel;
class QPushButton;

namespace qx {

/// Shows the lists of a session, makes boundary sets by typing, undoes and redoes. The session
/// outlives the dialog.
class SelectionDialog final : public QDialog {
 public:
  explicit SelectionDialog(CQXDBSession& session, QWidget* parent = nullptr);

  QComboBox* SetBox() const { return set_box_; }

 protected:
  void customEvent(QEvent* event) override;

 private:
  enum Control : std::uint16_t { kMeshSet = 101, kSet, kMaterial, kSystem };

  QComboBox* AddBox(QFormLayout& form, const QString& label, const char* name, CComboBox& list,
                    Control id, bool editable);
  void TakeSet();
  void ShowState();

  CQXDBSession& session_;
  CCobxMset mesh_sets_;
  CCobxBset sets_;
  CCobxMatl materials_;
  CCobxCord systems_;
  QComboBox* set_box_;
  QPushButton* undo_;
  QPushButton* redo_;
  QLabel* chosen_;
};

}  // namespace qx
