// Rules of mesh sets: what they select, kept from one question to the next, and how they follow the
// sets that they name.

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
#include "qx_db/select/rule_text.h"

namespace qx {

template class DPool<tagTSetRule>;
template class DPoolExtDB<tagTSetRule>;
template class DPoolPlain<tagTSetRule>;

namespace {

using namespace select;

const tagTMset& SetAt(ITR set) {
  return *static_cast<const tagTMset*>(KeyedSetBase::RecordAt(set));
}

DPoolSetRule* RulesOf(const CQXDBSession& session) {
  return session.GetPool<DPoolSetRule>(code::kSetRule);
}

/// The rule record of a set; 0 for none.
ITR RuleAt(const CQXDBSession& session, ITR set) {
  const DPoolSetRule* const rules = RulesOf(session);
  if (!rules || rules->GetSize() == 0) return 0;
  return session.Owned().Find(code::kSetRule, set);
}

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

// ---- circles ------------------------------------------------------------------------------------

namespace {

/// What a set that is to have this rule depends on; nothing where the rule cannot be read.
std::vector<ITR> DependsOn(const CQXDBSession& session, std::string_view text) {
  const auto term = ReadTerm(text, {});
  if (!term) return {};
  std::vector<ITR> sets;
  const MeshView mesh(session, text);
  ForEachSetCondition(*term, [&](const Term& condition) {
    const auto named = SetsNamedBy(mesh, condition);
    if (named) sets.insert(sets.end(), named->begin(), named->end());
  });
  return sets;
}

/// A way from a set by the rules back to itself, the set first and last; empty where there is none.
/// `text` stands for its rule.
std::vector<ITR> CircleFrom(const CQXDBSession& session, ITR set, std::string_view text) {
  struct Way {
    std::vector<ITR> next;
    std::size_t at = 0;
  };
  std::vector<ITR> path{set};
  std::vector<Way> ways{{DependsOn(session, text)}};
  std::vector<ITR> met{set};
  while (!ways.empty()) {
    Way& way = ways.back();
    if (way.at == way.next.size()) {
      ways.pop_back();
      path.pop_back();
      continue;
    }
    const ITR next = way.next[way.at++];
    if (next == set) {
      path.push_back(set);
      return path;
    }
    if (std::find(met.begin(), met.end(), next) != met.end()) continue;
    met.push_back(next);
    const std::string rule = RuleOf(session, next);
    if (rule.empty()) continue;
    path.push_back(next);
    ways.push_back({DependsOn(session, rule)});
  }
  return {};
}

std::string NameAt(ITR set) { return Utf8(SetAt(set).name.View()); }

std::string CircleText(const std::vector<ITR>& circle) {
  std::string text;
  for (const ITR set : circle) text += (text.empty() ? "\"" : " names \"") + NameAt(set) + "\"";
  return text;
}

/// The condition "size", a length, an area or a volume by what it is of, so that no unit can be
/// kept with its limit; null where a term has none.
const Term* FindSize(const Term& term) {
  if (term.condition && term.condition->evaluate == MarkMeasure && term.arguments.word == "size") {
    return &term;
  }
  for (const Term& part : term.parts) {
    if (const Term* const found = FindSize(part)) return found;
  }
  return nullptr;
}

/// What is wrong with a rule by itself, and with what it names.
Outcome CheckRule(const CQXDBSession& session, ITR set, const std::string& text) {
  const auto rule = SelectionRule::Parse(text);
  if (!rule) return rule.Error();
  if (rule->Kind() == SelectKind::kFaces) {
    return Failure{"", "where", "selects faces, and mesh sets have nodes and elements",
                   "write nodes of (...) or elements of (...)"};
  }
  if (Utf16(text).size() > tagTSetRule::kLongest) {
    return Failure{"", "where",
                   fmt::format("is longer than the {} characters of a rule", tagTSetRule::kLongest),
                   "make mesh sets of its parts, and name them"};
  }
  const std::vector<ITR> circle = CircleFrom(session, set, text);
  if (!circle.empty()) {
    return Failure{"", "where", "mesh sets would depend on themselves: " + CircleText(circle),
                   "change one of these rules"};
  }
  const auto term = ReadTerm(text, {});
  if (const Term* const size = FindSize(*term)) {
    return FaultAt(text, size->at,
                   "the number has no unit, so that the rule would change with them",
                   "write length, area or volume");
  }
  std::optional<Failure> unknown;
  const MeshView mesh(session, text);
  ForEachSetCondition(*term, [&](const Term& condition) {
    const auto named = SetsNamedBy(mesh, condition);
    if (!named && !unknown) unknown = named.Error();
  });
  if (unknown) return *unknown;
  return {};
}

}  // namespace

// ---- changing -----------------------------------------------------------------------------------

Outcome SetRule(CQXDBSession& session, ITR set, std::string_view text, const UnitSystem* units) {
  DPoolSetRule* const rules = RulesOf(session);
  if (!rules) {
    return Failure{"", "rules of mesh sets", "are not of this kind of model", "make plain sets"};
  }
  const ITR former = RuleAt(session, set);
  const Failure refused{"", "rule", "the model takes no change now", "try again"};
  if (text.empty()) return former == 0 || rules->Remove(former) ? Outcome() : Outcome(refused);
  std::string kept(text);
  if (Outcome sound = CheckRule(session, set, kept); !sound) return sound;
  kept = WithUnits(session, kept, units ? *units : session.Units().Current());
  if (Outcome sound = CheckRule(session, set, kept); !sound) return sound;
  if (const auto selection = Select(session, kept); !selection) return selection.Error();
  tagTSetRule rule;
  rule.key = KeyOf(set);
  rule.text.Set(Utf16(kept));
  const bool done = former ? rules->SetAtNU(former, rule) != 0 : rules->InsertNU(rule) != 0;
  return done ? Outcome() : Outcome(refused);
}

Outcome MakePlain(CQXDBSession& session, ITR set) {
  const ITR rule = RuleAt(session, set);
  if (rule == 0) return {};
  const SetMembers members = MembersOf(session, set);
  if (members.Fault()) return *members.Fault();
  tagTMset plain = SetAt(set);
  plain.nodes = members.Nodes();
  plain.elements = members.Elements();
  const bool done = Pool<tagTMset>(session).SetAtNU(set, plain) && RulesOf(session)->Remove(rule);
  if (done) return {};
  return Failure{"", "mesh set \"" + NameAt(set) + "\"", "cannot be changed now", "try again"};
}

// ---- at the end of a step -----------------------------------------------------------------------

namespace {

/// What the open step did to the sets and their rules.
struct TouchedSets {
  struct Former {
    ITR set;
    Key key;
    std::string name;
  };
  std::vector<Former> former;  // sets that were there before and have another name or key, or went
  std::vector<ITR> sets, rules;  // inserted or modified

  bool HasRule(ITR rule) const {
    return std::find(rules.begin(), rules.end(), rule) != rules.end();
  }
  bool HasSet(ITR set) const { return std::find(sets.begin(), sets.end(), set) != sets.end(); }

  explicit TouchedSets(const CQXDBSession& session) {
    const DPoolBase& pool = *session.GetDataPool(code::kMset);
    const Step& step = session.History().Current();
    std::vector<ITR> met;
    for (const Change& change : step.changes) {
      const ITR item = change.item;
      if (change.type == code::kSetRule) {
        if (!HasRule(item)) rules.push_back(item);
      }
      if (change.type != code::kMset) continue;
      if (!HasSet(item)) sets.push_back(item);
      if (std::find(met.begin(), met.end(), item) != met.end()) continue;
      met.push_back(item);
      if (change.operation == tagTRNotify::kInserted) continue;
      Former before{item, KeyOf(item), NameAt(item)};
      if (change.operation == tagTRNotify::kModified) {
        const auto record = pool.NewRecord();
        ReadImage(pool.GetSchema(), step.bytes.data() + step.images[change.list_epoch].before,
                  *record);
        before.key = record->GetKey();
        before.name = Utf8(static_cast<const tagTMset&>(*record).name.View());
      }
      const bool stays = IsLive(item) && KeyOf(item) == before.key && NameAt(item) == before.name;
      if (!stays) former.push_back(std::move(before));
    }
  }
};

/// Sets that bear a name.
std::vector<ITR> SetsCalled(const CQXDBSession& session, std::string_view name) {
  std::vector<ITR> sets;
  const DPoolBase& pool = *session.GetDataPool(code::kMset);
  for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
    if (NameAt(at) == name) sets.push_back(at);
  }
  return sets;
}

/// What should stand for a name or a key in a rule after the step; nothing to leave it. Sets
/// `gone` where a set that it names went and nothing stands for it.
std::optional<std::string> Follow(const CQXDBSession& session, const TouchedSets& step,
                                  const NameOrKey& named, ITR& gone) {
  const bool by_key = named.kind == NameOrKey::Kind::kKey;
  if (!by_key && named.kind != NameOrKey::Kind::kName) return {};
  std::vector<std::string> followed;
  ITR lost = 0;
  for (const TouchedSets::Former& former : step.former) {
    if (by_key ? former.key != named.key : former.name != named.name) continue;
    if (!IsLive(former.set)) {
      lost = former.set;
    } else if (by_key ? KeyOf(former.set) != former.key : NameAt(former.set) != former.name) {
      followed.push_back(by_key ? std::to_string(KeyOf(former.set)) : Quoted(former.set));
    }
  }
  // Of several sets of one name those that keep it are named still.
  if (!by_key) {
    for (const ITR set : SetsCalled(session, named.name)) {
      const bool bore_it =
          std::none_of(step.former.begin(), step.former.end(),
                       [&](const TouchedSets::Former& former) { return former.set == set; }) &&
          !step.HasSet(set);
      if (!bore_it) continue;
      if (followed.empty()) return {};
      followed.push_back(Quoted(set));
      break;
    }
  }
  if (followed.empty()) {
    if (lost != 0) gone = lost;
    return {};
  }
  std::string text;
  for (const std::string& each : followed) text += (text.empty() ? "" : ",") + each;
  return text;
}

}  // namespace

bool DPoolSetRule::IsNamed(ITR set) const {
  for (ITR at = GetHeadPosition(); at; Next(at)) {
    const std::vector<ITR> sets = DependsOn(*GetSession(), Utf8(GetAtNU(at).text.View()));
    if (std::find(sets.begin(), sets.end(), set) != sets.end()) return true;
  }
  return false;
}

int DPoolSetRule::ProcessRelation() {
  if (!DPoolPlain::ProcessRelation()) return 0;
  CQXDBSession& session = *GetSession();
  const auto* const sets = session.GetPool<DPoolMset>(code::kMset);
  if (GetSize() == 0 || !sets || (ChangeFlags() == 0 && sets->ChangeFlags() == 0)) return 1;
  const bool rehearsing = session.IsRehearsing();
  const auto refuse = [&](const char* key, const std::vector<std::string>& arguments) {
    qxMsgOut(Severity::kRefusal, key, arguments);
    return rehearsing ? 1 : 0;
  };
  const TouchedSets step(session);
  TArray<ITR> all;
  Set().GetItrList(all);
  for (const ITR at : all) {
    const tagTSetRule& rule = GetAtNU(at);
    const ITR owner = sets->Find(rule.key);
    if (!owner) {  // gone in this step, or still to come
      const bool has_gone = std::any_of(
          step.former.begin(), step.former.end(), [&](const TouchedSets::Former& former) {
            return !IsLive(former.set) && KeyOf(former.set) == rule.key;
          });
      if (has_gone && !Remove(at)) return 0;
      continue;
    }
    const std::string text = Utf8(rule.text.View());
    const bool is_new = step.HasRule(at);
    if (!is_new && !step.former.empty()) {
      const auto term = ReadTerm(text, {});
      std::vector<TextEdit> edits;
      ITR gone = 0;
      if (term) {
        ForEachSetCondition(*term, [&](const Term& condition) {
          for (const NameOrKey& named : condition.arguments.names) {
            auto now = Follow(session, step, named, gone);
            if (now) edits.push_back({named.at, std::move(*now)});
          }
        });
      }
      if (gone != 0) {
        return refuse("IDS_QX_DB_SET_RULE_NAMES", {NameAt(owner), NameAt(gone)});
      }
      if (!edits.empty()) {
        tagTSetRule changed = rule;
        const std::string followed = Edited(text, edits);
        if (Utf16(followed).size() > tagTSetRule::kLongest) {
          return refuse("IDS_QX_DB_SET_RULE_TEXT",
                        {NameAt(owner), "it would be too long with the new name"});
        }
        changed.text.Set(Utf16(followed));
        if (!SetAtNU(at, changed)) return 0;
        qxMsgOut(Severity::kInfo, "IDS_QX_DB_SET_RULE_FOLLOWS", {NameAt(owner), followed});
        continue;
      }
    }
    if (is_new) {
      if (const Outcome sound = CheckRule(session, owner, text); !sound) {
        return refuse("IDS_QX_DB_SET_RULE_TEXT", {NameAt(owner), sound.Line()});
      }
      const std::string kept = WithUnits(session, text, session.Units().Current());
      if (kept != text && Utf16(kept).size() <= tagTSetRule::kLongest) {
        tagTSetRule changed = rule;
        changed.text.Set(Utf16(kept));
        if (!SetAtNU(at, changed)) return 0;
      }
      continue;
    }
    // Another parent or name may close a circle through a rule that the step left alone.
    const std::vector<ITR> circle = CircleFrom(session, owner, text);
    const bool is_own =
        std::any_of(circle.begin(), circle.end(), [&](ITR set) { return step.HasSet(set); });
    if (is_own) return refuse("IDS_QX_DB_SET_RULE_CIRCLE", {CircleText(circle)});
  }
  return 1;
}

}  // namespace qx
