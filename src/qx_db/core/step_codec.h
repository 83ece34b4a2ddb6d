#pragma once
// One step as bytes. Its form is described in docs/durability.md.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/core/journal.h"
#include "qx_db/core/step_log.h"
#include "qx_db/core/step_numbers.h"

namespace qx {

/// Which way a step in a file can be applied: what it holds are the images after it, or those
/// before it.
enum class StepForm { kForward, kBackward };

/// What a step says of itself.
struct StepHead {
  std::int64_t number = 0;
  std::u16string name;
  std::uint32_t inserted = 0, removed = 0, modified = 0;
};

/// What a step will take.
struct StepSize {
  std::uint64_t bytes = 0;
  std::uint32_t inserted = 0, removed = 0, modified = 0;
  std::string fault;  ///< which record's image exceeds kMaxStoredImage; "" when none does
};

/// A step whose changes the session has just made (kForward), or has in its history: undone
/// (kForward) or done (kBackward). Pools that are not saved are left out.
StepSize SizeOfStep(const CQXDBSession& session, const Step& step, StepForm form);
/// Encodes it, without a fault in its size, into as many bytes. Throws std::bad_alloc.
void EncodeStep(const CQXDBSession& session, const Step& step, StepForm form,
                const StepNumbers& numbers, const StepSize& size, FrameSink& out);
/// Gives numbers to the records that the step inserted, or, after it, that only it keeps.
void NumberRecords(const CQXDBSession& session, const Step& step, std::uint16_t operation,
                   StepNumbers& numbers);

/// A change as it stands in the file. `operation` is as in tagTRNotify, or of the step as a whole:
/// kUnits, a change of the model's units, whose image is their text; kState, the name of the state
/// that it leads to (Step::state), an i64.
struct StoredChange {
  static constexpr std::uint16_t kUnits = 103;
  static constexpr std::uint16_t kState = 104;

  std::uint16_t type = 0;
  std::uint16_t operation = 0;
  std::uint32_t number = 0;
  Key key = 0;
  std::uint32_t previous = 0, next = 0;  ///< of a removed record, backward: its neighbours' numbers
  std::span<const char> image;           ///< may be empty

  bool IsOfStep() const { return operation == kUnits || operation == kState; }
};

/// Reads an encoded step, whatever its bytes claim.
class StepDecoder {
 public:
  StepDecoder(std::span<const char> bytes, StepForm form)
      : left_(bytes), backward_(form == StepForm::kBackward) {}
  /// Both give false, with the fault in Fault(), where the bytes do not make sense. Next gives
  /// false without a fault at the end.
  bool ReadHead(StepHead& head);
  bool Next(StoredChange& change);
  const std::string& Fault() const { return fault_; }

 private:
  bool Fail(const char* what) {
    fault_ = what;
    return false;
  }
  template <class T>
  bool Take(T& value);

  std::span<const char> left_;
  bool backward_;
  std::uint32_t changes_ = 0;
  std::string fault_;
};

/// Units as a step holds them, by name; false for a text that is none.
std::string UnitsText(const CQXUnitCtrl& units);
bool UnitsFromText(std::string_view text, CQXUnitCtrl& units);

/// A reference in an image of a step: none, a record by number, or, where it has none, by key.
struct StoredReference {
  static constexpr std::uint64_t kNumber = std::uint64_t{1} << 32;
  static constexpr std::uint64_t kKey = std::uint64_t{2} << 32;
};

}  // namespace qx
