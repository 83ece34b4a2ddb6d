#pragma once
// Reading and editing records by iterators that may be stale: what the host's answers rest on.
// Threads: the one that drives the session.

#include <algorithm>
#include <string_view>

#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/record/catalogue.h"
#include "qx_db/record/verbs.h"

#include "host/session.h"

namespace qx::host {

/// The pool of a record type; null for a null session and for one whose pool of that code holds
/// another type of record.
template <class T>
DPoolBase* PoolFor(CQXDBSession* session) {
  DPoolBase* pool = session ? session->GetDataPool(T::kType) : nullptr;
  return pool && &pool->GetSchema() == &T::GetSchema() ? pool : nullptr;
}

/// The record at an iterator; null for 0 and for an iterator that names no record of the pool any
/// more. Constant time.
template <class T>
const T* Live(CQXDBSession* session, ITR itr) {
  const DPoolBase* pool = itr ? PoolFor<T>(session) : nullptr;
  if (!pool || !pool->Set().IsLinked(itr)) return nullptr;
  return static_cast<const T*>(KeyedSetBase::RecordAt(itr));
}

/// Calls `visit(itr, record)` for all records in list order, until it returns false.
template <class T, class Visit>
void ForEach(CQXDBSession* session, Visit&& visit) {
  const DPoolBase* pool = PoolFor<T>(session);
  if (!pool) return;
  for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
    if (!visit(pos, *static_cast<const T*>(KeyedSetBase::RecordAt(pos)))) return;
  }
}

/// The first record that `fits`, 0 when none does.
template <class T, class Fits>
ITR FirstWhere(CQXDBSession* session, Fits&& fits) {
  ITR found = 0;
  ForEach<T>(session, [&](ITR itr, const T& record) {
    if (fits(record)) found = itr;
    return found == 0;
  });
  return found;
}

/// Fills `out` with the records that `fits`, in list order; returns their number.
template <class T, class Fits>
int AllWhere(CQXDBSession* session, TArray<ITR>& out, Fits&& fits) {
  out.RemoveAll();
  ForEach<T>(session, [&](ITR itr, const T& record) {
    if (fits(record)) out.Add(itr);
    return true;
  });
  return out.GetSize();
}

/// A key above all of the pool's, or, once the largest is in use, the lowest free one; 0 without
/// the pool.
template <class T>
Key NewKey(CQXDBSession* session) {
  const DPoolBase* pool = PoolFor<T>(session);
  return pool ? std::max(pool->Set().GetFreeKey(), 0) : 0;
}

/// Adds a record as one undoable step, named by a resource key. Its key is made when it is 0.
/// Returns 0, changing nothing, when it cannot be added.
template <class T>
ITR Add(CQXDBSession* session, T record, std::string_view step) {
  DPoolBase* pool = PoolFor<T>(session);
  if (!pool) return 0;
  if (record.key == 0) record.key = NewKey<T>(session);
  CTransaction transaction(session);
  if (record.key == 0 || !transaction.Begin(qxLoadText(step).c_str())) return 0;
  const ITR added = pool->InsertNU(&record);
  return added && transaction.Commit() ? added : 0;
}

/// Changes a record as one undoable step: `edit(record)` on a copy, which then replaces it.
template <class T, class Edit>
int Modify(CQXDBSession* session, ITR itr, std::string_view step, Edit&& edit) {
  const T* record = Live<T>(session, itr);
  if (!record) return 0;
  T changed = *record;
  edit(changed);
  CTransaction transaction(session);
  if (!transaction.Begin(qxLoadText(step).c_str())) return 0;
  return PoolFor<T>(session)->SetAtNU(itr, &changed) && transaction.Commit() ? 1 : 0;
}

/// Whether a record of a pool refers to the one at `itr`, of a type code.
bool RefersTo(DPoolBase& pool, std::uint16_t type, ITR itr);
/// Whether any record of the model does.
bool IsReferenced(CQXDBSession& session, std::uint16_t type, ITR itr);

/// Removes a record that nothing refers to, as one undoable step; 0 when it is gone or in use.
template <class T>
int RemoveUnused(CQXDBSession* session, ITR itr, std::string_view step) {
  if (!Live<T>(session, itr) || IsReferenced(*session, T::kType, itr)) return 0;
  CTransaction transaction(session);
  if (!transaction.Begin(qxLoadText(step).c_str())) return 0;
  return PoolFor<T>(session)->Remove(itr) && transaction.Commit() ? 1 : 0;
}

}  // namespace qx::host
