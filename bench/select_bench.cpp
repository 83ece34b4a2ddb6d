// Selections on a million hexahedra: each condition by itself, the whole from text to positions.

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "qx_db/select/selection.h"

#include "bench/harness.h"
#include "bench/workload.h"

namespace qx::bench {

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
}

}  // namespace qx::bench
