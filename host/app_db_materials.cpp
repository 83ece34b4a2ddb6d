#include "host/app_db_host.h"
#include "host/records.h"

namespace qx::host {
namespace {

constexpr std::string_view kAdd = "IDS_QX_TRANS_Add_Material";
constexpr std::string_view kModify = "IDS_QX_TRANS_Modify_Material";
constexpr std::string_view kDelete = "IDS_QX_TRANS_Delete_Material";

const tagTMatl* MaterialOf(CQXDBSession* session, ITR elem) {
  const tagTElem* element = Live<tagTElem>(session, elem);
  const tagTProp* property = element ? Live<tagTProp>(session, element->property) : nullptr;
  return property ? Live<tagTMatl>(session, property->material) : nullptr;
}

/// Puts what a description tells into a record.
void Describe(const MATERIAL_PARAM& material, tagTMatl& record) {
  record.name = material.name;
  record.elastic_modulus = material.elastic_modulus;
  record.poisson_ratio = material.poisson_ratio;
  record.density = material.density;
  record.thermal_expansion = material.thermal_expansion;
  record.conductivity = material.conductivity;
  record.specific_heat = material.specific_heat;
  record.yield_stress = material.yield_stress;
}

bool Contains(const TArray<std::int32_t>& list, std::int32_t value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

bool IsStructural(const tagTMatl& record) {
  const MaterialKind* kind = FindMaterialKind(record.type);
  return kind && kind->structural;
}

bool Admits(const T_QX_MATL_FILTER& filter, const tagTMatl& record) {
  if (filter.only_structure) return IsStructural(record);
  if (filter.structure && IsStructural(record)) return true;
  const bool type = filter.types.IsEmpty() || Contains(filter.types, record.type);
  return type && (filter.sub_types.IsEmpty() || Contains(filter.sub_types, 0));
}

}  // namespace

Key HostAppDB::GetMatlKey(CQXDBSession* session, ITR matl) {
  const tagTMatl* record = Live<tagTMatl>(session, matl);
  return record ? record->key : 0;
}

Key HostAppDB::GetMatlNewKey(CQXDBSession* session) { return NewKey<tagTMatl>(session); }

ITR HostAppDB::MatlFindItr(CQXDBSession* session, Key key) {
  const DPoolBase* pool = PoolFor<tagTMatl>(session);
  return pool ? pool->Find(key) : 0;
}

ITR HostAppDB::GetMatlByName(CQXDBSession* session, const CString& name) {
  return FirstWhere<tagTMatl>(
      session, [&](const tagTMatl& record) { return record.name.View() == name.View(); });
}

int HostAppDB::SetMatlName(CQXDBSession* session, ITR matl, const CString& name) {
  return Modify<tagTMatl>(session, matl, kModify,
                          [&](tagTMatl& record) { record.name.Set(name.View()); });
}

int HostAppDB::GetMatlType(CQXDBSession* session, ITR matl) {
  const tagTMatl* record = Live<tagTMatl>(session, matl);
  return record ? record->type : 0;
}

int HostAppDB::IsMatlUsed(CQXDBSession* session, ITR matl) {
  return Live<tagTMatl>(session, matl) && IsReferenced(*session, code::kMatl, matl) ? 1 : 0;
}

int HostAppDB::RemoveMatlW(CQXDBSession* session, ITR matl) {
  return RemoveUnused<tagTMatl>(session, matl, kDelete);
}

int HostAppDB::AddCADMatl(CQXDBSession* session, const std::vector<MATERIAL_PARAM>& materials) {
  CTransaction transaction(session);
  if (!PoolFor<tagTMatl>(session) || !transaction.Begin(qxLoadText(kAdd).c_str())) return 0;
  for (const MATERIAL_PARAM& material : materials) {
    if (!AddMaterial(session, material)) return 0;
  }
  return transaction.Commit() ? static_cast<int>(materials.size()) : 0;
}

ITR HostAppDB::AddMaterial(CQXDBSession* session, MATERIAL_PARAM material) {
  tagTMatl record;
  Describe(material, record);
  return Add(session, record, kAdd);
}

double HostAppDB::GetElemMatlDensity(CQXDBSession* session, ITR elem) {
  const tagTMatl* record = MaterialOf(session, elem);
  return record ? record->density : 0;
}

int HostAppDB::GetElemMatlType(CQXDBSession* session, ITR elem) {
  const tagTMatl* record = MaterialOf(session, elem);
  return record ? record->type : 0;
}

int HostAppDB::GetMatlColor(CQXDBSession* session, ITR matl) {
  const tagTMatl* record = Live<tagTMatl>(session, matl);
  return record ? record->color : 0;
}

int HostAppDB::SetMatlColor(CQXDBSession* session, ITR matl, int color) {
  return Modify<tagTMatl>(session, matl, kModify,
                          [&](tagTMatl& record) { record.color = color & 0xFFFFFF; });
}

double HostAppDB::GetMatlDensity(CQXDBSession* session, ITR matl) {
  const tagTMatl* record = Live<tagTMatl>(session, matl);
  return record ? record->density : 0;
}

int HostAppDB::GetMatlItemInElem(CQXDBSession* session, ITR elem, int item, double& value) {
  const tagTMatl* record = MaterialOf(session, elem);
  if (!record || item < 0) return 0;
  for (const Row& row : tagTMatl::GetSchema().Rows()) {
    if (row.number != Row::Number::kDouble || item-- > 0) continue;
    value = LoadAt<double>(reinterpret_cast<const char*>(record) + row.offset);
    return 1;
  }
  return 0;
}

ITR HostAppDB::GetMatlItrInElem(CQXDBSession* session, ITR elem) {
  return GetMatlItrInProp(session, GetElemProp(session, elem));
}

ITR HostAppDB::GetMatlItrInProp(CQXDBSession* session, ITR prop) {
  const tagTProp* property = Live<tagTProp>(session, prop);
  return property && Live<tagTMatl>(session, property->material) ? ITR{property->material} : 0;
}

int HostAppDB::GetMatlList(CQXDBSession* session, const T_QX_MATL_FILTER& filter,
                           TArray<ITR>& out) {
  return AllWhere<tagTMatl>(session, out,
                            [&](const tagTMatl& record) { return Admits(filter, record); });
}

Key HostAppDB::GetMatlMaxKey(CQXDBSession* session) {
  const DPoolBase* pool = PoolFor<tagTMatl>(session);
  return pool ? pool->Set().GetMaxKey() : 0;
}

int HostAppDB::GetMatlName(CQXDBSession* session, ITR matl, TString<64>& out) {
  const tagTMatl* record = Live<tagTMatl>(session, matl);
  if (!record) return 0;
  out = record->name;
  return 1;
}

int HostAppDB::GetMatlTensilInElem(CQXDBSession* session, ITR elem, double& strength) {
  const tagTMatl* record = MaterialOf(session, elem);
  if (!record) return 0;
  strength = record->tensile_strength;
  return 1;
}

int HostAppDB::IsSameMatl(CQXDBSession* session, ITR matl, MATERIAL_PARAM other) {
  const tagTMatl* record = Live<tagTMatl>(session, matl);
  if (!record) return 0;
  // What the description does not tell cannot differ.
  tagTMatl described = *record;
  Describe(other, described);
  return Differences(tagTMatl::GetSchema(), *record, described).empty() ? 1 : 0;
}

int HostAppDB::IsSameMatlType(CQXDBSession* session, ITR first, ITR second) {
  const int type = GetMatlType(session, first);
  return type != 0 && type == GetMatlType(session, second) ? 1 : 0;
}

int HostAppDB::IsStructuralMatl(CQXDBSession* session, ITR matl) {
  const tagTMatl* record = Live<tagTMatl>(session, matl);
  return record && IsStructural(*record) ? 1 : 0;
}

int HostAppDB::SetMatlInProp(CQXDBSession* session, ITR prop, ITR matl) {
  if (matl != 0 && !Live<tagTMatl>(session, matl)) return 0;
  return Modify<tagTProp>(session, prop, "IDS_QX_TRANS_Modify_Property",
                          [&](tagTProp& record) { record.material = matl; });
}

}  // namespace qx::host
