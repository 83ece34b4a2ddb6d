#include <qx_db/host.h>

int main() {
  const qx::Outcome texts = qx::host::RegisterTexts();
  const qx::host::Application application;
  qx::CQXDocBase document(qx::host::SetUpModel);
  document.New();
  const bool knows_properties = document.GetDBSession()->GetDataPool(8) != nullptr;
  const std::string text = qx::qxText("IDS_QX_TRANS_Delete_Mesh_Set");
  return texts && knows_properties && !text.starts_with("IDS_") ? 0 : 1;
}
