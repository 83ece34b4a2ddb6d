#pragma once
// The unit categories of a record type, group by group.

#include <algorithm>
#include <vector>

#include "qx_db/record/schema.h"

namespace qx {

/// One 32-bit unit-category code per group of members of record type `T`, read off its rows.
template <class T>
class TUnitDescriptor {
 public:
  virtual ~TUnitDescriptor() = default;

  static const TUnitDescriptor& Instance() {
    static const TUnitDescriptor instance;
    return instance;
  }
  int GroupCount() const { return static_cast<int>(codes_.size()); }
  /// Category of a group; requires 0 <= group < GroupCount().
  std::int32_t Code(int group) const { return codes_[static_cast<std::size_t>(group)]; }

 private:
  TUnitDescriptor() {
    for (const Row* row : T::GetSchema().UnitRows()) {
      const auto group = static_cast<std::size_t>(row->unit.group);
      codes_.resize(std::max(codes_.size(), group + 1));
      codes_[group] = row->unit.category;
    }
  }
  std::vector<std::int32_t> codes_;
};

}  // namespace qx
