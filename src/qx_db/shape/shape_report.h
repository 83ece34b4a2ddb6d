#pragma once
// What shaping a mesh made, and what it left as it was.
// Threads: values: one at a time for each object.

#include <cstdint>
#include <string>
#include <vector>

#include "qx_db/record/types.h"

namespace qx {

/// Something that a person would expect to change along, and that did not: "fields of values of
/// moved nodes keep their numbers".
struct ShapeNote {
  std::string what;
  std::int64_t count;
};

/// A record of a pool and one that was made of it.
struct MadeKey {
  std::uint16_t type;
  Key of;
  Key made;
};

struct ShapeReport {
  std::vector<ShapeNote> notes;
  std::vector<MadeKey> made;  ///< nodes first, each of one record after another

  void Note(std::string what, std::int64_t count) {
    if (count > 0) notes.push_back({std::move(what), count});
  }
};

}  // namespace qx
