// Selection lists of ten thousand records beside a plain combo box, on Qt's offscreen platform.

#include <QtWidgets/QApplication>
#include <QtWidgets/QComboBox>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include "qx_db/core/transaction.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/ui/selection_lists.h"

#include "adapters/qt/qt_combo_window.h"
#include "bench/harness.h"
#include "host/application.h"
#include "host/session.h"

namespace qx::bench {
namespace {

constexpr int kRecords = 10000;
constexpr int kRuns = 9;

double MedianMs(const std::function<double()>& run) {
  std::vector<double> times;
  run();  // warms up
  for (int i = 0; i < kRuns; ++i) times.push_back(1e3 * run());
  std::nth_element(times.begin(), times.begin() + kRuns / 2, times.end());
  return times[kRuns / 2];
}

void Print(const char* what, double ms, double peer_ms, double target) {
  std::printf("%-44s %8.3f ms  plain box %8.3f ms  ratio %5.2f  target %4.2f  %s\n", what, ms,
              peer_ms, ms / peer_ms, target, ms <= target * peer_ms ? "met" : "MISSED");
}

template <class T>
void Fill(CQXDBSession& session) {
  auto& pool = *session.GetPool<DPool<T>>(T::kType);
  for (Key key = 1; key <= kRecords; ++key) {
    T record;
    record.key = key;
    record.name.Set(u"Record number " + Utf16(std::to_string(key)));
    pool.InsertNU(record);
  }
}

/// Seconds to fill a box that is shown already.
double Plain() {
  QComboBox box;
  box.setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  box.show();
  QApplication::processEvents();
  const double time = Time([&] {
    for (int i = 1; i <= kRecords; ++i) {
      box.addItem(QString("Record number %1").arg(i), static_cast<qlonglong>(i));
    }
    QApplication::processEvents();
  });
  return time;
}

template <class List>
void Measure(const char* what, CQXDBSession& session, double plain_ms) {
  const double fill = MedianMs([&] {
    QComboBox box;
    List list;
    new QtComboWindow(box, list, 1);
    box.show();
    QApplication::processEvents();
    return Time([&] {
      list.SetDB(&session);
      QApplication::processEvents();
    });
  });
  QComboBox box;
  List list;
  new QtComboWindow(box, list, 1);
  list.SetDB(&session);
  box.show();
  QApplication::processEvents();
  const double same = MedianMs([&] {
    return Time([&] {
      List::UpdateDB(&session);
      QApplication::processEvents();
    });
  });
  Print((std::string(what) + ", rebuilt whole").c_str(), fill, plain_ms, 3);
  Print((std::string(what) + ", nothing changed").c_str(), same, plain_ms, 1);
}

}  // namespace
}  // namespace qx::bench

int main(int argc, char** argv) {
  setenv("QT_QPA_PLATFORM", "offscreen", 0);
  const QApplication application(argc, argv);
  const qx::host::Application host;
  qx::CQXDBSession session(qx::host::SetUpModel);
  qx::bench::Fill<qx::tagTBset>(session);
  qx::bench::Fill<qx::tagTMatl>(session);
  const double plain_ms = qx::bench::MedianMs(qx::bench::Plain);
  qx::bench::Measure<qx::CCobxBset>("10 000 boundary sets", session, plain_ms);
  qx::bench::Measure<qx::CCobxMatl>("10 000 materials", session, plain_ms);
}
