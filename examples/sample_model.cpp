#include "examples/sample_model.h"

#include "qx_db/core/transaction.h"
#include "qx_db/model/standard_pools.h"

#include "host/session.h"

namespace qx {
namespace {

template <class T>
T& Add(CQXDBSession& session, std::u16string_view name) {
  auto& pool = *session.GetPool<DPool<T>>(T::kType);
  T record;
  record.key = pool.GetNewKey();
  record.name.Set(name);
  return pool.GetAtNU(pool.InsertNU(record));
}

}  // namespace

void FillSampleModel(CQXDBSession& session) {
  CTransaction transaction(&session);
  transaction.Begin(u"Sample model");
  for (const char16_t* name : {u"Deck", u"Girders", u"Piers"}) Add<tagTMset>(session, name);
  for (const char16_t* name : {u"Pier feet", u"South abutment"}) Add<tagTBset>(session, name);
  for (const char16_t* name : {u"Steel S355", u"Concrete C40/50", u"Bearing rubber"}) {
    Add<tagTMatl>(session, name);
  }
  Add<tagTCord>(session, u"Global");
  Add<tagTCord>(session, u"Pier axes").type = tagTCord::kCylindrical;
  transaction.Commit();
}

}  // namespace qx
