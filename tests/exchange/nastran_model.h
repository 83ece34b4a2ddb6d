#pragma once
// A model that comes from a Nastran deck, changes, and goes back.

#include <functional>
#include <gtest/gtest.h>
#include <string>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "exchange/transfer.h"
#include "host/records.h"
#include "host/session.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {

/// A model in a folder of its own.
class NastranModel {
 public:
  void Import(const std::string& deck, const std::string& name = "in.bdf") {
    ASSERT_TRUE(WriteWholeFile(folder_.Path(name), deck));
    LossReport report;
    ImportOptions options;
    options.set_model_units = true;
    ASSERT_EQ(ImportFile(session_, folder_.Path(name), options, report).Line(), "") << deck;
    told_in_ = Lines(report);
    ASSERT_EQ(session_.Validate(), "");
  }
  std::string Export() {
    told_out_ = ExportAs("out.bdf");
    return *ReadWholeFile(folder_.Path("out.bdf"));
  }
  /// Writes a file by the format of its name; returns what is told.
  std::string ExportAs(const std::string& name) {
    LossReport report;
    EXPECT_EQ(ExportFile(session_, folder_.Path(name), {}, report).Line(), "");
    return Lines(report);
  }
  /// Changes a record, or several, in one step.
  void Edit(const std::function<void()>& edit) {
    CTransaction step(&session_);
    step.Begin(u"edit");
    edit();
    ASSERT_TRUE(step.Commit());
  }
  template <class T>
  void Change(Key key, const std::function<void(T&)>& change) {
    DPoolBase& pool = *host::PoolFor<T>(&session_);
    const ITR at = pool.Find(key);
    ASSERT_NE(at, 0u) << key;
    T record = *static_cast<const T*>(KeyedSetBase::RecordAt(at));
    change(record);
    ASSERT_TRUE(pool.SetAtNU(at, &record)) << key;
  }
  template <class T>
  void Renumber(Key key, Key to) {
    Change<T>(key, [to](T& record) { record.key = to; });
  }
  template <class T>
  void Remove(Key key) {
    DPoolBase& pool = *host::PoolFor<T>(&session_);
    ASSERT_TRUE(pool.Remove(pool.Find(key))) << key;
  }
  CQXDBSession& Session() { return session_; }
  const std::string& ToldIn() const { return told_in_; }
  const std::string& ToldOut() const { return told_out_; }

 private:
  static std::string Lines(const LossReport& report) {
    std::string lines;
    for (const std::string& line : report.Lines()) lines += line + '\n';
    return lines;
  }

  const ScratchFolder folder_;
  CQXDBSession session_{host::SetUpModel};
  std::string told_in_;
  std::string told_out_;
};

}  // namespace qx::exchange
