#pragma once
// The items of a selection list as Qt's views read them.
// Threads: that of the user interface.

#include <QtCore/QAbstractListModel>
#include <span>
#include <vector>

#include "qx_db/ui/combo_window.h"

namespace qx {

inline QString ToQt(std::u16string_view text) {
  return QString::fromUtf16(text.data(), static_cast<qsizetype>(text.size()));
}
inline CString FromQt(const QString& text) { return CString(text.toStdU16String()); }

/// A copy of the items of a list, with what differs from the former ones told to the views row by
/// row, so that they keep their place.
class QtItemModel final : public QAbstractListModel {
 public:
  /// Roles to find an item by, both qlonglong: the record and its key.
  static constexpr int kRecordRole = Qt::UserRole;
  static constexpr int kKeyRole = Qt::UserRole + 1;
  /// The text without case, to complete by.
  static constexpr int kFoldedRole = Qt::UserRole + 2;

  using QAbstractListModel::QAbstractListModel;

  void SetItems(std::span<const ComboItem> items);
  /// Puts one item behind the others, or in the place of one of them.
  void SetItem(int at, const ComboItem& item);
  const std::vector<ComboItem>& Items() const { return items_; }

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;

 private:
  std::vector<ComboItem> items_;
};

}  // namespace qx
