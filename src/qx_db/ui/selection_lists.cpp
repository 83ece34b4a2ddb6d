#include "qx_db/ui/selection_lists.h"

#include <algorithm>

#include "qx_db/callback/callbacks.h"

namespace qx {
namespace {

constexpr std::int32_t kLengthVariable = 1;  // its code among the FunctionKinds

TArray<std::int32_t> ArrayOf(const std::vector<std::int32_t>& values) {
  TArray<std::int32_t> array;
  array.Assign(values.data(), values.size());
  return array;
}

std::u16string KeyAndName(Key key, std::u16string_view name) {
  return Utf16(std::to_string(key)) + u": " + std::u16string(name);
}

bool InMask(std::uint32_t mask, std::int32_t kind) {
  return kind >= 0 && kind < 32 && (mask >> kind & 1) != 0;
}

}  // namespace

// ---- sets ---------------------------------------------------------------------------------------

bool CCobxGset::m_bNew = false;

int CCobxGset::GetSelectedGsetOrCreate(ITR& out) { return GetSelectedOrCreate(out, &m_bNew); }

int CCobxGset::SetCurrentGsetOrCreate(const CString& name, ITR& out) {
  SetWindowText(name);
  return GetSelectedGsetOrCreate(out);
}

int CCobxGset::SetCurrentSet(const CString& name) {
  DPoolBase* pool = Pool();
  const ITR set = pool ? pool->GetItr(name.c_str()) : 0;
  return ChangeSelect(set);
}

void CCobxMset::AddItems() {
  if (parent_name_) AddPseudoItem("IDS_QX_WRT_MESH", kWholeMesh);
  SelectionList::AddItems();
}

// ---- materials and properties -------------------------------------------------------------------

bool CCobxMatl::HasSource() const { return IAppDB::Instance() != nullptr; }

void CCobxMatl::ClearTypeFilter() {
  sub_types_.clear();
  types_.clear();
  SetComboBoxList();
}

void CCobxMatl::AddItems() {
  IAppDB& application = *IAppDB::Instance();
  TArray<ITR> materials;
  application.GetMatlList(GetDBSession(),
                          {ArrayOf(types_), ArrayOf(sub_types_), structure_, only_structure_},
                          materials);
  for (const ITR material : materials) {
    if (membrane_ && !application.IsStructuralMatl(GetDBSession(), material)) continue;
    TString<64> name;
    application.GetMatlName(GetDBSession(), material, name);
    const Key key = application.GetMatlKey(GetDBSession(), material);
    AddRecord(material, key, KeyAndName(key, name.View()));
  }
}

bool CCobxProp::HasSource() const { return IAppDB::Instance() != nullptr; }

void CCobxProp::AddTypeFilter(std::int32_t type) {
  std::vector<std::int32_t> types = types_;
  if (std::find(types.begin(), types.end(), type) == types.end()) types.push_back(type);
  SetOption(types_, std::move(types));
}

void CCobxProp::AddItems() {
  if (!enabled_) return;
  IAppDB& application = *IAppDB::Instance();
  TArray<ITR> properties;
  application.GetPropList(GetDBSession(), {ArrayOf(types_), beam_only_, cfd_only_}, properties);
  for (const ITR property : properties) {
    const Key key = application.GetPropKey(GetDBSession(), property);
    const CString name = application.GetPropName(GetDBSession(), property);
    AddRecord(property, key, KeyAndName(key, name.View()));
  }
}

// ---- coordinate systems -------------------------------------------------------------------------

int CCobxCord::IsSelected(Key key) const {
  const ComboItem* item = Current();
  return item && item->data == 0 && item->key == key ? 1 : 0;
}

void CCobxCord::AddItems() {
  if (element_) AddPseudoItem("IDS_QX_ELEMENT_CORD", kElementSystem);
  if (material_) AddPseudoItem("IDS_QX_MATERIAL_CORD", kMaterialSystem);
  SelectionList::AddItems();
}

bool CCobxCord::Admits(const TStructBase& record) const {
  const std::int32_t type = static_cast<const tagTCord&>(record).type;
  if (only_type_ != kAny) return type == only_type_;
  return curved_ || type == tagTCord::kRectangular;
}

// ---- functions ----------------------------------------------------------------------------------

void CCobxFunc::AddItems() {
  SelectionList::AddItems();
  if (IFuncDB* application = IFuncDB::Instance()) {
    application->AddDataTypeInCombo(GetDBSession(), this);
  }
}

bool CCobxFunc::Admits(const TStructBase& record) const {
  const auto& function = static_cast<const tagTFunc&>(record);
  const bool is_surface = function.variables > 1;
  if (is_surface && !surface_) return false;
  if (!is_surface && function.variable == kLengthVariable && !space_) return false;
  if (!filter_) return true;
  return InMask(mask_, function.variable) && (!is_surface || InMask(mask_, function.variable2));
}

bool CCobxFuncQX::Admits(const TStructBase& record) const {
  const auto& function = static_cast<const tagTFunc&>(record);
  return (values_ == kAny || function.type == values_) &&
         (variable_ == kAny || function.variable == variable_);
}

}  // namespace qx
