#include <cstdio>
#include <fstream>
#include <qx_db/exchange.h>
#include <qx_db/qx_db.h>

int main() {
  std::ofstream("one.msh") << "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n2\n1 0 0 0\n2 1 0 0\n"
                              "$EndNodes\n$Elements\n1\n7 1 0 1 2\n$EndElements\n";
  qx::CQXDBSession session(qx::AddStandardPools);
  const auto mesh = qx::exchange::ReadMsh("one.msh");
  if (!mesh || !qx::exchange::AddMesh(session, *mesh, "one.msh")) return 1;
  if (qx::Outcome written = qx::exchange::WriteVtu(session, "one.vtu"); !written) {
    std::fprintf(stderr, "%s\n", written.Line().c_str());
    return 1;
  }
  return session.GetDataPool(qx::code::kElem)->Find(7) ? 0 : 1;
}
