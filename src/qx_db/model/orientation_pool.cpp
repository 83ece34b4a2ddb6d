#include "qx_db/model/orientation_pool.h"

#include <map>

#include "qx_db/core/session.h"
#include "qx_db/core/transaction.h"
#include "qx_db/gateway/document.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/mesh_pools.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// What a record says of how an element is turned.
bool IsSameOrientation(tagTEcrd a, const tagTEcrd& b) {
  a.key = b.key;
  a.element_type = b.element_type;
  return Differences(tagTEcrd::GetSchema(), a, b).empty();
}

}  // namespace

int DPoolEcrd::Get(ITR pos, tagTEcrd& out) const {
  if (!Set().IsLinked(pos)) return 0;
  out = GetAtNU(pos);
  return 1;
}

int DPoolEcrd::SetAt(ITR pos, const tagTEcrd& record) {
  return Set().IsLinked(pos) && IsAccepted(record) ? SetAtNU(pos, record) : 0;
}

int DPoolEcrd::SetAtNU(ITR pos, const tagTEcrd& record) {
  return Set().IsLinked(pos) ? DPoolPlain::SetAtNU(pos, record) : 0;
}

bool DPoolEcrd::IsAccepted(const tagTEcrd& record) const {
  const auto* elements = GetSession()->GetPool<DPoolElem>(code::kElem);
  const ITR element = elements ? elements->Find(record.key) : 0;
  return !element || elements->IsValidEcrd(elements->GetAtNU(element), record);
}

bool DPoolEcrd::ReadAPI(dbgateway::DataBase* from, int remove) {
  const std::string name = GetAPIName().ToUtf8();
  const auto table = from->FindCollection(name);
  if (remove || !table || !GetSession()) return DPoolPlain::ReadAPI(from, remove);
  std::map<Key, tagTEcrd> former;
  table->ForEach([&](Key key, std::string_view, const dbgateway::Record&) {
    const ITR pos = Find(key);
    former.emplace(key, pos ? GetAtNU(pos) : tagTEcrd());
  });
  CTransaction step(GetSession());
  if (!step.Begin(qxLoadText("IDS_QX_TRANS_ADD_ECRD").c_str())) return false;
  if (!DPoolPlain::ReadAPI(from, 0)) return false;
  for (const auto& [key, before] : former) {
    const ITR pos = Find(key);
    if (!pos || IsSameOrientation(GetAtNU(pos), before) || IsAccepted(GetAtNU(pos))) continue;
    from->Tell({name, key, "", "was refused by the model"});
    return false;
  }
  return step.Commit() != 0;
}

int DPoolEcrd::CheckRelation(std::set<ITR>& nodes) const {
  std::set<ITR> no_elements;
  return CheckRelation(no_elements, nodes);
}

int DPoolEcrd::CheckRelation(std::set<ITR>& elements, std::set<ITR>& nodes) const {
  return CheckRelation([&](ITR element) { return elements.contains(element); },
                       [&](ITR node) { return nodes.contains(node); });
}

int DPoolEcrd::CheckRelation(const Contains& elements, const Contains& nodes) const {
  const DPoolBase* pool = GetSession()->GetDataPool(code::kElem);
  std::set<ITR> refused;
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    const tagTEcrd& record = GetAtNU(pos);
    // The cheap questions first: the result is the same in any order.
    if (record.reference_node == 0 || !nodes(record.reference_node)) continue;
    const ITR element = pool->Find(record.key);
    if (element == 0 || KeyedSetBase::IsRemoved(element) || elements(element)) continue;
    if (!refused.insert(record.reference_node).second) continue;
    qxMsgOut(Severity::kRefusal, "IDS_QXMESH_REFERENCE_NODE_ERROR",
             {std::to_string(KeyOf(record.reference_node))});
    if (!GetSession()->IsRehearsing()) return 0;
  }
  return refused.empty();
}

}  // namespace qx
