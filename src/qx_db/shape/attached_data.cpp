#include "qx_db/shape/attached_data.h"

#include <algorithm>
#include <memory>

#include "qx_db/app/mesh_util.h"
#include "qx_db/core/belongings.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/record/control_records.h"
#include "qx_db/record/deck_records.h"
#include "qx_db/record/geometry_records.h"

namespace qx {
namespace {

bool IsSet(std::uint16_t type) { return type == code::kMset || type == code::kActiveElemSet; }
bool IsOnGeometry(std::uint16_t type) { return type == code::kGElem || type == code::kGElemHead; }
bool NamesMesh(const Row& row) { return row.target == code::kNode || row.target == code::kElem; }
bool NamesSides(const Row& row) { return row.elements == &tagTElemSide::GetSchema(); }

/// What was made of each record.
class Children {
 public:
  explicit Children(std::span<const Made> made) : made_(made) {
    for (std::size_t begin = 0, end; begin < made.size(); begin = end) {
      for (end = begin; end < made.size() && made[end].of == made[begin].of;) ++end;
      of_.emplace(made[begin].of, made.subspan(begin, end - begin));
    }
  }
  std::span<const Made> Of(ITR record) const {
    const auto found = of_.find(record);
    return found == of_.end() ? std::span<const Made>() : found->second;
  }
  std::span<const Made> All() const { return made_; }

 private:
  std::span<const Made> made_;
  std::unordered_map<ITR, std::span<const Made>> of_;
};

class Passer {
 public:
  Passer(CQXDBSession& session, const AttachedPlan& plan,
         std::map<std::uint16_t, std::int64_t>& left)
      : session_(session), plan_(plan), left_(left), nodes_(plan.nodes), elements_(plan.elements) {}

  bool PassAll() {
    if (!PassBelongings()) return false;
    for (DPoolBase* pool : session_.Pools()) {
      const std::uint16_t type = pool->GetTypeCode();
      if (type == code::kElem || type == code::kNode || IsBelonging(type)) continue;
      if (!PassIn(*pool)) return false;
    }
    if (!plan_.in_place) {
      CountOnGeometry();
      return true;
    }
    return PassOnGeometry();
  }

 private:
  using Rows = std::vector<const Row*>;

  std::span<const Made> Of(const Row& row, ITR target) const {
    return row.target == code::kNode   ? nodes_.Of(target)
           : row.target == code::kElem ? elements_.Of(target)
                                       : std::span<const Made>();
  }
  bool IsBelonging(std::uint16_t type) const {
    for (const Belongings::Kind& kind : session_.Owned().Of(code::kElem)) {
      if (kind.pool->GetTypeCode() == type) return true;
    }
    return false;
  }

  /// Has single references of a record lead to what was made of their targets as the `nth`.
  void Lead(const Schema& schema, TStructBase& record, std::size_t nth) const {
    ForEachReference(schema, record, [&](const Row& row, char* slot) {
      if (row.IsArray()) return;
      const auto made = Of(row, LoadAt<ITR>(slot));
      if (!made.empty()) StoreAt<ITR>(slot, made[std::min(nth, made.size() - 1)].made);
    });
  }

  /// Records under the element's key.
  bool PassBelongings() {
    for (const Belongings::Kind& kind : session_.Owned().Of(code::kElem)) {
      if (kind.pool->GetSize() == 0) continue;
      ITR last = 0;
      std::size_t nth = 0;
      for (const auto& [of, made] : elements_.All()) {
        nth = of == last ? nth + 1 : 0;
        last = of;
        if (kind.row->taken_along && !kind.row->taken_along(*ElementAt(made))) continue;
        const ITR item = session_.Owned().Find(kind, of);
        if (!item) continue;
        const auto copy = kind.pool->CopyRecord(item);
        KeyedSetBase::SetKey(*copy, KeyOf(made));
        Lead(kind.pool->GetSchema(), *copy, nth);
        if (!kind.pool->InsertNU(copy.get())) return false;
      }
    }
    return true;
  }

  bool PassIn(DPoolBase& pool) {
    Rows rows;
    for (const Row* row : pool.GetSchema().References()) {
      if (NamesMesh(*row)) rows.push_back(row);
    }
    if (rows.empty() || IsOnGeometry(pool.GetTypeCode())) return true;
    std::vector<ITR> concerned;
    for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
      if (Concerns(pool.GetSchema(), *KeyedSetBase::RecordAt(at))) concerned.push_back(at);
    }
    for (const ITR at : concerned) {
      if (!PassIn(pool, rows, at)) return false;
    }
    return true;
  }

  bool Concerns(const Schema& schema, TStructBase& record) const {
    bool concerned = false;
    ForEachReference(schema, record, [&](const Row& row, const char* slot) {
      if (!concerned && NamesMesh(row)) concerned = !Of(row, LoadAt<ITR>(slot)).empty();
    });
    return concerned;
  }

  bool PassIn(DPoolBase& pool, const Rows& rows, ITR at) {
    const std::uint16_t type = pool.GetTypeCode();
    const bool of_set = IsSet(type) || type == code::kSetTag;
    if (of_set && plan_.sets == SetsOfMade::kNone) return true;
    if (of_set && plan_.sets == SetsOfMade::kNew) {
      return type == code::kSetTag || AddSetBeside(pool, rows, at);
    }
    const auto copy = pool.CopyRecord(at);
    bool changed = false, describes = false;
    for (const Row* row : rows) {
      if (row->IsArray()) {
        changed |= Append(type, *row, *copy, false);
      } else {
        describes |= row->on_removal == OnRemoval::kDie &&
                     !Of(*row, LoadAt<ITR>(detail::Bytes(*copy) + row->offset)).empty();
      }
    }
    if (changed) return pool.SetAtNU(at, copy.get()) != 0;
    if (describes) return AddOneForEach(pool, rows, at);
    ++left_[type];
    return true;
  }

  /// Appends to an array what was made of its members, or puts it in their place. False when there
  /// is nothing.
  bool Append(std::uint16_t type, const Row& row, TStructBase& record, bool instead) const {
    if (row.beside) return false;  // another array has an entry for each of these
    char* const array = detail::Bytes(record) + row.offset;
    if (row.element_size == sizeof(ITR)) {
      auto& list = *reinterpret_cast<TArray<ITR>*>(array);
      TArray<ITR> more;
      for (const ITR member : list) {
        for (const auto& [of, made] : Of(row, member)) more.Add(made);
      }
      if (instead) list = TArray<ITR>();
      for (const ITR made : more) list.Add(made);
      return !more.IsEmpty();
    }
    if (NamesSides(row)) {
      auto& list = *reinterpret_cast<TArray<tagTElemSide>*>(array);
      std::vector<tagTElemSide> more;
      for (const tagTElemSide& side : list) {
        for (const auto& [of, made] : elements_.Of(side.element)) {
          plan_.sides(KindOf(side), side, made, more);
        }
      }
      if (instead) list = TArray<tagTElemSide>();
      for (const tagTElemSide& side : more) list.Add(side);
      return !more.empty();
    }
    if (type != code::kField || !plan_.in_place || row.target != code::kElem) return false;
    if (static_cast<const tagTField&>(record).place != tagTField::kElements) return false;
    auto& list = *reinterpret_cast<TArray<tagTElemValue>*>(array);
    // The numbers of one target follow each other, and so must those of what was made of it.
    TArray<tagTElemValue> more;
    for (std::int64_t begin = 0, end; begin < list.GetSize(); begin = end) {
      const ITR target = list[begin].target;
      for (end = begin; end < list.GetSize() && ITR{list[end].target} == target;) ++end;
      for (const auto& [of, made] : elements_.Of(target)) {
        for (std::int64_t i = begin; i < end; ++i) {
          tagTElemValue value = list[i];
          value.target = made;
          more.Add(value);
        }
      }
    }
    for (const tagTElemValue& value : more) list.Add(value);
    return !more.IsEmpty();
  }

  static int KindOf(const tagTElemSide& side) {
    const tagTElem* element = ElementAt(side.element);
    const ElementTopology type(element ? element->type : 0);
    return type.Class() == topology::kSolidClass && type.HasFace(side.side)
               ? CQXMeshUtil::kFaceSide
               : CQXMeshUtil::kEdgeSide;
  }

  /// A copy of a set that lists what was made of its members.
  bool AddSetBeside(DPoolBase& pool, const Rows& rows, ITR at) {
    const auto copy = pool.CopyRecord(at);
    for (const Row* row : rows) {
      if (row->IsArray()) Append(pool.GetTypeCode(), *row, *copy, true);
    }
    if (pool.GetTypeCode() == code::kMset) {
      auto& sets = static_cast<DPoolMset&>(pool);
      auto& set = static_cast<tagTMset&>(*copy);
      set.name.Set(sets.FreeName(set.name.View()));
      set.color = DPoolMset::GetNewColor();
      set.geometry = 0;
      KeyedSetBase::SetKey(*copy, sets.NewSetKey());
    } else {
      KeyedSetBase::SetKey(*copy, pool.Set().GetFreeKey());
    }
    return pool.InsertNU(copy.get()) != 0;
  }

  /// A record that is nothing without its element or node: one more for each that was made.
  bool AddOneForEach(DPoolBase& pool, const Rows& rows, ITR at) {
    std::size_t most = 0;
    for (const Row* row : rows) {
      if (row->IsArray() || row->on_removal != OnRemoval::kDie) continue;
      const auto record = pool.CopyRecord(at);
      most = std::max(most, Of(*row, LoadAt<ITR>(detail::Bytes(*record) + row->offset)).size());
    }
    for (std::size_t nth = 0; nth < most; ++nth) {
      const auto copy = pool.CopyRecord(at);
      Lead(pool.GetSchema(), *copy, nth);
      KeyedSetBase::SetKey(*copy, pool.Set().GetFreeKey());
      if (!pool.InsertNU(copy.get())) return false;
    }
    return true;
  }

  // ---- elements on geometry
  // -----------------------------------------------------------------------

  void CountOnGeometry() {
    auto* pool = session_.GetPool<PoolOf<tagTGElem>::type>(tagTGElem::kType);
    for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
      if (Concerns(pool->GetSchema(), *KeyedSetBase::RecordAt(at))) ++left_[code::kGElem];
    }
  }

  bool PassOnGeometry() {
    auto* heads = session_.GetPool<PoolOf<tagTGElemHead>::type>(tagTGElemHead::kType);
    auto* pool = session_.GetPool<PoolOf<tagTGElem>::type>(tagTGElem::kType);
    if (!heads || !pool) return true;
    for (ITR at = heads->GetHeadPosition(); at; heads->Next(at)) {
      const auto* head = LiveRecord<tagTGElemHead>(at);
      const auto* item = LiveRecord<tagTGKey>(head->geometry_key);
      const std::int32_t type = item ? item->ItemType() : 0;
      for (const ITR entry : std::vector<ITR>(head->data.begin(), head->data.end())) {
        const auto* data = LiveRecord<tagTGElem>(entry);
        if (!data || !Concerns(pool->GetSchema(), *KeyedSetBase::RecordAt(entry))) continue;
        tagTGElem copy = *data;
        AppendOnGeometry(type, *data, copy);
        if (!pool->SetAtNU(entry, copy)) return false;
      }
    }
    return true;
  }

  void AppendOnGeometry(std::int32_t type, const tagTGElem& data, tagTGElem& copy) const {
    constexpr std::int32_t kLists = 12;
    for (std::int32_t number = 0; number < kLists; ++number) {
      for (const ITR element : data.elements[number]) {
        for (const auto& [of, made] : elements_.Of(element)) {
          std::vector<tagTElemSide> sides;
          if (type == tagTGKey::kFace) {
            plan_.sides(CQXMeshUtil::kFaceSide, {element, number}, made, sides);
          } else if (type == tagTGKey::kEdge) {
            plan_.sides(CQXMeshUtil::kEdgeSide, {element, number}, made, sides);
          } else {
            sides.push_back({made, number});
          }
          for (const tagTElemSide& side : sides) copy.elements[side.side].Add(side.element);
        }
      }
    }
  }

  CQXDBSession& session_;
  const AttachedPlan& plan_;
  std::map<std::uint16_t, std::int64_t>& left_;
  const Children nodes_, elements_;
};

}  // namespace

bool PassOn(CQXDBSession& session, const AttachedPlan& plan,
            std::map<std::uint16_t, std::int64_t>& left) {
  return Passer(session, plan, left).PassAll();
}

}  // namespace qx
