#include "qx_db/pool/pool_base.h"

#include "qx_db/core/relations.h"
#include "qx_db/core/session.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/pool/deletor.h"

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

TStructBase* FreshRecord(DPoolBase& pool) {
  TStructBase* record = pool.GetDataPtrForUndoRedo();
  for (const Row& row : pool.GetSchema().Rows()) {
    if (row.IsArray()) continue;
    std::memset(reinterpret_cast<char*>(record) + row.offset, 0,
                static_cast<std::size_t>(row.size));
  }
  record->Init();
  return record;
}

DPoolBase::~DPoolBase() = default;

ITR DPoolBase::GetItr(const char16_t* name) {
  const std::u16string_view wanted(name ? name : u"");
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (KeyedSetBase::RecordAt(pos)->GetName().View() == wanted) return pos;
  }
  return 0;
}

int DPoolBase::ProcessRelation() {
  DropDeadReferences(*this);
  return 1;
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

CString DPoolBase::GetAPIName() const {
  std::u16string_view name(GetIOName());
  if (name.starts_with(u'_')) name.remove_prefix(1);
  return CString(name);
}

void DPoolBase::TArrayK2TArrayITR(const TArray<Key>& keys, TArray<ITR>& out) const {
  out.SetSize(keys.GetSize());
  set_->FindMany({keys.data(), keys.size()}, {out.data(), out.size()});
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
