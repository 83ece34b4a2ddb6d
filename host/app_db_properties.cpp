#include <span>

#include "qx_db/mesh/topology_table.h"

#include "host/app_db_host.h"
#include "host/records.h"

namespace qx::host {
namespace {

constexpr std::string_view kAddProperty = "IDS_QX_TRANS_Add_Property";
constexpr std::string_view kModifyProperty = "IDS_QX_TRANS_Modify_Property";
constexpr std::string_view kDeleteProperty = "IDS_QX_TRANS_Delete_Property";

// The members that the values of AddProperty fill, by kind.

constexpr const char16_t* kLineValues[] = {u"_AREA", u"_INERTIA_Y", u"_INERTIA_Z", u"_TORSION",
                                           u"_NS_MASS"};
constexpr const char16_t* kSurfaceValues[] = {u"_THICKNESS", u"_NS_MASS"};
constexpr const char16_t* kMassValues[] = {u"_MASS"};
constexpr const char16_t* kSpringValues[] = {u"_STIFFNESS0", u"_STIFFNESS1", u"_STIFFNESS2",
                                             u"_STIFFNESS3", u"_STIFFNESS4", u"_STIFFNESS5"};

std::span<const char16_t* const> ValuesOf(std::int32_t type) {
  switch (type) {
    case tagTProp::kPointMass:
      return kMassValues;
    case tagTProp::kPointSpring:
    case tagTProp::kSpring:
    case tagTProp::kElasticLink:
      return kSpringValues;
    case tagTProp::kTruss:
    case tagTProp::kBeam:
      return kLineValues;
    default:
      break;
  }
  const PropertyKind* kind = FindPropertyKind(type);
  return kind && kind->dimension == 2 ? kSurfaceValues : std::span<const char16_t* const>();
}

/// Makes a record a property of a kind with that kind's values; false for an unknown kind, or
/// more values than it has.
bool Fill(tagTProp& record, std::int32_t type, const TArray<double>& values) {
  const auto members = ValuesOf(type);
  if (!FindPropertyKind(type) || values.size() > members.size()) return false;
  record.type = type;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const Row* row = tagTProp::GetSchema().Find(members[i]);
    StoreAt(reinterpret_cast<char*>(&record) + row->offset, values[static_cast<std::ptrdiff_t>(i)]);
  }
  return true;
}

/// A property without a name of its own is called by its kind.
ITR AddOfKind(CQXDBSession* session, std::int32_t type, const TArray<double>& values,
              std::u16string_view name = {}, ITR matl = 0) {
  if (matl != 0 && !Live<tagTMatl>(session, matl)) return 0;
  tagTProp record;
  if (!Fill(record, type, values)) return 0;
  record.name.Set(name.empty() ? Utf16(FindPropertyKind(type)->name) : name);
  record.material = matl;
  return Add(session, record, kAddProperty);
}

TArray<double> Six(const double* values) {
  TArray<double> six;
  if (values) six.Assign(values, 6);
  return six;
}

bool Admits(CQXDBSession* session, const T_QX_PROP_FILTER& filter, const tagTProp& record) {
  if (filter.beam_only && record.type != tagTProp::kBeam) return false;
  if (filter.cfd_only) {
    const tagTMatl* material = Live<tagTMatl>(session, record.material);
    if (!material || material->type != tagTMatl::kFluid) return false;
  }
  return filter.types.IsEmpty() ||
         std::find(filter.types.begin(), filter.types.end(), record.type) != filter.types.end();
}

bool Fits(const tagTProp& record, int dimension) {
  const int own = DimensionOf(record);
  return own == -1 || own == dimension;
}

/// Dimension of the elements of a type; -1 for special ones, which any property may fit.
int DimensionOfType(int type) {
  const std::int32_t topology_class = ElementTopology(type).Class();
  return topology_class >= topology::kPointClass && topology_class <= topology::kSolidClass
             ? topology_class - topology::kPointClass
             : -1;
}

}  // namespace

ITR HostAppDB::GetElemProp(CQXDBSession* session, int elem_type) {
  const int dimension = DimensionOfType(elem_type);
  return dimension < 0 ? 0 : FirstWhere<tagTProp>(session, [&](const tagTProp& record) {
    return Fits(record, dimension);
  });
}

ITR HostAppDB::GetElemProp(CQXDBSession* session, ITR elem) {
  const tagTElem* record = Live<tagTElem>(session, elem);
  return record && Live<tagTProp>(session, record->property) ? ITR{record->property} : 0;
}

int HostAppDB::GetExceptDimPropTypeList(CQXDBSession* session, int dimension,
                                        TArray<std::int32_t>& out) {
  out.RemoveAll();
  if (!PoolFor<tagTProp>(session)) return 0;
  for (const PropertyKind& kind : PropertyKinds()) {
    if (kind.dimension != -1 && kind.dimension != dimension) out.Add(kind.type);
  }
  return out.GetSize();
}

ITR HostAppDB::GetPropByName(CQXDBSession* session, const CString& name) {
  return FirstWhere<tagTProp>(
      session, [&](const tagTProp& record) { return record.name.View() == name.View(); });
}

ITR HostAppDB::PropFindItr(CQXDBSession* session, Key key) {
  const DPoolBase* pool = PoolFor<tagTProp>(session);
  return pool ? pool->Find(key) : 0;
}

Key HostAppDB::GetPropKey(CQXDBSession* session, ITR prop) {
  const tagTProp* record = Live<tagTProp>(session, prop);
  return record ? record->key : 0;
}

Key HostAppDB::GetPropMaxKey(CQXDBSession* session) {
  const DPoolBase* pool = PoolFor<tagTProp>(session);
  return pool ? pool->Set().GetMaxKey() : 0;
}

Key HostAppDB::GetPropNewKey(CQXDBSession* session) { return NewKey<tagTProp>(session); }

int HostAppDB::GetPropList(CQXDBSession* session, TArray<ITR>& out) {
  return GetPropList(session, T_QX_PROP_FILTER(), out);
}

int HostAppDB::GetPropList(CQXDBSession* session, const T_QX_PROP_FILTER& filter,
                           TArray<ITR>& out) {
  return AllWhere<tagTProp>(
      session, out, [&](const tagTProp& record) { return Admits(session, filter, record); });
}

int HostAppDB::GetPropList(CQXDBSession* session, int dimension, TArray<ITR>& out) {
  return AllWhere<tagTProp>(session, out,
                            [&](const tagTProp& record) { return Fits(record, dimension); });
}

void HostAppDB::GetPropListNamebyCobxFilter(CQXDBSession* session, const T_QX_PROP_FILTER& filter,
                                            TArray<TString<64>>& out) {
  out.RemoveAll();
  ForEach<tagTProp>(session, [&](ITR, const tagTProp& record) {
    if (Admits(session, filter, record)) out.Add(record.name);
    return true;
  });
}

int HostAppDB::IsPropUndefined(CQXDBSession* session, ITR prop) {
  const tagTProp* record = Live<tagTProp>(session, prop);
  return record && record->type == tagTProp::kUndefined ? 1 : 0;
}

int HostAppDB::IsSameProp(CQXDBSession* session, ITR prop, int type, TArray<double> values) {
  const tagTProp* record = Live<tagTProp>(session, prop);
  if (!record || record->type != type) return 0;
  tagTProp described = *record;
  if (!Fill(described, type, values)) return 0;
  return Differences(tagTProp::GetSchema(), *record, described).empty() ? 1 : 0;
}

CString HostAppDB::GetPropName(CQXDBSession* session, ITR prop) {
  const tagTProp* record = Live<tagTProp>(session, prop);
  return record ? record->name.Text() : CString();
}

CString HostAppDB::GetPropName(CQXDBSession* session, Key key) {
  return GetPropName(session, PropFindItr(session, key));
}

CString HostAppDB::GetPropNameIncludeType(CQXDBSession* session, ITR prop) {
  const tagTProp* record = Live<tagTProp>(session, prop);
  if (!record) return {};
  const PropertyKind* kind = FindPropertyKind(record->type);
  if (!kind) return record->name.Text();
  return CString(std::u16string(record->name.View()) + u" (" + Utf16(kind->name) + u")");
}

int HostAppDB::SetPropName(CQXDBSession* session, ITR prop, const CString& name) {
  return Modify<tagTProp>(session, prop, kModifyProperty,
                          [&](tagTProp& record) { record.name.Set(name.View()); });
}

int HostAppDB::GetPropColor(CQXDBSession* session, ITR prop) {
  const tagTProp* record = Live<tagTProp>(session, prop);
  return record ? record->color : 0;
}

int HostAppDB::SetPropColor(CQXDBSession* session, ITR prop, int color) {
  return Modify<tagTProp>(session, prop, kModifyProperty,
                          [&](tagTProp& record) { record.color = color & 0xFFFFFF; });
}

void HostAppDB::GetPropNameColor(CQXDBSession* session, ITR prop, CString& name, int& color) {
  const tagTProp* record = Live<tagTProp>(session, prop);
  if (!record) return;
  name = record->name.Text();
  color = record->color;
}

ITR HostAppDB::GetPropCord(CQXDBSession* session, ITR prop) {
  const tagTProp* record = Live<tagTProp>(session, prop);
  return record && Live<tagTCord>(session, record->coordinate_system)
             ? ITR{record->coordinate_system}
             : 0;
}

int HostAppDB::GetPropDim(CQXDBSession* session, ITR prop) {
  const tagTProp* record = Live<tagTProp>(session, prop);
  return record ? DimensionOf(*record) : 0;
}

int HostAppDB::GetPropElasticLink(CQXDBSession* session, ITR prop) {
  return GetPropType(session, prop) == tagTProp::kElasticLink ? 1 : 0;
}

int HostAppDB::GetPropRigidLink(CQXDBSession* session, ITR prop) {
  return GetPropType(session, prop) == tagTProp::kRigidLink ? 1 : 0;
}

int HostAppDB::GetPropType(CQXDBSession* session, ITR prop) {
  const tagTProp* record = Live<tagTProp>(session, prop);
  return record ? record->type : 0;
}

int HostAppDB::GetPropertyType(CQXDBSession* session, ITR elem) {
  return GetPropType(session, GetElemProp(session, elem));
}

void HostAppDB::SetPropertyType(CQXDBSession* session, ITR prop, int type) {
  if (!FindPropertyKind(type)) return;
  Modify<tagTProp>(session, prop, kModifyProperty, [&](tagTProp& record) { record.type = type; });
}

ITR HostAppDB::AddProperty(CQXDBSession* session, int type, CString name, TArray<double> values) {
  return AddOfKind(session, type, values, name.View());
}

ITR HostAppDB::MakeElasticLinkProp(CQXDBSession* session, const double stiffness[6]) {
  return AddOfKind(session, tagTProp::kElasticLink, Six(stiffness));
}

ITR HostAppDB::MakeInterfaceProp(CQXDBSession* session, ITR matl) {
  return AddOfKind(session, tagTProp::kInterface, {}, {}, matl);
}

ITR HostAppDB::MakePntSpringProp(CQXDBSession* session, const double stiffness[6]) {
  return AddOfKind(session, tagTProp::kPointSpring, Six(stiffness));
}

ITR HostAppDB::MakePropPlate(CQXDBSession* session, ITR matl, double thickness) {
  return AddOfKind(session, tagTProp::kPlate, {thickness}, {}, matl);
}

ITR HostAppDB::MakePropSolid(CQXDBSession* session, ITR matl) {
  return AddOfKind(session, tagTProp::kSolid, {}, {}, matl);
}

ITR HostAppDB::MakePropSpring(CQXDBSession* session, CString name, TArray<double> stiffness) {
  return AddOfKind(session, tagTProp::kSpring, stiffness, name.View());
}

ITR HostAppDB::MakeUndefinedProp(CQXDBSession* session, int dimension) {
  return MakeUndefinedProp(session, dimension, NewKey<tagTProp>(session));
}

ITR HostAppDB::MakeUndefinedProp(CQXDBSession* session, int dimension, Key key) {
  if (key <= 0 || dimension < 0 || dimension > 3) return 0;
  tagTProp record;
  record.key = key;
  record.name.Set(Utf16(FindPropertyKind(tagTProp::kUndefined)->name));
  record.dimension = dimension;
  return Add(session, record, kAddProperty);
}

int HostAppDB::RemovePropW(CQXDBSession* session, ITR prop) {
  return RemoveUnused<tagTProp>(session, prop, kDeleteProperty);
}

}  // namespace qx::host
