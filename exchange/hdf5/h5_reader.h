#pragma once
// HDF5 files by the paths of what is in them.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/platform/outcome.h"

namespace qx::exchange {

struct H5Library;

/// An open file. The library behind it is not safe for threads: while one is open no other thread
/// can open one. After a failure every further call gives nothing; Error() tells the first. What is
/// kept in other files is not followed.
class H5Reader {
 public:
  /// A file on the disk, or one in memory, of which a copy is made; `name` stands for it in
  /// messages.
  static Result<std::unique_ptr<H5Reader>> Open(const std::string& path);
  static Result<std::unique_ptr<H5Reader>> OpenMemory(std::string_view bytes,
                                                      const std::string& name);
  ~H5Reader();
  H5Reader(const H5Reader&) = delete;
  H5Reader& operator=(const H5Reader&) = delete;

  bool Ok() const { return !failure_; }
  const Failure& Error() const { return *failure_; }
  void Fail(std::string place, std::string what);
  /// The failure, after which the reader goes on as if there was none.
  Failure TakeError();
  /// More values than the file can have.
  std::uint64_t MostValues() const { return left_ / 8; }

  /// Names of what is in a group, in the order in which it was made where the file tells, else by
  /// name; none where it is no group. Links are not among them.
  std::vector<std::string> Children(const std::string& path);
  /// Links that were met and not followed, up to a bound, by path: whether each leads to another
  /// file.
  const std::map<std::string, bool>& Links() const { return links_; }
  /// Whether there is something at a path, each part of which must be there, in this file.
  bool Has(const std::string& path) const;
  bool IsGroup(const std::string& path) const;

  /// Attributes; none where there is no such of that kind.
  std::optional<std::string> TextAttribute(const std::string& path, const char* name) const;
  std::optional<std::int64_t> IntegerAttribute(const std::string& path, const char* name) const;
  std::optional<double> RealAttribute(const std::string& path, const char* name) const;

  enum class Kind { kInteger, kReal, kText, kOther };
  /// What an array has; kOther where there is none.
  Kind KindOf(const std::string& path) const;
  /// Lengths of an array, the last one counting fastest; none where there is none.
  std::vector<std::uint64_t> LengthsOf(const std::string& path) const;
  /// All values of an array; it fails unless they are `count`.
  static constexpr std::uint64_t kAny = ~std::uint64_t{0};
  std::vector<std::int64_t> Integers(const std::string& path, std::uint64_t count = kAny);
  std::vector<double> Reals(const std::string& path, std::uint64_t count = kAny);
  /// The bytes of an array of characters or texts of fixed length, or of an array of such arrays.
  std::string Bytes(const std::string& path);
  /// The same in pieces that stay in the cache, in order.
  using SeeIntegers = std::function<void(std::span<const std::int64_t>)>;
  using SeeReals = std::function<void(std::span<const double>)>;
  void Integers(const std::string& path, std::uint64_t count, const SeeIntegers& see);
  void Reals(const std::string& path, std::uint64_t count, const SeeReals& see);

 private:
  H5Reader(const H5Library& h5, std::string name, std::uint64_t bytes);
  struct Array;
  bool Admit(const std::string& path, std::uint64_t count, std::uint64_t width);
  bool ReadAttribute(const std::string& path, const char* name, int of,
                     const std::function<bool(std::int64_t, std::int64_t)>& read) const;
  bool IsFollowed(const std::string& path, int type) const;
  std::int64_t OpenArray(const std::string& path);
  std::vector<std::uint64_t> ShapeOf(std::int64_t array) const;
  template <class T, class See>
  void ReadInPieces(const std::string& path, std::uint64_t count, const See& see);

  std::unique_lock<std::mutex> lock_;
  const H5Library& h5_;
  std::string name_;
  std::uint64_t left_ = 0;  // bytes that may still be read
  std::int64_t file_ = -1;
  void* error_function_ = nullptr;  // that printed the library's errors before
  void* error_data_ = nullptr;
  std::optional<Failure> failure_;
  mutable std::map<std::string, bool> links_;
};

}  // namespace qx::exchange
