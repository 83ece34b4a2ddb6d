#pragma once
// What a desktop framework gives to write a file piece by piece, over any stream.
// Threads: shares nothing; one at a time for each object.

#include <cstddef>
#include <ostream>
#include <vector>

#include "qx_db/platform/text.h"

namespace qx {

/// A file open for writing, over a stream that it does not own. A failed write shows in the
/// stream's state, which whoever opened it asks at the end.
class CStdioFile {
 public:
  explicit CStdioFile(std::ostream& stream) : stream_(stream) {}
  void Write(const void* bytes, std::size_t count) {
    stream_.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
  }

 private:
  std::ostream& stream_;
};

/// A list of texts that grows at its end.
class CStringArray {
 public:
  int GetSize() const { return static_cast<int>(texts_.size()); }
  const CString& GetAt(int i) const { return texts_[static_cast<std::size_t>(i)]; }
  const CString& operator[](int i) const { return GetAt(i); }
  void Add(CString text) { texts_.push_back(std::move(text)); }
  void RemoveAll() { texts_.clear(); }
  friend bool operator==(const CStringArray&, const CStringArray&) = default;

 private:
  std::vector<CString> texts_;
};

}  // namespace qx
