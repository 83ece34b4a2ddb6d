#pragma once
// A window that keeps what it is shown and counts what it is told.

#include <string>
#include <vector>

#include "qx_db/ui/combo_box.h"

namespace qx {

class FakeWindow final : public IComboWindow {
 public:
  explicit FakeWindow(CComboBox& list, std::uint16_t id = 7) : list_(&list), id_(id) {
    list_->Attach(this);
  }
  ~FakeWindow() override {
    if (list_) list_->Attach(nullptr);
  }

  // ---- what the user does -----------------------------------------------------------------------

  void Pick(int index) {
    selected = index;
    edit = index < 0 ? u"" : items[static_cast<std::size_t>(index)].text;
    list_->WindowSelected(index);
  }
  void Type(std::u16string text) {
    edit = std::move(text);
    list_->WindowEdited();
  }

  // ---- IComboWindow -----------------------------------------------------------------------------

  void ShowItems(std::span<const ComboItem> shown, int index) override {
    items.assign(shown.begin(), shown.end());
    ++shows;
    Show(index);
  }
  void ShowItem(std::span<const ComboItem> shown, int index) override {
    const auto at = static_cast<std::size_t>(index);
    if (at == items.size()) items.emplace_back();
    items.at(at) = shown[at];
    ++item_shows;
  }
  void Select(int index) override {
    ++selects;
    Show(index);
  }
  CString EditText() const override { return CString(edit); }
  void SetEditText(const CString& text) override { edit = text.View(); }
  void FitWidth() override { ++fits; }
  std::uint16_t ControlId() const override { return id_; }
  bool HasParent() const override { return has_parent; }
  void PostToParent(std::uint32_t command) override { posted.push_back(command); }
  void ListGone() override { list_ = nullptr; }

  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const ComboItem& item : items) texts.push_back(Utf8(item.text));
    return texts;
  }
  std::string SelectedText() const {
    return selected < 0 ? "" : Utf8(items.at(static_cast<std::size_t>(selected)).text);
  }
  bool HasList() const { return list_ != nullptr; }

  std::vector<ComboItem> items;
  int selected = CComboBox::kNone;
  std::u16string edit;
  bool has_parent = true;
  int shows = 0;
  int item_shows = 0;
  int selects = 0;
  int fits = 0;
  std::vector<std::uint32_t> posted;

 private:
  void Show(int index) {
    selected = index;
    edit = index < 0 ? u"" : items.at(static_cast<std::size_t>(index)).text;
  }

  CComboBox* list_;
  std::uint16_t id_;
};

}  // namespace qx
