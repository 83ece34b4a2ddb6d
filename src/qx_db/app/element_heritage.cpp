#include "qx_db/app/element_heritage.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "qx_db/app/mesh_util.h"
#include "qx_db/app/side_references.h"
#include "qx_db/core/belongings.h"
#include "qx_db/core/session.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/side_nodes.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/record/attribute_records.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// Whether a record speaks of an element's ends, corners or upper side, and so of the order in
/// which its nodes are listed.
bool DependsOnOrder(const TStructBase& record, std::uint16_t type) {
  switch (type) {
    case code::kE1DOffset:
    case code::kE1DRelease:
    case code::kE2DOffset:
    case code::kEcrd:
      return true;
    case code::kE2DThick:
      return !static_cast<const tagTE2DThick&>(record).uniform;
    case code::kE2DMatlCsys:
      return static_cast<const tagTE2DMatlCsys&>(record).type == tagTE2DMatlCsys::kByAngle;
    default:
      return false;
  }
}

/// Whether a row is that of an attribute, of which an element has one in its pool.
bool IsExclusive(const Row& row) {
  return row.IsArray() ? row.on_removal == OnRemoval::kDieWithLast
                       : row.on_removal == OnRemoval::kDie;
}

bool NamesElements(const Row* row) { return row->target == code::kElem; }

class Heir {
 public:
  Heir(CQXDBSession& session, std::span<const Replaced> elements,
       std::vector<LeftBehind>& left_behind)
      : session_(session), elements_(elements), left_behind_(left_behind) {
    for (const Replaced& pair : elements) stays_.emplace(pair.goes, pair.stays);
  }

  bool TakeAll() {
    for (const auto& [goes, stays] : elements_) {
      if (!TakeProperty(goes, stays) || !TakeBelongings(goes, stays)) return false;
    }
    for (DPoolBase* pool : session_.Pools()) {
      if (pool->GetTypeCode() != code::kElem && !TakeReferences(*pool)) return false;
    }
    return TakeSides();
  }

 private:
  ITR After(ITR element) const {
    const auto found = stays_.find(element);
    return found == stays_.end() ? element : found->second;
  }
  static bool SameOrder(ITR goes, ITR stays) {
    return ElementAt(goes)->nodes == ElementAt(stays)->nodes;
  }
  void LeaveBehind(ITR goes, std::uint16_t type) {
    left_behind_.push_back({KeyOf(goes), KeyOf(After(goes)), type});
  }

  bool TakeProperty(ITR goes, ITR stays) {
    const ITR property = ElementAt(goes)->property, own = ElementAt(stays)->property;
    if (property == 0 || property == own) return true;
    if (own != 0) {
      LeaveBehind(goes, code::kProp);
      return true;
    }
    tagTElem copy = *ElementAt(stays);
    copy.property = property;
    return Pool<tagTElem>(session_).SetAtNU(stays, copy) != 0;
  }

  /// Records under the element's key.
  bool TakeBelongings(ITR goes, ITR stays) {
    for (const Belongings::Kind& kind : session_.Owned().Of(code::kElem)) {
      if (kind.row->taken_along && !kind.row->taken_along(*ElementAt(goes))) continue;
      const ITR item = session_.Owned().Find(kind, goes);
      if (!item) continue;
      const ITR own = session_.Owned().Find(kind, stays);
      const auto copy = kind.pool->CopyRecord(item);
      KeyedSetBase::SetKey(*copy, KeyOf(stays));
      const Schema& schema = kind.pool->GetSchema();
      if (own && Differences(schema, *KeyedSetBase::RecordAt(own), *copy).empty()) continue;
      if (own || (DependsOnOrder(*copy, kind.pool->GetTypeCode()) && !SameOrder(goes, stays))) {
        LeaveBehind(goes, kind.pool->GetTypeCode());
        continue;
      }
      if (!kind.pool->SetAtNU(item, copy.get())) return false;
    }
    return true;
  }

  bool TakeReferences(DPoolBase& pool) {
    const Schema& schema = pool.GetSchema();
    const auto rows = schema.References();
    if (std::none_of(rows.begin(), rows.end(), NamesElements)) return true;
    std::vector<ITR> concerned;
    described_.clear();
    for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
      bool is_concerned = false;
      ForEachReference(schema, *KeyedSetBase::RecordAt(at), [&](const Row& row, const char* slot) {
        if (row.target != code::kElem) return;
        const ITR element = LoadAt<ITR>(slot);
        is_concerned |= stays_.contains(element);
        if (IsExclusive(row)) described_.insert(element);
      });
      if (is_concerned) concerned.push_back(at);
    }
    for (const ITR at : concerned) {
      const auto copy = pool.CopyRecord(at);
      bool changed = false;
      for (const Row* row : rows) {
        // What lists elements by their sides changes with the sides.
        if (!NamesElements(row) || NamesSides(row) || pool.GetTypeCode() == code::kGElem) continue;
        changed |= Take(pool.GetTypeCode(), *row, *copy);
      }
      if (!changed) continue;
      if (!pool.SetAtNU(at, copy.get())) return false;
    }
    return true;
  }

  /// Whether the element that stays can take what an attribute's record says of the one that goes.
  bool CanTake(std::uint16_t type, const TStructBase& record, ITR goes) {
    const ITR stays = After(goes);
    const bool can =
        !described_.contains(stays) && (!DependsOnOrder(record, type) || SameOrder(goes, stays));
    if (can) {
      described_.insert(stays);
    } else {
      LeaveBehind(goes, type);
    }
    return can;
  }

  bool Take(std::uint16_t type, const Row& row, TStructBase& record) {
    char* const bytes = detail::Bytes(record);
    if (!row.IsArray()) {
      const ITR now = LoadAt<ITR>(bytes + row.offset), then = After(now);
      if (now == then || (IsExclusive(row) && !CanTake(type, record, now))) return false;
      StoreAt<ITR>(bytes + row.offset, then);
      return true;
    }
    ArrayStorage& array = detail::ArrayAt(bytes, row);
    std::unordered_set<ITR> listed;
    detail::ForEachSlot(row, static_cast<char*>(array.data), array.count,
                        [&](const Row&, const char* slot) { listed.insert(LoadAt<ITR>(slot)); });
    bool changed = false;
    // Where the list has the element that stays already, the other leaves it when it is removed.
    detail::ForEachSlot(row, static_cast<char*>(array.data), array.count,
                        [&](const Row&, char* slot) {
                          const ITR now = LoadAt<ITR>(slot), then = After(now);
                          if (now == then) return;
                          if (listed.contains(then)) {
                            // A list loses nothing; a table of values loses one.
                            if (row.elements) LeaveBehind(now, type);
                            return;
                          }
                          if (IsExclusive(row) && !CanTake(type, record, now)) return;
                          StoreAt<ITR>(slot, then);
                          listed.insert(then);
                          changed = true;
                        });
    return changed;
  }

  bool TakeSides() {
    return ChangeSides(
        session_, [&](int kind, const tagTElemSide& side) -> std::optional<tagTElemSide> {
          const ITR stays = After(side.element);
          if (stays == side.element) return {};
          if (kind == kWholeElement) return tagTElemSide{stays, side.side};
          const auto nodes_of = [&](const tagTElemSide& of) {
            const SideNodes nodes(kind, of, false);
            return std::set<ITR>(nodes.Nodes().begin(), nodes.Nodes().end());
          };
          const std::set<ITR> wanted = nodes_of(side);
          constexpr std::int32_t kMostSides = 12;
          for (std::int32_t number = 0; number < kMostSides && !wanted.empty(); ++number) {
            if (nodes_of({stays, number}) != wanted) continue;
            return tagTElemSide{stays, number};
          }
          return {};  // of no such side nothing is lost
        });
  }

  CQXDBSession& session_;
  std::span<const Replaced> elements_;
  std::vector<LeftBehind>& left_behind_;
  std::unordered_map<ITR, ITR> stays_;
  std::unordered_set<ITR> described_;  ///< elements that a record of the pool at hand describes
};

}  // namespace

bool HandOn(CQXDBSession& session, std::span<const Replaced> elements,
            std::vector<LeftBehind>& left_behind) {
  return Heir(session, elements, left_behind).TakeAll();
}

}  // namespace qx
