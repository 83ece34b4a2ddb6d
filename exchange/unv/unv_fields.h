#pragma once
// Results of universal files: datasets 2414, 55 and 56.

#include <map>

#include "exchange/deck.h"
#include "exchange/unv/unv_text.h"

namespace qx::exchange {

/// Reads results of nodes and elements as fields, of which the keys are those of the file.
class UnvFields {
 public:
  explicit UnvFields(Deck& deck) : deck_(deck) {}

  /// One dataset of the name 2414, 55 or 56.
  void Read(UnvText& in);

 private:
  struct Head {
    std::string name;
    std::int64_t location = 1;  ///< 1 nodes, 2 elements, 3 nodes of elements
    std::int64_t analysis = 0;
    std::int64_t result = 0;
    std::int64_t type = 2;    ///< 4 double, 5 and 6 complex
    std::int64_t parts = 1;   ///< 2 for complex: real and imaginary
    std::int64_t values = 0;  ///< of all parts
    std::int64_t step = 0;
    double time = 0;
    std::int32_t category = unit::kUnknown;
    std::int32_t is_whole = 0;
  };

  bool ReadHead2414(UnvText& in, Head& head);
  bool ReadHead55(UnvText& in, Head& head);
  void ReadValues(UnvText& in, const Head& head, tagTField& field);
  const Mesh::Element* ElementOf(Key key);

  Deck& deck_;
  std::map<Key, std::size_t> elements_;  ///< places, of as many elements as there were
  std::size_t known_ = 0;
};

}  // namespace qx::exchange
