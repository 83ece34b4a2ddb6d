#pragma once
// The pattern of all lists that dialogs pick records from: bound to a session, following its pool.
// Threads: that of the user interface.

#include <vector>

#include "qx_db/callback/combo_refresh.h"
#include "qx_db/core/session.h"
#include "qx_db/ui/combo_box.h"

namespace qx {

/// A list of the records of one pool, with each record's iterator as its item's data. It is rebuilt
/// when it gets a session or a window, when an option changes, and when the application refreshes
/// its family; its selection follows the record, not the place. Every live list is registered with
/// its family from construction to destruction, and with its session as a view. A session that ends
/// before its lists is taken from them, as by SetDB(nullptr).
class QXDB_API SelectionList : public CComboBox, private SessionView {
 public:
  ~SelectionList() override;

  /// Binds the session, null for none, and rebuilds the list at once.
  void SetDB(CQXDBSession* session);
  CQXDBSession* GetDBSession() const { return session_; }
  virtual void OnUpdateList() { SetComboBoxList(); }
  /// Selects the item of a record. 1; or 0, with nothing selected, when none has it.
  int ChangeSelect(ITR item);
  /// Stores the selected item's data, 0 when nothing is selected: what a rebuild selects again.
  int OnSelchange() override;

  /// The live lists of a family in the order they were made.
  using Registry = std::vector<SelectionList*>;
  static const Registry& Live(ComboFamily family);
  /// Rebuilds the live lists of a family that are bound to the session.
  static void RefreshAll(ComboFamily family, CQXDBSession* session);

 protected:
  /// Keys of items that stand for no record; they have the data 0.
  static constexpr Key kWholeMesh = 0;
  static constexpr Key kElementSystem = -1;
  static constexpr Key kMaterialSystem = -2;

  explicit SelectionList(ComboFamily family);

  /// Rebuilds the list: nothing happens without a window.
  void SetComboBoxList();
  /// Sets an option, and rebuilds when that changed it.
  template <class T>
  void SetOption(T& option, T value) {
    if (option == value) return;
    option = std::move(value);
    SetComboBoxList();
  }

  /// The current item's data and 1; 0 and 0 without a current item, so also for a typed name and
  /// for a record that an open transaction has made and taken back.
  int GetSelected(ITR& out) const;
  /// The current item's text and 1; empty and 0 without a current item.
  int GetSelectedText(CString& out) const;
  /// The record with the name in the edit field, cut at 63 characters: of several the selected one,
  /// else the first; else a new one, made in one undoable step, when `created` becomes true. The
  /// record is selected. 0 and 0 for a name that is empty or blank, without a session or window,
  /// and when the model refuses.
  int GetSelectedOrCreate(ITR& out, bool* created = nullptr);

  // ---- what differs -----------------------------------------------------------------------------

  /// Whether what is listed can be asked for; without it the list is empty and keeps its selection.
  virtual bool HasSource() const { return Pool() != nullptr; }
  /// Adds the items; unless overridden, the admitted records in pool order by their names.
  virtual void AddItems();
  virtual bool Admits(const TStructBase&) const { return true; }

  DPoolBase* Pool() const;
  void AddRecord(ITR item, Key key, std::u16string_view name);
  /// Adds an item for no record, its text by resource key.
  void AddPseudoItem(std::string_view text_key, Key key);
  void OnWindowAttached() override;

 private:
  void OnSessionEnd() override { SetDB(nullptr); }
  int Find(ITR data, Key key) const;
  void Select(int index);
  void Reselect();
  void Store(const ComboItem* item);
  bool IsSelectedGone() const;
  ITR Create(DPoolBase& pool, std::u16string_view name);

  ComboFamily family_;
  CQXDBSession* session_ = nullptr;
  bool has_selection_ = false;
  ITR selected_ = 0;
  RecordStamp stamp_;     // of the record, which may go while another takes its place
  Key selected_key_ = 0;  // tells items of the data 0 apart
};

/// The operations that each class has of its own.
template <ComboFamily Family>
class TSelectionList : public SelectionList {
 public:
  /// Rebuilds the live lists of this class that are bound to the session.
  static void UpdateDB(CQXDBSession* session) { RefreshAll(Family, session); }
  /// The live lists of this class in the order they were made.
  inline static const Registry& m_slCtrl = SelectionList::Live(Family);

 protected:
  TSelectionList() : SelectionList(Family) {}
};

}  // namespace qx
