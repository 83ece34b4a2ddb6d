#pragma once
// Orientation, offsets and releases of bars, beams and bushes, and masses: both ways. Their vectors
// count in the displacement systems of nodes.
// Threads: shares nothing.

#include <array>
#include <functional>
#include <map>

#include "exchange/deck.h"
#include "exchange/nastran/nas_fields.h"
#include "exchange/nastran/nas_systems.h"
#include "exchange/nastran/nas_values.h"

namespace qx::exchange {

/// Where a node is, and the directions in which its displacements count; basic ones for one that is
/// not there.
struct NasNodeFrame {
  Vector3 at;
  Triad axes;
};
using NasNodeFrames = std::function<NasNodeFrame(Key)>;

/// Field of the orientation: a vector, or the number of a node.
inline constexpr std::size_t kNasOrientation = 4;

/// Cards that have orientations.
bool IsNasLine(std::string_view card);

/// What a card of a line or a mass says about how its vectors are to be read, which the model has
/// no place for.
struct NasLineForm {
  std::string ends = "GGG";  ///< OFFT: system of the orientation and of the offset at each end
  bool is_absolute = false;  ///< a mass is given by its place
  bool says_ends = false;    ///< a blank OFFT stands for that of a card of defaults
  /// A line without an orientation gets the one that the model takes for it.
  bool fills = true;

  /// Of a card that is there, to which nothing is added.
  static NasLineForm Of(const NasText& text, const NasCard& card, const NasCard* defaults);
};

/// Whether a card of defaults gives OFFT; false for null.
bool NasGivesEnds(const NasText& text, const NasCard* defaults);

/// Reads a line's records. `defaults` is the card that fills its blank fields; may be null.
void ReadNasLine(NasFieldReader& in, const NasCard& card, const NasCard* defaults,
                 const std::array<Key, 2>& nodes, const NasNodeFrames& frames,
                 const NasSystems& systems, Deck& deck);
void ReadNasMass(NasFieldReader& in, const NasCard& card, Key node, const NasNodeFrames& frames,
                 Deck& deck);

/// The records of one line in a deck; null where there is none.
struct NasLineRecords {
  const tagTEcrd* orientation = nullptr;
  std::array<const tagTE1DOffset*, 2> offsets{};  ///< at each end
  const tagTE1DRelease* release = nullptr;
};

/// Adds the fields of a line behind those of its nodes, or all of a mass behind its node's.
void AddNasLine(NasFields& card, const NasLineRecords& records, const NasLineForm& form,
                const std::array<Key, 2>& nodes, const NasNodeFrames& frames,
                const NasSystems& systems);
void AddNasMass(NasFields& card, const tagTSprop& mass, const NasLineForm& form, Key node,
                const NasNodeFrames& frames);

}  // namespace qx::exchange
