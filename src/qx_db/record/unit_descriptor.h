#pragma once
// The unit categories of a record type, group by group.
// Threads: made once with their schema, and only read from then on.

#include <array>

#include "qx_db/record/schema.h"

namespace qx {

/// The unit categories of record type `T`, one 32-bit code for each of its groups of members,
/// behind the vptr. Read off the type's rows; one instance a process, made on the first call.
///
/// A record's header names its descriptor, as CQXNodeUnit, and declares the instantiation extern;
/// its .cpp defines it, after including record_impl.h.
template <class T, int Groups>
class QXDB_API TUnitDescriptor {
 public:
  virtual ~TUnitDescriptor() = default;

  static const TUnitDescriptor& Instance();
  static constexpr int GroupCount() { return Groups; }
  /// Category of a group; requires 0 <= group < GroupCount().
  std::int32_t Code(int group) const { return codes_[static_cast<std::size_t>(group)]; }

 private:
  TUnitDescriptor();

  std::array<std::int32_t, Groups> codes_{};
};

}  // namespace qx
