#include "qx_db/pool/pool_base.h"

#include <algorithm>

#include "qx_db/core/relations.h"
#include "qx_db/core/session.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/pool/deletor.h"
#include "qx_db/record/verbs.h"

namespace qx {

std::u16string IONameOf(std::string_view record_name) {
  for (const std::string_view prefix : {"tagT", "tag"}) {
    if (!record_name.starts_with(prefix)) continue;
    record_name.remove_prefix(prefix.size());
    break;
  }
  return u"_" + Utf16(AsciiUpper(record_name));
}

DPoolBase::DPoolBase(std::uint16_t type, CQXDBSession* session)
    : session_(session), type_(type), recorder_(session) {}

DPoolBase::~DPoolBase() = default;

ITR DPoolBase::GetItr(const char16_t* name) {
  const std::u16string_view wanted(name ? name : u"");
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (KeyedSetBase::RecordAt(pos)->GetName().View() == wanted) return pos;
  }
  return 0;
}

int DPoolBase::ProcessRelation() { return session_ ? session_->Follow().Process(*this) : 1; }

bool DPoolBase::WasEdited(std::uint32_t mask) const {
  const bool processing = session_ && session_->IsProcessingRelations();
  return ((processing ? edited_flags_ : change_flags_) & mask) != 0;
}

ITR DPoolBase::InsertNUCustom(const TStructBase*) { return 0; }
void DPoolBase::OnAfterActive(unsigned long, void*) {}
void DPoolBase::OnAfterLoad(unsigned long, void*) {}
void DPoolBase::OnAfterUndoRedo() {}
void DPoolBase::ConvertA2D() {}
void DPoolBase::ConvertD2A() {}
int DPoolBase::AddDefault() { return 1; }
int DPoolBase::NeedSaveNLoad() const { return 1; }
int DPoolBase::CheckElemType(ITR, std::vector<std::uint32_t>&) { return 0; }
std::int32_t DPoolBase::GetItrBySet(ITR, TArray<ITR>&) { return 0; }
int DPoolBase::IsExtDB() const { return 0; }
void DPoolBase::RemoveAllExtDB() {}
void DPoolBase::SetExtHashSize(std::int32_t) {}
std::int32_t DPoolBase::GetExtDBIdName(TArray<Key>&, CStringArray&) { return 0; }

void DPoolBase::ReserveHash(std::int64_t records) {
  const auto most = static_cast<std::int32_t>(std::min<std::int64_t>(records, kMaxKey));
  if (most > set_->HashSize()) set_->SetHashSize(most);
}

std::int32_t DPoolBase::ListKeys(TArray<Key>& out, bool sorted) {
  const bool beside = sorted && !MayRearrange();
  set_->GetKeyList(out, sorted && !beside);
  if (beside) std::sort(out.begin(), out.end());
  return out.GetSize();
}

std::int32_t DPoolBase::ListItems(TArray<ITR>& out, bool sorted) {
  const bool beside = sorted && !MayRearrange();
  set_->GetItrList(out, sorted && !beside);
  if (beside) {
    std::stable_sort(out.begin(), out.end(), [](ITR a, ITR b) { return KeyOf(a) < KeyOf(b); });
  }
  return out.GetSize();
}

CString DPoolBase::GetAPIName() const {
  std::u16string_view name(GetIOName());
  if (name.starts_with(u'_')) name.remove_prefix(1);
  return CString(name);
}

void DPoolBase::TArrayK2TArrayITR(const TArray<Key>& keys, TArray<ITR>& out) const {
  out.SetSize(keys.GetSize());
  set_->FindMany({keys.data(), keys.size()}, {out.data(), out.size()});
}

namespace {

/// The step among those from `begin` to `end` that did the operation to the item; null for none.
template <class Steps>
const Step* StepOf(Steps begin, Steps end, ITR item, std::uint16_t operation) {
  for (; begin != end; ++begin) {
    const auto& changes = begin->changes;
    if (std::any_of(changes.begin(), changes.end(), [&](const Change& change) {
          return change.item == item && change.operation == operation;
        })) {
      return &*begin;
    }
  }
  return nullptr;
}

}  // namespace

StampCheck DPoolBase::Check(const RecordStamp& stamp) const {
  if (!set_->IsAlive(stamp)) return {};
  if (!KeyedSetBase::IsRemoved(stamp.item)) return {true, {}, 0};
  StampCheck gone;
  if (!session_) return gone;
  // What is detached belongs to the open step or a done one that removed it, or to an undone one
  // that inserted it.
  const Journal& history = session_->History();
  const auto& done = history.Done();
  const Step* step = nullptr;
  if (history.IsOpen()) {
    step = StepOf(&history.Current(), &history.Current() + 1, stamp.item, tagTRNotify::kRemoved);
  }
  if (!step) step = StepOf(done.rbegin(), done.rend(), stamp.item, tagTRNotify::kRemoved);
  if (!step) {
    const auto& undone = history.Undone();
    step = StepOf(undone.begin(), undone.end(), stamp.item, tagTRNotify::kInserted);
  }
  if (!step) return gone;
  gone.removed_by = step->name;
  gone.step = step->number;
  return gone;
}

DeletorBase::~DeletorBase() = default;

int DeletorBase::Delete(const TArray<ITR>& items) {
  CTransaction transaction(pool_.GetSession());
  if (!transaction.Begin(qxLoadText("IDS_QX_TRANS_DELETE").c_str())) return 0;
  for (const ITR item : items) {
    if (item == 0 || KeyedSetBase::IsRemoved(item)) continue;
    if (!pool_.Remove(item)) return 0;
  }
  return transaction.Commit();
}

}  // namespace qx
