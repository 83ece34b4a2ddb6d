#include "adapters/qt/qt_item_model.h"

#include <algorithm>

namespace qx {

void QtItemModel::SetItems(std::span<const ComboItem> items) {
  const auto common = std::min(items.size(), items_.size());
  std::size_t head = 0;
  while (head < common && items[head] == items_[head]) ++head;
  std::size_t tail = 0;
  while (tail < common - head &&
         items[items.size() - 1 - tail] == items_[items_.size() - 1 - tail]) {
    ++tail;
  }
  const auto at = static_cast<int>(head);
  const auto begin = items_.begin() + at;
  const auto old_count = static_cast<int>(items_.size() - head - tail);
  const auto new_items = items.subspan(head, items.size() - head - tail);
  const auto new_count = static_cast<int>(new_items.size());
  const bool same_records = std::equal(
      begin, begin + old_count, new_items.begin(), new_items.end(),
      [](const ComboItem& a, const ComboItem& b) { return a.data == b.data && a.data != 0; });
  if (same_records && new_count > 0) {  // renamed
    std::copy(new_items.begin(), new_items.end(), begin);
    emit dataChanged(index(at), index(at + new_count - 1));
    return;
  }
  if (old_count > 0) {
    beginRemoveRows({}, at, at + old_count - 1);
    items_.erase(begin, begin + old_count);
    endRemoveRows();
  }
  if (new_count > 0) {
    beginInsertRows({}, at, at + new_count - 1);
    items_.insert(items_.begin() + at, new_items.begin(), new_items.end());
    endInsertRows();
  }
}

void QtItemModel::SetItem(int at, const ComboItem& item) {
  if (at == rowCount()) {
    beginInsertRows({}, at, at);
    items_.push_back(item);
    endInsertRows();
  } else {
    items_[static_cast<std::size_t>(at)] = item;
    emit dataChanged(index(at), index(at));
  }
}

int QtItemModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(items_.size());
}

QVariant QtItemModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  const ComboItem& item = items_[static_cast<std::size_t>(index.row())];
  switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
    case Qt::ToolTipRole:  // an item may be wider than the screen
      return ToQt(item.text);
    case kRecordRole:
      return static_cast<qlonglong>(item.data);
    case kKeyRole:
      return static_cast<qlonglong>(item.key);
    case kFoldedRole:
      return ToQt(item.text).toCaseFolded();
    default:
      return {};
  }
}

}  // namespace qx
