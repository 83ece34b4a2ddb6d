// What must be true of a model as a whole.

#include "qx_db/core/session.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// The first broken invariant among 6 to 8 of one pool; "" for none.
class PoolCheck {
 public:
  PoolCheck(const CQXDBSession& session, const DPoolBase& pool)
      : session_(session), pool_(pool), schema_(pool.GetSchema()) {}

  std::string Run() const {
    const auto records = static_cast<std::size_t>(pool_.GetSize());
    LongWork work(records, records);
    for (ITR pos = pool_.GetHeadPosition(); pos; pool_.Next(pos)) {
      work.Step();
      if (pool_.Find(KeyOf(pos)) != pos) return Broken(6, pos, "another record has the key");
      if (const Row* row = FalseLength(pos)) return Broken(7, pos, Utf8(row->name));
      if (const Row* row = FalseReference(pos)) return Broken(8, pos, Utf8(row->name));
    }
    return {};
  }

 private:
  static std::string Broken(int number, ITR pos, const std::string& what) {
    return "invariant " + std::to_string(number) + " at key " + std::to_string(KeyOf(pos)) + ": " +
           (number == 7   ? what + " has a false length"
            : number == 8 ? what + " refers to what is no record of its pool"
                          : what);
  }

  const Row* FalseLength(ITR pos) const {
    if (!schema_.HasArrays()) return nullptr;
    const char* bytes = detail::Bytes(*KeyedSetBase::RecordAt(pos));
    for (const Row& row : schema_.Rows()) {
      if (!row.IsArray()) continue;
      const ArrayStorage& array = detail::ArrayAt(bytes, row);
      if (array.count < 0 || (array.count > 0 && !array.data)) return &row;
    }
    return nullptr;
  }

  const Row* FalseReference(ITR pos) const {
    const Row* found = nullptr;
    const Row* last = nullptr;
    const DPoolBase* target = nullptr;
    ForEachReference(schema_, *KeyedSetBase::RecordAt(pos), [&](const Row& row, const char* slot) {
      const ITR item = LoadAt<ITR>(slot);
      if (item == 0 || found) return;
      if (&row != last) target = session_.GetDataPool(row.target);
      last = &row;
      if (!target || !Exists(target->Set(), item)) found = &row;
    });
    return found;
  }

  bool Exists(const KeyedSetBase& set, ITR item) const {
    if (!set.Owns(item)) return false;
    return !KeyedSetBase::IsRemoved(item) || (session_.History().IsOpen() && !set.IsFree(item));
  }

  const CQXDBSession& session_;
  const DPoolBase& pool_;
  const Schema& schema_;
};

}  // namespace

std::string CQXDBSession::Validate() const {
  if (!setup_fault_.empty()) return setup_fault_;
  const auto of = [](const DPoolBase* pool, const std::string& fault) {
    return Utf8(pool->GetIOName()) + ": " + fault;
  };
  for (const DPoolBase* pool : order_) {
    if (const std::string fault = pool->Set().Validate(); !fault.empty()) return of(pool, fault);
  }
  // References are followed once every container is known to be sound.
  std::size_t records = 0;
  for (const DPoolBase* pool : order_) records += static_cast<std::size_t>(pool->GetSize());
  LongWork work(records);
  for (const DPoolBase* pool : order_) {
    if (const std::string fault = PoolCheck(*this, *pool).Run(); !fault.empty()) {
      return of(pool, fault);
    }
    work.Step(static_cast<std::size_t>(pool->GetSize()));
  }
  for (const UnitSystem& system :
       {OwnUnits().Model(), OwnUnits().Current(), OwnUnits().Previous()}) {
    if (!IsValid(system)) return "invariant 9: a unit does not exist";
  }
  return journal_.Validate();
}

}  // namespace qx
