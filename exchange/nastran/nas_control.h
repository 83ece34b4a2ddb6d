#pragma once
// Sets of the case control, which are mesh sets of a model:
//
//   $ Set 5: elements of "Wing skin", part of set 3
//   SET 5 = 1 THRU 20, 25
//   $ Set 6: nodes of set 5
//   SET 6 = 101, 102
//   $ Set 7: nothing of "To come"
//
// The comments are the system's own; a set of another program is called "SET 5", and lists what the
// commands that name it are about. One that only unknown commands name stays text, and so do
// sections that draw (OUTPUT(PLOT), OUTPUT(XYPLOT)). Threads: shares nothing.

#include <map>
#include <string>
#include <vector>

#include "exchange/deck.h"
#include "exchange/nastran/nas_follow.h"

namespace qx::exchange {

/// Reads the sets of the control section as groups of the deck, and tells of those that stay text.
void ReadNasSets(const NasText& text, Deck& deck);

/// The numbers that mesh sets have in the format, by their keys: of their elements, of their nodes.
struct NasSetNumbers {
  Key elements = 0;
  Key nodes = 0;
};
using NasSetTags = std::map<Key, NasSetNumbers>;

/// What makes the control section say `groups`, which are those of `now` as far as they are
/// written: edits of sets that differ, and new sets behind CEND. Where there is no control section,
/// `head` becomes one that stands before the text.
void WriteNasSets(const NasText& text, NasNumbers& numbers, const Deck& now,
                  const std::vector<Mesh::Group>& groups, const NasSetTags& tags,
                  std::vector<NasEdit>& edits, std::string& head, LossReport& report);

}  // namespace qx::exchange
