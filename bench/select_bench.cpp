// Selections on a million hexahedra: each condition by itself, the whole from text to positions.

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "qx_db/core/transaction.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/select/selection.h"

#include "bench/harness.h"
#include "bench/workload.h"

namespace qx::bench {
namespace {

/// Members of a set by a rule: as they are first asked for, and after a step that moves one node.
void RuleMembers(CQXDBSession& session) {
  constexpr double kLimit = 100;  // nanoseconds an element, of a simple condition
  session.EnableRecording(true);
  auto& nodes = Pool<tagTNode>(session);
  const ITR node = nodes.GetHeadPosition();
  for (const char* const text : {"hex8", "property none", "x > 500", "sphere 500,1,0 100"}) {
    ITR set = 0;
    if (!Pool<tagTMset>(session).TR_Add(u"by rule", 0, set)) std::exit(1);
    std::int64_t count = 0;
    const auto ask = [&] { count = MembersOf(session, set).Elements().GetSize(); };
    double whole = 1, followed = 1;
    for (int run = 0; run < 3; ++run) {
      CTransaction rule(&session);
      rule.Begin(u"Rule");
      // Another text is asked of the whole.
      if (!SetRule(session, set, text + std::string(static_cast<std::size_t>(run), ' '))) {
        std::exit(1);
      }
      if (!rule.Commit()) std::exit(1);
      whole = std::min(whole, Time(ask));
      CTransaction move(&session);
      move.Begin(u"Move");
      tagTNode moved = nodes.GetAtNU(node);
      moved.position.z = 1e-3 * (run + 1);
      nodes.SetAtNU(node, moved);
      if (!move.Commit()) std::exit(1);
      followed = std::min(followed, Time(ask));
    }
    Keep(count);
    Figure(std::string("rule ") + text + ", an element", whole * 1e9 / kMillion, "ns", kLimit);
    Figure(std::string("rule ") + text + ", after a step", followed * 1e3, "ms", kLimit);
    if (!Pool<tagTMset>(session).TR_Del(TArray<ITR>{set})) std::exit(1);
  }
}

}  // namespace

void Selections() {
  CQXDBSession session(AddStandardPools);
  session.EnableRecording(false);
  FillBlock(session, kMillion);
  tagTMset set;
  set.key = 2;
  set.name.Set(u"half");
  auto& elements = Pool<tagTElem>(session);
  for (ITR at = elements.GetHeadPosition(); at; elements.Next(at)) {
    if (KeyOf(at) % 2 == 0) set.elements.Add(at);
  }
  Pool<tagTMset>(session).InsertNU(set);
  constexpr double kLimit = 100;  // nanoseconds an element, of a simple condition
  for (const char* const text :
       {"keys 1:1000000:3", "hex8", "property none", "set half", "orphan", "x > 500",
        "box 0,0,0 500,1,1", "sphere 500,1,0 100", "edge-ratio > 5", "volume < 0",
        "hex8 and keys 1:500000 and not set half"}) {
    std::int64_t count = 0;
    const auto work = [&] {
      const auto selection = Select(session, text);
      if (!selection) {
        std::fprintf(stderr, "%s\n", selection.AsOutcome().Line().c_str());
        std::exit(1);
      }
      count = selection->Count();
    };
    work();
    double least = Time(work);
    for (int run = 0; run < 2; ++run) least = std::min(least, Time(work));
    Keep(count);
    Figure(std::string("select ") + text + ", an element", least * 1e9 / kMillion, "ns", kLimit);
  }
  RuleMembers(session);
}

}  // namespace qx::bench
