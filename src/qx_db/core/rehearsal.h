#pragma once
// An edit done for its outcome, and taken back without a trace.

#include <cstdint>
#include <vector>

#include "qx_db/core/belongings.h"
#include "qx_db/core/session.h"
#include "qx_db/core/step_changes.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"

namespace qx {

/// While it lives, the session is one that may be edited: what is done to it is seen by who reads
/// it, and is taken back when this ends. Neither listeners nor sink, history, change flags, maximum
/// keys, revisions nor messages to the user tell of it; the application's questions are asked as in
/// the edit, since their answers decide. Works in any session: in an open transaction, of whose
/// step it is a part, while a step is being told of, in one whose file cannot be written. Rules
/// that would refuse the step say so and let it go on, so that all of them speak.
///
/// Cost: that of the edit, and of taking it back. Threads: edits, so that nobody else may read the
/// session meanwhile, whatever its constness says.
class QXDB_API Rehearsal {
 public:
  explicit Rehearsal(const CQXDBSession& session);
  ~Rehearsal();
  Rehearsal(const Rehearsal&) = delete;
  Rehearsal& operator=(const Rehearsal&) = delete;

  /// Whether the step of an open transaction has changed the session already.
  static bool IsWithinAStep(const CQXDBSession& session) {
    return session.innermost_ && session.journal_.Mark() > 0;
  }
  /// The session, to be edited.
  CQXDBSession& Session() { return session_; }
  /// Does what the end of the step would do: relations, and the refusal of shared keys.
  void Settle();
  /// What has become of each record since it began, in the order in which they were first
  /// concerned. Removed records can be read as long as this lives.
  std::vector<RecordChange> Changes() const;
  /// What the user would have been told so far; of what was refused, with Severity::kRefusal.
  const std::vector<Message>& Refusals() const { return messages_.Messages(); }

 private:
  struct PoolState {
    std::uint32_t flags;
    KeyedSetBase::Memory memory;
  };

  CQXDBSession& session_;
  MessageCapture messages_;
  CTransaction transaction_;
  CTransaction* outer_;
  bool rolled_back_;  // a step that is being told of and still open
  Step aside_;        // that step
  CQXUnitCtrl units_;
  int tellings_;
  bool recording_, minds_unrecorded_, rehearsing_;
  int round_;
  std::size_t begin_ = 0;  // how far the open step had come
  std::size_t rekeyed_;
  Belongings belongings_;
  std::vector<PoolState> pools_;
};

}  // namespace qx
