#include "qx_db/model/mesh_set_pool.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <unordered_set>

#include "qx_db/core/session.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/mesh_set_import.h"
#include "qx_db/platform/stdio_file.h"

namespace qx {
namespace {

constexpr std::int32_t kColors[] = {
    0xF2A6CA, 0xE8A200, 0xAFFFE2, 0x87FAFD, 0xF2F4C4, 0xFFC0A0, 0x57C0FF, 0xB0AFFF, 0xFF5794,
    0xCBC5B6, 0x5F75EB, 0xFF8000, 0x0080C0, 0x808000, 0x4F71FF, 0x00C0C0, 0xD8AFFF, 0xD1597D,
    0xC000FF, 0x00C055, 0x77471A, 0x0080FF, 0xC09D00, 0x8000C0, 0xC0C000, 0xFFA0A3, 0xA0C0FF,
    0x00C080, 0x5757FF, 0x398000, 0xC08000, 0x0048C0, 0xD2D2D2, 0xC000C0, 0xC00055, 0xFFA0D4,
};

bool IsDigit(char16_t unit) { return unit >= u'0' && unit <= u'9'; }

/// The value of the leading digits, at the largest 64-bit number when they are more.
std::int64_t LeadingNumber(std::u16string_view text) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  std::int64_t value = 0;
  for (const char16_t unit : text) {
    if (!IsDigit(unit)) break;
    const std::int64_t digit = unit - u'0';
    value = value > (kMost - digit) / 10 ? kMost : value * 10 + digit;
  }
  return value;
}

/// The first 63 units up to a zero, as a name is compared.
std::u16string_view Compared(std::u16string_view name) {
  return name.substr(0, std::min(name.find(u'\0'), DPoolMset::kLongestName));
}

std::u16string_view View(const char16_t* text) { return text ? text : u""; }

}  // namespace

DPoolMset::DPoolMset(CQXDBSession* session) : DPoolPlain(session) {}
DPoolMset::~DPoolMset() = default;

// ---- the default mesh set -----------------------------------------------------------------------

int DPoolMset::AddDefault() {
  tagTMset set;
  set.key = kDefaultKey;
  set.name.Set(qxLoadText("IDS_QX_DB_DEFAULT_MESH").View());
  return InsertNU(set) != 0;
}

Key DPoolMset::NewSetKey() const {
  const Key next = GetNewKey();
  return next > kDefaultKey ? next : Set().GetNewKeyUp(kDefaultKey + 1);
}

// ---- names and colours --------------------------------------------------------------------------

int DPoolMset::CheckName(const char16_t* name) const {
  const std::u16string_view wanted = Compared(View(name));
  if (AreNamesKnown()) return used_names_.contains(std::u16string(wanted));
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (GetAtNU(pos).name.View() == wanted) return 1;
  }
  return 0;
}

void DPoolMset::GetStrAndNumber(TString<64>& name, int& number) {
  number = 0;
  const std::u16string text(name.View());
  for (std::size_t i = text.size(); i-- > 1;) {
    if (text[i] != u'-' || i + 1 == text.size() || !IsDigit(text[i + 1])) continue;
    const auto low = static_cast<std::uint32_t>(LeadingNumber(text.substr(i + 1)));
    number = static_cast<int>(low);
    name.Set(text.substr(0, i));
    return;
  }
}

std::int32_t DPoolMset::GetNewColor() {
  static std::atomic<std::uint32_t> next{0};  // of the process: sessions of any thread ask
  return kColors[next++ % std::size(kColors)];
}

/// The next colour that no set has, so that sets look different also where the counter starts anew
/// with every program; simply the next where all are taken.
std::int32_t DPoolMset::NextFreeColor() const {
  // Once all of the table are taken nothing more is to be learned from the sets.
  std::set<std::int32_t> taken;
  for (ITR pos = GetHeadPosition(); pos && taken.size() < std::size(kColors); Next(pos)) {
    const std::int32_t color = GetAtNU(pos).color;
    if (std::find(std::begin(kColors), std::end(kColors), color) != std::end(kColors)) {
      taken.insert(color);
    }
  }
  std::int32_t color = GetNewColor();
  for (std::size_t i = 1; i < std::size(kColors) && taken.contains(color); ++i) {
    color = GetNewColor();
  }
  return color;
}

void DPoolMset::NoteName(std::u16string_view name) {
  used_names_.emplace(name);
  TString<64> base(name);
  int number = 0;
  GetStrAndNumber(base, number);
  const auto [entry, is_new] = names_.emplace(base.View(), number);
  if (!is_new) entry->second = std::max(entry->second, number);
}

void DPoolMset::ReBuildMap() {
  names_.clear();
  used_names_.clear();
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) NoteName(GetAtNU(pos).name.View());
  names_revision_ = Set().Revision();
}

CString DPoolMset::GetNewCopyName(const char16_t* name) {
  if (!AreNamesKnown()) ReBuildMap();
  TString<64> base(View(name));
  int number = 0;
  GetStrAndNumber(base, number);
  const auto known = names_.find(base.View());
  if (known == names_.end()) return base.Text();
  const std::int64_t next = std::int64_t{known->second} + 1;
  return CString(std::u16string(base.View()) + Utf16("-" + std::to_string(next)));
}

std::u16string DPoolMset::FreeName(std::u16string_view name) {
  if (!AreNamesKnown()) ReBuildMap();
  TString<64> fitting(name);
  if (!CheckName(fitting.units)) return std::u16string(fitting.View());
  std::u16string copy(GetNewCopyName(fitting.units).View());
  if (copy.size() <= kLongestName && !CheckName(copy.c_str())) return copy;
  // Too long with its number: the base gives way, the more so the more digits the number has.
  int number = 0;
  GetStrAndNumber(fitting, number);
  const std::u16string_view base = fitting.View();
  for (std::int64_t next = 1;;) {
    const std::u16string tail = Utf16("-" + std::to_string(next));
    std::u16string_view cut = base.substr(0, kLongestName - tail.size());
    const bool splits_pair =
        cut.size() < base.size() && cut.back() >= 0xD800 && cut.back() <= 0xDBFF;
    if (splits_pair) cut.remove_suffix(1);
    copy = std::u16string(cut) + tail;
    if (!CheckName(copy.c_str())) return copy;
    // On from the highest number of that base, by one digit at most: then the base is another.
    const auto known = names_.find(cut);
    const std::int64_t highest = known == names_.end() ? 0 : known->second;
    std::int64_t more_digits = 10;
    while (more_digits <= next) more_digits *= 10;
    next = std::clamp(highest + 1, next + 1, more_digits);
  }
}

int DPoolMset::NameApart(std::span<const ITR> items, std::vector<ITR>& renamed) {
  const std::unordered_set<ITR> came(items.begin(), items.end());
  std::unordered_set<std::u16string> taken;
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (!came.contains(pos)) taken.emplace(GetAtNU(pos).name.View());
  }
  for (const ITR pos : items) {
    const std::u16string name(GetAtNU(pos).name.View());
    if (name.empty() || taken.insert(name).second) continue;
    tagTMset set = GetAtNU(pos);
    set.name.Set(FreeName(name));
    if (!SetAtNU(pos, set)) return 0;
    taken.emplace(set.name.View());
    renamed.push_back(pos);
    // The name that it gives up stays in use: by the one that had it before.
    NoteName(set.name.View());
    names_revision_ = Set().Revision();
  }
  return 1;
}

bool DPoolMset::AcceptName(std::u16string_view name, ITR renamed) const {
  const char* fault = nullptr;
  if (name.empty()) {
    fault = "IDS_QX_DB_MSET_NAME_EMPTY";
  } else if (name.size() > kLongestName) {
    fault = "IDS_QX_DB_MSET_NAME_LONG";
  } else if (!AreNamesKnown() || used_names_.contains(std::u16string(name))) {
    for (ITR pos = GetHeadPosition(); pos && !fault; Next(pos)) {
      if (pos != renamed && GetAtNU(pos).name.View() == name) fault = "IDS_QX_DB_MSET_NAME_TAKEN";
    }
  }
  if (fault) qxMsgOut(Severity::kRefusal, fault, {Utf8(name), std::to_string(kLongestName)});
  return !fault;
}

// ---- looking up ---------------------------------------------------------------------------------

std::int32_t DPoolMset::GetItrListByParentMsetK(std::int32_t parent, TArray<ITR>& out) const {
  out.RemoveAll();
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (GetAtNU(pos).parent_key == parent) out.Add(pos);
  }
  return out.GetSize();
}

std::int32_t DPoolMset::GetItrListByParentMsetK(std::int32_t parent, std::list<ITR>& out) const {
  TArray<ITR> found;
  GetItrListByParentMsetK(parent, found);
  out.assign(found.begin(), found.end());
  return found.GetSize();
}

std::int32_t DPoolMset::GetItrListByNoParentMsetK(std::int32_t none, TArray<ITR>& out) const {
  out.RemoveAll();
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    const Key parent = GetAtNU(pos).parent_key;
    if (parent == none || !Find(parent)) out.Add(pos);
  }
  return out.GetSize();
}

int DPoolMset::GetItrByGeomItr(const ITR& geometry, ITR& out) const {
  out = 0;
  if (geometry == 0) return 0;
  for (ITR pos = GetHeadPosition(); pos && !out; Next(pos)) {
    if (GetAtNU(pos).geometry == geometry) out = pos;
  }
  return out != 0;
}

bool DPoolMset::Holds(ITR wanted) const {
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (pos == wanted) return true;
  }
  return false;
}

// ---- adding and changing ------------------------------------------------------------------------

int DPoolMset::InStep(const char* text_key, const std::function<int()>& work) {
  CTransaction step(GetSession());
  if (!step.Begin(qxLoadText(text_key).c_str())) return 0;
  return work() ? step.Commit(1) : 0;  // ending without a commit rolls back
}

int DPoolMset::TR_Add(const char16_t* name, Key parent, ITR& out) {
  out = 0;
  if (!AreNamesKnown()) ReBuildMap();  // once for a run of additions
  if (!AcceptName(View(name), 0)) return 0;
  if (parent != 0 && !Find(parent)) {
    qxMsgOut(Severity::kRefusal, "IDS_QX_DB_MSET_NO_PARENT", {std::to_string(parent)});
    return 0;
  }
  tagTMset set;
  set.key = NewSetKey();
  set.name.Set(View(name));
  set.parent_key = parent;
  ITR added = 0;
  const int done = InStep("IDS_QX_TRANS_Add_Mesh_Set", [&] {
    set.color = NextFreeColor();
    added = InsertNU(set);
    return added != 0;
  });
  if (done) out = added;
  return done;
}

int DPoolMset::TR_Rename(const ITR& set, const char16_t* name) {
  if (!Holds(set) || !AcceptName(View(name), set)) return 0;
  return InStep("IDS_QX_TRANS_Modify_Mesh_Set", [&] {
    tagTMset changed = GetAtNU(set);
    changed.name.Set(View(name));
    return SetAtNU(set, changed);
  });
}

int DPoolMset::TR_SetParent(const ITR& set, Key parent) {
  if (!Holds(set)) return 0;
  if (parent != 0 && !Find(parent)) {
    qxMsgOut(Severity::kRefusal, "IDS_QX_DB_MSET_NO_PARENT", {std::to_string(parent)});
    return 0;
  }
  return InStep("IDS_QX_TRANS_Modify_Mesh_Set", [&] {
    tagTMset changed = GetAtNU(set);
    changed.parent_key = parent;
    return SetAtNU(set, changed);
  });
}

// ---- for the session ----------------------------------------------------------------------------

ITR DPoolMset::InsertNU(const tagTMset& record) {
  const bool names_known = AreNamesKnown();
  const ITR pos = DPoolPlain::InsertNU(record);
  if (pos != 0 && names_known) {
    NoteName(GetAtNU(pos).name.View());
    names_revision_ = Set().Revision();
  }
  return pos;
}

void DPoolMset::OnAfterLoad(unsigned long, void*) { RemoveAllExtDB(); }

// ---- sets of another model file -----------------------------------------------------------------

int DPoolMset::LoadExtDB(const char16_t* file, TArray<std::int32_t>& keys, CStringArray& names) {
  keys.RemoveAll();
  names.RemoveAll();
  auto opened = ExternalMeshSets::Open(Utf8(View(file)), GetSession()->Setup());
  if (!opened) {
    qxMsgOut(Severity::kError, "IDS_QX_DB_MSET_EXTERNAL_FILE", {opened.Error().Line()});
    return 0;
  }
  external_ = std::move(*opened);
  GetExtDBIdName(keys, names);
  return 1;
}

std::int32_t DPoolMset::GetExtDBIdName(TArray<Key>& ids, CStringArray& names) {
  ids.RemoveAll();
  names.RemoveAll();
  if (external_) external_->List(ids, names);
  return ids.GetSize();
}

void DPoolMset::RemoveAllExtDB() {
  external_.reset();
  DPoolPlain::RemoveAllExtDB();
}

int DPoolMset::Private_Import(const TArray<std::int32_t>& keys, int keep_keys, int with_children,
                              int parent) {
  if (!external_ || (parent != 0 && !Find(parent))) return 0;
  return external_->Import(*GetSession(), {keys.data(), keys.size()}, keep_keys != 0,
                           with_children != 0, parent);
}

const ImportReport* DPoolMset::LastImport() const {
  return external_ ? external_->Report() : nullptr;
}

int DPoolMset::TR_Import(const TArray<std::int32_t>& keys, int keep_keys, int with_children,
                         int parent) {
  return InStep("IDS_QX_TRANS_Import_Mesh_Set",
                [&] { return Private_Import(keys, keep_keys, with_children, parent); });
}

}  // namespace qx
