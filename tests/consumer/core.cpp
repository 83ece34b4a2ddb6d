#include <qx_db/qx_db.h>

int main() {
  qx::CQXDBSession session(qx::AddStandardPools);
  qx::tagTNode node;
  node.key = 1;
  return session.GetPool<qx::DPoolNode>(qx::code::kNode)->InsertNU(node) ? 0 : 1;
}
