#include "exchange/hdf5/h5_writer.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fmt/format.h>

#include "qx_db/platform/file.h"
#include "qx_db/platform/new_file.h"
#include "qx_db/platform/raw_file.h"

#include "exchange/hdf5/h5_library.h"
#include "exchange/hdf5/h5_lock.h"

namespace qx::exchange {

H5Writer::H5Writer(const std::string& path) : lock_(Hdf5Mutex()) {
  h5_ = H5Library::Get(wrong_);
  if (!h5_) return;
  errno = 0;
  auto* function = reinterpret_cast<H5E_auto2_t*>(&error_function_);
  h5_->H5Eget_auto2(H5E_DEFAULT, function, &error_data_);
  h5_->H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
  constexpr unsigned kInOrder = H5P_CRT_ORDER_TRACKED | H5P_CRT_ORDER_INDEXED;
  const hid_t as_file = h5_->H5Pcreate(h5_->H5P_CLS_FILE_CREATE_ID_g);
  h5_->H5Pset_link_creation_order(as_file, kInOrder);
  h5_->H5Pset_obj_track_times(as_file, false);
  group_list_ = h5_->H5Pcreate(h5_->H5P_CLS_GROUP_CREATE_ID_g);
  h5_->H5Pset_link_creation_order(group_list_, kInOrder);
  h5_->H5Pset_obj_track_times(group_list_, false);
  array_list_ = h5_->H5Pcreate(h5_->H5P_CLS_DATASET_CREATE_ID_g);
  h5_->H5Pset_obj_track_times(array_list_, false);
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(PathFromUtf8(path), error);
  // Whoever makes the file has a lock on it already.
  const hid_t access = h5_->H5Pcreate(h5_->H5P_CLS_FILE_ACCESS_ID_g);
  h5_->H5Pset_file_locking(access, false, true);
  file_ = h5_->H5Fcreate(Utf8FromPath(absolute).c_str(), kH5Truncate, as_file, access);
  h5_->H5Pclose(access);
  h5_->H5Pclose(as_file);
  Check(file_, "the file");
}

H5Writer::~H5Writer() { Finish(); }

bool H5Writer::Check(std::int64_t status, const std::string& path) {
  if (status < 0 && wrong_.empty()) {
    error_ = errno;
    wrong_ = fmt::format("'{}' cannot be stored{}", path,
                         error_ != 0 ? ": " + ErrorText(error_) : std::string());
  }
  return wrong_.empty();
}

void H5Writer::Group(const std::string& path) {
  if (!wrong_.empty()) return;
  const hid_t group = h5_->H5Gcreate2(file_, path.c_str(), H5P_DEFAULT, group_list_, H5P_DEFAULT);
  if (Check(group, path)) Check(h5_->H5Gclose(group), path);
}

void H5Writer::Attribute(const std::string& path, const char* name, std::int64_t stored,
                         std::int64_t type, const void* value, bool in_array) {
  if (!wrong_.empty()) return;
  constexpr hsize_t kOne = 1;
  const hid_t space =
      in_array ? h5_->H5Screate_simple(1, &kOne, nullptr) : h5_->H5Screate(H5S_SCALAR);
  const hid_t owner = h5_->H5Oopen(file_, path.c_str(), H5P_DEFAULT);
  const hid_t attribute =
      owner < 0 ? -1 : h5_->H5Acreate2(owner, name, stored, space, H5P_DEFAULT, H5P_DEFAULT);
  if (Check(attribute, path)) {
    Check(h5_->H5Awrite(attribute, type, value), path);
    h5_->H5Aclose(attribute);
  }
  if (owner >= 0) h5_->H5Oclose(owner);
  h5_->H5Sclose(space);
}

void H5Writer::Integer(const std::string& path, const char* name, std::int32_t value) {
  if (!wrong_.empty()) return;
  Attribute(path, name, h5_->H5T_STD_I32LE_g, h5_->H5T_NATIVE_INT_g, &value, false);
}

void H5Writer::IntegerInArray(const std::string& path, const char* name, std::int32_t value) {
  if (!wrong_.empty()) return;
  Attribute(path, name, h5_->H5T_STD_I32LE_g, h5_->H5T_NATIVE_INT_g, &value, true);
}

void H5Writer::Real(const std::string& path, const char* name, double value) {
  if (!wrong_.empty()) return;
  Attribute(path, name, h5_->H5T_IEEE_F64LE_g, h5_->H5T_NATIVE_DOUBLE_g, &value, false);
}

void H5Writer::Text(const std::string& path, const char* name, std::string_view text,
                    std::size_t width) {
  if (!wrong_.empty()) return;
  std::string padded(text.substr(0, width - 1));
  padded.resize(width);
  const hid_t type = h5_->H5Tcopy(h5_->H5T_C_S1_g);
  h5_->H5Tset_size(type, width);
  Attribute(path, name, type, type, padded.data(), false);
  h5_->H5Tclose(type);
}

void H5Writer::PutArray(const std::string& path, std::int64_t stored, std::int64_t type,
                        const void* values, std::size_t count, Lengths lengths) {
  if (!wrong_.empty()) return;
  std::vector<hsize_t> shape(lengths.begin(), lengths.end());
  if (shape.empty()) shape.push_back(count);
  const hid_t space = h5_->H5Screate_simple(static_cast<int>(shape.size()), shape.data(), nullptr);
  const hid_t array =
      h5_->H5Dcreate2(file_, path.c_str(), stored, space, H5P_DEFAULT, array_list_, H5P_DEFAULT);
  if (Check(array, path)) {
    if (count > 0) {
      Check(h5_->H5Dwrite(array, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values), path);
    }
    Check(h5_->H5Dclose(array), path);
  }
  h5_->H5Sclose(space);
}

void H5Writer::Put(const std::string& path, std::span<const std::int32_t> values, Lengths lengths) {
  if (!wrong_.empty()) return;
  PutArray(path, h5_->H5T_STD_I32LE_g, h5_->H5T_NATIVE_INT_g, values.data(), values.size(),
           lengths);
}

void H5Writer::Put(const std::string& path, std::span<const std::int64_t> values, Lengths lengths) {
  if (!wrong_.empty()) return;
  PutArray(path, h5_->H5T_STD_I64LE_g, h5_->H5T_NATIVE_LLONG_g, values.data(), values.size(),
           lengths);
}

void H5Writer::Put(const std::string& path, std::span<const double> values, Lengths lengths) {
  if (!wrong_.empty()) return;
  PutArray(path, h5_->H5T_IEEE_F64LE_g, h5_->H5T_NATIVE_DOUBLE_g, values.data(), values.size(),
           lengths);
}

void H5Writer::Put(const std::string& path, std::span<const float> values, Lengths lengths) {
  if (!wrong_.empty()) return;
  PutArray(path, h5_->H5T_IEEE_F32LE_g, h5_->H5T_IEEE_F32LE_g, values.data(), values.size(),
           lengths);
}

void H5Writer::Put(const std::string& path, std::string_view characters, Lengths lengths) {
  if (!wrong_.empty()) return;
  PutArray(path, h5_->H5T_STD_I8LE_g, h5_->H5T_NATIVE_SCHAR_g, characters.data(), characters.size(),
           lengths);
}

void H5Writer::PutTexts(const std::string& path, const std::vector<std::string>& texts,
                        std::size_t width) {
  if (!wrong_.empty()) return;
  std::string all;
  for (const std::string& text : texts) {
    const std::size_t end = all.size() + width;
    all += text.substr(0, width);
    all.resize(end);
  }
  const hsize_t length = width;
  const hid_t type = h5_->H5Tarray_create2(h5_->H5T_STD_I8LE_g, 1, &length);
  PutArray(path, type, type, all.data(), texts.size(), {});
  h5_->H5Tclose(type);
}

std::string H5Writer::Remedy() const {
  if (!h5_) return "install the HDF5 library, the serial one";
  return IsFull(error_) ? "free some disk space" : "look at the disk and the names of the sets";
}

std::string H5Writer::Finish() {
  if (!lock_.owns_lock()) return wrong_;
  if (h5_) {
    if (file_ >= 0) Check(h5_->H5Fclose(file_), "the file");
    h5_->H5Pclose(group_list_);
    h5_->H5Pclose(array_list_);
    h5_->H5Eset_auto2(H5E_DEFAULT, reinterpret_cast<H5E_auto2_t>(error_function_), error_data_);
  }
  lock_.unlock();
  return wrong_;
}

Outcome WriteHdf5(const std::string& path, const std::function<void(H5Writer&)>& write) {
  const auto file = NewFile::Create(path);
  if (!file) return file.AsOutcome();
  H5Writer out((*file)->Name());
  write(out);
  if (const std::string wrong = out.Finish(); !wrong.empty()) {
    return Failure{path, "", "cannot be written: " + wrong, out.Remedy()};
  }
  return (*file)->TakePlace();
}

}  // namespace qx::exchange
