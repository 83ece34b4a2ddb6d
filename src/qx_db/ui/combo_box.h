#pragma once
// A drop-down list, independent of the toolkit that shows it.

#include <vector>

#include "qx_db/ui/combo_window.h"

namespace qx {

/// Items with data, one of them selected or none. The window, when there is one, shows them; it is
/// told only what changed. Not copyable. Threads: that of the user interface.
class QXDB_API CComboBox {
 public:
  static constexpr int kNone = -1;
  /// What NotifyChangeToParent tells: the selection, or what can be selected, changed.
  static constexpr std::uint32_t kSelectionChanged = 1;

  CComboBox() = default;
  virtual ~CComboBox();
  CComboBox(const CComboBox&) = delete;
  CComboBox& operator=(const CComboBox&) = delete;

  // ---- the window -------------------------------------------------------------------------------

  /// Gives the list a window, which is not owned, in place of a former one. Null when the window
  /// ends: the items go with it.
  void Attach(IComboWindow* window);
  bool HasWindow() const { return window_ != nullptr; }
  /// To be called by the window when the user selects an item, -1 for none.
  void WindowSelected(int index);
  /// To be called by the window when the text of its edit field becomes another. The parent hears
  /// of it where that left the current item, or came back to it.
  void WindowEdited();
  /// Sends the parent window, without waiting, the command that the selection changed. Nothing
  /// happens without a window or a parent.
  void NotifyChangeToParent();

  // ---- items ------------------------------------------------------------------------------------

  /// Appends an item with data 0 and returns its index.
  int AddString(const CString& text);
  /// 1, or 0 for an index that is not there.
  int SetItemData(int index, ITR data);
  /// 0 for an index that is not there.
  ITR GetItemData(int index) const;
  CString GetLBText(int index) const;
  int GetCount() const { return static_cast<int>(items_.size()); }
  void ResetContent();
  const std::vector<ComboItem>& Items() const { return items_; }

  // ---- selection and edit field -----------------------------------------------------------------

  /// Index of the current item, -1 for none. There is none while the edit field holds another text
  /// than the item's: what is shown and what is selected never differ.
  int GetCurSel() const { return edited_ ? kNone : current_; }
  /// Selects an item; any index that is not there selects none. Returns the index or -1.
  int SetCurSel(int index);
  /// Text of the edit field; empty without a window.
  CString GetWindowText() const { return window_ ? window_->EditText() : CString(); }
  void SetWindowText(const CString& text);

 protected:
  /// The window shows changes made while one of these lives when the outermost ends, and hears
  /// nothing when in the end nothing changed.
  class Change {
   public:
    explicit Change(CComboBox& box);
    ~Change();
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

   private:
    CComboBox& box_;
    std::vector<ComboItem> items_;  // as they are shown
    int current_;
  };

  void AddItem(ComboItem item);
  /// The item selected last; the edit field may hold another text by now.
  const ComboItem* Selected() const { return At(current_); }
  /// The current item.
  const ComboItem* Current() const { return At(GetCurSel()); }
  IComboWindow* Window() const { return window_; }

  virtual void OnWindowAttached() {}
  /// The user selected another item. 0 lets the parent hear of it too.
  virtual int OnSelchange() { return 0; }

 private:
  const ComboItem* At(int index) const;
  void CompareText();
  void ShowItem(int index);

  IComboWindow* window_ = nullptr;
  std::vector<ComboItem> items_;
  int current_ = kNone;
  bool edited_ = false;  // the edit field holds another text than the item selected last
  int changes_ = 0;      // that are open
};

}  // namespace qx
