#pragma once
// What a file and a model could not tell each other: one form for both directions.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <string>
#include <vector>

#include "qx_db/platform/outcome.h"

namespace qx::exchange {

/// One kind of thing that did not get through as it was.
struct Loss {
  enum class Kind {
    kLost,     ///< it is not there on the other side
    kChanged,  ///< it is there as something else
    kAssumed,  ///< nothing is lost, but something was taken for granted
  };

  Kind kind = Kind::kLost;
  std::string what;  ///< "elements without all their nodes were left out"
  std::uint64_t count = 1;
  std::string where;  ///< the first of them: "line 12", "element 7"; may be empty
  std::string why;    ///< may be empty

  /// "what: count (why; first: where)", leaving out what is empty. An assumption has no count.
  std::string Line() const;
  friend bool operator==(const Loss&, const Loss&) = default;
};

/// What one import or export left out, changed, or took for granted, and every fault of a file that
/// could not be read.
struct LossReport {
  /// Most faults that a reader collects before it gives up.
  static constexpr std::size_t kMostFaults = 50;

  std::vector<Loss> entries;
  std::vector<Failure> faults;

  /// Adds to the entry of the same kind, text and reason, or makes a new one; nothing for a count
  /// of 0.
  void Lost(std::string what, std::uint64_t count = 1, std::string where = {},
            std::string why = {}) {
    Add({Loss::Kind::kLost, std::move(what), count, std::move(where), std::move(why)});
  }
  void Changed(std::string what, std::uint64_t count = 1, std::string where = {},
               std::string why = {}) {
    Add({Loss::Kind::kChanged, std::move(what), count, std::move(where), std::move(why)});
  }
  void Assumed(std::string what, std::string why = {}) {
    Add({Loss::Kind::kAssumed, std::move(what), 1, {}, std::move(why)});
  }
  void Add(Loss loss);
  /// Appends another report's entries and faults.
  void Append(const LossReport& other);

  /// Whether everything got through: nothing lost or changed.
  bool IsLossless() const;
  /// Fails, naming the first loss and their number, unless the report is lossless.
  Outcome CheckLossless(const std::string& file) const;
  /// A line each, as a person reads them.
  std::vector<std::string> Lines() const;
  /// {"file", "format", "direction", "lossless", "losses": [{"kind", "what", "count", "where",
  /// "why"}], "faults": [{"place", "what", "remedy"}]}, indented.
  std::string ToJson(const std::string& file, const std::string& format,
                     const std::string& direction) const;
};

}  // namespace qx::exchange
