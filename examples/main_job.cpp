// The main job, step by step: bring a real mesh into a model, look at it, edit it with undo, save
// it. Opening it again, checking it and handing it on are left to qxdb, in processes of their own.
//
// Usage: main_job MESH MODEL

#include <cmath>
#include <fmt/format.h>

#include "qx_db/qx_db.h"
#include "qx_db/record/element_types.h"

#include "exchange/msh/msh_reader.h"
#include "host/session.h"
#include "host/texts.h"

namespace {

using namespace qx;

void PrintState(const char* when, const CQXDBSession& session) {
  fmt::print("  {:<22} state {:016x}, {} nodes, {} elements\n", when, session.StateHash(),
             session.GetDataPool(code::kNode)->GetSize(),
             session.GetDataPool(code::kElem)->GetSize());
}

void PrintSummary(const CQXDBSession& session) {
  auto& elements = *session.GetPool<DPoolElem>(code::kElem);
  for (const ElementType& type : ElementTypes()) {
    int count = 0;
    for (ITR pos = elements.GetHeadPosition(); pos;)
      count += elements.GetNextNU(pos).type == type.code;
    if (count) fmt::print("  {:>6} {}\n", count, type.plural);
  }
  const auto& sets = *session.GetPool<DPoolMset>(code::kMset);
  for (ITR pos = sets.GetHeadPosition(); pos; sets.Next(pos)) {
    const tagTMset& set = sets.GetAtNU(pos);
    if (set.elements.IsEmpty()) continue;
    fmt::print("  {:>6} elements in \"{}\"\n", set.elements.GetSize(), set.GetName().ToUtf8());
  }
}

/// Bends the upright back by up to two millimetres and cuts off its top five: one step.
int Edit(CQXDBSession& session) {
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  CTransaction transaction(&session);
  transaction.Begin(u"Bend and cut the upright");
  for (ITR pos = nodes.GetHeadPosition(); pos;) {
    const ITR here = pos;
    tagTNode node = nodes.GetNextNU(pos);
    if (node.position.z > 55) {
      nodes.Remove(here);  // its elements go with it when the step commits
    } else if (node.position.z > 8) {
      node.position.x -= 2 * std::pow((node.position.z - 8) / 52, 2);
      nodes.SetAtNU(here, node);
    }
  }
  return transaction.Commit();
}

int Refuse(const Failure& failure) {
  fmt::print(stderr, "main_job: {}\n", failure.Line());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fmt::print(stderr, "usage: main_job MESH MODEL\n");
    return 2;
  }
  SetTextSource(&host::TextCatalogue::English());
  CQXDocBase document(host::SetUpModel);
  document.New();
  CQXDBSession& session = *document.GetDBSession();
  // The part was drawn in millimetres; nothing is converted by saying so.
  UnitSystem units;
  units[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  session.Units().SetModel(units);
  session.Units().SetCurrent(units);

  fmt::print("Import {}\n", argv[1]);
  const auto mesh = exchange::ReadMsh(argv[1]);
  if (!mesh) return Refuse(mesh.Error());
  if (Outcome added = exchange::AddMesh(session, *mesh, argv[1]); !added) {
    return Refuse(added.Error());
  }
  PrintSummary(session);

  fmt::print("Edit, undo, redo\n");
  PrintState("imported", session);
  const std::uint64_t before = session.StateHash();
  if (!Edit(session)) return Refuse({argv[1], "", "the edit was refused", ""});
  PrintState("edited", session);
  const std::uint64_t after = session.StateHash();
  session.Undo();
  PrintState("undone", session);
  const bool undone = session.StateHash() == before;
  session.Redo();
  PrintState("redone", session);
  const bool redone = session.StateHash() == after;
  fmt::print("  undo gave back the {} state, redo the {} one\n", undone ? "same" : "WRONG",
             redone ? "same" : "WRONG");

  fmt::print("Save {}\n", argv[2]);
  if (Outcome saved = document.SaveAs(argv[2]); !saved) return Refuse(saved.Error());
  return undone && redone ? 0 : 1;
}
