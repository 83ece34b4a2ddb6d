// Shows a model's records in the lists of a dialog:
//   selection_lists [MODEL.qxm] [--screenshot PICTURE.png]
// With a picture it makes a set by typing, opens the list, takes the picture and ends.

#include <QtGui/QPainter>
#include <QtTest/QTest>
#include <QtWidgets/QAbstractItemView>
#include <QtWidgets/QApplication>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QLineEdit>
#include <cstdio>

#include "qx_db/core/document.h"
#include "qx_db/core/transaction.h"

#include "examples/sample_model.h"
#include "examples/selection_dialog.h"
#include "host/application.h"
#include "host/texts.h"

namespace {

/// The dialog with the opened list below its box, as a user has them before him.
int TakePicture(qx::SelectionDialog& dialog, const QString& file) {
  QComboBox& box = *dialog.SetBox();
  box.setFocus();
  box.lineEdit()->selectAll();
  QTest::keyClicks(&box, "North abutment");
  QTest::keyClick(&box, Qt::Key_Return);
  box.showPopup();
  QApplication::processEvents();
  QWidget& list = *box.view()->window();
  const QPoint below = list.mapToGlobal(QPoint()) - dialog.mapToGlobal(QPoint());
  QImage image(dialog.rect().united(QRect(below, list.size())).size(), QImage::Format_RGB32);
  image.fill(Qt::white);
  QPainter painter(&image);
  dialog.render(&painter);
  list.render(&painter, below);
  painter.end();
  return image.save(file) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  if (!qx::host::RegisterTexts()) return 1;
  const qx::host::Application host;
  qx::CQXDocBase document(qx::host::SetUpModel);
  QStringList arguments = QApplication::arguments().mid(1);
  QString picture;
  if (const auto at = arguments.indexOf("--screenshot"); at >= 0 && at + 1 < arguments.size()) {
    picture = arguments.takeAt(at + 1);
    arguments.removeAt(at);
  }
  if (arguments.isEmpty()) {
    qx::FillSampleModel(*document.GetDBSession());
  } else if (const qx::Outcome opened = document.Open(arguments[0].toStdString()); !opened) {
    std::fprintf(stderr, "%s\n", opened.Line().c_str());
    return 1;
  }
  qx::SelectionDialog dialog(*document.GetDBSession());
  dialog.show();
  return picture.isEmpty() ? QApplication::exec() : TakePicture(dialog, picture);
}
