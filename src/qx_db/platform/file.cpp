#include "qx_db/platform/file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <ostream>
#include <streambuf>
#include <system_error>
#include <vector>

#include "qx_db/platform/new_file.h"

namespace qx {
namespace fs = std::filesystem;

namespace {

std::string Reason(int error) { return std::generic_category().message(error); }

}  // namespace

fs::path PathFromUtf8(std::string_view path) {
  return fs::path(std::u8string(path.begin(), path.end()));
}

std::string Utf8FromPath(const fs::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

Outcome CheckIsFile(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(PathFromUtf8(path), error);
  if (status.type() == fs::file_type::not_found) {
    return Failure{path, "", "no such file", "check the path"};
  }
  if (error) {
    const bool too_long = error == std::errc::filename_too_long;
    return Failure{path, "", "cannot be read: " + error.message(),
                   too_long ? "give it a shorter name" : "check permissions"};
  }
  if (status.type() == fs::file_type::directory) {
    return Failure{path, "", "is a directory", "name a file in it"};
  }
  // What is read from a pipe or a device may never end, and is gone after one look at how it
  // begins.
  if (!fs::is_regular_file(status)) {
    return Failure{path, "", "is a pipe or a device, not a file",
                   "store what it gives in a file, and name that"};
  }
  return {};
}

Result<std::string> ReadWholeFile(const std::string& path) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file.Error();
  std::ifstream in(PathFromUtf8(path), std::ios::binary);
  if (!in) return Failure{path, "", "cannot be opened: " + Reason(errno), "check permissions"};
  std::string bytes;
  std::error_code error;
  const auto size = fs::file_size(PathFromUtf8(path), error);
  if (!error) {
    bytes.resize(size);
    in.read(bytes.data(), static_cast<std::streamsize>(size));
    bytes.resize(static_cast<std::size_t>(in.gcount()));
  }
  if (error || in.bad())
    return Failure{path, "", "cannot be read: " + Reason(errno), "check the disk"};
  return bytes;
}

std::string LinkTarget(const std::string& path) {
  fs::path at = PathFromUtf8(path);
  std::error_code error;
  constexpr int kMostLinks = 40;  // as many as the system follows
  for (int i = 0; i < kMostLinks && fs::is_symlink(at, error); ++i) {
    const fs::path target = fs::read_symlink(at, error);
    if (error) break;
    at = at.parent_path() / target;  // an absolute target replaces the whole
  }
  return Utf8FromPath(at);
}

Outcome CheckLink(const std::string& path) {
  std::error_code error;
  const fs::path at = PathFromUtf8(path);
  if (!fs::is_symlink(at, error) || fs::exists(at, error)) return {};
  return Failure{path, "", "is a link to " + LinkTarget(path) + ", where there is no file",
                 "name that file, or remove the link"};
}

bool IsSamePlace(const std::string& a, const std::string& b) {
  std::error_code error_a, error_b;
  // Made absolute first: the standard leaves that out where a path's first part does not exist.
  const fs::path place_a = fs::weakly_canonical(fs::absolute(PathFromUtf8(a), error_a), error_a);
  const fs::path place_b = fs::weakly_canonical(fs::absolute(PathFromUtf8(b), error_b), error_b);
  return a == b || (!error_a && !error_b && place_a == place_b);
}

Outcome WriteWholeFile(const std::string& path, std::string_view bytes) {
  return WriteFileBy(path, [&](std::ostream& out) {
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  });
}

namespace {

/// A stream's way into an open file, which can go back to a place it was told. What fails is
/// remembered.
class FileBuffer final : public std::streambuf {
 public:
  explicit FileBuffer(RawFile& file) : file_(file), room_(std::size_t{1} << 16) { Empty(); }
  /// 0 or the error of the first write that failed.
  int Finish() {
    Flush();
    return error_;
  }

 protected:
  int_type overflow(int_type c) override {
    if (!Flush()) return traits_type::eof();
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      *pptr() = traits_type::to_char_type(c);
      pbump(1);
    }
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(const char* from, std::streamsize size) override {
    if (size < epptr() - pptr()) {
      std::memcpy(pptr(), from, static_cast<std::size_t>(size));
      pbump(static_cast<int>(size));
      return size;
    }
    return Flush() && Put(from, static_cast<std::size_t>(size)) ? size : 0;
  }
  int sync() override { return Flush() ? 0 : -1; }
  pos_type seekpos(pos_type place, std::ios_base::openmode) override {
    if (!Flush()) return pos_type(off_type(-1));
    at_ = static_cast<std::uint64_t>(off_type(place));
    return place;
  }
  pos_type seekoff(off_type offset, std::ios_base::seekdir from,
                   std::ios_base::openmode which) override {
    const auto here = static_cast<off_type>(at_) + (pptr() - pbase());
    if (from == std::ios_base::cur && offset == 0) return pos_type(here);
    if (from == std::ios_base::end) return pos_type(off_type(-1));
    return seekpos(pos_type(offset + (from == std::ios_base::cur ? here : 0)), which);
  }

 private:
  void Empty() { setp(room_.data(), room_.data() + room_.size()); }
  bool Flush() {
    const bool done = Put(pbase(), static_cast<std::size_t>(pptr() - pbase()));
    Empty();
    return done;
  }
  bool Put(const char* from, std::size_t size) {
    if (!error_ && size > 0) error_ = file_.Write(from, size, at_);
    at_ += size;
    return error_ == 0;
  }

  RawFile& file_;
  std::vector<char> room_;
  std::uint64_t at_ = 0;
  int error_ = 0;
};

}  // namespace

Outcome WriteFileBy(const std::string& path, const std::function<void(std::ostream&)>& write) {
  std::error_code error;
  const fs::file_status status = fs::status(PathFromUtf8(path), error);
  if (fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status)) {
    return Failure{path, "", "is not a file, and would be replaced by one", "name a file"};
  }
  auto file = NewFile::Create(path);
  if (!file) return file.AsOutcome();
  FileBuffer buffer((*file)->File());
  std::ostream out(&buffer);
  write(out);
  const int failed = buffer.Finish();
  if (failed || !out) {
    return Failure{path, "", "cannot be written: " + Reason(failed ? failed : EIO),
                   "free some disk space"};
  }
  return (*file)->TakePlace();
}

}  // namespace qx
