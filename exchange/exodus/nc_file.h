#pragma once
// netCDF files, of any container, by the names of what is in them.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/platform/outcome.h"

namespace qx::exchange {

/// An open file. The library behind it is not safe for threads: while one is open no other thread
/// can open one. After a failure every further call gives nothing; Error() tells the first.
class NcReader {
 public:
  /// A file on the disk, or one in memory, which is not owned; `name` stands for it in messages.
  static Result<std::unique_ptr<NcReader>> Open(const std::string& path);
  static Result<std::unique_ptr<NcReader>> OpenMemory(std::string_view bytes,
                                                      const std::string& name);
  ~NcReader();
  NcReader(const NcReader&) = delete;
  NcReader& operator=(const NcReader&) = delete;

  bool Ok() const { return !failure_; }
  const Failure& Error() const { return *failure_; }
  void Fail(std::string place, std::string what);
  /// The failure, after which the reader goes on as if there was none.
  Failure TakeError();
  /// More values than the file can have.
  std::uint64_t MostValues() const { return left_ / 8; }

  /// Length of a dimension; none where there is no such.
  std::optional<std::uint64_t> Dimension(const std::string& name) const;
  /// The same where it must be there.
  std::uint64_t NeededDimension(const std::string& name);
  bool Has(const std::string& variable) const;
  /// Names of all variables.
  std::vector<std::string> Variables() const;
  /// All values of a variable; it fails unless they are `count`.
  std::vector<std::int64_t> Integers(const std::string& variable, std::uint64_t count);
  std::vector<double> Reals(const std::string& variable, std::uint64_t count);
  /// The same in pieces that stay in the cache, in order; no number of values is asked for where
  /// `count` is kAny.
  static constexpr std::uint64_t kAny = ~std::uint64_t{0};
  using SeeIntegers = std::function<void(std::span<const std::int64_t>)>;
  using SeeReals = std::function<void(std::span<const double>)>;
  void Integers(const std::string& variable, std::uint64_t count, const SeeIntegers& see);
  void Reals(const std::string& variable, std::uint64_t count, const SeeReals& see);
  /// One step of a variable whose first dimension are steps.
  std::vector<double> RealsAt(const std::string& variable, std::uint64_t step, std::uint64_t count);
  /// Texts of a variable of characters, without what pads them; as many as its first dimensions
  /// make.
  std::vector<std::string> Texts(const std::string& variable);
  /// A text attribute of a variable, or, with no name, of the file; "" for none.
  std::string TextAttribute(const std::string& variable, const char* name) const;

 private:
  NcReader(std::string name, std::uint64_t bytes);
  Result<std::unique_ptr<NcReader>> static Opened(std::unique_ptr<NcReader> file, int status);
  /// Number of a variable and its lengths; -1, with a failure, where it is not there.
  int Find(const std::string& variable, std::vector<std::size_t>& lengths);
  bool Admit(const std::string& variable, std::uint64_t count, std::uint64_t width);
  template <class T, class See>
  void ReadInPieces(const std::string& variable, std::uint64_t count, const See& see);

  std::unique_lock<std::mutex> lock_;
  std::string name_;
  std::uint64_t file_bytes_;
  std::uint64_t left_ = 0;  // bytes that may still be read
  int id_ = -1;
  std::optional<Failure> failure_;
};

/// A new file in the container that every reader of such files knows, or, where one array is too
/// large for it, in that of 64-bit sizes. Definitions come first, then values. After a failure
/// every further call does nothing; Finish() tells the first.
class NcWriter {
 public:
  /// `path` holds a file that is overwritten. `large`: an array has 4 GiB or more.
  NcWriter(const std::string& path, bool large);
  ~NcWriter();
  NcWriter(const NcWriter&) = delete;
  NcWriter& operator=(const NcWriter&) = delete;

  /// A dimension; of length 0 it may grow. Dimensions of one name are the same.
  int Dimension(const std::string& name, std::size_t length);
  void Text(const std::string& variable, const char* name, const std::string& text);
  void Real(const char* name, float value);
  void Integer(const char* name, int value);
  enum class Type { kInteger, kReal, kText };
  void Define(const std::string& variable, Type type, const std::vector<int>& dimensions);
  void EndDefinitions();

  void Put(const std::string& variable, const std::vector<std::int32_t>& values);
  void Put(const std::string& variable, const std::vector<double>& values);
  void PutAt(const std::string& variable, std::size_t step, const std::vector<double>& values);
  void PutTime(std::size_t step, double time);
  /// Texts of `width` characters each, padded with zeros.
  void Put(const std::string& variable, const std::vector<std::string>& texts, std::size_t width);

  /// Closes the file. What went wrong, or "".
  std::string Finish();
  /// What to do about it.
  std::string Remedy() const;

 private:
  bool Check(int status);
  int Find(const std::string& variable);

  std::unique_lock<std::mutex> lock_;
  int id_ = -1;
  bool is_loaded_ = false;
  int status_ = 0;  // of the library, with what went wrong
  std::string wrong_;
};

}  // namespace qx::exchange
