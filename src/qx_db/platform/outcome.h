#pragma once
// What went wrong, where, and what to do about it: the result of every operation that reads or
// writes outside data.
// Threads: values: one at a time for each object.

#include <optional>
#include <string>
#include <utility>

#include "qx_db/export.h"

namespace qx {

/// One failure as a user should see it. `Line()` is the text every front end prints.
struct QXDB_API Failure {
  std::string file;    ///< file or document concerned; empty when there is none
  std::string place;   ///< place in it: "line 12", "node 7", "table NODE"; may be empty
  std::string what;    ///< what is wrong, without a full stop
  std::string remedy;  ///< what the user can do, as an imperative; may be empty

  /// "file: place: what; remedy", leaving out what is empty, on one line.
  std::string Line() const;
};

/// Success, or one `Failure`. Contextually true on success.
class [[nodiscard]] Outcome {
 public:
  Outcome() = default;
  Outcome(Failure failure) : failure_(std::move(failure)) {}

  explicit operator bool() const { return !failure_; }
  /// Requires a failed outcome.
  const Failure& Error() const { return *failure_; }
  /// The failure's line, or an empty text on success.
  std::string Line() const { return failure_ ? failure_->Line() : std::string(); }

 private:
  std::optional<Failure> failure_;
};

/// A value, or the `Failure` that prevented it.
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : value_(std::move(value)) {}
  Result(Failure failure) : outcome_(std::move(failure)) {}

  explicit operator bool() const { return value_.has_value(); }
  T& operator*() { return *value_; }
  const T& operator*() const { return *value_; }
  T* operator->() { return &*value_; }
  const T* operator->() const { return &*value_; }
  /// Requires a failed result.
  const Failure& Error() const { return outcome_.Error(); }
  Outcome AsOutcome() const { return outcome_; }

 private:
  std::optional<T> value_;
  Outcome outcome_;
};

}  // namespace qx
