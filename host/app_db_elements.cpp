#include <cmath>
#include <limits>
#include <set>

#include "qx_db/mesh/topology_table.h"

#include "host/app_db_host.h"
#include "host/element_mass.h"
#include "host/records.h"

namespace qx::host {
namespace {

/// Elements of which `enough` of the nodes in `wanted` are nodes.
int ElementsWith(CQXDBSession* session, const std::set<ITR>& wanted, std::size_t enough,
                 TArray<ITR>& out) {
  if (wanted.empty() || wanted.contains(0)) {
    out.RemoveAll();
    return 0;
  }
  return AllWhere<tagTElem>(session, out, [&](const tagTElem& element) {
    std::set<ITR> common;
    for (const ITR node : element.nodes) {
      if (wanted.contains(node)) common.insert(node);
    }
    return common.size() >= enough;
  });
}

Mass Sum(const ElementMasses& masses, const TArray<ITR>& elems) {
  Mass sum;
  for (const ITR elem : elems) sum.Add(masses.Of(elem));
  return sum;
}

enum class Space { kEmpty, kPlane, kSolid };

Space SpaceOf(CQXDBSession* session) {
  Space space = Space::kEmpty;
  ForEach<tagTElem>(session, [&](ITR, const tagTElem& element) {
    if (ElementTopology(element.type).Class() == topology::kSolidClass) space = Space::kSolid;
    return space != Space::kSolid;
  });
  double z = std::numeric_limits<double>::quiet_NaN();
  ForEach<tagTNode>(session, [&](ITR, const tagTNode& node) {
    if (space == Space::kSolid) return false;
    if (space == Space::kEmpty) z = node.position.z;
    space = node.position.z == z ? Space::kPlane : Space::kSolid;
    return true;
  });
  return space;
}

}  // namespace

HostAppDB::HostAppDB() = default;
HostAppDB::~HostAppDB() = default;

const ElementMasses& HostAppDB::MassesOf(CQXDBSession* session) {
  if (!masses_ || !masses_->IsCurrent(session)) masses_ = std::make_unique<ElementMasses>(session);
  return *masses_;
}

int HostAppDB::GetPropThickness(CQXDBSession* session, ITR prop, double& thickness) {
  const tagTProp* record = Live<tagTProp>(session, prop);
  if (!record || DimensionOf(*record) != 2) return 0;
  thickness = record->thickness;
  return 1;
}

int HostAppDB::GetPropThickness(CQXDBSession* session, const tagTElem& elem, double& thickness) {
  if (ElementTopology(elem.type).Class() != topology::kSurfaceClass) return 0;
  const DPoolBase* elements = PoolFor<tagTElem>(session);
  if (!elements) return 0;
  thickness = MassesOf(session).Thickness(elem, elements->Find(elem.key));
  return 1;
}

int HostAppDB::Get2DPropPlstrnThickness(CQXDBSession* session, ITR elem, double& thickness) {
  const tagTElem* record = Live<tagTElem>(session, elem);
  return record && GetPropertyType(session, elem) == tagTProp::kPlaneStrain
             ? GetPropThickness(session, *record, thickness)
             : 0;
}

double HostAppDB::GetFaceThickAvg(CQXDBSession* session, ITR elem) {
  const tagTElem* record = Live<tagTElem>(session, elem);
  double thickness = 0;
  return record && GetPropThickness(session, *record, thickness) ? thickness : 0;
}

double HostAppDB::GetFaceThickAvgFromProp(CQXDBSession* session, ITR elem) {
  double thickness = 0;
  return GetPropThickness(session, GetElemProp(session, elem), thickness) ? thickness : 0;
}

double HostAppDB::GetBeamVolume(CQXDBSession* session, ITR elem) {
  return MassesOf(session).BeamVolume(elem);
}

double HostAppDB::GetFaceVolume(CQXDBSession* session, ITR elem) {
  return MassesOf(session).FaceVolume(elem);
}

double HostAppDB::GetFaceVolume(CQXDBSession* session, ITR elem, double area) {
  return area * GetFaceThickAvg(session, elem);
}

double HostAppDB::GetMatlMass(CQXDBSession* session, ITR matl) {
  if (!Live<tagTMatl>(session, matl)) return 0;
  TArray<ITR> elems;
  AllWhere<tagTElem>(session, elems, [&](const tagTElem& element) {
    return GetMatlItrInProp(session, element.property) == matl;
  });
  return GetMSetMass(session, elems);
}

double HostAppDB::GetMSetMass(CQXDBSession* session, const TArray<ITR>& elems) {
  return Sum(MassesOf(session), elems).Mean();
}

void HostAppDB::GetMSetMass(CQXDBSession* session, const TArray<ITR>& elems, double& mass_x,
                            double& mass_y, double& mass_z) {
  const Mass sum = Sum(MassesOf(session), elems);
  mass_x = sum.by_axis[0];
  mass_y = sum.by_axis[1];
  mass_z = sum.by_axis[2];
}

double HostAppDB::GetSpecialElemMass(CQXDBSession* session, ITR elem) {
  return MassesOf(session).PointMass(elem).Mean();
}

void HostAppDB::GetSpecialElemMass(CQXDBSession* session, ITR elem, double& mass_x, double& mass_y,
                                   double& mass_z) {
  const Mass mass = MassesOf(session).PointMass(elem);
  mass_x = mass.by_axis[0];
  mass_y = mass.by_axis[1];
  mass_z = mass.by_axis[2];
}

int HostAppDB::GetMassCenter(CQXDBSession* session, const TArray<ITR>& elems, double center[3]) {
  const Mass sum = Sum(MassesOf(session), elems);
  const double mass = sum.Mean();
  if (mass == 0 || !std::isfinite(mass) || !center) return 0;
  for (int i = 0; i < 3; ++i) center[i] = sum.moment[i] / mass;
  return 1;
}

int HostAppDB::Get1DElemPerimeter(CQXDBSession* session, ITR elem, double& perimeter) {
  const tagTProp* record = Live<tagTProp>(session, GetElemProp(session, elem));
  if (!record || DimensionOf(*record) != 1) return 0;
  perimeter = record->perimeter;
  return 1;
}

int HostAppDB::GetElemListByCommonNodeItr(CQXDBSession* session, const TArray<ITR>& nodes,
                                          TArray<ITR>& out) {
  const std::set<ITR> wanted(nodes.begin(), nodes.end());
  return ElementsWith(session, wanted, wanted.size(), out);
}

int HostAppDB::GetElemListByNodeItr(CQXDBSession* session, ITR node, TArray<ITR>& out) {
  return GetElemListByNodeItrArray(session, {node}, out);
}

int HostAppDB::GetElemListByNodeItrArray(CQXDBSession* session, const TArray<ITR>& nodes,
                                         TArray<ITR>& out) {
  std::set<ITR> wanted(nodes.begin(), nodes.end());
  wanted.erase(0);
  return ElementsWith(session, wanted, 1, out);
}

int HostAppDB::GetGeomAll(CQXDBSession* session, TArray<ITR>& out) {
  return AllWhere<tagTGeom>(session, out, [](const tagTGeom&) { return true; });
}

int HostAppDB::IsE1DOffset(CQXDBSession* session, ITR elem) {
  if (!Live<tagTElem>(session, elem)) return 0;
  return FirstWhere<tagTE1DOffset>(session,
                                   [&](const tagTE1DOffset& record) {
                                     return std::find(record.elements.begin(),
                                                      record.elements.end(),
                                                      elem) != record.elements.end();
                                   })
             ? 1
             : 0;
}

int HostAppDB::IsUsed(CQXDBSession* session, int type, ITR item) {
  if (item == 0 || type < 0 || type > UINT16_MAX) return 0;
  for (DPoolBase* pool : {PoolFor<tagTMatl>(session), PoolFor<tagTProp>(session)}) {
    if (pool && RefersTo(*pool, static_cast<std::uint16_t>(type), item)) return 1;
  }
  return 0;
}

CString HostAppDB::GetFRsetName(CQXDBSession* session, ITR set) {
  const tagTFRset* record = Live<tagTFRset>(session, set);
  return record ? record->GetName() : CString();
}

int HostAppDB::Is2DModel(CQXDBSession* session) {
  return SpaceOf(session) == Space::kPlane ? 1 : 0;
}

int HostAppDB::Is3DModel(CQXDBSession* session) {
  return SpaceOf(session) == Space::kSolid ? 1 : 0;
}

}  // namespace qx::host
