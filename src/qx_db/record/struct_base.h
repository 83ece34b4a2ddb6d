#pragma once
// The base of every record, and the descriptor of one stored member.

#include <cstdint>

#include "qx_db/platform/text.h"
#include "qx_db/record/types.h"

namespace qx {

class CQXDBSession;
class CQXUnitCtrl;
namespace dbgateway {
class Field;
class Record;
}  // namespace dbgateway

/// How a member is stored.
enum class MemberKind : std::int32_t {
  kValue = 3,           ///< plain bytes
  kValueArray = 4,      ///< array of plain values
  kReferenceArray = 5,  ///< array of references
  kReference = 7,       ///< one reference
};

/// Descriptor of one stored member. A schema is an array of these with an all-zero one at its end.
struct IO_VAR {
  char16_t name[20];             ///< "_KEY", "_POSITION"; zero-padded
  std::int32_t kind;             ///< a MemberKind; 0 in the terminator
  std::int32_t offset;           ///< from the start of the record; the vptr is at 0, the key at 8
  std::int32_t size;             ///< bytes in the record; 16 for an array member
  std::uint64_t element_size;    ///< bytes of one element of an array member, else 0
  const IO_VAR* element_schema;  ///< members of a structured element, offsets from its start
  std::int64_t reserved;         ///< 0
};

#pragma pack(push, 4)

/// Base of every record. The order of the virtual operations is part of the binary interface.
///
/// Packed to 4 bytes like everything derived from it: a packed record on an unpacked base would
/// be misaligned, and so undefined, at every odd item address.
/// Threads: a record is a value: any number may read it while none changes it.
class QXDB_API TStructBase {
 public:
  virtual ~TStructBase() = default;
  virtual std::uint16_t GetType() const = 0;
  /// Display name; empty for a record without one.
  virtual CString GetName() const { return {}; }
  /// Replaces each reference by the iterator that its key has in the target pool; a key that is
  /// not found becomes 0. Returns 1.
  virtual int KeyToIterator(CQXDBSession*) { return 1; }
  /// Replaces each reference by the key of its target. Returns 0, leaving the rest as it is, at a
  /// null entry of a reference array; else 1.
  virtual int IteratorToKey(CQXDBSession*) { return 1; }
  /// Members with a unit: from current to model units, back, and from previous to current ones.
  virtual void ConvertUnitIn(const CQXUnitCtrl*) {}
  virtual void ConvertUnitOut(const CQXUnitCtrl*) {}
  virtual void ConvertUnitPrev(const CQXUnitCtrl*) {}
  /// Bytes of the record's image, plus 8.
  virtual std::uint32_t GetSizePlusVfptr() const = 0;
  /// Fills the record from an image that is trusted to be one. Returns 1; for a record with
  /// arrays 0 when the image's own size is not `length`. Check images from outside first.
  virtual int Stream2Data(const char* stream, int length) = 0;
  /// Writes the image; `stream` has room for GetSizePlusVfptr() - 8 bytes. Returns as above.
  virtual int Data2Stream(char* stream, int length) const = 0;
  /// Resets every member to its default.
  virtual void Init() = 0;
  /// Gateway exchange; true in every case, also for a detached gateway record.
  virtual bool api_convert_db_to_record(CQXDBSession*, dbgateway::Record*, int) const = 0;
  virtual bool api_convert_record_to_db(CQXDBSession*, dbgateway::Record*) = 0;
  virtual bool api_description(dbgateway::Field*) const = 0;

  /// The record's key: the first stored member of every record.
  Key GetKey() const { return LoadAt<Key>(reinterpret_cast<const char*>(this) + 8); }

 protected:
  TStructBase() = default;
  TStructBase(const TStructBase&) = default;
  TStructBase& operator=(const TStructBase&) = default;
};

#pragma pack(pop)

static_assert(sizeof(TStructBase) == 8 && alignof(TStructBase) == 4);

}  // namespace qx
