#pragma once
// A model that comes from a Nastran deck, changes, and goes back.

#include <fmt/format.h>
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

/// Nodes 1 to 9 on a line, a quadrilateral, rods, and what a case adds.
inline std::string DeckWith(const std::string& cards, const std::string& control = "") {
  std::string deck = "SOL 101\nCEND\n" + control + "BEGIN BULK\n";
  for (int i = 1; i < 10; ++i) {
    deck +=
        fmt::format("GRID    {:<16}{:<8}{:<8}0.\n", i, fmt::format("{}.", i), i % 2 ? "0." : "1.");
  }
  deck += "CQUAD4  1       1       1       2       3       4\n";
  for (int i = 2; i < 6; ++i) deck += fmt::format("CROD    {:<8}2       {:<8}{}\n", i, i, i + 1);
  return deck + "PSHELL  1       1       .1      1\nPROD    2       1       .2\n" +
         "MAT1    1       2.+11           .3\n" + cards + "ENDDATA\n";
}

/// A model in a folder of its own.
class NastranModel {
 public:
  /// `units`: of the deck; the model keeps its own.
  void Import(const std::string& deck, const std::string& name = "in.bdf",
              const std::string& units = {}) {
    ASSERT_TRUE(WriteWholeFile(folder_.Path(name), deck));
    LossReport report;
    ImportOptions options;
    options.set_model_units = units.empty();
    options.units = units;
    ASSERT_EQ(ImportFile(session_, folder_.Path(name), options, report).Line(), "") << deck;
    told_in_ = Lines(report);
    ASSERT_EQ(session_.Validate(), "");
  }
  std::string Export(const std::string& units = {}) {
    told_out_ = ExportAs("out.bdf", units);
    return *ReadWholeFile(folder_.Path("out.bdf"));
  }
  /// Writes a file by the format of its name; returns what is told.
  std::string ExportAs(const std::string& name, const std::string& units = {}) {
    LossReport report;
    ExportOptions options;
    options.units = units;
    EXPECT_EQ(ExportFile(session_, folder_.Path(name), options, report).Line(), "");
    return Lines(report);
  }
  /// Why it cannot be written; "" where it can.
  std::string Refusal() {
    LossReport report;
    return ExportFile(session_, folder_.Path("out.bdf"), {}, report).Line();
  }
  /// Key of the mesh set of that name; 0 for none.
  Key SetKey(std::string_view name) {
    Key key = 0;
    host::ForEach<tagTMset>(&session_, [&](ITR, const tagTMset& set) {
      if (Utf8(set.name.View()) == name) key = set.key;
      return key == 0;
    });
    return key;
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
