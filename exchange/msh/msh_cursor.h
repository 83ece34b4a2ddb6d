#pragma once
// Reads the bytes of a MSH file front to back: sections, text, and numbers as the file stores them.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/record/types.h"

#include "exchange/mesh.h"

namespace qx::exchange {

/// A position in the file. The first fault sticks: from then on every read gives 0 or an empty
/// text, and Ok() is false, which ends any loop that asks for it.
class MshCursor {
 public:
  /// How the file stores the numbers of its large sections.
  struct Encoding {
    bool binary = false;
    bool swapped = false;  ///< in the byte order that is not this machine's
    int size_bytes = 8;    ///< bytes of what the format calls size_t, 4 or 8
  };

  /// `bytes` must outlive the cursor; `file` stands for them in messages.
  MshCursor(std::string_view bytes, std::string file, const Progress& progress);

  bool Ok() const { return !failure_; }
  /// Byte that is read next.
  std::size_t At() const { return at_; }
  /// Requires a fault.
  const Failure& Error() const { return *failure_; }
  /// Goes on behind the line of a fault that concerns one line of text only, which is kept, as long
  /// as not too many are; the rest is read for its faults. Does nothing without a fault.
  void PassOver();
  /// Faults that were passed over.
  const std::vector<Failure>& PassedOver() const { return passed_over_; }
  /// Stops the reading for a fault in what was read last.
  void Fail(std::string what, std::string remedy);
  void SetEncoding(const Encoding& encoding) { encoding_ = encoding; }
  bool IsBinary() const { return encoding_.binary; }

  // ---- sections ---------------------------------------------------------------------------------

  /// Name of the next section, which is entered; none at the end of the file.
  std::optional<std::string_view> NextSection();
  /// Leaves the section, which must have no more data.
  void EndSection();
  /// Leaves the section, whatever it holds, and gives that.
  std::string_view SkipSection();

  // ---- text, also in binary files ---------------------------------------------------------------

  /// The next characters up to a blank.
  std::string_view Token();
  std::int64_t TextInteger();
  double TextReal();
  /// What is left of the line, without its end.
  std::string_view RestOfLine();
  /// Leaves a line that must have no more text.
  void EndLine();

  // ---- numbers in the file's encoding -----------------------------------------------------------

  std::int32_t Int();
  std::uint64_t Size();
  double Real();
  void SkipInts(std::uint64_t count);
  void SkipReals(int count);
  /// A node's or an element's number, stored as a size when `wide`, as an int otherwise.
  Key Number(bool wide, const char* of_what);
  /// `count` as it is, if the rest of the file can hold so many items of at least `text_bytes` or
  /// `binary_bytes`; a fault and 0 otherwise.
  std::uint64_t CheckCount(std::uint64_t count, const char* of_what, std::size_t text_bytes,
                           std::size_t binary_bytes);

 private:
  template <class T>
  T Raw();
  template <class T>
  T Parsed(const char* kind);
  void SkipBlanks();
  std::size_t Remaining() const { return bytes_.size() - at_; }
  std::string Place() const;
  void ReportProgress();

  std::string_view bytes_;
  std::string file_;
  const Progress& progress_;
  std::size_t next_report_ = 0;
  std::size_t at_ = 0;
  std::size_t last_ = 0;  // where what was read last begins
  std::string_view section_;
  Encoding encoding_;
  std::optional<Failure> failure_;
  std::vector<Failure> passed_over_;
};

}  // namespace qx::exchange
