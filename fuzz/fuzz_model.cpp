// A model file taken apart into rows, chunks and steps, changed there, and put together again with
// every checksum right: refused, or a model that stands its checks, can be saved, undone and
// redone.

#include <algorithm>
#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/model_parts.h"

namespace {

using namespace qx;
using namespace qx::fuzz;

/// A number that is wrong in an interesting way, or any.
std::uint64_t Number(FuzzedDataProvider& data, std::uint64_t now) {
  constexpr std::uint64_t kKinds[] = {0, 1, 0x7F, 0xFF, 0xFFFF, 0x7FFFFFFF, 0xFFFFFFFF, ~0ull};
  const auto how = data.ConsumeIntegralInRange<int>(0, 11);
  if (how < 8) return kKinds[how];
  if (how < 10) return how == 8 ? now + 1 : now - 1;
  return how == 10 ? now ^ std::uint64_t{1} << data.ConsumeIntegralInRange<int>(0, 63)
                   : data.ConsumeIntegral<std::uint64_t>();
}

void Alter(FuzzedDataProvider& data, std::int64_t& value) {
  value = static_cast<std::int64_t>(Number(data, static_cast<std::uint64_t>(value)));
}

template <class T>
void AlterAt(FuzzedDataProvider& data, std::string& bytes, std::size_t at) {
  if (at + sizeof(T) > bytes.size()) return;
  Store(bytes, at, static_cast<T>(Number(data, Load<T>(bytes, at))));
}

void Alter(FuzzedDataProvider& data, std::string& bytes) {
  const auto at = data.ConsumeIntegralInRange<std::size_t>(0, bytes.size());
  // What keeps its length gets furthest.
  switch (data.ConsumeIntegralInRange<int>(0, 15)) {
    case 0: {  // a piece of it, again
      const std::string piece = bytes.substr(at, data.ConsumeIntegralInRange<std::size_t>(0, 64));
      bytes.insert(data.ConsumeIntegralInRange<std::size_t>(0, bytes.size()), piece);
      return;
    }
    case 1:
      bytes.resize(at);
      return;
    case 2:
      bytes.insert(at, data.ConsumeRandomLengthString(16));
      return;
    case 3:
    case 4:
      return AlterAt<std::uint8_t>(data, bytes, at);
    case 5:
    case 6:
      return AlterAt<std::uint16_t>(data, bytes, at);
    case 7:
    case 8:
      return AlterAt<std::uint64_t>(data, bytes, at / 4 * 4);
    default:
      return AlterAt<std::uint32_t>(data, bytes, at / 4 * 4);
  }
}

/// Drops, doubles or exchanges what stands in a list.
template <class T>
void AlterOrder(FuzzedDataProvider& data, std::vector<T>& list) {
  if (list.empty()) return;
  const auto at = data.ConsumeIntegralInRange<std::size_t>(0, list.size() - 1);
  const auto other = data.ConsumeIntegralInRange<std::size_t>(0, list.size() - 1);
  switch (data.ConsumeIntegralInRange<int>(0, 2)) {
    case 0:
      list.erase(list.begin() + static_cast<std::ptrdiff_t>(at));
      return;
    case 1: {
      T copy = list[at];
      list.insert(list.begin() + static_cast<std::ptrdiff_t>(other), std::move(copy));
      return;
    }
    default:
      std::swap(list[at], list[other]);
  }
}

template <class T>
T* Pick(FuzzedDataProvider& data, std::vector<T>& list) {
  return list.empty() ? nullptr
                      : &list[data.ConsumeIntegralInRange<std::size_t>(0, list.size() - 1)];
}

void Alter(FuzzedDataProvider& data, FileParts& parts) {
  switch (data.ConsumeIntegralInRange<int>(0, 13)) {
    case 0:
      return AlterOrder(data, parts.frames);
    case 1:
      if (FrameRow* frame = Pick(data, parts.frames)) {
        frame->kind = static_cast<FrameKind>(data.ConsumeIntegralInRange<int>(0, 9));
      }
      return;
    case 2:
      return AlterOrder(data, parts.chunks);
    case 3:
      if (ChunkRow* chunk = Pick(data, parts.chunks)) {
        Alter(data, data.ConsumeBool() ? chunk->records : chunk->code);
      }
      return;
    case 4:
      return AlterOrder(data, parts.pools);
    case 5:
      if (PoolRow* pool = Pick(data, parts.pools)) {
        Alter(data, data.ConsumeBool() ? pool->records : pool->code);
      }
      return;
    case 6:
      if (PoolRow* pool = Pick(data, parts.pools)) Alter(data, pool->schema);
      return;
    case 7:
      if (auto* text = Pick(data, parts.texts)) Alter(data, text->second);
      return;
    case 8:
      if (auto* number = Pick(data, parts.numbers)) Alter(data, number->second);
      return;
    case 9:
    case 10:
      if (ChunkRow* chunk = Pick(data, parts.chunks)) Alter(data, chunk->images);
      return;
    default:
      if (FrameRow* frame = Pick(data, parts.frames)) Alter(data, frame->payload);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const FileParts base = TakeApart(BaseFile());
  static const std::string path = [] {  // what is not changed is a model
    std::string made = Folder() + "/model.qxm";
    Need(static_cast<bool>(WriteWholeFile(made, PutTogether(base, Pages(base)))));
    CQXDocBase document(SetUp);
    Need(static_cast<bool>(document.Open(made)) && document.GetDBSession()->CanRedo());
    return made;
  }();
  FuzzedDataProvider data(bytes, size);
  FileParts parts = base;
  for (int left = data.ConsumeIntegralInRange<int>(0, 3); left >= 0; --left) Alter(data, parts);
  std::ofstream(path, std::ios::binary | std::ios::trunc) << PutTogether(parts, Pages(parts));
  OpenAndUse(path);
  return 0;
}
