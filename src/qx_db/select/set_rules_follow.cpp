// Rules of mesh sets: giving them, and how they follow the sets that they name.

#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/core/step_changes.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/record/record_impl.h"
#include "qx_db/select/conditions.h"
#include "qx_db/select/lexer.h"
#include "qx_db/select/rule_records.h"
#include "qx_db/select/rule_text.h"

namespace qx {

using namespace select;

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

/// All are asked before any is changed: rules look at lists, too.
Outcome MakeAllPlain(CQXDBSession& session) {
  if (!RulesOf(session)) return {};
  auto& sets = Pool<tagTMset>(session);
  std::vector<std::pair<ITR, tagTMset>> plain;
  for (ITR set = sets.GetHeadPosition(); set; sets.Next(set)) {
    if (RuleAt(session, set) == 0) continue;
    const SetMembers members = MembersOf(session, set);
    if (const auto& fault = members.Fault()) {
      return Failure{"", "rule of mesh set \"" + NameAt(set) + "\"", fault->what, fault->remedy};
    }
    plain.emplace_back(set, SetAt(set));
    plain.back().second.nodes = members.Nodes();
    plain.back().second.elements = members.Elements();
  }
  for (const auto& [set, record] : plain) {
    if (!sets.SetAtNU(set, record) || !RulesOf(session)->Remove(RuleAt(session, set))) {
      return Failure{"", "mesh set \"" + NameAt(set) + "\"", "cannot be changed now", "try again"};
    }
  }
  return {};
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
  std::unordered_set<ITR> sets;      // inserted or modified
  std::unordered_set<ITR> inserted;  // of them
  std::unordered_set<ITR> rules;     // that have another text

  bool HasRule(ITR rule) const { return rules.contains(rule); }
  bool HasSet(ITR set) const { return sets.contains(set); }
  bool WasInserted(ITR set) const { return inserted.contains(set); }

  explicit TouchedSets(const CQXDBSession& session) {
    const DPoolBase& pool = *session.GetDataPool(code::kMset);
    const Step& step = session.History().Current();
    std::unordered_set<ITR> met;
    for (const Change& change : step.changes) {
      const ITR item = change.item;
      if (change.type == code::kSetRule && HasAnotherText(session, step, change)) {
        rules.insert(item);
      }
      if (change.type != code::kMset) continue;
      sets.insert(item);
      if (!met.insert(item).second) continue;
      if (change.operation == tagTRNotify::kInserted) inserted.insert(item);
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

 private:
  /// A rule's key follows its set, which makes no other rule of it.
  static bool HasAnotherText(const CQXDBSession& session, const Step& step, const Change& change) {
    if (change.operation != tagTRNotify::kModified) return true;
    if (!IsLive(change.item)) return false;
    const DPoolBase& pool = *session.GetDataPool(code::kSetRule);
    const auto before = pool.NewRecord();
    ReadImage(pool.GetSchema(), step.bytes.data() + step.images[change.list_epoch].before, *before);
    const auto* now = static_cast<const tagTSetRule*>(KeyedSetBase::RecordAt(change.item));
    return static_cast<const tagTSetRule&>(*before).text.View() != now->text.View();
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
      if (!has_gone && step.HasRule(at)) {
        return refuse("IDS_QX_DB_SET_RULE_TEXT",
                      {std::to_string(rule.key), "there is no mesh set of this key"});
      }
      if (has_gone && !Remove(at)) return 0;
      continue;
    }
    const std::string text = Utf8(rule.text.View());
    // Also one that was left behind when a set of this key went.
    const bool is_new = step.HasRule(at) || step.WasInserted(owner);
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
