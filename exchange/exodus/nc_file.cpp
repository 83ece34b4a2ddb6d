#include "exchange/exodus/nc_file.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <limits>

#include "qx_db/platform/file.h"
#include "qx_db/platform/raw_file.h"

#include "exchange/exodus/nc_library.h"
#include "exchange/hdf5/h5_lock.h"

namespace qx::exchange {
namespace {

// What a file may unfold to: containers that pack, or keep nothing of what was never written.
constexpr std::uint64_t kMostGrowth = 256;
constexpr std::uint64_t kAlwaysAllowed = std::uint64_t{64} << 20;

// Most bytes that the description at the beginning of a classic container may take.
constexpr std::uint64_t kMostHeader = std::uint64_t{16} << 20;

/// Walks over the description at the beginning of a classic container. The library believes the
/// counts in it, and would ask for any amount of memory.
class ClassicHeader {
 public:
  explicit ClassicHeader(std::string_view bytes) : bytes_(bytes) {}

  /// Whether every count fits into what there is. Other containers are not looked at.
  bool IsSound() {
    if (!bytes_.starts_with("CDF")) return true;
    const char version = bytes_.size() > 3 ? bytes_[3] : '\0';
    if (version != 1 && version != 2 && version != 5) return true;
    width_ = version == 5 ? 8 : 4;
    Skip(4 + width_);  // and the number of records
    List([&] {
      Name();
      lengths_.push_back(Number(width_));
    });
    // One dimension may be the one that grows.
    is_sound_ = is_sound_ && std::count(lengths_.begin(), lengths_.end(), 0u) <= 1;
    Attributes();
    List([&] {
      Name();
      const std::uint64_t dimensions = Number(width_);
      for (std::uint64_t i = 0; i < dimensions && is_sound_; ++i) {
        const std::uint64_t id = Number(width_);
        // Only the first dimension may be the one that grows, whose length is 0.
        is_sound_ = is_sound_ && id < lengths_.size() && (i == 0 || lengths_[id] > 0);
      }
      Attributes();
      Type();
      Skip(width_ + (version == 1 ? 4 : 8));  // size and place
    });
    return is_sound_;
  }

 private:
  void Skip(std::uint64_t count, std::uint64_t size = 1) {
    is_sound_ = is_sound_ && count <= (bytes_.size() - at_) / size;
    if (is_sound_) at_ += count * size;
  }
  std::uint64_t Number(std::uint64_t width) {
    const std::size_t first = at_;
    Skip(width);
    std::uint64_t number = 0;
    for (std::uint64_t i = 0; i < width && is_sound_; ++i) {
      number = number << 8 | static_cast<unsigned char>(bytes_[first + i]);
    }
    return number;
  }
  void Padded(std::uint64_t count, std::uint64_t size) {
    Skip(count, size);
    if (is_sound_) Skip((4 - count * size % 4) % 4);
  }
  void Name() { Padded(Number(width_), 1); }
  /// Bytes of a number of the type that stands here.
  std::uint64_t Type() {
    constexpr std::uint64_t kSizes[] = {0, 1, 1, 2, 4, 4, 8, 1, 2, 4, 8, 8};
    const std::uint64_t type = Number(4);
    is_sound_ = is_sound_ && type >= 1 && type < std::size(kSizes);
    return is_sound_ ? kSizes[type] : 1;
  }
  void Attributes() {
    List([&] {
      Name();
      const std::uint64_t size = Type();
      Padded(Number(width_), size);
    });
  }
  template <class F>
  void List(F&& item) {
    Skip(4);
    const std::uint64_t count = Number(width_);
    is_sound_ = is_sound_ && count <= bytes_.size() - at_;
    for (std::uint64_t i = 0; i < count && is_sound_; ++i) item();
  }

  std::string_view bytes_;
  std::size_t at_ = 0;
  std::uint64_t width_ = 4;
  std::vector<std::uint64_t> lengths_;  // of dimensions
  bool is_sound_ = true;
};

Failure UnsoundHeader(const std::string& name) {
  return {name, "", "is no netCDF file: its description ends early", "write the file again"};
}

std::string WhyNotLoaded(const Outcome& why) {
  return "the netCDF library " + why.Error().file + " " + why.Error().what;
}

Failure NotLoaded(const std::string& name, const Outcome& why) {
  return {name, "", "cannot be read: " + WhyNotLoaded(why), "install it"};
}

/// How many values so many in each dimension are; the largest number where no number holds them.
std::uint64_t ProductOf(const std::vector<std::size_t>& lengths) {
  constexpr std::uint64_t kTooMany = std::numeric_limits<std::uint64_t>::max();
  if (std::find(lengths.begin(), lengths.end(), 0u) != lengths.end()) return 0;
  std::uint64_t product = 1;
  for (const std::uint64_t length : lengths) {
    product = product > kTooMany / length ? kTooMany : product * length;
  }
  return product;
}

}  // namespace

NcReader::NcReader(std::string name, std::uint64_t bytes)
    : lock_(Hdf5Mutex()),
      name_(std::move(name)),
      file_bytes_(bytes),
      left_(kAlwaysAllowed + kMostGrowth * bytes) {}

NcReader::~NcReader() {
  if (id_ >= 0) Nc().nc_close(id_);
}

Result<std::unique_ptr<NcReader>> NcReader::Opened(std::unique_ptr<NcReader> file, int status) {
  if (status != NC_NOERR) {
    file->id_ = -1;
    return Failure{file->name_, "", fmt::format("is no netCDF file: {}", Nc().nc_strerror(status)),
                   "write the file again"};
  }
  // What a classic container says it has must be in it.
  int format = 0;
  if (Nc().nc_inq_format(file->id_, &format) == NC_NOERR && format != NC_FORMAT_NETCDF4 &&
      format != NC_FORMAT_NETCDF4_CLASSIC) {
    file->left_ = 16 * file->file_bytes_;
  }
  return file;
}

Result<std::unique_ptr<NcReader>> NcReader::Open(const std::string& path) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file.Error();
  if (const Outcome loaded = LoadNc(); !loaded) return NotLoaded(path, loaded);
  // An absolute path is never taken for an address in a network.
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(PathFromUtf8(path), error);
  const auto bytes = std::filesystem::file_size(absolute, error);
  std::string head(error ? 0 : std::min<std::uint64_t>(bytes, kMostHeader), '\0');
  std::ifstream in(absolute, std::ios::binary);
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  if (!in) return Failure{path, "", "cannot be read", "check its permissions"};
  if (!ClassicHeader(head).IsSound()) return UnsoundHeader(path);
  std::unique_ptr<NcReader> file(new NcReader(path, bytes));
  const int status = Nc().nc_open(Utf8FromPath(absolute).c_str(), NC_NOWRITE, &file->id_);
  return Opened(std::move(file), status);
}

Result<std::unique_ptr<NcReader>> NcReader::OpenMemory(std::string_view bytes,
                                                       const std::string& name) {
  if (const Outcome loaded = LoadNc(); !loaded) return NotLoaded(name, loaded);
  if (!ClassicHeader(bytes).IsSound()) return UnsoundHeader(name);
  std::unique_ptr<NcReader> file(new NcReader(name, bytes.size()));
  const int status = Nc().nc_open_mem("memory", NC_NOWRITE, bytes.size(),
                                      const_cast<char*>(bytes.data()), &file->id_);
  return Opened(std::move(file), status);
}

void NcReader::Fail(std::string place, std::string what) {
  if (!failure_) {
    failure_ = Failure{name_, std::move(place), std::move(what), "write the file again"};
  }
}

Failure NcReader::TakeError() {
  Failure failure = std::move(*failure_);
  failure_.reset();
  return failure;
}

std::optional<std::uint64_t> NcReader::Dimension(const std::string& name) const {
  int id = 0;
  std::size_t length = 0;
  if (Nc().nc_inq_dimid(id_, name.c_str(), &id) != NC_NOERR) return std::nullopt;
  if (Nc().nc_inq_dimlen(id_, id, &length) != NC_NOERR) return std::nullopt;
  return length;
}

std::uint64_t NcReader::NeededDimension(const std::string& name) {
  const auto length = Dimension(name);
  if (!length) Fail("", fmt::format("there is no dimension '{}'", name));
  return length.value_or(0);
}

bool NcReader::Has(const std::string& variable) const {
  int id = 0;
  return Nc().nc_inq_varid(id_, variable.c_str(), &id) == NC_NOERR;
}

std::vector<std::string> NcReader::Variables() const {
  std::vector<std::string> names;
  int count = 0;
  Nc().nc_inq_nvars(id_, &count);
  for (int i = 0; i < count; ++i) {
    char name[NC_MAX_NAME + 1] = "";
    if (Nc().nc_inq_varname(id_, i, name) == NC_NOERR) names.emplace_back(name);
  }
  return names;
}

int NcReader::Find(const std::string& variable, std::vector<std::size_t>& lengths) {
  if (failure_) return -1;
  int id = 0;
  int count = 0;
  int dimensions[NC_MAX_VAR_DIMS];
  if (Nc().nc_inq_varid(id_, variable.c_str(), &id) != NC_NOERR ||
      Nc().nc_inq_varndims(id_, id, &count) != NC_NOERR ||
      Nc().nc_inq_vardimid(id_, id, dimensions) != NC_NOERR) {
    Fail("", fmt::format("there is no variable '{}'", variable));
    return -1;
  }
  for (int i = 0; i < count; ++i) {
    std::size_t length = 0;
    Nc().nc_inq_dimlen(id_, dimensions[i], &length);
    lengths.push_back(length);
  }
  return id;
}

/// Whether a variable may be read: `count` values of `width` bytes in memory.
bool NcReader::Admit(const std::string& variable, std::uint64_t count, std::uint64_t width) {
  if (count > left_ / width) {
    Fail(variable,
         fmt::format("it says that it has {} values, more than the file can hold", count));
    return false;
  }
  left_ -= count * width;
  return true;
}

/// Reads rows of a variable, so many at a time.
template <class T, class See>
void NcReader::ReadInPieces(const std::string& variable, std::uint64_t count, const See& see) {
  std::vector<std::size_t> lengths;
  const int id = Find(variable, lengths);
  if (id < 0) return;
  const std::uint64_t have = ProductOf(lengths);
  if (count != kAny && have != count) {
    return Fail(variable, fmt::format("it has {} values of {}", have, count));
  }
  if (have == 0 || !Admit(variable, have, sizeof(T))) return;
  if (lengths.empty()) lengths.push_back(1);
  const std::size_t width = have / lengths[0];
  std::size_t rows = std::max<std::size_t>(std::size_t{1 << 15} / width, 1);
  // What HDF5 packs it unpacks in pieces of its own, which may be larger.
  int container = NC_FORMAT_CLASSIC;
  Nc().nc_inq_format(id_, &container);
  const bool is_plain = container == NC_FORMAT_CLASSIC || container == NC_FORMAT_64BIT_OFFSET ||
                        container == NC_FORMAT_64BIT_DATA;
  rows = std::min(is_plain ? rows : lengths[0], lengths[0]);
  std::vector<T> values(rows * width);
  // The library widens numbers one by one; read as they are and widened here takes half as long.
  nc_type type = NC_NAT;
  Nc().nc_inq_vartype(id_, id, &type);
  std::vector<int> narrow(std::is_same_v<T, std::int64_t> && type == NC_INT ? values.size() : 0);
  std::vector<std::size_t> start(lengths.size());
  std::vector<std::size_t> piece = lengths;
  for (; start[0] < lengths[0]; start[0] += piece[0]) {
    piece[0] = std::min(rows, lengths[0] - start[0]);
    int status = NC_NOERR;
    if constexpr (std::is_same_v<T, double>) {
      status = Nc().nc_get_vara_double(id_, id, start.data(), piece.data(), values.data());
    } else {
      static_assert(sizeof(long long) == sizeof(T));
      if (!narrow.empty()) {
        status = Nc().nc_get_vara_int(id_, id, start.data(), piece.data(), narrow.data());
        std::copy_n(narrow.begin(), piece[0] * width, values.begin());
      } else {
        status = Nc().nc_get_vara_longlong(id_, id, start.data(), piece.data(),
                                           reinterpret_cast<long long*>(values.data()));
      }
    }
    if (status != NC_NOERR) return Fail(variable, Nc().nc_strerror(status));
    see(std::span<const T>(values).first(piece[0] * width));
  }
}

void NcReader::Integers(const std::string& variable, std::uint64_t count, const SeeIntegers& see) {
  ReadInPieces<std::int64_t>(variable, count, see);
}

void NcReader::Reals(const std::string& variable, std::uint64_t count, const SeeReals& see) {
  ReadInPieces<double>(variable, count, see);
}

std::vector<std::int64_t> NcReader::Integers(const std::string& variable, std::uint64_t count) {
  std::vector<std::int64_t> values;
  Integers(variable, count, [&](std::span<const std::int64_t> piece) {
    values.insert(values.end(), piece.begin(), piece.end());
  });
  return Ok() ? values : std::vector<std::int64_t>();
}

std::vector<double> NcReader::Reals(const std::string& variable, std::uint64_t count) {
  std::vector<double> values;
  Reals(variable, count, [&](std::span<const double> piece) {
    values.insert(values.end(), piece.begin(), piece.end());
  });
  return Ok() ? values : std::vector<double>();
}

std::vector<double> NcReader::RealsAt(const std::string& variable, std::uint64_t step,
                                      std::uint64_t count) {
  std::vector<std::size_t> lengths;
  const int id = Find(variable, lengths);
  if (id < 0) return {};
  if (lengths.size() != 2 || lengths[1] != count || step >= lengths[0]) {
    Fail(variable, fmt::format("it has not {} values of step {}", count, step + 1));
    return {};
  }
  if (!Admit(variable, count, sizeof(double))) return {};
  std::vector<double> values(count);
  const std::size_t start[] = {step, 0};
  const std::size_t length[] = {1, count};
  const int status =
      count == 0 ? NC_NOERR : Nc().nc_get_vara_double(id_, id, start, length, values.data());
  if (status != NC_NOERR) Fail(variable, Nc().nc_strerror(status));
  return Ok() ? values : std::vector<double>();
}

std::vector<std::string> NcReader::Texts(const std::string& variable) {
  std::vector<std::size_t> lengths;
  const int id = Find(variable, lengths);
  if (id < 0) return {};
  nc_type type = NC_NAT;
  Nc().nc_inq_vartype(id_, id, &type);
  if (lengths.empty() || type != NC_CHAR) {
    Fail(variable, "it is no list of texts");
    return {};
  }
  const std::uint64_t width = lengths.back();
  const std::uint64_t characters = ProductOf(lengths);
  const std::uint64_t count = width == 0 ? 0 : characters / width;
  if (width > (1u << 20) || !Admit(variable, characters, 1)) {
    Fail(variable, "its texts are too long");
    return {};
  }
  std::string all(characters, '\0');
  const int status = all.empty() ? NC_NOERR : Nc().nc_get_var_text(id_, id, all.data());
  if (status != NC_NOERR) Fail(variable, Nc().nc_strerror(status));
  std::vector<std::string> texts;
  for (std::uint64_t i = 0; i < count && Ok(); ++i) {
    std::string text = all.substr(i * width, width);
    text.resize(std::min(text.find('\0'), text.size()));
    text.resize(text.find_last_not_of(' ') + 1);
    texts.push_back(std::move(text));
  }
  return texts;
}

std::string NcReader::TextAttribute(const std::string& variable, const char* name) const {
  int id = NC_GLOBAL;
  if (!variable.empty() && Nc().nc_inq_varid(id_, variable.c_str(), &id) != NC_NOERR) return {};
  std::size_t length = 0;
  nc_type type = NC_NAT;
  if (Nc().nc_inq_att(id_, id, name, &type, &length) != NC_NOERR || type != NC_CHAR ||
      length > 100000) {
    return {};
  }
  std::string text(length, '\0');
  if (length > 0 && Nc().nc_get_att_text(id_, id, name, text.data()) != NC_NOERR) return {};
  text.resize(std::min(text.find('\0'), text.size()));
  return text;
}

// ---- writing ------------------------------------------------------------------------------------

NcWriter::NcWriter(const std::string& path, bool large) : lock_(Hdf5Mutex()) {
  if (const Outcome loaded = LoadNc(); !loaded) {
    wrong_ = WhyNotLoaded(loaded);
    return;
  }
  is_loaded_ = true;
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(PathFromUtf8(path), error);
  const int container = large ? NC_64BIT_DATA : NC_64BIT_OFFSET;
  Check(Nc().nc_create(Utf8FromPath(absolute).c_str(), NC_CLOBBER | container, &id_));
  // Every value is written: nothing needs to be filled before.
  int before = 0;
  if (wrong_.empty()) Check(Nc().nc_set_fill(id_, NC_NOFILL, &before));
}

NcWriter::~NcWriter() {
  if (id_ >= 0) Nc().nc_close(id_);
}

bool NcWriter::Check(int status) {
  if (status != NC_NOERR && wrong_.empty()) {
    status_ = status;
    wrong_ = Nc().nc_strerror(status);
  }
  return wrong_.empty();
}

int NcWriter::Dimension(const std::string& name, std::size_t length) {
  int id = -1;
  if (wrong_.empty() && Nc().nc_inq_dimid(id_, name.c_str(), &id) != NC_NOERR) {
    Check(Nc().nc_def_dim(id_, name.c_str(), length == 0 ? NC_UNLIMITED : length, &id));
  }
  return id;
}

int NcWriter::Find(const std::string& variable) {
  int id = NC_GLOBAL;
  if (wrong_.empty() && !variable.empty()) Check(Nc().nc_inq_varid(id_, variable.c_str(), &id));
  return id;
}

void NcWriter::Text(const std::string& variable, const char* name, const std::string& text) {
  const int id = Find(variable);
  if (wrong_.empty()) Check(Nc().nc_put_att_text(id_, id, name, text.size(), text.c_str()));
}

void NcWriter::Real(const char* name, float value) {
  if (wrong_.empty()) Check(Nc().nc_put_att_float(id_, NC_GLOBAL, name, NC_FLOAT, 1, &value));
}

void NcWriter::Integer(const char* name, int value) {
  if (wrong_.empty()) Check(Nc().nc_put_att_int(id_, NC_GLOBAL, name, NC_INT, 1, &value));
}

void NcWriter::Define(const std::string& variable, Type type, const std::vector<int>& dimensions) {
  constexpr nc_type kOwnTypes[] = {NC_INT, NC_DOUBLE, NC_CHAR};
  int id = 0;
  if (wrong_.empty()) {
    Check(Nc().nc_def_var(id_, variable.c_str(), kOwnTypes[static_cast<int>(type)],
                          static_cast<int>(dimensions.size()), dimensions.data(), &id));
  }
}

void NcWriter::EndDefinitions() {
  if (wrong_.empty()) Check(Nc().nc_enddef(id_));
}

void NcWriter::Put(const std::string& variable, const std::vector<std::int32_t>& values) {
  const int id = Find(variable);
  if (wrong_.empty() && !values.empty()) Check(Nc().nc_put_var_int(id_, id, values.data()));
}

void NcWriter::Put(const std::string& variable, const std::vector<double>& values) {
  const int id = Find(variable);
  if (wrong_.empty() && !values.empty()) Check(Nc().nc_put_var_double(id_, id, values.data()));
}

void NcWriter::PutAt(const std::string& variable, std::size_t step,
                     const std::vector<double>& values) {
  const int id = Find(variable);
  const std::size_t start[] = {step, 0};
  const std::size_t count[] = {1, values.size()};
  if (wrong_.empty() && !values.empty()) {
    Check(Nc().nc_put_vara_double(id_, id, start, count, values.data()));
  }
}

void NcWriter::PutTime(std::size_t step, double time) {
  const int id = Find("time_whole");
  if (wrong_.empty()) Check(Nc().nc_put_var1_double(id_, id, &step, &time));
}

void NcWriter::Put(const std::string& variable, const std::vector<std::string>& texts,
                   std::size_t width) {
  std::string all;
  for (const std::string& text : texts) {
    all += text.substr(0, width - 1);
    all.resize(all.size() + width - std::min(text.size(), width - 1));
  }
  const int id = Find(variable);
  if (wrong_.empty() && !all.empty()) Check(Nc().nc_put_var_text(id_, id, all.data()));
}

std::string NcWriter::Remedy() const {
  if (!is_loaded_) return "install the netCDF library";
  return IsFull(status_) ? "free some disk space" : "look at the disk and the names of the sets";
}

std::string NcWriter::Finish() {
  if (id_ >= 0) Check(Nc().nc_close(id_));
  id_ = -1;
  return wrong_;
}

}  // namespace qx::exchange
