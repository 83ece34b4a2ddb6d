#pragma once
// Records of one pool as a stream of images, each behind its length, keys for references.
// Threads: reading, any number while none changes the session; filling, the one that drives it.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "qx_db/core/schema_text.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/pool/pool_base.h"
#include "qx_db/record/verbs.h"

namespace qx {

/// The largest image that a file takes: below the largest value of a database.
inline constexpr std::uint64_t kMaxStoredImage = 900'000'000;
static_assert(kMaxStoredImage <= kMaxImageSize);

/// Takes the entries of arrays that name records which no file holds (ReferenceRule::kNotSaved) out
/// of an image; gives the bytes that are left of it.
std::uint64_t DropUnsaved(const Schema& schema, char* image, std::uint64_t size);

/// Whether no two records of a pool share a key: such a stream could not be read. `path` is what
/// the failure names.
QXDB_API Outcome CheckKeys(const DPoolBase& pool, const std::string& path);

/// Appends a record, whose image must not exceed kMaxImageSize; returns the image's bytes.
QXDB_API std::uint32_t AppendImage(const Schema& schema, const TStructBase& record,
                                   std::vector<char>& stream);

/// Inserts the `count` records of a stream into the pool, whatever their lengths claim. "" or what
/// is wrong, with the number of the record.
QXDB_API std::string ReadImages(std::span<const char> stream, std::int64_t count,
                                const ImageReader& reader, DPoolBase& pool);

}  // namespace qx
