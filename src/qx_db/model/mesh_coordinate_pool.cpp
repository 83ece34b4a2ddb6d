#include "qx_db/model/mesh_coordinate_pool.h"

#include "qx_db/core/session.h"

namespace qx {

ITR DPoolMeshCsys::GetNodeCSysItr(ITR node) {
  const DPoolBase* nodes = GetSession()->GetDataPool(code::kNode);
  if (node == 0 || IsEmpty() || !nodes) return 0;
  Refresh();
  const std::uint32_t slot = nodes->Set().SlotOf(node);
  if (slot >= assignment_of_node_.size() || assignment_of_node_[slot] == 0) return 0;
  return systems_[assignment_of_node_[slot] - 1];
}

void DPoolMeshCsys::Refresh() {
  const CQXDBSession& session = *GetSession();
  const auto* sets = session.GetPool<DPool<tagTMset>>(code::kMset);
  const KeyedSetBase& nodes = session.GetDataPool(code::kNode)->Set();
  if (known_ && sets_revision_ == sets->Set().Revision() && own_revision_ == Set().Revision()) {
    return;
  }
  known_ = true;
  sets_revision_ = sets->Set().Revision();
  own_revision_ = Set().Revision();
  systems_.clear();
  assignment_of_node_.assign(nodes.SlotLimit(), 0);
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    const tagTMeshCsys& assignment = GetAtNU(pos);
    if (assignment.mesh_set == 0 || KeyedSetBase::IsRemoved(assignment.mesh_set)) continue;
    systems_.push_back(ITR{assignment.coordinate_system});  // a copy: members are packed
    for (const ITR node : sets->GetAtNU(assignment.mesh_set).nodes) {
      if (node)
        assignment_of_node_[nodes.SlotOf(node)] = static_cast<std::uint32_t>(systems_.size());
    }
  }
}

}  // namespace qx
