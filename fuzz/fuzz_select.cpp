// Any text as a selection of a small model of everything: what is read is answered, what it selects
// and what it does not are everything together, and the model stays as it was.

#include <cstdlib>
#include <string>

#include "qx_db/select/selection.h"

#include "host/session.h"
#include "tests/sql/model.h"

namespace {

using namespace qx;

/// A block of hexahedra with sets and properties, and a shell, a beam, a broken element, a system
/// and a geometry.
struct Everything {
  CQXDBSession session{host::SetUpModel};

  Everything() {
    sql::FillBlock(session, 2);
    session.EnableRecording(false);
    auto& elements = Pool<tagTElem>(session);
    const auto& nodes = Pool<tagTNode>(session).Set();
    for (const auto& [key, type, count] : {std::array{101, 6, 4}, {102, 2, 2}, {103, 14, 3}}) {
      tagTElem element;
      element.key = key;
      element.type = type;
      ITR node = nodes.GetHeadPosition();
      for (int i = 0; i < count; ++i, nodes.Next(node)) element.nodes.Add(node);
      elements.InsertNU(element);
    }
    tagTCord system;
    system.key = 5;
    system.type = tagTCord::kCylindrical;
    Pool<tagTCord>(session).InsertNU(system);
    tagTGeom geometry;
    geometry.key = 1;
    Pool<tagTGeom>(session).InsertNU(geometry);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Everything model;
  static const std::uint64_t state = model.session.StateHash();
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto rule = SelectionRule::Parse(text);
  if (!rule) {
    if (rule.Error().place.empty() || rule.Error().remedy.empty()) std::abort();
    return 0;
  }
  const auto selection = rule->Evaluate(model.session);
  if (!selection) return 0;
  const std::string kind(NameOf(rule->Kind()));
  const auto all = Select(model.session, kind + " all");
  const auto rest = Select(model.session, kind + " not (" + text + ")");
  // One level more may be too deep; what is read must answer.
  if (rest && selection->Count() + rest->Count() != all->Count()) std::abort();
  if (model.session.StateHash() != state) std::abort();
  return 0;
}
