#include <QtWidgets/QApplication>
#include <qx_db/qt.h>
#include <qx_db/qx_db.h>

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QApplication application(argc, argv);
  qx::CQXDBSession session(qx::AddStandardPools);
  QComboBox box;
  qx::CComboBox list;
  new qx::QtComboWindow(box, list, 1);
  return box.count() >= 0 ? 0 : 1;
}
