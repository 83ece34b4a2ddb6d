#pragma once
// The JSON library behind the gateway document. For the .cpp files of this folder only.
// Threads: shares nothing; one at a time for each object.

#ifndef RAPIDJSON_HAS_STDSTRING
#define RAPIDJSON_HAS_STDSTRING 1
#endif
#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <span>
// Plain pointers for member iterators: the class has a comparison that C++20 finds ambiguous.
#define RAPIDJSON_NOMEMBERITERATORCLASS
#include <rapidjson/document.h>
#include <string>
#include <string_view>

#include "qx_db/gateway/document.h"
#include "qx_db/platform/pages.h"

namespace qx::dbgateway {

/// Memory of a document: the C library's, in huge pages once a block is large.
struct BlockAllocator {
  static constexpr bool kNeedFree = true;
  void* Malloc(std::size_t size) {
    void* at = size ? std::malloc(size) : nullptr;
    if (size && !at) throw std::bad_alloc();
    PreferHugePages(at, size);
    return at;
  }
  void* Realloc(void* old, std::size_t, std::size_t size) {
    void* at = size ? std::realloc(old, size) : (std::free(old), nullptr);
    if (size && !at) throw std::bad_alloc();
    PreferHugePages(at, size);
    return at;
  }
  static void Free(void* at) { std::free(at); }
};

using Encoding = rapidjson::UTF8<>;
using Allocator = rapidjson::MemoryPoolAllocator<BlockAllocator>;
using Json = rapidjson::GenericValue<Encoding, Allocator>;
using JsonDocument = rapidjson::GenericDocument<Encoding, Allocator, BlockAllocator>;

inline Json& Cast(JsonValue& value) { return reinterpret_cast<Json&>(value); }
inline Json* Cast(JsonValue* value) { return reinterpret_cast<Json*>(value); }
inline Allocator& Cast(JsonAllocator& allocator) { return reinterpret_cast<Allocator&>(allocator); }
inline Allocator* Cast(JsonAllocator* allocator) { return reinterpret_cast<Allocator*>(allocator); }
inline JsonValue* Wrap(Json& value) { return reinterpret_cast<JsonValue*>(&value); }
inline JsonAllocator* Wrap(Allocator& allocator) {
  return reinterpret_cast<JsonAllocator*>(&allocator);
}

inline std::string_view TextOf(const Json& value) {
  return {value.GetString(), value.GetStringLength()};
}

/// The members of an object.
inline std::span<Json::Member> MembersOf(Json& object) {
  return {object.MemberBegin(), object.MemberCount()};
}
inline std::span<const Json::Member> MembersOf(const Json& object) {
  return {object.MemberBegin(), object.MemberCount()};
}

/// The last member of that name, null when there is none: a later entry replaces an earlier one.
inline Json* FindMember(Json& object, std::string_view name) {
  for (auto member = object.MemberEnd(); member != object.MemberBegin();) {
    --member;
    if (TextOf(member->name) == name) return &member->value;
  }
  return nullptr;
}

/// A document and the text that its strings are parts of.
struct ParsedJson {
  /// Documents of many megabytes take their memory in large blocks.
  explicit ParsedJson(std::string parsed_text = {})
      : text(std::make_unique<std::string>(std::move(parsed_text))),
        allocator(std::make_unique<Allocator>(
            std::clamp<std::size_t>(text->size() / 8, kSmallBlock, kLargeBlock))),
        document(rapidjson::kObjectType, allocator.get()) {}
  ParsedJson(ParsedJson&&) noexcept = default;
  ParsedJson& operator=(ParsedJson&& other) noexcept {
    document.Swap(other.document);
    allocator.swap(other.allocator);
    text.swap(other.text);
    return *this;
  }
  static constexpr std::size_t kSmallBlock = std::size_t{64} << 10;
  static constexpr std::size_t kLargeBlock = std::size_t{4} << 20;

  std::unique_ptr<std::string> text;  // does not move with this, as a short string would
  std::unique_ptr<Allocator> allocator;
  JsonDocument document;
};

/// Parses a text into a document. Failure names `source` and the place.
Outcome ParseJson(std::string text, const std::string& source, ParsedJson& out);

/// Where a writer puts its text, and what it is told about the length to expect.
struct TextSink {
  std::function<void(std::string_view)> take;
  std::function<void(std::size_t)> expect;
};

/// Writes a value; two blanks a level when indented.
void WriteJson(const Json& value, bool indented, const TextSink& sink);

}  // namespace qx::dbgateway
