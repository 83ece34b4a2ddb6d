#pragma once
// Memory that runs out on demand, for what is allocated with `new` on the calling thread.

namespace qx {

/// From its construction the allocation of this number (from 0) fails, once.
class FailingMemory {
 public:
  explicit FailingMemory(int allocation);
  ~FailingMemory();
  bool HasFailed() const;
};

}  // namespace qx
