#pragma once
// New HDF5 files.

#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/platform/outcome.h"

namespace qx::exchange {

struct H5Library;

/// A file, whose bytes follow from what is put in alone. Until it is finished no other thread can
/// open one, and this one neither. After a failure every further call does
/// nothing; Finish() tells the first.
class H5Writer {
 public:
  /// `path` holds a file that is overwritten.
  explicit H5Writer(const std::string& path);
  ~H5Writer();
  H5Writer(const H5Writer&) = delete;
  H5Writer& operator=(const H5Writer&) = delete;

  /// A group; what it is in must be there.
  void Group(const std::string& path);
  void Integer(const std::string& path, const char* name, std::int32_t value);
  /// The same as an array of one.
  void IntegerInArray(const std::string& path, const char* name, std::int32_t value);
  void Real(const std::string& path, const char* name, double value);
  /// A text of `width` characters, padded with zeros.
  void Text(const std::string& path, const char* name, std::string_view text, std::size_t width);

  using Lengths = std::span<const std::uint64_t>;
  void Put(const std::string& path, std::span<const std::int32_t> values, Lengths lengths = {});
  void Put(const std::string& path, std::span<const std::int64_t> values, Lengths lengths = {});
  void Put(const std::string& path, std::span<const double> values, Lengths lengths = {});
  void Put(const std::string& path, std::span<const float> values, Lengths lengths = {});
  /// Single characters.
  void Put(const std::string& path, std::string_view characters, Lengths lengths = {});
  /// Texts of `width` characters each, as an array of arrays of characters, padded with zeros.
  void PutTexts(const std::string& path, const std::vector<std::string>& texts, std::size_t width);

  /// Closes the file. What went wrong, or "".
  std::string Finish();
  /// What to do about it.
  std::string Remedy() const;

 private:
  bool Check(std::int64_t status, const std::string& path);
  void Attribute(const std::string& path, const char* name, std::int64_t stored, std::int64_t type,
                 const void* value, bool in_array);
  void PutArray(const std::string& path, std::int64_t stored, std::int64_t type, const void* values,
                std::size_t count, Lengths lengths);

  std::unique_lock<std::mutex> lock_;
  const H5Library* h5_ = nullptr;
  std::int64_t file_ = -1;
  std::int64_t group_list_ = -1;  // how groups are made
  std::int64_t array_list_ = -1;
  void* error_function_ = nullptr;
  void* error_data_ = nullptr;
  std::string wrong_;
  int error_ = 0;  // of the system, with it
};

/// A file that is complete or not there, of what `write` puts into it.
Outcome WriteHdf5(const std::string& path, const std::function<void(H5Writer&)>& write);

}  // namespace qx::exchange
