#include "tests/core/test_disk.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace qx {
namespace {

TestDisk* g_disk = nullptr;

class TestFile final : public RawFile {
 public:
  TestFile(std::unique_ptr<RawFile> real, int file) : real_(std::move(real)), file_(file) {}
  int Read(char* to, std::size_t size, std::uint64_t at) override {
    g_disk->Look();
    if (const int error = g_disk->Next()) return error;
    return real_->Read(to, size, at);
  }
  int Write(const char* from, std::size_t size, std::uint64_t at) override {
    const int error = g_disk->Next();
    const std::size_t bytes = error ? size / 2 : size;
    g_disk->Add({TestDisk::Event::kWrite, file_, at, std::string(from, bytes), {}, {}});
    const int written = real_->Write(from, bytes, at);
    return error ? error : written;
  }
  int Resize(std::uint64_t size) override {
    if (const int error = g_disk->Next()) return error;
    g_disk->Add({TestDisk::Event::kResize, file_, size, {}, {}, {}});
    return real_->Resize(size);
  }
  int StartSync(std::uint64_t, std::size_t) override { return g_disk->Next(); }
  int Sync() override {
    if (const int error = g_disk->NextSync()) return error;
    g_disk->Add({TestDisk::Event::kSync, file_, 0, {}, {}, {}});
    if (const auto then = std::exchange(g_disk->after_sync, nullptr)) then();
    return 0;  // a crash happens on paper only
  }
  int Size(std::uint64_t& size) override {
    g_disk->Look();
    if (const int error = g_disk->Next()) return error;
    return real_->Size(size);
  }
  int Id(FileId& id) override { return real_->Id(id); }
  int Claim() override { return g_disk->knows_claims ? real_->Claim() : ENOTSUP; }

 private:
  std::unique_ptr<RawFile> real_;
  int file_;
};

}  // namespace

TestDisk::TestDisk() {
  g_disk = this;
  SetFiles(this);
}

TestDisk::~TestDisk() {
  SetFiles(nullptr);
  g_disk = nullptr;
}

void TestDisk::FailAt(int operation, int error, bool forever) {
  fail_at_ = operation;
  error_ = error;
  forever_ = forever;
  failed_ = false;
  operations_ = 0;
}

int TestDisk::Next() {
  const int now = operations_++;
  if (fail_at_ < 0 || (forever_ ? now < fail_at_ : now != fail_at_)) return 0;
  failed_ = true;
  return error_;
}

int TestDisk::NextSync() {
  if (const int error = Next()) return error;
  if (syncs_to_fail_ == 0) return 0;
  --syncs_to_fail_;
  return EIO;
}

void TestDisk::Record() {
  recording_ = true;
  log_.clear();
}

int TestDisk::FileOf(const std::string& path, bool fresh) {
  const auto found = names_.find(path);
  if (found != names_.end() && !fresh) return found->second;
  return names_[path] = ++files_;
}

int TestDisk::Open(const std::string& path, bool writing, std::unique_ptr<RawFile>& file) {
  Look();
  if (const int error = Next()) return error;
  std::unique_ptr<RawFile> real;
  if (const int error = FileSystem::Open(path, writing, real)) return error;
  file = std::make_unique<TestFile>(std::move(real), FileOf(path, false));
  return 0;
}

int TestDisk::Create(const std::string& path, bool guarded, std::unique_ptr<RawFile>& file) {
  if (const int error = Next()) return error;
  if (failing_creation_) return failing_creation_;
  std::unique_ptr<RawFile> real;
  if (const int error = FileSystem::Create(path, guarded, real)) return error;
  file = std::make_unique<TestFile>(std::move(real), FileOf(path, true));
  return 0;
}

int TestDisk::IdOf(const std::string& path, FileId& id) {
  Look();
  return FileSystem::IdOf(path, id);
}

int TestDisk::Rename(const std::string& from, const std::string& to) {
  if (const int error = Next()) return error;
  const int error = FileSystem::Rename(from, to);
  if (error) return error;
  const int file = FileOf(from, false);
  names_.erase(from);
  names_[to] = file;
  Add({Event::kRename, file, 0, {}, from, to});
  return 0;
}

int TestDisk::SyncFolderOf(const std::string&) {
  if (const int error = Next()) return error;
  Add({Event::kSyncFolder, 0, 0, {}, {}, {}});
  return 0;
}

// ---- crashing -----------------------------------------------------------------------------------

namespace {

void WriteTo(std::string& content, std::uint64_t at, std::string_view bytes) {
  if (content.size() < at + bytes.size()) content.resize(at + bytes.size(), '\0');
  content.replace(at, bytes.size(), bytes);
}

}  // namespace

/// The file with all of its pending events or, with `random`, with what may have arrived of them.
std::string CrashedDisk::Content(const File& file, std::mt19937* random) const {
  constexpr std::uint64_t kSector = 512;
  std::string content = file.synced;
  // One crash drops much, another little.
  const std::uint32_t rate = random ? (*random)() % 5 : 0;
  bool sizes = true;  // changes of size arrive in their order
  for (const TestDisk::Event* event : file.pending) {
    if (event->kind == TestDisk::Event::kResize) {
      sizes = sizes && (!random || (*random)() % 4 >= rate);
      if (sizes) content.resize(event->at, '\0');
      continue;
    }
    if (!random) {
      WriteTo(content, event->at, event->bytes);
      continue;
    }
    for (std::uint64_t done = 0; done < event->bytes.size();) {
      const std::uint64_t at = event->at + done;
      const std::uint64_t bytes =
          std::min<std::uint64_t>(kSector - at % kSector, event->bytes.size() - done);
      std::string_view sector(event->bytes.data() + done, bytes);
      done += bytes;
      if ((*random)() % 4 < rate) continue;                                       // lost
      if ((*random)() % 16 == 0) sector = sector.substr(0, (*random)() % bytes);  // torn
      // Without the change of size there is no place for it.
      if (at + sector.size() > content.size() && !sizes) continue;
      if (!sector.empty()) WriteTo(content, at, sector);
    }
  }
  return content;
}

void CrashedDisk::PlayTo(std::size_t end) {
  for (; at_ < end; ++at_) {
    const TestDisk::Event& event = log_[at_];
    using Event = TestDisk::Event;
    if (event.kind == Event::kWrite || event.kind == Event::kResize) {
      files_[event.file].pending.push_back(&event);
    } else if (event.kind == Event::kSync) {
      File& file = files_[event.file];
      file.synced = Content(file, nullptr);
      file.pending.clear();
    } else if (event.kind == Event::kRename) {
      renames_.push_back(&event);
    } else {
      for (const Event* rename : renames_) names_[rename->to] = rename->file;
      renames_.clear();
    }
  }
}

std::optional<std::string> CrashedDisk::Leftover(const std::string& path,
                                                 std::mt19937& random) const {
  const auto synced = names_.find(path);
  int file = synced == names_.end() ? 0 : synced->second;
  for (const TestDisk::Event* rename : renames_) {
    if (random() % 2) break;
    if (rename->to == path) file = rename->file;
  }
  if (file == 0) return std::nullopt;
  return Content(files_.at(file), &random);
}

}  // namespace qx
