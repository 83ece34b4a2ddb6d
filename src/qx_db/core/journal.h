#pragma once
// The undo journal: what each step changed, and how to take it back and do it again.
//
// A step is an append-only log of changes. An inserted or removed record is named by its address:
// while the journal may still need it, a removed record stays allocated, with the addresses of
// its former neighbours in it. A modification keeps the record's image before and after. Images
// in the journal hold iterators, which is sound because no record they point to is freed while
// the journal holds it; keys take their place only where an image leaves the process.
// Threads: a session's, on the thread that drives it; what is const, any number while none changes
// it.

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "qx_db/core/append_log.h"
#include "qx_db/lib/units.h"
#include "qx_db/pool/notify.h"
#include "qx_db/pool/pool_base.h"

namespace qx {

#pragma pack(push, 4)
/// One change of one record.
struct Change {
  ITR item;
  std::uint16_t type;       ///< type code of the pool
  std::uint16_t operation;  ///< as in tagTRNotify
  /// Insertion, removal: epochs of the set when the record was last detached.
  /// Modification: index of its images, and 0.
  std::uint32_t list_epoch;
  std::uint32_t hash_epoch;
};
#pragma pack(pop)

/// The longest name of a step, in UTF-16 units; of a longer one the beginning is kept.
inline constexpr std::size_t kMaxStepName = 0xFFFF;

/// One undoable step.
struct Step {
  struct Images {
    std::size_t before;
    std::size_t after;
    std::size_t before_size;
    std::size_t after_size;
  };

  /// A change of the model's units.
  struct Units {
    CQXUnitCtrl before;
    CQXUnitCtrl after;
  };

  std::u16string name;
  std::unique_ptr<Units> units;  ///< null where nobody touched them
  AppendLog<Change> changes;
  AppendLog<Images> images;
  AppendLog<char> bytes;    ///< the images
  std::size_t held = 0;     ///< bytes of detached records that only this step keeps alive
  std::size_t counted = 0;  ///< what the journal's sum has of its footprint
  /// Names the step, also in a file that keeps it; higher than that of every step made before. When
  /// it was made, in milliseconds since 1970.
  std::int64_t number = 0;
  std::int64_t time_ms = 0;
  /// Drawn by chance when it was made; 0 of one from a file that has none.
  std::int64_t state = 0;

  /// Whether it changed the model's units or the current ones; there and back again is no change.
  bool ChangesUnits() const {
    return units && !(units->before.Model() == units->after.Model() &&
                      units->before.Current() == units->after.Current());
  }
  bool IsEmpty() const { return changes.empty() && !ChangesUnits(); }
  /// Names the state that the step leads to, in this run and, once a file keeps the step, in
  /// others: a positive number that no two steps share, of whatever model, but by a chance of one
  /// in 2^63. Holds once the step is done.
  QXDB_API std::int64_t State() const;
  /// Memory that dropping the step would free.
  std::size_t Footprint() const {
    return changes.capacity() * sizeof(Change) + images.capacity() * sizeof(Images) +
           bytes.capacity() + held;
  }
};

/// How far back one can go, and forth again. Whichever bound is reached first drops the steps
/// farthest from the present: the oldest of those done, then the latest of those undone. The bytes
/// leave the step nearest to the present on either side alone, however large it is: what was done
/// last can be undone.
struct HistoryLimits {
  std::size_t steps = 1000;
  std::size_t bytes = std::size_t{1} << 30;
  bool operator==(const HistoryLimits&) const = default;
};

/// What a model file keeps of the history where nobody has asked for more or less.
inline constexpr HistoryLimits kUsualKept{1000, std::size_t{64} << 20};

/// Appends a record's image, iterators and all, to those of a step, all or nothing; returns its
/// size. Pools take no record whose image exceeds the format.
std::size_t AppendImage(const Schema& schema, const TStructBase& record, AppendLog<char>& bytes);

/// The open step, and the steps that can be undone and redone.
///
/// Invariants: (1) changes are taken back in reverse order and redone in order, nothing between;
/// (2) a record that a change names is linked or detached, never freed; (3) a detached record is
/// owned by exactly one step: the done step that removed it, or the undone step that inserted it;
/// or by the journal itself, when its removal in the open step was unrecorded or has become final.
class QXDB_API Journal {
 public:
  explicit Journal(CQXDBSession& session) : session_(session) {}
  ~Journal();

  // ---- the open step ----------------------------------------------------------------------------

  void Open(std::u16string_view name);
  bool IsOpen() const { return open_; }
  const Step& Current() const { return current_; }
  Step& Current() { return current_; }
  /// The notice after a modification is to follow the one before it at once. Where memory runs out,
  /// nothing of a notice is kept; the record is put back when it was the one after.
  void Record(const tagTRNotify& notice);
  /// The session's units are about to change, in the open step; then, that they have.
  void BeforeUnits();
  void AfterUnits();
  void Reserve(std::size_t count) { current_.changes.reserve(current_.changes.size() + count); }
  /// How far the open step has come.
  std::size_t Mark() const { return final_ + current_.changes.size(); }
  /// Takes back the changes since a mark, as far as they are not final. The step stays open.
  void RollbackTo(std::size_t mark);
  /// Makes what the open step has changed so far final, but for units, and goes on with it. What it
  /// removed stays allocated, for records that still refer to it, until FreeFinal.
  void Finalize();
  /// Takes over records that are about to be detached, unrecorded; they, too, stay allocated until
  /// FreeFinal. Throws std::bad_alloc, having taken none.
  void TakeRemoved(std::uint16_t type, std::span<const ITR> items);
  /// The same of one that is the caller's: there is nothing to free, but others may refer to it.
  void NoteTakenOut() { has_final_ = true; }
  /// Whether records are gone for good that others may still refer to.
  bool HasFinal() const { return has_final_; }
  /// Makes all of the open step final and frees what it removed: nothing refers to that any more.
  void FreeFinal();
  /// Takes back the whole open step, which still tells what it was.
  void TakeBackOpen();
  /// Ends the open step: takes back what was not, and forgets it.
  void Discard();
  /// Ends the open step; one that changed nothing leaves no trace. True when it was kept. The
  /// limits apply when EnforceLimits is called next, so that the step can be announced first.
  bool Close();
  /// The same for a step from a file, which is kept even when it changed nothing.
  void CloseEvenEmpty();
  /// Makes room, so that Close cannot fail, and names the state that the step leads to.
  void ReserveClose();

  // ---- history ----------------------------------------------------------------------------------

  const std::deque<Step>& Done() const { return done_; }
  const std::vector<Step>& Undone() const { return undone_; }
  /// Take back the last done step, or do the last undone one again. Require that there is one.
  const Step& Undo();
  const Step& Redo();
  /// They hold from the next EnforceLimits on. Undoing may leave more than the limits allow: it
  /// takes no memory that was not taken before.
  void SetLimits(const HistoryLimits& limits);
  const HistoryLimits& Limits() const { return limits_; }
  /// Returns how many steps can no longer be undone.
  std::size_t EnforceLimits();
  std::size_t Footprint() const;
  /// Bytes that the records of changes in one pool keep allocated while they are detached.
  std::size_t HeldBytes(std::uint16_t type, std::span<const Change> changes) const;
  /// Drops all history and frees what only it held.
  void Forget();

  /// Gives steps without a time this one. Returns the number after the highest, at least `next`.
  std::int64_t NumberSteps(std::int64_t next, std::int64_t time_ms);
  /// Names the state that the oldest step done starts from: that of the step before it, or a
  /// negative number, or 0 as long as nothing has changed.
  std::int64_t FirstState() const { return first_state_; }
  /// The present state: that of the last step done, or the first one.
  std::int64_t State() const { return done_.empty() ? first_state_ : done_.back().State(); }
  /// The present state, without a history, is one that no step leads to.
  void NewState() { first_state_ = --last_state_; }

  /// "" or the first broken invariant of the history.
  std::string Validate() const;

  // ---- history from a file ----------------------------------------------------------------------

  /// An empty step, to be filled while it is taken back; it is the next to redo.
  Step& AddUndone() {
    is_counted_ = false;
    return undone_.emplace_back();
  }
  /// Exchanges the histories of two journals whose sessions have exchanged their contents.
  void SwapHistory(Journal& other) {
    done_.swap(other.done_);
    undone_.swap(other.undone_);
    for (Journal* journal : {this, &other}) {
      journal->NewState();
      journal->is_counted_ = false;
      journal->next_number_ = journal->NumberSteps(1, 0);
    }
  }

 private:
  DPoolBase& Pool(std::uint16_t type) const;
  KeyedSetBase& SetOf(std::uint16_t type) const { return PoolInside::SetOf(Pool(type)); }
  void EndFinal();
  void TakeBack(Step& step, std::size_t mark);
  void DoAgain(Step& step);
  void Detach(Step& step, std::size_t begin, std::size_t end);
  void RestoreImage(const Step& step, const Change& change, bool before);
  void TryRestoreImage(const Step& step, const Change& change, bool before);
  void ForgetUndone();
  void ForgetOldest();
  void ForgetLatest();
  void Count(Step& step);
  void FreeDetached(Step& step, std::uint16_t operation);

  CQXDBSession& session_;
  HistoryLimits limits_;
  bool open_ = false;
  bool reserved_ = false;  // the last of done_ is room for the open step
  Step current_;
  std::size_t final_ = 0;    // changes of the open step that are no longer in it
  bool taken_back_ = false;  // the open step, but for what is final
  bool has_final_ = false;
  std::vector<std::pair<std::uint16_t, ITR>> final_removals_;
  std::deque<Step> done_;     // oldest first
  std::vector<Step> undone_;  // the next to redo last
  std::size_t bytes_ = 0;     // the footprints of done_ and undone_, as counted
  bool is_counted_ = true;    // else to be counted anew
  std::int64_t first_state_ = 0;
  std::int64_t last_state_ = 0;  // given to one without a step
  std::int64_t next_number_ = 1;
};

}  // namespace qx
