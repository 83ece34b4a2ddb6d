#pragma once
// Steps from a file applied to the model that the file holds.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>

#include "qx_db/core/schema_text.h"
#include "qx_db/core/step_codec.h"
#include "qx_db/core/step_numbers.h"

namespace qx {

/// Rebuilds the later state of a session, and its undo and redo history, from the bytes of its
/// steps. Every call gives "" or what is wrong with the bytes; the session is then good for
/// nothing. Records are checked before they are read, numbers before they are followed.
class StepReplay {
 public:
  /// The reader of a pool's images; null for a pool that the file does not hold.
  using Readers = std::function<const ImageReader*(std::uint16_t type)>;

  /// `step_bytes` are those of all steps to come: no more new records than they have room for.
  StepReplay(CQXDBSession& session, Readers readers, std::uint64_t step_bytes);

  /// Steps that were done before the state which the session holds, newest first; then the end of
  /// them.
  std::string TakeBackPast(std::span<const char> step, std::int64_t time_ms);
  /// Whether the last of them leads to a state in which two records share a key: none before it are
  /// to be taken back, and DropBeforeCut drops it once all steps are made.
  bool IsCut() const { return is_cut_; }
  void DropBeforeCut();
  std::string EndPast();
  /// Steps since, in their order.
  std::string Commit(std::span<const char> step, std::int64_t time_ms);
  std::string Undo();
  std::string Redo();

  StepNumbers& Numbers() { return numbers_; }

 private:
  class Waiting;

  DPoolBase* PoolOf(const StoredChange& change);
  std::string ReadRecord(const StoredChange& change, DPoolBase& pool, bool resolve);
  TStructBase& Read(const DPoolBase& pool);
  void ResolveReferences(DPoolBase& pool, TStructBase& record) const;
  std::string Create(const StoredChange& change, DPoolBase& pool, Waiting& waiting);
  std::string ApplyToStep(const StoredChange& change, Step& step, StepForm form);
  std::string ApplyUnits(const StoredChange& change, Step& step, StepForm form);
  std::string ApplyForward(const StoredChange& change, DPoolBase& pool);
  std::string ApplyBackward(const StoredChange& change, DPoolBase& pool, Step& step);
  void ForgetUndone();
  std::string SharedKey(const Step& step) const;

  CQXDBSession& session_;
  Readers readers_;
  std::uint64_t spare_;
  StepNumbers numbers_;
  std::map<std::uint16_t, std::unique_ptr<TStructBase>> read_;
  DPoolBase* last_pool_ = nullptr;  // that PoolOf found
  std::size_t past_ = 0;
  bool is_cut_ = false;
};

}  // namespace qx
