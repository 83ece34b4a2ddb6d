#pragma once
// Memory that runs out on demand on the calling thread: all of it, but under the address sanitizer
// only what is taken with `new`.

namespace qx {

/// From its construction the allocation of this number (from 0) fails, once.
class FailingMemory {
 public:
  explicit FailingMemory(int allocation);
  ~FailingMemory();
  bool HasFailed() const;
};

}  // namespace qx
