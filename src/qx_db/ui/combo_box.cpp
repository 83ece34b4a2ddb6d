#include "qx_db/ui/combo_box.h"

#include <utility>

namespace qx {

IComboWindow::~IComboWindow() = default;

CComboBox::~CComboBox() {
  if (window_) window_->ListGone();
}

// ---- the window ---------------------------------------------------------------------------------

void CComboBox::Attach(IComboWindow* window) {
  if (window == window_) return;
  if (IComboWindow* former = std::exchange(window_, nullptr); former && window) former->ListGone();
  items_.clear();
  current_ = kNone;
  edited_ = false;
  window_ = window;
  if (window_) OnWindowAttached();
}

void CComboBox::WindowSelected(int index) {
  current_ = At(index) ? index : kNone;
  CompareText();
  if (OnSelchange() == 0) NotifyChangeToParent();
}

void CComboBox::WindowEdited() {
  const bool was_edited = edited_;
  CompareText();
  if (edited_ != was_edited) NotifyChangeToParent();
}

void CComboBox::CompareText() {
  const ComboItem* item = At(current_);
  edited_ = window_ && item && window_->EditText().View() != item->text;
}

void CComboBox::NotifyChangeToParent() {
  if (!window_ || !window_->HasParent()) return;
  window_->PostToParent(kSelectionChanged << 16 | window_->ControlId());
}

// ---- items --------------------------------------------------------------------------------------

const ComboItem* CComboBox::At(int index) const {
  return index >= 0 && index < GetCount() ? &items_[static_cast<std::size_t>(index)] : nullptr;
}

void CComboBox::AddItem(ComboItem item) {
  items_.push_back(std::move(item));
  ShowItem(GetCount() - 1);
}

/// Tells the window of one item at once, so that filling a list item by item takes no longer than
/// it must; a change that is open tells of all.
void CComboBox::ShowItem(int index) {
  if (!window_ || changes_ > 0) return;
  window_->ShowItem(items_, index);
  CompareText();
}

int CComboBox::AddString(const CString& text) {
  AddItem({std::u16string(text.View())});
  return GetCount() - 1;
}

int CComboBox::SetItemData(int index, ITR data) {
  if (!At(index)) return 0;
  ITR& held = items_[static_cast<std::size_t>(index)].data;
  if (std::exchange(held, data) != data) ShowItem(index);
  return 1;
}

ITR CComboBox::GetItemData(int index) const {
  const ComboItem* item = At(index);
  return item ? item->data : 0;
}

CString CComboBox::GetLBText(int index) const {
  const ComboItem* item = At(index);
  return item ? CString(item->text) : CString();
}

void CComboBox::ResetContent() {
  Change change(*this);
  items_.clear();
  current_ = kNone;
}

// ---- selection and edit field -------------------------------------------------------------------

int CComboBox::SetCurSel(int index) {
  current_ = At(index) ? index : kNone;
  if (window_ && changes_ == 0) {
    window_->Select(current_);
    CompareText();
  }
  return current_;
}

void CComboBox::SetWindowText(const CString& text) {
  if (window_) window_->SetEditText(text);
  CompareText();
}

// ---- changes ------------------------------------------------------------------------------------

CComboBox::Change::Change(CComboBox& box) : box_(box), current_(box.current_) {
  if (box_.changes_++ == 0 && box_.window_) items_ = box_.items_;
}

CComboBox::Change::~Change() {
  if (--box_.changes_ > 0 || !box_.window_) return;
  if (items_ != box_.items_) {
    box_.window_->ShowItems(box_.items_, box_.current_);
  } else if (current_ != box_.current_) {
    box_.window_->Select(box_.current_);
  }
  box_.CompareText();
}

}  // namespace qx
