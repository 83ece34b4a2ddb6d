#include "qx_db/model/mesh_pools.h"

#include <algorithm>

#include "qx_db/callback/callbacks.h"
#include "qx_db/core/belongings.h"
#include "qx_db/core/relations.h"
#include "qx_db/core/session.h"
#include "qx_db/lib/variants.h"
#include "qx_db/model/reference_index.h"
#include "qx_db/pool/record_units.h"
#include "qx_db/record/element_types.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// Membership in the sets of element types, one bit a set.
enum TypeBit : std::uint8_t { kKeeps = 1, kDefaults = 2, kInterfaceLine = 4 };

constexpr std::array<std::uint8_t, 88> TypeBits() {
  std::array<std::uint8_t, 88> bits{};
  const auto set = [&](std::uint8_t bit, std::initializer_list<std::size_t> types) {
    for (const std::size_t type : types) bits[type] |= bit;
  };
  set(kKeeps, {2, 3, 46, 47, 54});
  set(kDefaults, {2, 3, 54, 79, 80, 81});
  set(kInterfaceLine, {46, 47, 71, 72});
  return bits;
}

bool HasBit(std::int32_t type, TypeBit bit) {
  static constexpr auto kBits = TypeBits();
  return type >= 0 && static_cast<std::size_t>(type) < kBits.size() &&
         (kBits[static_cast<std::size_t>(type)] & bit) != 0;
}

bool HasSpecialProperty(std::int32_t type) {
  return element::CarriesSpecialProperty(type) && type != 46 && type != 47;
}

}  // namespace

namespace element_rule {
bool IsWithEcrdType(std::int32_t type) { return element::CarriesOrientation(type); }
bool KeepsOrientation(std::int32_t type) { return HasBit(type, kKeeps); }
bool HasDefaultOrientation(std::int32_t type) { return HasBit(type, kDefaults); }
bool IsInterfaceLine(std::int32_t type) { return HasBit(type, kInterfaceLine); }
}  // namespace element_rule

// ---- nodes --------------------------------------------------------------------------------------

int DPoolNode::Get(ITR pos, tagTNode& out) const {
  if (!Set().IsLinked(pos)) return 0;
  out = GetAtNU(pos);
  ConvertUnitsOut(out, GetSession()->Units());
  return 1;
}

int DPoolNode::SetAtNU(ITR pos, const tagTNode& node) {
  return Set().IsLinked(pos) ? DPoolPlain::SetAtNU(pos, node) : 0;
}

int DPoolNode::SetAt(ITR pos, const tagTNode& node) {
  if (!Set().IsLinked(pos)) return 0;
  tagTNode stored = node;
  ConvertUnitsIn(stored, GetSession()->Units());
  return SetAtNU(pos, stored);
}

// ---- elements of nodes --------------------------------------------------------------------------

struct DPoolElem::NodeAssociation {
  RowIndex base;
  std::unordered_map<ITR, std::vector<ITR>> changed;  // nodes whose elements differ from the base
  std::uint64_t revision;                             // of the elements

  std::span<const ITR> Elements(ITR node) const {
    const auto found = changed.find(node);
    return found == changed.end() ? base.Users(node) : std::span<const ITR>(found->second);
  }
  std::vector<ITR>& Change(ITR node) {
    const auto [place, is_new] = changed.try_emplace(node);
    if (is_new) {
      const std::span<const ITR> elements = base.Users(node);
      place->second.assign(elements.begin(), elements.end());
    }
    return place->second;
  }
  void Add(const tagTElem& element, ITR pos) {
    for (const ITR node : element.nodes) {
      if (node == 0) continue;
      std::vector<ITR>& elements = Change(node);
      if (std::find(elements.begin(), elements.end(), pos) == elements.end()) {
        elements.push_back(pos);
      }
    }
  }
  void Drop(const tagTElem& element, ITR pos) {
    for (const ITR node : element.nodes) {
      if (node != 0) std::erase(Change(node), pos);
    }
  }
  /// More changes than this cost more than building the association anew.
  bool IsWorn() const { return changed.size() > 10000; }
};

DPoolElem::DPoolElem(CQXDBSession* session) : DPoolPlain(session) {}
DPoolElem::~DPoolElem() = default;

const DPoolNode& DPoolElem::Nodes() const { return *GetSession()->GetPool<DPoolNode>(code::kNode); }

ReferenceIndex& DPoolElem::References() const {
  if (!references_) references_ = std::make_unique<ReferenceIndex>(*GetSession());
  return *references_;
}

bool DPoolElem::AssociationIsCurrent() const {
  // What is rehearsed is taken back, and the association then holds as it was.
  return by_node_ && by_node_->revision == Set().Revision() && !GetSession()->IsRehearsing();
}

std::int32_t DPoolElem::GetElemListByNodeItr(ITR node, TArray<ITR>& out) const {
  out.SetSize(0);
  if (node == 0) return 0;
  if (!AssociationIsCurrent() || by_node_->IsWorn()) {
    by_node_.reset();
    const Row& row = *GetSchema().Find(u"_NODE_IDS");
    by_node_.reset(new NodeAssociation{RowIndex(*this, row, Nodes()), {}, Set().Revision()});
  }
  const std::span<const ITR> elements = by_node_->Elements(node);
  out.Assign(elements.data(), elements.size());
  return out.GetSize();
}

void DPoolElem::UpdateDataAssoc(ITR pos, const tagTElem& before, const tagTElem& after) {
  if (before.nodes == after.nodes) return;
  by_node_->Drop(before, pos);
  by_node_->Add(after, pos);
}

void DPoolElem::RemoveDataAssoc(ITR pos) {
  if (!AssociationIsCurrent()) return;
  by_node_->Drop(GetAtNU(pos), pos);
  if (by_node_->IsWorn()) by_node_.reset();
}

// ---- storing ------------------------------------------------------------------------------------

ITR DPoolElem::InsertNU(const tagTElem& element) {
  const bool follow = AssociationIsCurrent();
  const ITR pos = DPool::InsertNU(element);
  if (pos && follow) {
    by_node_->Add(element, pos);
    by_node_->revision = Set().Revision();
  }
  return pos;
}

int DPoolElem::SetAtNU(ITR pos, const tagTElem& element) {
  if (!Set().IsLinked(pos)) return 0;
  if (!AssociationIsCurrent()) return DPool::SetAtNU(pos, element);
  const tagTElem before = GetAtNU(pos);
  if (!DPool::SetAtNU(pos, element)) return 0;
  UpdateDataAssoc(pos, before, element);
  by_node_->revision = Set().Revision();
  return 1;
}

/// Stores a record that belongs to an element, whether there is one already or not.
template <class T>
int DPoolElem::StoreAttached(ITR pos, const T& record) {
  auto* pool = GetSession()->GetPool<DPool<T>>(T::kType);
  if (!pool) return 0;
  const ITR there = GetSession()->Owned().Find(T::kType, pos);
  return there ? pool->SetAtNU(there, record) : pool->InsertNU(record) != 0;
}

int DPoolElem::SetAtNUwCsys(ITR pos, const tagTElem& element, tagTEcrd& orientation, int check) {
  if (check && !IsValidEcrd(element, orientation)) return 0;
  if (!SetAtNU(pos, element)) return 0;
  orientation.key = element.key;
  orientation.element_type = element.type;
  return StoreAttached(pos, orientation);
}

int DPoolElem::SetAtNUwSprop(ITR pos, const tagTElem& element, tagTSprop& property, int) {
  if (!SetAtNU(pos, element)) return 0;
  property.key = element.key;
  return StoreAttached(pos, property);
}

int DPoolElem::SetAtWithKeepData(ITR pos, const tagTElem& element) {
  if (!Set().IsLinked(pos)) return 0;
  // The data is looked up under the new key, once it has followed there.
  if (GetAtNU(pos).key != element.key && !SetAtNU(pos, element)) return 0;
  if (element_rule::KeepsOrientation(element.type)) {
    tagTEcrd orientation;
    GetElemCSys(pos, orientation);
    if (!SetAtNUwCsys(pos, element, orientation, 0)) return 0;
  }
  if (HasSpecialProperty(element.type)) {
    tagTSprop property;
    GetElemNUSprop(pos, property);
    if (!SetAtNUwSprop(pos, element, property, 0)) return 0;
  }
  const bool is_plain =
      element.type == 0 || element.type == 1 || (element.type >= 4 && element.type <= 29);
  return is_plain ? SetAtNU(pos, element) : 1;
}

int DPoolElem::SetAtSprop(ITR pos, const tagTSprop& property) {
  if (!Set().IsLinked(pos)) return 0;
  tagTSprop stored = property;
  stored.key = GetAtNU(pos).key;
  ConvertUnitsIn(stored, GetSession()->Units());
  return StoreAttached(pos, stored);
}

namespace {

template <class T>
int CopyKeyed(const CQXDBSession& session, ITR element, T& out) {
  const ITR pos = session.Owned().Find(T::kType, element);
  if (pos) out = session.GetPool<DPool<T>>(T::kType)->GetAtNU(pos);
  return pos != 0;
}

}  // namespace

int DPoolElem::GetElemCSys(ITR pos, tagTEcrd& out) const {
  return Set().IsLinked(pos) && CopyKeyed(*GetSession(), pos, out);
}

int DPoolElem::GetElemNUSprop(ITR pos, tagTSprop& out) const {
  return Set().IsLinked(pos) && CopyKeyed(*GetSession(), pos, out);
}

int DPoolElem::GetElemSprop(ITR pos, tagTSprop& out) const {
  if (!GetElemNUSprop(pos, out)) return 0;
  ConvertUnitsOut(out, GetSession()->Units());
  return 1;
}

// ---- removing -----------------------------------------------------------------------------------

int DPoolElem::RemoveNext(ITR& pos) {
  if (!Set().IsLinked(pos)) return 0;
  if (GetSession() && !GetSession()->Owned().TakeAlong(GetTypeCode(), pos)) return 0;
  RemoveDataAssoc(pos);
  const bool follow = AssociationIsCurrent();
  const int result = DPool::RemoveNext(pos);
  if (follow) by_node_->revision = Set().Revision();
  return result;
}

int DPoolElem::Remove(const ITR& pos) {
  ITR moving = pos;
  return RemoveNext(moving);
}

void DPoolElem::RemoveAll() {
  for (ITR pos = GetSession() ? GetHeadPosition() : 0; pos; Next(pos)) {
    GetSession()->Owned().TakeAlong(GetTypeCode(), pos);
  }
  by_node_.reset();
  DPool::RemoveAll();
}

// ---- reacting -----------------------------------------------------------------------------------

/// An element dies with its property only in a step that removes nodes, or, where the application
/// says so, adds or changes elements; otherwise it loses it. That depends on the step and is no
/// matter of a row.
int DPoolElem::ProcessRelation() {
  CQXDBSession& session = *GetSession();
  constexpr int kTendonMode = 99;
  IAppDB* app = IAppDB::Instance();
  const bool wide = (app && app->QueryMode(&session, kTendonMode) != 0) || IsVariantC();
  const DPoolBase* nodes = session.GetDataPool(code::kNode);
  const bool runs = (nodes && nodes->WasEdited(kRemovedFlag)) ||
                    (wide && WasEdited(kInsertedFlag | kModifiedFlag));
  const Row* property = runs ? GetSchema().Find(u"_PROPERTY") : nullptr;
  const auto rule = [&](const Row& row) {
    return &row == property ? OnRemoval::kDie : row.on_removal;
  };
  if (!session.Follow().Process(*this, rule)) return 0;
  if (!runs || !wide) return 1;
  IQXDbInterface* host = IQXDbInterface::Instance();
  if (!host) return 0;
  // Asked once a step: later rounds only repair what splitting has caused.
  if (session.RelationRound() > 1) return 1;
  return host->NeedSplitMergedTendonNode(&session) ? SplitMergedTendonNode() : 1;
}

void DPoolElem::OnAfterActive(unsigned long, void*) {
  auto* orientations = GetSession()->GetPool<DPoolEcrd>(code::kEcrd);
  if (!orientations) return;
  for (ITR pos = orientations->GetHeadPosition(); pos;) {
    const tagTEcrd& record = orientations->GetAtNU(pos);
    const ITR element = Find(record.key);
    if (element == 0) {
      orientations->RemoveNext(pos);
      continue;
    }
    if (record.element_type != GetAtNU(element).type) {
      tagTEcrd repaired = record;
      repaired.element_type = GetAtNU(element).type;
      orientations->SetAtNU(pos, repaired);
    }
    orientations->Next(pos);
  }
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    const tagTElem& element = GetAtNU(pos);
    // Only where a missing record means the default anyway, so that no element turns.
    if (!element_rule::HasDefaultOrientation(element.type)) continue;
    if (orientations->Find(element.key)) continue;
    tagTEcrd record;
    record.key = element.key;
    record.element_type = element.type;
    orientations->InsertNU(record);
  }
}

void DPoolElem::OnAfterUndoRedo() { by_node_.reset(); }

// ---- queries ------------------------------------------------------------------------------------

std::int32_t DPoolElem::GetItrPropList(ITR property, TArray<ITR>& out) const {
  out.SetSize(0);
  if (property == 0) return 0;
  const auto elements = References().Users(*this, *GetSchema().Find(u"_PROPERTY"), property);
  out.Assign(elements.data(), elements.size());
  return out.GetSize();
}

int DPoolElem::IsUsedItrProp(const ITR& property) const {
  return property != 0 &&
         !References().Users(*this, *GetSchema().Find(u"_PROPERTY"), property).empty();
}

int DPoolElem::GetItrSetByItrPropSet(const std::set<ITR>& properties,
                                     std::set<ITR>& elements) const {
  for (const ITR property : properties) {
    TArray<ITR> list;
    GetItrPropList(property, list);
    elements.insert(list.begin(), list.end());
  }
  return 1;
}

int DPoolElem::Private_ApplyProp(const TArray<ITR>& elements, ITR property) {
  if (IsDead(property)) return 0;
  for (const ITR pos : elements) {
    if (!Set().IsLinked(pos)) return 0;
    tagTElem element = GetAtNU(pos);
    element.property = property;
    if (!SetAtNU(pos, element)) return 0;
  }
  return 1;
}

namespace {

/// Whether a record of one of the pools lists the element.
int IsListed(const DPoolElem& elements, ITR pos, std::initializer_list<std::uint16_t> types) {
  if (!elements.Set().IsLinked(pos)) return 0;
  for (const std::uint16_t type : types) {
    const DPoolBase* pool = elements.GetSession()->GetDataPool(type);
    if (!pool) continue;
    for (const Row* row : pool->GetSchema().References()) {
      if (row->target != code::kElem) continue;
      if (!elements.References().Users(*pool, *row, pos).empty()) return 1;
    }
  }
  return 0;
}

}  // namespace

int DPoolElem::Is1DParamExist(ITR pos) const {
  return IsListed(*this, pos, {code::kE1DOffset, code::kE1DRelease});
}

int DPoolElem::Is2DParamExist(ITR pos) const {
  return IsListed(*this, pos,
                  {code::kE2DThick, code::kE2DOffset, code::kE2DMatlCsys, code::kE2DRelease,
                   code::kE2DSatUnsat, code::kE2DAutoTemp});
}

}  // namespace qx
