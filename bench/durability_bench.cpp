// What it costs that a step is durable when it is committed.

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sqlite3.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "qx_db/core/document.h"
#include "qx_db/core/transaction.h"
#include "qx_db/model/standard_pools.h"

#include "bench/harness.h"

namespace qx::bench {
namespace {

constexpr int kSmallSteps = 200;
constexpr Key kNodes = 100000;

std::string Path(const char* name) {
  return (std::filesystem::temp_directory_path() / (std::to_string(getpid()) + name)).string();
}

void MoveNodes(CQXDBSession& session, Key first, Key last) {
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  CTransaction transaction(&session);
  transaction.Begin(u"Move");
  for (Key key = first; key <= last; ++key) {
    const ITR pos = nodes.Find(key);
    tagTNode node = nodes.GetAtNU(pos);
    node.position.x += 1;
    nodes.SetAtNU(pos, node);
  }
  transaction.Commit();
}

/// A database whose every insertion is a durable transaction.
class BareDatabase {
 public:
  BareDatabase() {
    std::filesystem::remove(path_);
    sqlite3_open(path_.c_str(), &db_);
    sqlite3_exec(db_, "PRAGMA journal_mode=WAL;PRAGMA synchronous=FULL;CREATE TABLE s(x BLOB)",
                 nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(db_, "INSERT INTO s VALUES(?)", -1, &insert_, nullptr);
  }
  ~BareDatabase() {
    sqlite3_finalize(insert_);
    sqlite3_close(db_);
    std::filesystem::remove(path_);
  }
  void Insert(const std::vector<char>& bytes) {
    sqlite3_bind_blob(insert_, 1, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
    sqlite3_step(insert_);
    sqlite3_reset(insert_);
  }

 private:
  const std::string path_ = Path("peer.db");
  sqlite3* db_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
};

void WritePlainly(const std::vector<char>& bytes) {
  const std::string path = Path("plain");
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (write(fd, bytes.data(), bytes.size()) < 0) std::abort();
  fsync(fd);
  close(fd);
  unlink(path.c_str());
}

}  // namespace

void DurableSteps() {
  CQXDocBase document(AddStandardPools);
  CQXDBSession& session = *document.GetDBSession();
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  for (Key key = 1; key <= kNodes; ++key) {
    tagTNode node;
    node.key = key;
    nodes.InsertNU(node);
  }
  const std::string path = Path("steps.qxm");
  Key next = 0;
  const auto small_steps = [&] {
    return Time([&] {
      for (int i = 0; i < kSmallSteps; ++i, ++next) {
        MoveNodes(session, next % kNodes + 1, next % kNodes + 1);
      }
    });
  };
  const double unkept = small_steps();
  Figure("step of one node, no file attached", 1e6 * unkept / kSmallSteps, "us", 5);
  if (!document.SaveAs(path) || !document.KeepSteps()) std::abort();
  BareDatabase database;
  const std::vector<char> step(150);
  Compare("200 steps of one node, durable", "SQLite WAL, same bytes", 1.3, small_steps, [&] {
    return Time([&] {
      for (int i = 0; i < kSmallSteps; ++i) database.Insert(step);
    });
  });
  // Both make the same change in memory; the peer writes its images itself.
  const std::vector<char> images(std::size_t{kNodes} * (36 + 16));
  Compare(
      "step of 100 000 nodes, durable", "the same unkept, write + fsync", 1.5,
      [&] { return Time([&] { MoveNodes(session, 1, kNodes); }); },
      [&] {
        session.SetStepSink(nullptr);
        const double time = Time([&] {
          MoveNodes(session, 1, kNodes);
          WritePlainly(images);
        });
        // The keeper has missed a step; a save brings the file up to it.
        session.SetStepSink(document.Keeper());
        if (!document.Save()) std::abort();
        return time;
      });
  document.Release();
  std::filesystem::remove(path);
}

}  // namespace qx::bench
