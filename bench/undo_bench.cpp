#include <algorithm>
#include <memory>
#include <random>
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

/// Seconds of the peer to take a million nodes out again, the last first.
double PeerTakesBack(const std::vector<Key>& keys) {
  Indexed<tagTNode> nodes;
  for (const Key key : keys) nodes.insert(MakeNode(key));
  return Time([&] {
    while (!nodes.empty()) nodes.get<1>().pop_back();
  });
}

/// A step of one change without a file, among 20 000 that are kept.
void CommitAmongMany() {
  constexpr int kSteps = 20000;
  CQXDBSession session(AddStandardPools);
  session.SetHistoryLimits({.steps = 2 * kSteps});
  const ITR pos = Nodes(session).InsertNU(MakeNode(1));
  const auto commit = [&] {
    CTransaction transaction(&session);
    transaction.Begin(u"edit");
    tagTNode node = Nodes(session).GetAtNU(pos);
    node.position.x += 1;
    Nodes(session).SetAtNU(pos, node);
    transaction.Commit();
  };
  for (int i = 0; i < kSteps; ++i) commit();
  const double seconds = Time([&] {
    for (int i = 0; i < 1000; ++i) commit();
  });
  Figure("a step of one change, 20 000 kept", seconds * 1e6, "ns", 1500);
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

/// 100 000 changes among a million nodes of shuffled keys: of nodes drawn at random, or of the
/// first ones in the order in which they were inserted.
void Modifications(bool random) {
  constexpr std::size_t kEdits = 100000;
  const auto keys = Keys(kMillion, true);
  auto edited = keys;
  if (random) std::shuffle(edited.begin(), edited.end(), std::mt19937(2));
  edited.resize(kEdits);
  const std::string kind = random ? ", random nodes" : ", in order";
  CQXDBSession session(AddStandardPools);
  NaiveUndo naive;
  for (const Key key : keys) {
    Nodes(session).InsertNU(MakeNode(key));
    naive.nodes.emplace(key, MakeNode(key));
  }
  const auto in_a_step = [&](auto&& edit) {
    session.ForgetHistory();
    CTransaction transaction(&session);
    return Time([&] {
      transaction.Begin(u"edit");
      edit();
      transaction.Commit();
    });
  };
  const auto edit_ours = [&] {
    return in_a_step([&] {
      for (const Key key : edited) {
        const ITR pos = Nodes(session).Find(key);
        tagTNode node = Nodes(session).GetAtNU(pos);
        node.position.x += 1;
        Nodes(session).SetAtNU(pos, node);
      }
    });
  };
  const auto edit_at_once = [&] {
    return in_a_step([&] {
      std::vector<ITR> positions(kEdits);
      Nodes(session).Set().FindMany(edited, positions);
      SetMany(Nodes(session), positions, [](tagTNode& node, std::size_t) { node.position.x += 1; });
    });
  };
  const auto edit_naive = [&] {
    naive.log.clear();
    naive.log.shrink_to_fit();
    return Time([&] {
      for (const Key key : edited) {
        tagTNode node = naive.nodes.find(key)->second;
        node.position.x += 1;
        naive.Set(key, node);
      }
    });
  };
  const char* const peer = "images over unordered_map";
  Compare("100 000 changes by SetMany" + kind, peer, 1.0, edit_at_once, edit_naive);
  Compare("100 000 changes one by one" + kind, peer, 1.8, edit_ours, edit_naive);
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
  Compare("their undo" + kind, peer, 1.5, undo_ours, undo_naive);
  const auto redo_ours = [&] {
    session.Undo();
    return Time([&] { session.Redo(); });
  };
  const auto redo_naive = [&] {
    naive.Undo();
    return Time([&] { naive.Redo(); });
  };
  Compare("their redo" + kind, peer, 1.5, redo_ours, redo_naive);
}

}  // namespace

void Undo() {
  for (const bool shuffled : {false, true}) {
    const auto keys = Keys(kMillion, shuffled);
    const std::string kind = shuffled ? "shuffled" : "sequential";
    Compare(
        "undo of a million inserts, " + kind, "boost::multi_index", 1.0,
        [&] { return RecordedInserts(keys).undo; }, [&] { return PeerTakesBack(keys); },
        Memory::kFresh);
    Compare(
        "recorded inserts, " + kind, "unrecorded inserts", 1.5,
        [&] { return RecordedInserts(keys).insert; }, [&] { return PlainInserts(keys); },
        Memory::kFresh);
  }
  for (const bool random : {true, false}) Modifications(random);
  CommitAmongMany();
}

}  // namespace qx::bench
