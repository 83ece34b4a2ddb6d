// Rules of mesh sets: what they select, kept from one question to the next.

#include "qx_db/model/set_rules.h"

#include <algorithm>
#include <fmt/format.h>
#include <mutex>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "qx_db/core/belongings.h"
#include "qx_db/core/session.h"
#include "qx_db/core/step_changes.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/record/record_impl.h"
#include "qx_db/select/conditions.h"
#include "qx_db/select/lexer.h"
#include "qx_db/select/rule_records.h"
#include "qx_db/select/rule_text.h"

namespace qx {

template class DPool<tagTSetRule>;
template class DPoolExtDB<tagTSetRule>;
template class DPoolPlain<tagTSetRule>;

namespace {

using namespace select;

/// A number that is another after every change of a record or of the units.
std::uint64_t StampOf(const CQXDBSession& session) {
  std::uint64_t stamp = 0;
  const auto add = [&](std::uint64_t number) {
    stamp = (stamp ^ number) * 0x9E3779B97F4A7C15u;
    stamp ^= stamp >> 32;
  };
  for (const DPoolBase* pool : session.Pools()) add(pool->Set().Revision());
  for (const auto base : {UnitBase::kLength, UnitBase::kAngle}) {
    add(static_cast<std::uint64_t>(session.Units().Model()[base]));
    add(static_cast<std::uint64_t>(session.Units().Current()[base]));
  }
  return stamp;
}

}  // namespace

// ---- members ------------------------------------------------------------------------------------

struct SetMembers::Content {
  const TArray<ITR>* nodes = nullptr;  // of the set's record, or one of those below
  const TArray<ITR>* elements = nullptr;
  TArray<ITR> own_elements;
  mutable TArray<ITR> own_nodes;
  mutable std::once_flag nodes_known;
  const DPoolBase* node_pool = nullptr;  // while the nodes of the elements are not among the nodes
  std::optional<Failure> fault;
};

namespace {

/// A list and what it does not have of others, each once, without what is dead.
TArray<ITR> United(const DPoolBase& pool, const TArray<ITR>& list, const TArray<ITR>& more) {
  if (list.IsEmpty()) return more;
  ItemMarks met(pool);
  TArray<ITR> all;
  for (const auto* const part : {&list, &more}) {
    for (const ITR item : *part) {
      if (IsLive(item) && met.Insert(item)) all.Add(item);
    }
  }
  return all;
}

const TArray<ITR>& Empty() {
  static const TArray<ITR> none;
  return none;
}

}  // namespace

SetMembers::SetMembers() {
  auto content = std::make_shared<Content>();
  content->nodes = content->elements = &Empty();
  content_ = std::move(content);
}

const TArray<ITR>& SetMembers::Elements() const { return *content_->elements; }

/// Those of an element rule are gathered when they are first asked for.
const TArray<ITR>& SetMembers::Nodes() const {
  const Content& content = *content_;
  if (!content.node_pool) return *content.nodes;
  std::call_once(content.nodes_known, [&content] {
    ItemMarks met(*content.node_pool);
    TArray<ITR>& nodes = content.own_nodes;
    const auto add = [&](const TArray<ITR>& items) {
      for (const ITR node : items) {
        if (IsLive(node) && met.Insert(node)) nodes.Add(node);
      }
    };
    add(*content.nodes);
    for (const ITR element : *content.elements) {
      add(static_cast<const tagTElem*>(KeyedSetBase::RecordAt(element))->nodes);
    }
  });
  return content.own_nodes;
}

const std::optional<Failure>& SetMembers::Fault() const { return content_->fault; }

struct DPoolSetRule::Derived {
  struct Entry {
    std::uint64_t stamp = 0;  // of the session, when the members were derived
    std::shared_ptr<const SetMembers::Content> content;
    bool is_open = false;  // being evaluated
    // Of a rule that can follow steps: what it selected at the end of one.
    std::u16string text;
    bool has_state = false;
    std::int64_t state = 0;
    double tolerance = 0;
    std::vector<bool> selected;  // by slot
  };
  std::uint64_t asked = 0;    // see DPoolSetRule::Asked
  std::recursive_mutex lock;  // rules ask for the members of the sets that they name
  std::unordered_map<ITR, Entry> entries;
};

DPoolSetRule::DPoolSetRule(CQXDBSession* session)
    : DPoolPlain(session), derived_(std::make_unique<Derived>()) {}
DPoolSetRule::~DPoolSetRule() = default;

std::uint64_t DPoolSetRule::Asked() const { return derived_->asked; }

void DPoolSetRule::OnAfterLoad(unsigned long, void*) { derived_->entries.clear(); }

namespace {

std::shared_ptr<SetMembers::Content> ListOf(const tagTMset& set) {
  auto content = std::make_shared<SetMembers::Content>();
  content->nodes = &set.nodes;
  content->elements = &set.elements;
  return content;
}

/// Whether places of nodes matter to a term.
bool AsksForPlaces(const Term& term) {
  return (term.condition && term.condition->evaluate != MarkKeys &&
          !term.arguments.numbers.empty()) ||
         std::any_of(term.parts.begin(), term.parts.end(), AsksForPlaces);
}

/// How many changes lead from a state to the present one; none where memory does not have them.
std::optional<std::size_t> ChangesFrom(const Journal& history, std::int64_t state) {
  std::size_t count = 0;
  for (auto step = history.Done().rbegin(); step != history.Done().rend(); ++step) {
    if (step->State() == state) return count;
    count += step->changes.size();
  }
  if (history.FirstState() == state) return count;
  count = 0;
  for (auto step = history.Undone().rbegin(); step != history.Undone().rend(); ++step) {
    count += step->changes.size();
    if (step->State() == state) return count;
  }
  return {};
}

/// One rule being answered.
class Asking {
 public:
  using Entry = DPoolSetRule::Derived::Entry;

  Asking(const DPoolSetRule& rules, const CQXDBSession& session, const Term& term,
         std::string_view text, Entry& entry)
      : rules_(rules),
        session_(session),
        term_(term),
        text_(text),
        entry_(entry),
        pool_(*session.GetDataPool(term.kind == SelectKind::kNodes ? code::kNode : code::kElem)) {}

  /// What the rule selects now, in the order of the pool.
  Result<TArray<ITR>> Answer() {
    const bool is_open = session_.History().IsOpen();
    const bool follows = LooksAtOne(term_, pools_) && NamesPlainSets();
    if (follows && !is_open && entry_.has_state && Follow()) return Listed();
    const MeshView mesh(session_, text_);
    Marks marks;
    if (Outcome marked = Mark(mesh, term_, marks); !marked) return marked.Error();
    const std::vector<ITR>& records =
        (term_.kind == SelectKind::kNodes ? mesh.Nodes() : mesh.Elements()).Records();
    rules_.Known().asked += records.size();
    TArray<ITR> items;
    marks.ForEach([&](std::size_t i) { items.Add(records[i]); });
    if (is_open) return items;  // what is known of the last step's end stays so
    entry_.has_state = follows;
    if (!follows) return items;
    entry_.state = rules_.GetSession()->State();
    entry_.tolerance = AsksForPlaces(term_) ? mesh.Tolerance() : 0;
    entry_.selected.assign(pool_.Set().SlotLimit(), false);
    for (const ITR item : items) entry_.selected[pool_.Set().SlotOf(item)] = true;
    return items;
  }

 private:
  /// Whether none of the sets that the rule names has a rule, whose answer may come from anywhere.
  bool NamesPlainSets() const {
    bool plain = true;
    const MeshView mesh(session_, text_);
    ForEachSetCondition(term_, [&](const Term& condition) {
      const auto named = SetsNamedBy(mesh, condition);
      plain = plain && named && std::all_of(named->begin(), named->end(), [&](ITR set) {
                return RuleAt(session_, set) == 0;
              });
    });
    return plain;
  }

  /// Asks what the steps since the known state touched. False where all is to be asked.
  bool Follow() {
    const auto count = ChangesFrom(session_.History(), entry_.state);
    constexpr std::size_t kFew = 8;  // with more, asking all costs less
    if (!count || kFew * *count > static_cast<std::size_t>(pool_.GetSize())) return false;
    const auto changes = ChangesSince(session_, entry_.state);
    if (!changes || changes->units) return false;
    std::vector<ITR> nodes, elements, gone;
    std::vector<ITR> moved;
    bool any_node = false;
    for (const RecordChange& change : changes->records) {
      if (std::find(pools_.begin(), pools_.end(), change.type) != pools_.end()) return false;
      const bool is_gone = change.operation == tagTRNotify::kRemoved;
      any_node = any_node || change.type == code::kNode;
      if (is_gone && change.type == pool_.GetTypeCode()) gone.push_back(change.item);
      if (is_gone) continue;
      if (change.type == code::kElem) elements.push_back(change.item);
      if (change.type == code::kNode) nodes.push_back(change.item);
      if (change.type == code::kNode && change.operation == tagTRNotify::kModified) {
        moved.push_back(change.item);
      }
    }
    const bool by_place = AsksForPlaces(term_);
    if (by_place && any_node && MeshView(session_, text_).Tolerance() != entry_.tolerance) {
      return false;
    }
    if (term_.kind == SelectKind::kElements) {
      if (by_place && !moved.empty()) AddElementsAt(moved, elements);
      nodes.clear();
      for (const ITR element : elements) {
        for (const ITR node :
             static_cast<const tagTElem*>(KeyedSetBase::RecordAt(element))->nodes) {
          if (IsLive(node)) nodes.push_back(node);
        }
      }
      std::sort(nodes.begin(), nodes.end());
      nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    } else {
      elements.clear();
    }
    const std::vector<ITR>& asked = term_.kind == SelectKind::kNodes ? nodes : elements;
    const MeshView part(session_, text_, nodes, elements, entry_.tolerance);
    Marks marks;
    if (!Mark(part, term_, marks)) return false;
    rules_.Known().asked += asked.size();
    const KeyedSetBase& set = pool_.Set();
    entry_.selected.resize(set.SlotLimit(), false);
    for (const ITR item : gone) entry_.selected[set.SlotOf(item)] = false;
    for (std::size_t i = 0; i < asked.size(); ++i) {
      entry_.selected[set.SlotOf(asked[i])] = marks.Has(i);
    }
    entry_.state = rules_.GetSession()->State();
    return true;
  }

  /// Adds the elements that have any of these nodes.
  void AddElementsAt(const std::vector<ITR>& moved, std::vector<ITR>& elements) const {
    ItemMarks marks(*session_.GetDataPool(code::kNode));
    marks.Add(moved);
    const std::unordered_set<ITR> known(elements.begin(), elements.end());
    for (ITR at = pool_.GetHeadPosition(); at; pool_.Next(at)) {
      const TArray<ITR>& own = static_cast<const tagTElem*>(KeyedSetBase::RecordAt(at))->nodes;
      if (marks.HasAny({own.data(), own.size()}) && !known.contains(at)) elements.push_back(at);
    }
  }

  TArray<ITR> Listed() const {
    TArray<ITR> items;
    for (ITR at = pool_.GetHeadPosition(); at; pool_.Next(at)) {
      if (entry_.selected[pool_.Set().SlotOf(at)]) items.Add(at);
    }
    return items;
  }

  const DPoolSetRule& rules_;
  const CQXDBSession& session_;
  const Term& term_;
  const std::string_view text_;
  Entry& entry_;
  const DPoolBase& pool_;             // of what the rule selects
  std::vector<std::uint16_t> pools_;  // that the answer depends on besides
};

std::shared_ptr<const SetMembers::Content> Derive(const CQXDBSession& session, ITR set,
                                                  const DPoolSetRule& rules, ITR rule,
                                                  DPoolSetRule::Derived::Entry& entry) {
  auto content = ListOf(SetAt(set));
  const std::u16string_view text = rules.GetAtNU(rule).text.View();
  if (entry.text != text) {
    entry.text = text;
    entry.has_state = false;
  }
  const std::string written = Utf8(text);
  const auto term = ReadTerm(written, {});
  if (!term) {
    content->fault = term.Error();
    return content;
  }
  if (term->kind == SelectKind::kFaces) {  // only a damaged file has such
    content->fault = Failure{"", "where", "selects faces, and mesh sets have nodes and elements",
                             "give the set another rule"};
    return content;
  }
  auto selected = Asking(rules, session, *term, written, entry).Answer();
  if (!selected) {
    entry.has_state = false;
    content->fault = selected.Error();
    return content;
  }
  if (term->kind == SelectKind::kNodes) {
    content->own_nodes = United(*session.GetDataPool(code::kNode), *content->nodes, *selected);
    content->nodes = &content->own_nodes;
    return content;
  }
  content->own_elements = United(*session.GetDataPool(code::kElem), *content->elements, *selected);
  content->elements = &content->own_elements;
  content->node_pool = session.GetDataPool(code::kNode);
  return content;
}

}  // namespace

SetMembers MembersOf(const CQXDBSession& session, ITR set) {
  const ITR rule = RuleAt(session, set);
  if (rule == 0) return SetMembers(ListOf(SetAt(set)));
  DPoolSetRule& rules = *RulesOf(session);
  DPoolSetRule::Derived& known = rules.Known();
  const std::lock_guard guard(known.lock);
  const std::uint64_t stamp = StampOf(session);
  DPoolSetRule::Derived::Entry& entry = known.entries[rule];
  if (entry.is_open) {  // only a damaged file has circles
    auto content = ListOf(SetAt(set));
    content->fault = Failure{"", "where", "the rule depends on the set itself",
                             "change one of the rules on the way round"};
    return SetMembers(std::move(content));
  }
  if (!entry.content || entry.stamp != stamp) {
    entry.is_open = true;
    const auto close = [&known, rule](int*) { known.entries[rule].is_open = false; };
    int anything = 0;
    const std::unique_ptr<int, decltype(close)> closing(&anything, close);
    auto content = Derive(session, set, rules, rule, entry);
    entry.content = std::move(content);  // entries are not moved when others are made
    entry.stamp = stamp;
  }
  return SetMembers(entry.content);
}

std::string RuleOf(const CQXDBSession& session, ITR set) {
  const ITR rule = RuleAt(session, set);
  return rule == 0 ? "" : Utf8(RulesOf(session)->GetAtNU(rule).text.View());
}

}  // namespace qx
