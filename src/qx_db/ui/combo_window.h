#pragma once
// What a drop-down list needs of a toolkit: a window that shows items and hears the user.

#include <span>
#include <string>

#include "qx_db/platform/text.h"
#include "qx_db/record/types.h"

namespace qx {

/// One line of a drop-down list.
struct ComboItem {
  std::u16string text;
  ITR data = 0;  ///< the record shown; 0 for a line that stands for none
  Key key = 0;   ///< its key; lines that stand for no record have keys of their own, not above 0
  friend bool operator==(const ComboItem&, const ComboItem&) = default;
};

/// The window of a CComboBox. Threads: that of the user interface. A window reports what
/// the user selects through CComboBox::WindowSelected, and what he types through WindowEdited;
/// nothing that it is told here.
class QXDB_API IComboWindow {
 public:
  virtual ~IComboWindow();

  /// Replaces what is shown by `items`, with `selected` (-1 for none) selected. Called only when
  /// one of them changed. An open list stays open, and a text that the user is typing stays as
  /// long as the selected record does.
  virtual void ShowItems(std::span<const ComboItem> items, int selected) = 0;
  /// Shows the item at `index` of `items`: a new one behind those that are shown, or one of them
  /// that is another now. The other items and the selection stay.
  virtual void ShowItem(std::span<const ComboItem> items, int index) = 0;
  /// Selects an item, -1 for none; the edit field shows its text.
  virtual void Select(int index) = 0;
  /// Text of the edit field; of the selected item where there is no such field.
  virtual CString EditText() const = 0;
  virtual void SetEditText(const CString& text) = 0;
  /// Makes the opened list as wide as its widest item. Cheap when no item changed.
  virtual void FitWidth() = 0;
  virtual std::uint16_t ControlId() const = 0;
  virtual bool HasParent() const = 0;
  /// Sends a command to the parent window, which gets it once the current event is over. Low word:
  /// the control's identifier; high word: what happened to it.
  virtual void PostToParent(std::uint32_t command) = 0;
  /// The list ends before its window, which must not call it any more.
  virtual void ListGone() = 0;
};

}  // namespace qx
