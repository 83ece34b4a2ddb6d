#include "exchange/hdf5/h5_reader.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <limits>
#include <new>

#include "qx_db/platform/file.h"

#include "exchange/hdf5/h5_library.h"
#include "exchange/hdf5/h5_lock.h"

namespace qx::exchange {
namespace {

// What a file may unfold to: it may be packed, or keep nothing of what was never written.
constexpr std::uint64_t kMostGrowth = 256;
constexpr std::uint64_t kAlwaysAllowed = std::uint64_t{64} << 20;
constexpr const char* kKeptElsewhere = "its values are in other files, which are not followed";
constexpr std::uint64_t kMostAttribute = std::uint64_t{1} << 16;  // bytes

/// How many values so many in each dimension are; the largest number where no number holds them.
std::uint64_t ProductOf(const std::vector<std::uint64_t>& lengths) {
  constexpr std::uint64_t kTooMany = std::numeric_limits<std::uint64_t>::max();
  if (std::find(lengths.begin(), lengths.end(), 0u) != lengths.end()) return 0;
  std::uint64_t product = 1;
  for (const std::uint64_t length : lengths) {
    product = product > kTooMany / length ? kTooMany : product * length;
  }
  return product;
}

/// Something of the library's that is closed at the end of the scope.
class Held {
 public:
  Held(hid_t id, herr_t (*close)(hid_t)) : id_(id), close_(close) {}
  ~Held() {
    if (id_ >= 0) close_(id_);
  }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;
  operator hid_t() const { return id_; }  // NOLINT: it stands for the number

 private:
  hid_t id_;
  herr_t (*close_)(hid_t);
};

/// Whether values come from other files: from plain ones, or from arrays of HDF5 files.
bool IsKeptElsewhere(const H5Library& h5, hid_t list) {
  return h5.H5Pget_external_count(list) != 0 || h5.H5Pget_layout(list) == H5D_VIRTUAL;
}

Failure NoLibrary(const std::string& name, const std::string& wrong) {
  return {name, "", "cannot be read: " + wrong, "install the HDF5 library, the serial one"};
}

}  // namespace

H5Reader::H5Reader(const H5Library& h5, std::string name, std::uint64_t bytes)
    : lock_(Hdf5Mutex()),
      h5_(h5),
      name_(std::move(name)),
      left_(kAlwaysAllowed + kMostGrowth * bytes) {
  h5_.H5Eget_auto2(H5E_DEFAULT, reinterpret_cast<H5E_auto2_t*>(&error_function_), &error_data_);
  h5_.H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

H5Reader::~H5Reader() {
  if (file_ >= 0) h5_.H5Fclose(file_);
  h5_.H5Eset_auto2(H5E_DEFAULT, reinterpret_cast<H5E_auto2_t>(error_function_), error_data_);
}

Result<std::unique_ptr<H5Reader>> H5Reader::Open(const std::string& path) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file.Error();
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(PathFromUtf8(path), error);
  const auto bytes = std::filesystem::file_size(absolute, error);
  if (error) return Failure{path, "", "cannot be read", "check its permissions"};
  std::string wrong;
  const H5Library* const h5 = H5Library::Get(wrong);
  if (!h5) return NoLibrary(path, wrong);
  std::unique_ptr<H5Reader> file(new H5Reader(*h5, path, bytes));
  // Some file systems have no locks, and reading needs none.
  const Held access(h5->H5Pcreate(h5->H5P_CLS_FILE_ACCESS_ID_g), h5->H5Pclose);
  h5->H5Pset_file_locking(access, false, true);
  file->file_ = h5->H5Fopen(Utf8FromPath(absolute).c_str(), kH5ReadOnly, access);
  if (file->file_ < 0) {
    return Failure{path, "", "is no HDF5 file, or a damaged one", "write the file again"};
  }
  return file;
}

Result<std::unique_ptr<H5Reader>> H5Reader::OpenMemory(std::string_view bytes,
                                                       const std::string& name) {
  std::string wrong;
  const H5Library* const h5 = H5Library::Get(wrong);
  if (!h5) return NoLibrary(name, wrong);
  std::unique_ptr<H5Reader> file(new H5Reader(*h5, name, bytes.size()));
  const Held access(h5->H5Pcreate(h5->H5P_CLS_FILE_ACCESS_ID_g), h5->H5Pclose);
  h5->H5Pset_fapl_core(access, 1 << 16, false);
  if (!bytes.empty()) {
    h5->H5Pset_file_image(access, const_cast<char*>(bytes.data()), bytes.size());
    file->file_ = h5->H5Fopen("memory", kH5ReadOnly, access);
  }
  if (file->file_ < 0) {
    return Failure{name, "", "is no HDF5 file, or a damaged one", "write the file again"};
  }
  return file;
}

void H5Reader::Fail(std::string place, std::string what) {
  if (!failure_) {
    failure_ = Failure{name_, std::move(place), std::move(what), "write the file again"};
  }
}

Failure H5Reader::TakeError() {
  Failure failure = std::move(*failure_);
  failure_.reset();
  return failure;
}

namespace {

/// The links of a group as they are come upon, up to a bound.
struct LinkList {
  std::vector<std::pair<std::string, H5L_type_t>> all;
  std::uint64_t most;
};

/// Called by the library, which knows no exceptions.
herr_t TakeLink(hid_t, const char* name, const H5L_info_t* link, void* to) {
  auto& links = *static_cast<LinkList*>(to);
  try {
    const std::string_view text(name);
    if (!text.empty() && text.size() <= kMostAttribute) links.all.emplace_back(text, link->type);
  } catch (const std::bad_alloc&) {
    return -1;
  }
  return links.all.size() < links.most ? 0 : 1;
}

}  // namespace

std::vector<std::string> H5Reader::Children(const std::string& path) {
  std::vector<std::string> names;
  if (!Ok() || !IsGroup(path)) return names;
  const Held group(h5_.H5Gopen2(file_, path.c_str(), H5P_DEFAULT), h5_.H5Gclose);
  if (group < 0) return names;
  unsigned order = 0;
  const Held made(h5_.H5Gget_create_plist(group), h5_.H5Pclose);
  if (made < 0 || h5_.H5Pget_link_creation_order(made, &order) < 0) order = 0;
  const H5_index_t by = order & H5P_CRT_ORDER_INDEXED ? H5_INDEX_CRT_ORDER : H5_INDEX_NAME;
  LinkList links{{}, MostValues()};
  hsize_t at = 0;
  if (h5_.H5Literate(group, by, H5_ITER_INC, &at, TakeLink, &links) < 0) {
    Fail(path, "what is in it cannot be listed");
    return names;
  }
  for (auto& [name, type] : links.all) {
    if (!Admit(path, name.size() + 64, 1)) return {};
    if (IsFollowed((path == "/" ? "" : path) + "/" + name, type)) names.push_back(std::move(name));
  }
  return names;
}

bool H5Reader::IsFollowed(const std::string& path, int type) const {
  constexpr std::size_t kMostTold = 1000;
  if (type == H5L_TYPE_HARD) return true;
  if (links_.size() < kMostTold) links_.emplace(path, type == H5L_TYPE_EXTERNAL);
  return false;
}

bool H5Reader::Has(const std::string& path) const {
  if (path == "/") return true;
  for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string part = path.substr(0, end);
    H5L_info_t link{};
    if (h5_.H5Lexists(file_, part.c_str(), H5P_DEFAULT) <= 0 ||
        h5_.H5Lget_info(file_, part.c_str(), &link, H5P_DEFAULT) < 0 ||
        !IsFollowed(part, link.type)) {
      return false;
    }
    if (end == path.npos) return true;
  }
}

bool H5Reader::IsGroup(const std::string& path) const {
  if (!Has(path)) return false;
  const Held object(h5_.H5Oopen(file_, path.c_str(), H5P_DEFAULT), h5_.H5Oclose);
  return object >= 0 && h5_.H5Iget_type(object) == H5I_GROUP;
}

/// Gives an attribute of one value of a class, with its type, to `read`; false where there is none.
bool H5Reader::ReadAttribute(const std::string& path, const char* name, int of,
                             const std::function<bool(std::int64_t, std::int64_t)>& read) const {
  if (!Has(path)) return false;
  const Held owner(h5_.H5Oopen(file_, path.c_str(), H5P_DEFAULT), h5_.H5Oclose);
  if (owner < 0 || h5_.H5Aexists(owner, name) <= 0) return false;
  const Held attribute(h5_.H5Aopen(owner, name, H5P_DEFAULT), h5_.H5Aclose);
  if (attribute < 0) return false;
  const Held type(h5_.H5Aget_type(attribute), h5_.H5Tclose);
  const Held space(h5_.H5Aget_space(attribute), h5_.H5Sclose);
  return type >= 0 && space >= 0 && h5_.H5Tget_class(type) == of &&
         ProductOf(ShapeOf(space)) == 1 && read(attribute, type);
}

std::optional<std::string> H5Reader::TextAttribute(const std::string& path,
                                                   const char* name) const {
  std::string text;
  const auto read = [&](hid_t attribute, hid_t type) {
    const std::size_t size = h5_.H5Tget_size(type);
    if (h5_.H5Tis_variable_str(type) != 0 || size == 0 || size > kMostAttribute) return false;
    text.resize(size);
    return h5_.H5Aread(attribute, type, text.data()) >= 0;
  };
  if (!ReadAttribute(path, name, H5T_STRING, read)) return std::nullopt;
  text.resize(std::min(text.find('\0'), text.size()));
  return text;
}

std::optional<std::int64_t> H5Reader::IntegerAttribute(const std::string& path,
                                                       const char* name) const {
  static_assert(sizeof(long long) == sizeof(std::int64_t));
  long long value = 0;
  const auto read = [&](hid_t attribute, hid_t) {
    return h5_.H5Aread(attribute, h5_.H5T_NATIVE_LLONG_g, &value) >= 0;
  };
  return ReadAttribute(path, name, H5T_INTEGER, read) ? std::optional(std::int64_t{value})
                                                      : std::nullopt;
}

std::optional<double> H5Reader::RealAttribute(const std::string& path, const char* name) const {
  double value = 0;
  const auto read = [&](hid_t attribute, hid_t) {
    return h5_.H5Aread(attribute, h5_.H5T_NATIVE_DOUBLE_g, &value) >= 0;
  };
  return ReadAttribute(path, name, H5T_FLOAT, read) ? std::optional(value) : std::nullopt;
}

/// The lengths of a space; an impossible one where it has none.
std::vector<std::uint64_t> H5Reader::ShapeOf(std::int64_t space) const {
  const int count = h5_.H5Sget_simple_extent_ndims(space);
  if (count < 0 || count > H5S_MAX_RANK) return {std::numeric_limits<std::uint64_t>::max()};
  std::vector<hsize_t> lengths(static_cast<std::size_t>(count));
  if (count > 0 && h5_.H5Sget_simple_extent_dims(space, lengths.data(), nullptr) < 0) {
    return {std::numeric_limits<std::uint64_t>::max()};
  }
  return {lengths.begin(), lengths.end()};
}

std::int64_t H5Reader::OpenArray(const std::string& path) {
  if (!Ok() || !Has(path)) return -1;
  const hid_t object = h5_.H5Oopen(file_, path.c_str(), H5P_DEFAULT);
  if (object >= 0 && h5_.H5Iget_type(object) == H5I_DATASET) return object;
  if (object >= 0) h5_.H5Oclose(object);
  return -1;
}

H5Reader::Kind H5Reader::KindOf(const std::string& path) const {
  const Held array(const_cast<H5Reader*>(this)->OpenArray(path), h5_.H5Oclose);
  if (array < 0) return Kind::kOther;
  const Held type(h5_.H5Dget_type(array), h5_.H5Tclose);
  if (type < 0) return Kind::kOther;
  switch (h5_.H5Tget_class(type)) {
    case H5T_INTEGER:
      return h5_.H5Tget_size(type) == 1 ? Kind::kText : Kind::kInteger;
    case H5T_FLOAT:
      return Kind::kReal;
    case H5T_STRING:
      return h5_.H5Tis_variable_str(type) == 0 ? Kind::kText : Kind::kOther;
    default:
      return Kind::kOther;
  }
}

std::vector<std::uint64_t> H5Reader::LengthsOf(const std::string& path) const {
  const Held array(const_cast<H5Reader*>(this)->OpenArray(path), h5_.H5Oclose);
  if (array < 0) return {};
  const Held space(h5_.H5Dget_space(array), h5_.H5Sclose);
  return space < 0 ? std::vector<std::uint64_t>() : ShapeOf(space);
}

/// An array with what describes it, for reading its values; what is wrong with it is a failure of
/// the reader's.
struct H5Reader::Array {
  Array(H5Reader& in, const std::string& path)
      : h5(in.h5_),
        id(in.OpenArray(path), h5.H5Oclose),
        type(id < 0 ? -1 : h5.H5Dget_type(id), h5.H5Tclose),
        space(id < 0 ? -1 : h5.H5Dget_space(id), h5.H5Sclose),
        list(id < 0 ? -1 : h5.H5Dget_create_plist(id), h5.H5Pclose) {
    const char* const wrong = id < 0                              ? "there is no such array"
                              : type < 0 || space < 0 || list < 0 ? "its description is damaged"
                              : IsKeptElsewhere(h5, list)         ? kKeptElsewhere
                                                                  : nullptr;
    if (wrong) {
      in.Fail(path, wrong);
      return;
    }
    of = h5.H5Tget_class(type);
    width = h5.H5Tget_size(type);
    lengths = in.ShapeOf(space);
  }

  const H5Library& h5;
  const Held id, type, space, list;
  H5T_class_t of = H5T_NO_CLASS;
  std::size_t width = 0;  // of a value, in bytes
  std::vector<std::uint64_t> lengths;
};

bool H5Reader::Admit(const std::string& path, std::uint64_t count, std::uint64_t width) {
  if (count > left_ / width) {
    Fail(path, fmt::format("it says that it has {} values, more than the file can hold", count));
    return false;
  }
  left_ -= count * width;
  return true;
}

template <class T, class See>
void H5Reader::ReadInPieces(const std::string& path, std::uint64_t count, const See& see) {
  constexpr bool is_real = std::is_same_v<T, double>;
  if (!Ok()) return;
  const Array array(*this, path);
  if (!Ok()) return;
  if ((array.of != H5T_INTEGER && !(is_real && array.of == H5T_FLOAT)) || array.width > 16) {
    return Fail(path, is_real ? "it has no numbers" : "it has no whole numbers");
  }
  std::vector<std::uint64_t> lengths = array.lengths;
  const std::uint64_t have = ProductOf(lengths);
  if (count != kAny && have != count) {
    return Fail(path, fmt::format("it has {} values of {}", have, count));
  }
  if (have == 0 || !Admit(path, have, sizeof(T))) return;
  if (lengths.empty()) lengths.push_back(1);
  const std::uint64_t row = have / lengths[0];
  std::uint64_t rows = std::max<std::uint64_t>((std::uint64_t{1} << 15) / row, 1);
  if (h5_.H5Pget_layout(array.list) == H5D_CHUNKED) {
    hsize_t chunk[H5S_MAX_RANK] = {};
    const int rank = h5_.H5Pget_chunk(array.list, H5S_MAX_RANK, chunk);
    if (rank < 1) return Fail(path, "its description is damaged");
    // The library takes memory for a chunk as it is described.
    const std::uint64_t whole =
        ProductOf(std::vector<std::uint64_t>(chunk, chunk + std::min(rank, H5S_MAX_RANK)));
    if (whole > left_ / array.width) return Fail(path, "its pieces are larger than the file");
    rows = std::max<std::uint64_t>(rows / std::max<std::uint64_t>(chunk[0], 1), 1) * chunk[0];
  }
  rows = std::min(rows, lengths[0]);
  // Read as they are and widened here, numbers take half as long.
  const bool is_narrow = !is_real && array.width == 4;
  std::vector<T> values(rows * row);
  std::vector<int> narrow(is_narrow ? values.size() : 0);
  std::vector<hsize_t> start(lengths.size());
  std::vector<hsize_t> piece(lengths.begin(), lengths.end());
  for (; start[0] < lengths[0]; start[0] += piece[0]) {
    piece[0] = std::min<std::uint64_t>(rows, lengths[0] - start[0]);
    const std::uint64_t size = piece[0] * row;
    const hsize_t in_memory = size;
    const Held flat(h5_.H5Screate_simple(1, &in_memory, nullptr), h5_.H5Sclose);
    hid_t of_file = H5S_ALL;
    if (size != have) {
      if (h5_.H5Sselect_hyperslab(array.space, H5S_SELECT_SET, start.data(), nullptr, piece.data(),
                                  nullptr) < 0) {
        return Fail(path, "its values cannot be read");
      }
      of_file = array.space;
    }
    void* const to = is_narrow ? static_cast<void*>(narrow.data()) : values.data();
    const hid_t as = is_real     ? h5_.H5T_NATIVE_DOUBLE_g
                     : is_narrow ? h5_.H5T_NATIVE_INT_g
                                 : h5_.H5T_NATIVE_LLONG_g;
    if (h5_.H5Dread(array.id, as, flat, of_file, H5P_DEFAULT, to) < 0) {
      return Fail(path, "its values cannot be read");
    }
    std::copy_n(narrow.begin(), is_narrow ? size : 0, values.begin());
    see(std::span<const T>(values).first(size));
  }
}

void H5Reader::Integers(const std::string& path, std::uint64_t count, const SeeIntegers& see) {
  ReadInPieces<std::int64_t>(path, count, see);
}

void H5Reader::Reals(const std::string& path, std::uint64_t count, const SeeReals& see) {
  ReadInPieces<double>(path, count, see);
}

std::vector<std::int64_t> H5Reader::Integers(const std::string& path, std::uint64_t count) {
  std::vector<std::int64_t> values;
  Integers(path, count, [&](std::span<const std::int64_t> piece) {
    values.insert(values.end(), piece.begin(), piece.end());
  });
  return Ok() ? values : std::vector<std::int64_t>();
}

std::vector<double> H5Reader::Reals(const std::string& path, std::uint64_t count) {
  std::vector<double> values;
  Reals(path, count, [&](std::span<const double> piece) {
    values.insert(values.end(), piece.begin(), piece.end());
  });
  return Ok() ? values : std::vector<double>();
}

std::string H5Reader::Bytes(const std::string& path) {
  if (!Ok()) return {};
  const Array array(*this, path);
  if (!Ok()) return {};
  const bool is_text = (array.of == H5T_INTEGER && array.width == 1) || array.of == H5T_ARRAY ||
                       (array.of == H5T_STRING && h5_.H5Tis_variable_str(array.type) == 0);
  if (!is_text || array.width == 0 || array.width > kMostAttribute ||
      h5_.H5Pget_layout(array.list) == H5D_CHUNKED) {
    Fail(path, "it has no plain text");
    return {};
  }
  const std::uint64_t count = ProductOf(array.lengths);
  if (count == 0 || !Admit(path, count, array.width)) return {};
  std::string bytes(count * array.width, '\0');
  // Arrays are read as such of bytes, whatever they say that they are of.
  const hsize_t length = array.width;
  const Held plain(h5_.H5Tarray_create2(h5_.H5T_NATIVE_SCHAR_g, 1, &length), h5_.H5Tclose);
  const hid_t as = array.of == H5T_ARRAY     ? hid_t{plain}
                   : array.of == H5T_INTEGER ? h5_.H5T_NATIVE_SCHAR_g
                                             : hid_t{array.type};
  if (h5_.H5Dread(array.id, as, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data()) < 0) {
    Fail(path, "its text cannot be read");
    return {};
  }
  return bytes;
}

}  // namespace qx::exchange
