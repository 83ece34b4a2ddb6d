#include "qx_db/ui/selection_list.h"

#include <algorithm>
#include <array>
#include <utility>

#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/standard_pools.h"

namespace qx {
namespace {

// ---- what differs between the classes -----------------------------------------------------------

/// Puts a record of that name into a pool of its type; 0 when no key is left.
using CreateNamed = ITR (*)(DPoolBase& pool, std::u16string_view name);

template <class T>
ITR Named(DPoolBase& pool, std::u16string_view name) {
  auto& typed = static_cast<typename PoolOf<T>::type&>(pool);
  T record;
  record.key = typed.Set().GetFreeKey();
  record.name.Set(name);
  return typed.InsertNU(record);
}

struct ListKind {
  ComboFamily family;
  std::uint16_t pool;
  const char16_t* command;  ///< name of the step that creates a record; null: none is created
  CreateNamed create;
};

using enum ComboFamily;

constexpr ListKind kKinds[] = {
    {kMset, code::kMset, nullptr, nullptr},
    {kMatl, code::kMatl, nullptr, nullptr},
    {kGset, code::kGset, u"GeometrySet", Named<tagTGset>},
    {kBset, code::kBset, u"BoundarySet", Named<tagTBset>},
    {kLset, code::kLset, u"LoadSet", Named<tagTLset>},
    {kDset, code::kDset, u"DynamicSet", Named<tagTDset>},
    {kTset, code::kTset, u"ThermalSet", Named<tagTTset>},
    {kProp, code::kProp, nullptr, nullptr},
    {kCord, code::kCord, nullptr, nullptr},
    {kCFDset, code::kCFDset, u"FluidSet", Named<tagTCFDset>},
    {kCFDPset, code::kCFDPset, u"FluidParticleSet", Named<tagTCFDPset>},
    {kFRset, code::kFRset, u"FrequencyResponseSet", Named<tagTFRset>},
    {kTTset, code::kTTTset, u"ThermalTransientSet", Named<tagTTTset>},
    {kEset, code::kEset, u"ElectricSet", Named<tagTEset>},
    {kTEset, code::kTEset, u"ThermoElectricSet", Named<tagTTEset>},
    {kViewPoint, code::kViewPoint, nullptr, nullptr},
    {kFunc, code::kFunc, nullptr, nullptr},
    {kFuncQX, code::kFunc, nullptr, nullptr},
};

constexpr bool InOrderOfFamilies() {
  int index = 0;
  for (const ListKind& kind : kKinds) {
    if (static_cast<int>(kind.family) != index++) return false;
  }
  return index == kComboFamilyCount;
}
static_assert(InOrderOfFamilies());

const ListKind& KindOf(ComboFamily family) { return kKinds[static_cast<std::size_t>(family)]; }

// ---- registries ---------------------------------------------------------------------------------

using Registry = std::vector<SelectionList*>;

/// Never destroyed: a list may be static and end after it.
std::array<Registry, kComboFamilyCount>& Registries() {
  static auto* const registries = new std::array<Registry, kComboFamilyCount>;
  return *registries;
}

Registry& RegistryOf(ComboFamily family) { return Registries()[static_cast<std::size_t>(family)]; }

template <int Family>
void Refresh(CQXDBSession* session) {
  SelectionList::RefreshAll(static_cast<ComboFamily>(Family), session);
}

/// Has the application's refresh reach the lists of this library. Once, when the first list is
/// made, so that a host may put a refresh of its own in the place of one afterwards.
template <int... Family>
bool HookIn(std::integer_sequence<int, Family...>) {
  (SetComboRefresh(static_cast<ComboFamily>(Family), Refresh<Family>), ...);
  return true;
}

bool IsBlank(std::u16string_view text) {
  return text.find_first_not_of(u" \t\r\n\u00A0") == text.npos;
}

}  // namespace

SelectionList::SelectionList(ComboFamily family) : family_(family) {
  static const bool hooked = HookIn(std::make_integer_sequence<int, kComboFamilyCount>());
  static_cast<void>(hooked);
  RegistryOf(family_).push_back(this);
}

SelectionList::~SelectionList() {
  if (session_) session_->RemoveView(*this);
  std::erase(RegistryOf(family_), this);
}

const SelectionList::Registry& SelectionList::Live(ComboFamily family) {
  return RegistryOf(family);
}

void SelectionList::RefreshAll(ComboFamily family, CQXDBSession* session) {
  // Who is not shown may be driven by any thread, and the lists are the user interface's.
  if (session && !session->HasViews()) return;
  const Registry& live = RegistryOf(family);
  // Those alive at the start, since an override of OnUpdateList may make and end lists: a new one
  // is up to date, an ended one is passed over.
  for (SelectionList* list : Registry(live)) {
    const bool lives = std::find(live.begin(), live.end(), list) != live.end();
    if (lives && list->session_ == session) list->OnUpdateList();
  }
}

// ---- binding and rebuilding ---------------------------------------------------------------------

void SelectionList::SetDB(CQXDBSession* session) {
  if (session != session_) {
    Store(nullptr);  // an iterator says nothing in another session
    if (session) session->AddView(*this);
    if (session_) session_->RemoveView(*this);
    session_ = session;
  }
  OnUpdateList();
}

void SelectionList::OnWindowAttached() {
  if (session_) OnUpdateList();
}

DPoolBase* SelectionList::Pool() const {
  return session_ ? session_->GetDataPool(KindOf(family_).pool) : nullptr;
}

void SelectionList::SetComboBoxList() {
  if (!HasWindow()) return;
  {
    const Change change(*this);
    ResetContent();
    if (session_ && HasSource()) {
      AddItems();
      Reselect();
    }
  }
  NotifyChangeToParent();
  Window()->FitWidth();
}

void SelectionList::AddItems() {
  const DPoolBase& pool = *Pool();
  for (ITR item = pool.GetHeadPosition(); item; pool.Next(item)) {
    const TStructBase& record = *KeyedSetBase::RecordAt(item);
    if (Admits(record)) AddRecord(item, KeyOf(item), record.GetName().View());
  }
}

void SelectionList::AddRecord(ITR item, Key key, std::u16string_view name) {
  AddItem({std::u16string(name), item, key});
}

void SelectionList::AddPseudoItem(std::string_view text_key, Key key) {
  AddItem({std::u16string(qxLoadText(text_key).View()), 0, key});
}

// ---- selection ----------------------------------------------------------------------------------

int SelectionList::Find(ITR data, Key key) const {
  int found = kNone;
  for (int i = 0; i < GetCount(); ++i) {
    const ComboItem& item = Items()[static_cast<std::size_t>(i)];
    if (item.data != data) continue;
    if (item.key == key) return i;
    if (found == kNone) found = i;
  }
  return found;
}

void SelectionList::Select(int index) {
  SetCurSel(index);
  OnSelchange();
}

int SelectionList::ChangeSelect(ITR item) {
  Select(Find(item, selected_key_));
  return Selected() ? 1 : 0;
}

void SelectionList::Reselect() {
  // What is not listed any more gives way to the first item, which may stand for no record.
  const int index = has_selection_ && !IsSelectedGone() ? Find(selected_, selected_key_) : kNone;
  Select(index == kNone && GetCount() > 0 ? 0 : index);
}

int SelectionList::OnSelchange() {
  Store(Selected());
  return 0;
}

void SelectionList::Store(const ComboItem* item) {
  has_selection_ = item != nullptr;
  selected_ = item ? item->data : 0;
  selected_key_ = item ? item->key : 0;
  DPoolBase* const pool = selected_ ? Pool() : nullptr;
  stamp_ = pool ? pool->Stamp(selected_) : RecordStamp();
}

/// Whether the record was freed, since it was selected or before. Data that an application adds are
/// no records.
bool SelectionList::IsSelectedGone() const {
  const DPoolBase* const pool = selected_ ? Pool() : nullptr;
  if (!pool) return false;
  const KeyedSetBase& set = pool->Set();
  return stamp_.generation != 0 ? !set.IsAlive(stamp_)
                                : set.Owns(selected_) && set.IsFree(selected_);
}

int SelectionList::GetSelected(ITR& out) const {
  const ComboItem* item = Current();
  if (item && item->data == selected_ && IsSelectedGone()) item = nullptr;
  out = item ? item->data : 0;
  return item ? 1 : 0;
}

int SelectionList::GetSelectedText(CString& out) const {
  const ComboItem* item = Current();
  out = item ? CString(item->text) : CString();
  return item ? 1 : 0;
}

// ---- creating -----------------------------------------------------------------------------------

int SelectionList::GetSelectedOrCreate(ITR& out, bool* created) {
  out = 0;
  if (created) *created = false;
  DPoolBase* const pool = Pool();
  const TString<64> name(GetWindowText().View());
  if (!pool || !HasWindow() || IsBlank(name.View())) return 0;
  const ComboItem* item = Selected();
  const bool is_selected =
      item && item->text == name.View() && pool->Set().IsLinked(item->data) && !IsSelectedGone();
  ITR record = is_selected ? item->data : pool->GetItr(name.units);
  if (!record) {
    record = Create(*pool, name.View());
    if (!record) return 0;
    if (created) *created = true;
  }
  // A host that refreshes after steps has listed a new record by now; one without does it here.
  if (Find(record, KeyOf(record)) == kNone) SetComboBoxList();
  ChangeSelect(record);
  out = record;
  return 1;
}

ITR SelectionList::Create(DPoolBase& pool, std::u16string_view name) {
  const ListKind& kind = KindOf(family_);
  CTransaction transaction(session_);
  if (!kind.create || !transaction.Begin(kind.command)) return 0;
  const ITR record = kind.create(pool, name);
  if (!record) return 0;
  // Selected before the step ends, so that the refresh at its end moves to it in one go.
  const ComboItem selected{{}, record, KeyOf(record)};
  Store(&selected);
  if (transaction.Commit()) return record;
  Store(Selected());
  return 0;
}

}  // namespace qx
