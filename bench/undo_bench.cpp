#include <memory>
#include <unordered_map>

#include "bench/harness.h"
#include "bench/workload.h"

namespace qx::bench {
namespace {

DPoolNode& Nodes(CQXDBSession& session) { return *session.GetPool<DPoolNode>(code::kNode); }

/// Seconds to insert a million nodes in one transaction, and to undo that.
struct InsertAndUndo {
  double insert;
  double undo;
};
InsertAndUndo RecordedInserts(const std::vector<Key>& keys) {
  CQXDBSession session(AddStandardPools);
  CTransaction transaction(&session);
  transaction.Begin(u"insert");
  InsertAndUndo times{};
  times.insert = Time([&] {
    for (const Key key : keys) Nodes(session).InsertNU(MakeNode(key));
  });
  transaction.Commit();
  times.undo = Time([&] { session.Undo(); });
  return times;
}

double PlainInserts(const std::vector<Key>& keys) {
  CQXDBSession session(AddStandardPools);
  return Time([&] {
    for (const Key key : keys) Nodes(session).InsertNU(MakeNode(key));
  });
}

/// The peer: a map of records, and a vector of records before and after.
struct NaiveUndo {
  struct Entry {
    Key key;
    tagTNode before;
    tagTNode after;
  };
  std::unordered_map<Key, tagTNode> nodes;
  std::vector<Entry> log;

  void Set(Key key, const tagTNode& node) {
    tagTNode& stored = nodes.find(key)->second;
    log.push_back({key, stored, node});
    stored = node;
  }
  void Undo() {
    for (auto entry = log.rbegin(); entry != log.rend(); ++entry) {
      nodes.find(entry->key)->second = entry->before;
    }
  }
  void Redo() {
    for (const Entry& entry : log) nodes.find(entry.key)->second = entry.after;
  }
};

void Modifications() {
  constexpr std::size_t kEdits = 100000;
  const auto keys = Keys(kMillion, true);
  CQXDBSession session(AddStandardPools);
  NaiveUndo naive;
  for (const Key key : keys) {
    Nodes(session).InsertNU(MakeNode(key));
    naive.nodes.emplace(key, MakeNode(key));
  }
  const auto edit_ours = [&] {
    session.ForgetHistory();
    CTransaction transaction(&session);
    return Time([&] {
      transaction.Begin(u"edit");
      for (std::size_t i = 0; i < kEdits; ++i) {
        const ITR pos = Nodes(session).Find(keys[i]);
        tagTNode node = Nodes(session).GetAtNU(pos);
        node.position.x += 1;
        Nodes(session).SetAtNU(pos, node);
      }
      transaction.Commit();
    });
  };
  const auto edit_naive = [&] {
    naive.log.clear();
    naive.log.shrink_to_fit();
    return Time([&] {
      for (std::size_t i = 0; i < kEdits; ++i) {
        tagTNode node = naive.nodes.find(keys[i])->second;
        node.position.x += 1;
        naive.Set(keys[i], node);
      }
    });
  };
  Compare("100 000 recorded modifications", "images over unordered_map", 1.5, edit_ours,
          edit_naive);
  const auto undo_ours = [&] {
    const double seconds = Time([&] { session.Undo(); });
    session.Redo();
    return seconds;
  };
  const auto undo_naive = [&] {
    const double seconds = Time([&] { naive.Undo(); });
    naive.Redo();
    return seconds;
  };
  Compare("their undo", "images over unordered_map", 1.5, undo_ours, undo_naive);
  const auto redo_ours = [&] {
    session.Undo();
    return Time([&] { session.Redo(); });
  };
  const auto redo_naive = [&] {
    naive.Undo();
    return Time([&] { naive.Redo(); });
  };
  Compare("their redo", "images over unordered_map", 1.5, redo_ours, redo_naive);
}

}  // namespace

void Undo() {
  for (const bool shuffled : {false, true}) {
    const auto keys = Keys(kMillion, shuffled);
    const std::string kind = shuffled ? "shuffled" : "sequential";
    Compare(
        "undo of a million inserts, " + kind, "the inserts", 0.3,
        [&] { return RecordedInserts(keys).undo; }, [&] { return RecordedInserts(keys).insert; },
        Memory::kFresh);
    Compare(
        "recorded inserts, " + kind, "unrecorded inserts", 1.5,
        [&] { return RecordedInserts(keys).insert; }, [&] { return PlainInserts(keys); },
        Memory::kFresh);
  }
  Modifications();
}

}  // namespace qx::bench
