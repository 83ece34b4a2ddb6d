#pragma once
// Numbers in the text of a deck follow the nodes, elements and so on that they name.
// Threads: shares nothing; one at a time for each object.

#include <array>
#include <map>
#include <optional>
#include <vector>

#include "exchange/deck.h"
#include "exchange/nastran/nas_rules.h"
#include "exchange/nastran/nas_values.h"

namespace qx::exchange {

/// Numbers from one to another, ascending and apart from each other.
struct NasRun {
  Key from;
  Key to;
  friend bool operator==(const NasRun&, const NasRun&) = default;
};
using NasRuns = std::vector<NasRun>;
/// Puts runs in order, those that meet together.
NasRuns NasJoined(NasRuns runs);
/// Adds runs for numbers in whatever order.
void AddNasRuns(std::vector<Key> numbers, NasRuns& runs);

/// Which number each thing of a deck has now in the model that it became.
class NasNumbers {
 public:
  /// The numbers that stand at the places of `carried`, whose text is `text`, are those of its
  /// records; the model is `now`, in which systems have the numbers that `systems` gives for their
  /// keys. Numbers at no place keep theirs.
  NasNumbers(const tagTCarried& carried, const NasText& text, const Deck& now,
             const std::map<Key, Key>& systems);

  /// What is described where its own number stands: its number now, 0 when it is gone; none where
  /// the text describes nothing of the model.
  std::optional<Key> At(std::size_t place) const;
  /// The number that a reference to `was` has now; 0 when that is gone.
  Key Now(NasKind kind, Key was) const;
  /// A thing that the text describes at a place, found by other means than a place; 0: it is gone.
  void Describe(NasKind kind, std::size_t place, Key was, Key now);
  /// A number that follows none of the model's records.
  void Rename(NasKind kind, Key was, Key now);

  /// Numbers that the model's records had in the text, and that they have now, ascending.
  const std::vector<Key>& Were(NasKind kind) const { return were_[Index(kind)]; }
  const std::vector<Key>& Are(NasKind kind) const { return are_[Index(kind)]; }
  bool Was(NasKind kind, Key number) const;
  bool Is(NasKind kind, Key number) const;
  /// Whether the text had any of these numbers.
  bool WasAnyIn(NasKind kind, Key from, Key to) const;
  /// Whether any number is another, is gone, or is new.
  bool HasChanged(NasKind kind) const;
  bool HasChanged() const;
  /// Lists the numbers that only the text has, once all that it describes is known.
  void ListTextOnly(const NasText& text);
  bool IsTextOnly(NasKind kind, Key number) const;
  /// A number that nothing has: behind all that are there, as far as the format has numbers, else
  /// between them; 0 when there is none.
  Key NewNumber(NasKind kind);
  /// Members of a range in the text, as numbers of now; none, and `is_same`, where the same range
  /// names just these now. Once ListTextOnly was called. Costs what the range has of stretches that
  /// moved together, and as many lookups; of steps its members.
  NasRuns InRange(NasKind kind, Key from, Key to, Key step, bool& is_same) const;
  /// Those that only the text has; `is_same` becomes false where some have another number.
  NasRuns TextOnlyIn(NasKind kind, Key from, Key to, Key step, bool& is_same) const;
  std::size_t CountTextOnly(NasKind kind, Key from, Key to) const;

 private:
  /// Numbers in a row that the text had, all of which have moved by as much.
  struct Stretch {
    Key from;
    Key to;
    Key now;  ///< the number that `from` has now; 0: all are gone
  };

  static std::size_t Index(NasKind kind) { return static_cast<std::size_t>(kind); }
  bool HasTextOnlyIn(NasKind kind, Key from, Key to) const;
  const std::vector<Stretch>& StretchesOf(NasKind kind) const;
  /// What a range of the text lists now of the model's records, and whether the same range does.
  NasRuns Moved(NasKind kind, Key from, Key to, bool& is_same) const;
  NasRuns MovedBySteps(NasKind kind, Key from, Key to, Key step, bool& is_same) const;

  std::vector<std::pair<std::size_t, Key>> places_;
  std::map<std::size_t, Key> described_;
  std::array<std::map<Key, Key>, kNasKinds> renamed_;  ///< where they differ
  std::array<std::vector<Key>, kNasKinds> were_;
  std::array<std::vector<Key>, kNasKinds> are_;
  std::array<NasRuns, kNasKinds> text_only_;
  bool has_text_only_ = false;
  std::array<std::vector<Key>, kNasKinds> newcomers_;  ///< that were not in the text
  std::array<Key, kNasKinds> newest_{};
  std::array<Key, kNasKinds> newest_gap_{};
  mutable std::array<std::optional<std::vector<Stretch>>, kNasKinds> stretches_;  ///< when asked
};

/// The greatest number that the format has.
inline constexpr Key kNasMaxNumber = 99999999;

/// Whether a number stands in an ascending list.
bool NasHas(const std::vector<Key>& list, Key number);

/// Lets the numbers in the cards of a text follow. Cards that are described nowhere in the model
/// and name what is gone are left out, where they cannot do without; `edits` gets cards that become
/// several. Tells what was left out, and of cards of which it is not known what they number. Fails,
/// of a deck to be written to `path`, where ranges come to many times more numbers than there are.
Outcome FollowNasNumbers(NasText& text, NasNumbers& numbers, std::vector<NasEdit>& edits,
                         const std::string& path, LossReport& report, const Progress& progress);

}  // namespace qx::exchange
