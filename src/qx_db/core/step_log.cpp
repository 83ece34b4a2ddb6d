#include "qx_db/core/step_log.h"

#define XXH_INLINE_ALL
#include <algorithm>
#include <cerrno>
#include <optional>
#include <tuple>
#include <utility>
#include <xxhash.h>

#include "qx_db/record/types.h"

namespace qx {

#pragma pack(push, 4)
/// What stands at the start of every frame. Frames start at multiples of a block.
struct StepLog::Head {
  static constexpr std::uint32_t kMagic = 0x46535851;  // "QXSF"
  std::uint32_t magic;
  FrameKind kind;
  std::uint16_t version;
  std::uint64_t id;        // of the log
  std::uint64_t sequence;  // counts the frames
  std::uint64_t synced;    // frames up to this one were on the device when this was written
  std::uint64_t extent;    // and the file had this size
  std::int64_t time_ms;    // since 1970
  std::uint64_t bytes;     // of the payload
  std::uint64_t payload;   // its checksum
  std::uint64_t previous;  // checksum of the head of the frame before
  std::uint64_t checksum;  // of all this, seeded with the place in the file

  std::uint64_t OwnChecksum(std::uint64_t at) const {
    return XXH3_64bits_withSeed(this, sizeof(Head) - sizeof(checksum), at);
  }
};
#pragma pack(pop)

namespace {

constexpr std::uint64_t kLeastGrowth = std::uint64_t{64} << 10;
constexpr std::uint64_t kMostGrowth = std::uint64_t{1} << 20;
constexpr std::uint64_t kLargeFrame = std::uint64_t{256} << 10;
constexpr std::uint64_t kMostSpare = std::uint64_t{16} << 20;
/// Of a longer log holes are not read, and no frame lies behind more of them than this: a log of
/// ours has none but behind its frames, and a copy of it may have left out the zeros within
/// records.
constexpr std::uint64_t kReadWhole = std::uint64_t{256} << 20;
constexpr std::uint64_t kMostHoles = std::uint64_t{1} << 30;
/// A large frame is written in pieces of this, each as soon as it is made.
constexpr std::size_t kPiece = std::size_t{256} << 10;

std::uint64_t Blocks(std::uint64_t bytes) {
  return (bytes + StepLog::kBlock - 1) / StepLog::kBlock * StepLog::kBlock;
}

}  // namespace

/// The bytes of a log. Holes take neither time nor memory, so that a file cannot ask for more of
/// these than it has.
class StepLog::Content {
 public:
  Content(RawFile& file, std::uint64_t start, std::uint64_t size) : file_(file), start_(start) {
    size_ = size - start;
  }
  /// Gives 0 or the system's error number. Throws std::bad_alloc.
  int Read(StepLogContents& contents) {
    if (const int error = FindData()) return error;
    std::uint64_t holes = 0;
    for (const auto& [begin, end] : data_) {
      holes += begin - held_;
      if (holes > kMostHoles) break;
      held_ = end;
    }
    if (holes + (size_ - held_) <= kMostHoles) held_ = size_;
    contents.bytes.reset(static_cast<char*>(std::calloc(1, std::max<std::uint64_t>(held_, 1))));
    if (!contents.bytes) throw std::bad_alloc();
    bytes_ = contents.bytes.get();
    for (const auto& [begin, end] : data_) {
      if (begin >= held_) break;
      const auto size = static_cast<std::size_t>(std::min(end, held_) - begin);
      if (const int error = file_.Read(bytes_ + begin, size, start_ + begin)) return error;
    }
    return 0;
  }
  const char* data() const { return bytes_; }
  /// As far as frames can be.
  std::uint64_t size() const { return held_; }
  /// Calls `visit` with the place and the bytes of each block from `from` on that is no
  /// hole. Gives 0 or the system's error number.
  template <class Visit>
  int ForEachBlock(std::uint64_t from, Visit&& visit) const {
    std::vector<char> piece;
    std::uint64_t next = from;
    for (const auto& [begin, end] : data_) {
      for (std::uint64_t at = std::max(next, begin / kBlock * kBlock); at < end; at += kBlock) {
        next = at + kBlock;
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, size_ - at));
        if (at + size <= held_) {
          visit(at, std::span<const char>(bytes_ + at, size));
          continue;
        }
        piece.resize(size);
        if (const int error = file_.Read(piece.data(), size, start_ + at)) return error;
        visit(at, std::span<const char>(piece));
      }
    }
    return 0;
  }

 private:
  int FindData() {
    if (size_ <= kReadWhole) {
      data_.emplace_back(0, size_);
      return 0;
    }
    for (std::uint64_t at = start_, begin = 0, end = 0; at < start_ + size_; at = end) {
      if (const int error = file_.NextData(at, begin, end)) return error;
      begin = std::max(begin, at);
      end = std::min(end, start_ + size_);
      if (begin >= end) break;
      data_.emplace_back(begin - start_, end - start_);
    }
    return 0;
  }

  RawFile& file_;
  std::uint64_t start_;
  std::uint64_t size_;
  std::uint64_t held_ = 0;
  char* bytes_ = nullptr;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> data_;  // behind the start, in order
};

/// What a look through a log found.
struct StepLog::Scan {
  StepLogContents contents;
  std::uint64_t end = 0, extent = 0, sequence = 0, synced = 0, chain = 0;
};

StepLog::StepLog(std::string path, std::shared_ptr<RawFile> file, std::uint64_t start,
                 std::uint64_t id)
    : path_(std::move(path)),
      file_(std::move(file)),
      start_(start),
      id_(id),
      end_(start + kBlock) {}

Failure StepLog::Fault(int error) const {
  return {path_, "", "the step cannot be written: " + ErrorText(error),
          IsFull(error) ? "free some disk space and repeat it"
                        : "check the disk, or save under another name"};
}

// ---- writing ------------------------------------------------------------------------------------

Result<std::unique_ptr<StepLog>> StepLog::Create(std::shared_ptr<RawFile> file,
                                                 const std::string& path, std::uint64_t start,
                                                 std::uint64_t id) {
  const int claimed = file->Claim();
  std::unique_ptr<StepLog> log(new StepLog(path, std::move(file), start, id));
  if (claimed == EWOULDBLOCK) return log->Fault(claimed);
  return log;
}

StepLog::Place StepLog::Look() const {
  FileId ours, named;
  const int error = Files().IdOf(path_, named);
  if (error == ENOENT || error == ENOTDIR) return Place::kGone;
  const bool is_ours = !error && file_->Id(ours) == 0 && ours == named && HoldsThisLog();
  return is_ours ? Place::kNamed : Place::kReplaced;
}

/// Whether nobody has copied another file over this one. Where that cannot be read, writing will
/// tell.
bool StepLog::HoldsThisLog() const {
  std::uint64_t id = 0;
  return extent_ == 0 || IdAt(*file_, start_, id) != 0 || id == id_;
}

Outcome StepLog::CheckName() const {
  switch (extent_ == 0 ? Place::kNamed : Look()) {
    case Place::kNamed:
      return {};
    case Place::kGone:
      return Failure{path_, "", "was removed by another program", "repeat it, or save the model"};
    default:
      return Failure{path_, "", "was replaced by another program since it was opened",
                     "save under another name"};
  }
}

int StepLog::SyncFile() {
  const int error = file_->Sync();
  sync_failed_ = sync_failed_ || error != 0;
  return error;
}

Outcome StepLog::FinishNew() {
  // A free block behind the last frame: the note that the file has grown must fit in before.
  const std::uint64_t size = end_ + kBlock;
  if (const int error = file_->Resize(size)) return Fault(error);
  extent_ = written_ = size;
  synced_ = sequence_;
  Head head{};
  head.magic = Head::kMagic;
  head.kind = FrameKind::kBegin;
  head.version = 1;
  head.id = id_;
  head.synced = synced_;
  head.extent = extent_;
  head.checksum = head.OwnChecksum(start_);
  std::vector<char> block(kBlock);
  StoreAt(block.data(), head);
  if (const int error = file_->Write(block.data(), block.size(), start_)) return Fault(error);
  if (const int error = SyncFile()) return Fault(error);
  return {};
}

/// Blocks that were written once make the small steps to come cheaper: syncing them changes no
/// metadata.
Outcome StepLog::MakeRoom(std::uint64_t bytes) {
  const std::uint64_t spare = std::clamp(end_ - start_, kLeastGrowth, kMostGrowth);
  const std::uint64_t before = extent_;
  // The note, the frame, and a free block for the next note or mark.
  const std::uint64_t size = Blocks(end_ + kBlock + bytes + kBlock + spare);
  if (const int error = file_->Resize(size)) return Fault(error);
  const std::vector<char> zeros(static_cast<std::size_t>(size - before));
  if (const int error = file_->Write(zeros.data(), zeros.size(), before)) return Fault(error);
  if (const int error = SyncFile()) return Fault(error);
  synced_ = sequence_;
  extent_ = size;
  // What the file holds from now on may not be cut off unnoticed: this goes where it was before.
  const auto place = std::tuple(end_, sequence_, chain_);
  Outcome noted = Put(FrameKind::kRoom, 0, {});
  if (noted) noted = Sync();
  if (!noted) {
    extent_ = before;
    std::tie(end_, sequence_, chain_) = place;
  } else {
    written_ = size;
  }
  return noted;
}

/// The same for the room that a large frame left: some blocks ahead of a small one are written with
/// it. It makes the next steps cheaper and no more: that it failed, the frame will tell.
void StepLog::FillAhead(std::uint64_t bytes) {
  const std::uint64_t behind = end_ + bytes + kBlock;
  if (extent_ == 0 || bytes >= kLargeFrame || behind <= written_) return;
  const std::uint64_t from = std::max(written_, end_ + bytes);
  const std::uint64_t to = std::min(extent_, behind + kLeastGrowth);
  const std::vector<char> zeros(static_cast<std::size_t>(to - from));
  if (file_->Write(zeros.data(), zeros.size(), from) == 0) written_ = to;
}

/// The head of the frame that goes next, without a payload and without its checksum.
StepLog::Head StepLog::NextHead(FrameKind kind) const {
  Head head{};
  head.magic = Head::kMagic;
  head.kind = kind;
  head.version = 1;
  head.id = id_;
  head.sequence = sequence_ + 1;
  head.synced = synced_;
  head.extent = extent_;
  head.previous = chain_;
  return head;
}

/// Writes the payload of a frame at a place, hashing it while it is at hand. The first piece, in
/// which the head stands, is kept for the end: before it is written nothing leads to the others.
class StepLog::FrameWriter final : public FrameSink {
 public:
  FrameWriter(RawFile& file, std::uint64_t place, std::uint64_t payload)
      : file_(file), first_place_(place), place_(place) {
    XXH3_64bits_reset(&hash_);
    piece_.resize(
        static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, Blocks(sizeof(Head) + payload))));
  }

  char* Room(std::size_t bytes) override {
    if (used_ + bytes > piece_.size()) Drain();
    if (used_ + bytes > piece_.size()) piece_.resize(Blocks(used_ + bytes));
    char* room = piece_.data() + used_;
    used_ += bytes;
    return room;
  }
  /// Checksum of the whole payload.
  std::uint64_t Finish() {
    Hash();
    const std::size_t whole = Blocks(used_);
    if (piece_.size() < whole) piece_.resize(whole);
    std::fill(piece_.begin() + static_cast<std::ptrdiff_t>(used_),
              piece_.begin() + static_cast<std::ptrdiff_t>(whole), 0);
    used_ = whole;
    WriteOut(whole);
    return XXH3_64bits_digest(&hash_);
  }
  /// Writes the piece with the head; 0 or the error number of this or of an earlier write.
  int WriteFirst(const Head& head) {
    if (error_) return error_;
    StoreAt(first_.data(), head);
    return file_.Write(first_.data(), first_size_, first_place_);
  }
  /// Whether the device failed: who syncs the file next may not be told of it again.
  bool HasSyncFailed() const { return sync_error_ != 0; }
  /// Bytes in the file.
  std::uint64_t Bytes() const { return place_ - first_place_; }

 private:
  void Hash() {
    XXH3_64bits_update(&hash_, piece_.data() + hashed_, used_ - hashed_);
    hashed_ = used_;
  }
  /// Lets the blocks go that are full. The head stays with a block of its own at least.
  void Drain() {
    const std::size_t whole = used_ / kBlock * kBlock;
    if (whole == 0) return;
    Hash();
    const std::size_t rest = used_ - whole;
    const bool is_first = first_.empty();
    WriteOut(whole);
    if (is_first) {
      piece_.resize(kPiece);
      std::copy_n(first_.data() + whole, rest, piece_.data());
    } else {
      std::copy_n(piece_.data() + whole, rest, piece_.data());
    }
    used_ = hashed_ = rest;
  }
  void WriteOut(std::size_t whole) {
    if (first_.empty()) {
      first_ = std::exchange(piece_, {});
      first_size_ = whole;
    } else {
      if (!error_) error_ = file_.Write(piece_.data(), whole, place_);
      if (!error_) error_ = sync_error_ = file_.StartSync(place_, whole);
    }
    place_ += whole;
  }

  RawFile& file_;
  std::uint64_t first_place_, place_;
  std::vector<char> first_, piece_;
  std::size_t first_size_ = 0;
  std::size_t used_ = sizeof(Head), hashed_ = sizeof(Head);  // of the piece
  XXH3_state_t hash_;
  int error_ = 0, sync_error_ = 0;
};

Outcome StepLog::Put(FrameKind kind, std::int64_t time_ms, const FramePayload& payload) {
  FrameWriter writer(*file_, end_, payload.bytes);
  if (payload.make) payload.make(writer);
  Head head = NextHead(kind);
  head.time_ms = time_ms;
  head.bytes = payload.bytes;
  head.payload = writer.Finish();
  head.checksum = head.OwnChecksum(end_);
  if (writer.Bytes() != Blocks(sizeof(Head) + payload.bytes)) {
    return Failure{path_, "", "the step is not as long as it was measured",
                   "save the model under another name"};
  }
  sync_failed_ = sync_failed_ || writer.HasSyncFailed();
  if (const int error = writer.WriteFirst(head)) return Fault(error);
  end_ += writer.Bytes();
  written_ = std::max(written_, end_);
  sequence_ = head.sequence;
  chain_ = head.checksum;
  return {};
}

/// Puts a frame for which there is no room, and which is too large to be written twice, on the
/// device: it goes behind the place of a note, which is written once the frame and the size of the
/// file are there. Before that nothing leads to the frame. Room is left behind for the next such
/// frames, which takes no space on the device before they come: they need one sync, not two.
Outcome StepLog::PutBeyondEnd(FrameKind kind, std::int64_t time_ms, const FramePayload& payload,
                              bool& is_linked) {
  const std::uint64_t bytes = Blocks(sizeof(Head) + payload.bytes);
  const std::uint64_t spare = std::clamp(end_ - start_, std::min(bytes, kMostSpare), kMostSpare);
  const std::uint64_t least = Blocks(end_ + kBlock + bytes + kBlock);
  std::uint64_t size = least + Blocks(spare);
  if (file_->Resize(size) != 0) {  // for the step itself there may be room
    size = least;
    if (const int error = file_->Resize(size)) return Fault(error);
  }
  const std::uint64_t place = end_;
  Head note = NextHead(FrameKind::kRoom);
  note.extent = size;
  note.payload = XXH3_64bits(nullptr, 0);
  note.checksum = note.OwnChecksum(place);
  end_ += kBlock;
  sequence_ = note.sequence;
  chain_ = note.checksum;
  if (Outcome done = Put(kind, time_ms, payload); !done) return done;
  if (const int error = SyncFile()) return Fault(error);
  std::vector<char> block(kBlock);
  StoreAt(block.data(), note);
  is_linked = true;
  if (const int error = file_->Write(block.data(), block.size(), place)) return Fault(error);
  const std::uint64_t before = std::exchange(extent_, size);
  Outcome done = Sync();
  if (!done) extent_ = before;
  return done;
}

Outcome StepLog::Append(FrameKind kind, std::int64_t time_ms, const FramePayload& payload,
                        bool sync) {
  if (Outcome named = CheckName(); !named) return named;
  const std::uint64_t bytes = Blocks(sizeof(Head) + payload.bytes);
  const bool fits = extent_ == 0 || end_ + bytes + kBlock <= extent_;
  const bool goes_beyond = !fits && bytes >= kLargeFrame;
  if (!fits && !goes_beyond) {
    if (Outcome room = MakeRoom(bytes); !room) return room;
  }
  if (fits) FillAhead(bytes);
  const auto before = std::tuple(end_, sequence_, chain_);
  bool put = false;
  Outcome done;
  try {
    if (goes_beyond) {
      done = PutBeyondEnd(kind, time_ms, payload, put);
    } else {
      done = Put(kind, time_ms, payload);
      put = static_cast<bool>(done);
      if (done && sync) done = Sync();
    }
  } catch (...) {
    std::tie(end_, sequence_, chain_) = before;
    throw;
  }
  if (done && sync) {
    done = CheckName();
    if (!done && HoldsThisLog()) WipeMark();
  }
  if (done) return done;
  std::tie(end_, sequence_, chain_) = before;
  if (Withdraw() || !put) return done;
  Failure fault = done.Error();
  fault.what += ", and it may come back when the file is opened again";
  return fault;
}

/// Takes back what says that the last frame is on the device.
void StepLog::WipeMark() {
  const std::vector<char> nothing(sizeof(Head));
  [[maybe_unused]] const int error = file_->Write(nothing.data(), nothing.size(), end_);
}

/// Writes a mark over the frame that was refused, so that nobody reads it.
bool StepLog::Withdraw() {
  synced_ = std::min(synced_, sequence_);
  int error = 0;
  Mark(FrameKind::kMark, error);
  return !error && (extent_ == 0 || SyncFile() == 0);
}

Outcome StepLog::Sync() {
  if (synced_ == sequence_) return {};
  if (sync_failed_) return Fault(EIO);  // no mark may say what is not known
  if (const int error = SyncFile()) return Fault(error);
  synced_ = sequence_;
  int ignored = 0;  // the mark only helps to tell damage from an unfinished frame
  Mark(FrameKind::kMark, ignored);
  return {};
}

/// Notes, where the next frame will go, that all before is on the device.
void StepLog::Mark(FrameKind kind, int& error) {
  // What another copied over the file is not ours to mark.
  if (extent_ == 0 || !HoldsThisLog()) return;
  Head head = NextHead(kind);
  head.checksum = head.OwnChecksum(end_);
  error = file_->Write(reinterpret_cast<const char*>(&head), sizeof(head), end_);
}

Outcome StepLog::Close() {
  if (Outcome synced = Sync(); !synced) return synced;
  int error = 0;
  Mark(FrameKind::kEnd, error);
  if (!error) error = SyncFile();
  return error ? Outcome(Fault(error)) : Outcome();
}

// ---- reading ------------------------------------------------------------------------------------

int StepLog::IdAt(RawFile& file, std::uint64_t start, std::uint64_t& id) {
  id = 0;
  std::uint64_t size = 0;
  if (const int error = file.Size(size)) return error;
  if (size < start + kBlock) return 0;
  Head head{};
  if (const int error = file.Read(reinterpret_cast<char*>(&head), sizeof(head), start)) {
    return error;
  }
  const bool whole = head.magic == Head::kMagic && head.checksum == head.OwnChecksum(start);
  if (whole && head.kind == FrameKind::kBegin) id = head.id;
  return 0;
}

/// What a writer is just appending can look like damage to who reads it in two glances; damage
/// looks the same each time.
Result<StepLog::Scan> StepLog::ScanLog(RawFile& file, const std::string& path, std::uint64_t start,
                                       std::uint64_t id) {
  std::optional<Failure> last;
  for (;;) {
    Result<Scan> scan = ScanBytes(file, path, start, id);
    if (scan || (last && last->Line() == scan.Error().Line())) return scan;
    last = scan.Error();
  }
}

Result<StepLog::Scan> StepLog::ScanBytes(RawFile& file, const std::string& path,
                                         std::uint64_t start, std::uint64_t id) {
  constexpr const char* kRemedy = "restore it from a backup";
  Scan scan;
  std::uint64_t size = 0;
  int error = file.Size(size);
  if (error) {
    return Failure{path, "", "cannot be read: " + ErrorText(error), "check the disk"};
  }
  if (size < start + kBlock) {
    return Failure{path, "byte " + std::to_string(size), "is truncated: its steps are missing",
                   kRemedy};
  }
  Content bytes(file, start, size);
  if ((error = bytes.Read(scan.contents)) != 0) {
    return Failure{path, "", "cannot be read: " + ErrorText(error), "check the disk"};
  }
  Head head{};
  const auto is_head = [&](std::uint64_t at, std::span<const char> block) {
    if (block.size() < sizeof(Head)) return false;
    head = LoadAt<Head>(block.data());
    return head.magic == Head::kMagic && head.id == id &&
           head.checksum == head.OwnChecksum(start + at);
  };
  const auto read_head = [&](std::uint64_t at) {
    const std::uint64_t begin = std::min(at, bytes.size());
    return is_head(at, {bytes.data() + begin, static_cast<std::size_t>(bytes.size() - begin)});
  };
  if (!read_head(0) || head.kind != FrameKind::kBegin) {
    return Failure{path, "byte " + std::to_string(start), "the head of the steps is damaged",
                   kRemedy};
  }
  if (head.version != 1) {
    return Failure{path, "", "was written by a later version", "update this program"};
  }
  scan.extent = head.extent;
  scan.synced = head.synced;
  std::uint64_t at = kBlock;
  for (; read_head(at) && head.sequence == scan.sequence + 1 && head.previous == scan.chain;) {
    scan.extent = std::max(scan.extent, head.extent);
    scan.synced = std::max(scan.synced, head.synced);
    if (head.kind == FrameKind::kMark || head.kind == FrameKind::kEnd) break;
    const std::uint64_t room = bytes.size() - at - sizeof(Head);
    const char* payload = bytes.data() + at + sizeof(Head);
    if (head.bytes > room || XXH3_64bits(payload, head.bytes) != head.payload) break;
    scan.contents.frames.push_back(
        {head.kind, head.time_ms, {payload, static_cast<std::size_t>(head.bytes)}});
    scan.sequence = head.sequence;
    scan.chain = head.checksum;
    at += Blocks(sizeof(Head) + head.bytes);
  }
  scan.end = start + at;
  scan.contents.closed =
      read_head(at) ? head.kind == FrameKind::kEnd : scan.sequence == scan.synced;
  // What stands behind the last good frame is an unfinished one, unless something says that it had
  // been on the device.
  bool is_rest_empty = true;
  error = bytes.ForEachBlock(at, [&](std::uint64_t later, std::span<const char> block) {
    is_rest_empty =
        is_rest_empty && std::all_of(block.begin(), block.end(), [](char c) { return c == 0; });
    if (!is_head(later, block)) return;
    scan.extent = std::max(scan.extent, head.extent);
    scan.synced = std::max(scan.synced, head.synced);
  });
  if (error) {
    return Failure{path, "", "cannot be read: " + ErrorText(error), "check the disk"};
  }
  if (size < scan.extent) {
    return Failure{
        path, "byte " + std::to_string(size),
        "is truncated: " + std::to_string(size) + " of " + std::to_string(scan.extent) + " bytes",
        kRemedy};
  }
  if (scan.synced > scan.sequence) {
    return Failure{path, "byte " + std::to_string(start + at),
                   "step frame " + std::to_string(scan.sequence + 1) + " is damaged", kRemedy};
  }
  if (size % kBlock != 0) {
    return Failure{path, "byte " + std::to_string(size / kBlock * kBlock),
                   "has bytes after its end", kRemedy};
  }
  scan.contents.unfinished_step = !read_head(at) && !is_rest_empty;
  return scan;
}

Result<StepLogContents> StepLog::Read(RawFile& file, const std::string& path, std::uint64_t start,
                                      std::uint64_t id) {
  Result<Scan> scan = ScanLog(file, path, start, id);
  if (!scan) return scan.Error();
  return std::move(scan->contents);
}

Result<std::unique_ptr<StepLog>> StepLog::Open(std::shared_ptr<RawFile> file,
                                               const std::string& path, std::uint64_t start,
                                               std::uint64_t id, StepLogContents& contents) {
  if (file->Claim() == EWOULDBLOCK) {
    return Failure{path, "", "is being edited under another name",
                   "close it there, or open it for reading"};
  }
  Result<Scan> scan = ScanLog(*file, path, start, id);
  if (!scan) return scan.Error();
  std::unique_ptr<StepLog> log(new StepLog(path, std::move(file), start, id));
  log->end_ = log->written_ = scan->end;
  log->extent_ = scan->extent;
  log->sequence_ = scan->sequence;
  // What was read may not be on the device yet, if its writer was killed.
  log->synced_ = scan->synced;
  log->chain_ = scan->chain;
  contents = std::move(scan->contents);
  return log;
}

}  // namespace qx
