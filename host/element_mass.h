#pragma once
// Sizes and masses of elements from their shape, property and material.
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include <unordered_map>

#include "qx_db/core/session.h"
#include "qx_db/mesh/point3.h"
#include "qx_db/record/mesh_records.h"

namespace qx::host {

/// Mass of elements along the global axes, and its first moment: point masses may differ by axis,
/// so the mass that counts for the centre is the mean of the three.
struct Mass {
  double by_axis[3]{};
  double moment[3]{};  ///< mean mass by position

  double Mean() const { return (by_axis[0] + by_axis[1] + by_axis[2]) / 3; }
  void Add(const Mass& other);
};

/// Answers for one state of a model's thickness records: made anew when they changed (IsCurrent),
/// which costs one walk over them; everything else is looked up when asked. Null sessions and
/// unknown elements have no size and no mass.
///
/// The mass of an element is its size (length, area, volume as its nodes bend it; never negative)
/// by the section's area or the thickness, by the density of its property's material, and its
/// non-structural mass. Special properties of an element add their point mass. Functions that vary
/// a thickness are not evaluated: the values they multiply count.
class ElementMasses {
 public:
  explicit ElementMasses(CQXDBSession* session);
  /// Whether this still answers for the session, in constant time.
  bool IsCurrent(CQXDBSession* session) const {
    return session == session_ && RevisionOf(session) == revision_;
  }

  /// Volume of a line element, 0 for any other.
  double BeamVolume(ITR elem) const;
  /// Thickness of a surface element: its own where a record gives it one, else its property's.
  double Thickness(const tagTElem& elem, ITR itr) const;
  /// Area by thickness of a surface element, 0 for any other.
  double FaceVolume(ITR elem) const;
  /// Point masses of an element: of its special property, or of a point-mass property.
  Mass PointMass(ITR elem) const;
  /// All of an element's mass.
  Mass Of(ITR elem) const;

 private:
  /// That of the thickness records, which no two pools share; 0 without the pool.
  static std::uint64_t RevisionOf(CQXDBSession* session);

  CQXDBSession* session_;
  std::uint64_t revision_;
  std::unordered_map<ITR, ITR> own_thickness_;  // the record of an element that has one
};

}  // namespace qx::host
