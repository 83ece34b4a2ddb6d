// What it costs that a step is durable when it is committed.

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
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

/// Moves nodes in a transaction; the seconds that its commit took.
double MoveNodes(CQXDBSession& session, Key first, Key last) {
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  CTransaction transaction(&session);
  transaction.Begin(u"Move");
  for (Key key = first; key <= last; ++key) {
    const ITR pos = nodes.Find(key);
    tagTNode node = nodes.GetAtNU(pos);
    node.position.x += 1;
    nodes.SetAtNU(pos, node);
  }
  return Time([&] {
    if (!transaction.Commit()) std::abort();
  });
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

/// What this process has handed to the system to write so far.
std::size_t BytesWritten() {
  std::ifstream counters("/proc/self/io");
  std::string name;
  std::size_t bytes = 0;
  while (counters >> name >> bytes) {
    if (name == "wchar:") return bytes;
  }
  std::abort();
}

/// Seconds that it takes to write bytes to a new file and to sync it; removing it does not count.
double WritePlainly(const std::vector<char>& bytes) {
  const std::string path = Path("plain");
  const double seconds = Time([&] {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
    if (fsync(fd) != 0) std::abort();
    close(fd);
  });
  unlink(path.c_str());
  return seconds;
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
  // What a step costs in memory, once as many are kept as may be: each drops the oldest.
  for (const std::size_t kept : {std::size_t{1000}, std::size_t{50000}}) {
    session.SetHistoryLimits({kept, std::size_t{1} << 30});
    for (std::size_t i = 0; i < kept; ++i, ++next) {
      MoveNodes(session, next % kNodes + 1, next % kNodes + 1);
    }
    Figure("step of one node, no file, " + std::to_string(kept) + " steps kept",
           1e6 * small_steps() / kSmallSteps, "us", 1.5);
  }
  session.SetHistoryLimits({});
  double commit = 1;
  for (int run = 0; run < 5; ++run) commit = std::min(commit, MoveNodes(session, 1, kNodes));
  Figure("commit of 100 000 nodes, no file", 1e3 * commit, "ms", 2);
  if (!document.SaveAs(path) || !document.KeepSteps()) std::abort();
  BareDatabase database;
  const std::vector<char> step(150);
  Compare("200 steps of one node, durable", "SQLite WAL, same bytes", 1.3, small_steps, [&] {
    return Time([&] {
      for (int i = 0; i < kSmallSteps; ++i) database.Insert(step);
    });
  });
  // The peer writes as many bytes as the step does, and makes no edit.
  MoveNodes(session, 1, kNodes);
  const std::size_t before = BytesWritten();
  MoveNodes(session, 1, kNodes);
  const std::vector<char> bytes(BytesWritten() - before);
  const auto plainly = [&] { return WritePlainly(bytes); };
  Compare(
      "step of 100 000 nodes, durable, with its edit", "write + fsync of as many bytes", 1.5,
      [&] { return Time([&] { MoveNodes(session, 1, kNodes); }); }, plainly);
  Compare(
      "its commit alone", "write + fsync of as many bytes", 1.5,
      [&] { return MoveNodes(session, 1, kNodes); }, plainly, Memory::kKept, 11);
  document.Release();
  std::filesystem::remove(path);
}

}  // namespace qx::bench
