#pragma once
// What files bring along that the catalogue has no record for: fields of values, the tags of sets,
// the file's own division of the mesh, text that is carried along, and where it all came from.
// Their codes begin at 1000, apart from those of the catalogue.
// Threads: records are values (TStructBase).

#include "qx_db/record/array_elements.h"
#include "qx_db/record/record.h"
#include "qx_db/record/unit_descriptor.h"

namespace qx {

namespace code {
inline constexpr std::uint16_t kField = 1000;
inline constexpr std::uint16_t kSetTag = 1001;
inline constexpr std::uint16_t kBlock = 1002;
inline constexpr std::uint16_t kCarried = 1003;
inline constexpr std::uint16_t kOrigin = 1004;
}  // namespace code

namespace detail {
template <>
struct MemberTraits<char> : ValueTraits {
  static constexpr Row::Number kNumber = Row::Number::kBytes;
};
}  // namespace detail

#pragma pack(push, 4)

/// One number of a field and the node that it belongs to.
struct QXDB_API tagTNodeValue {
  double value = 0;
  TRef<code::kNode> target;

  static const ElementSchema& GetSchema();
};

/// The same of an element.
struct QXDB_API tagTElemValue {
  double value = 0;
  TRef<code::kElem> target;

  static const ElementSchema& GetSchema();
};

/// Where in a carried text a key stands.
struct QXDB_API tagTTextPlace {
  std::int32_t at = 0;  ///< byte at which it begins
  std::int32_t length = 0;

  static const ElementSchema& GetSchema();
};

/// The node whose key stands at a place. It goes when the node goes; the place stays.
struct QXDB_API tagTNodeInText {
  std::int32_t place = 0;  ///< index among the places
  TRef<code::kNode> target;

  static const ElementSchema& GetSchema();
};

/// The same of an element.
struct QXDB_API tagTElemInText {
  std::int32_t place = 0;
  TRef<code::kElem> target;

  static const ElementSchema& GetSchema();
};

/// The same of a coordinate system.
struct QXDB_API tagTCordInText {
  std::int32_t place = 0;
  TRef<code::kCord> target;

  static const ElementSchema& GetSchema();
};

/// Values by node or by element: results, loads, marks. The numbers of one target follow each
/// other: `components` of them, for each node of an element when `place` is kElementNodes; any
/// number, each a value of its own, when `components` is 0. They go when their target goes.
struct QXDB_API tagTField final : TRecord<tagTField, code::kField> {
  /// Values of `place`.
  static constexpr std::int32_t kNodes = 0;         ///< in `node_values`
  static constexpr std::int32_t kElements = 1;      ///< in `element_values`
  static constexpr std::int32_t kElementNodes = 2;  ///< in `element_values`

  Key key = 0;
  TString<64> name;
  std::int32_t place = kNodes;
  std::int32_t components = 1;
  std::int32_t category = unit::kUnknown;  ///< of the numbers; unknown ones are never converted
  std::int32_t integers = 0;               ///< flag: the numbers are whole
  std::int32_t step = 0;
  double time = 0;  ///< or frequency, or load factor: what the file counts steps by
  TArray<tagTNodeValue> node_values;
  TArray<tagTElemValue> element_values;
};

/// How a file knows a mesh set. A set has one for each dimension and format that tags it, and takes
/// them along when it goes.
struct QXDB_API tagTSetTag final : TRecord<tagTSetTag, code::kSetTag> {
  /// Values of `kind`: what the file lists in the set.
  static constexpr std::int32_t kElements = 0;
  static constexpr std::int32_t kNodes = 1;
  static constexpr std::int32_t kSides = 2;

  Key key = 0;
  TString<16> format;     ///< "msh"
  TRef<code::kMset> set;  ///< a tagTMset
  std::int32_t kind = kElements;
  std::int32_t dimension = -1;  ///< -1 where the format has none
  std::int32_t tag = 0;
  std::int32_t named = 1;      ///< flag: the file gives it a name
  TArray<tagTElemSide> sides;  ///< of a set of sides, numbered from 0 as the topology table does
};

/// The file's own division of the mesh: entities of a geometry, blocks, parts.
struct QXDB_API tagTBlock final : TRecord<tagTBlock, code::kBlock> {
  Key key = 0;
  TString<16> format;
  TString<64> name;
  std::int32_t dimension = -1;  ///< -1 where the format has none
  std::int32_t tag = 0;
  std::int32_t parent_dimension = -1;  ///< of the block it is a part of; -1 for none
  std::int32_t parent_tag = 0;
  TRefArray<code::kNode> nodes;
  TRefArray<code::kElem> elements;
  TArray<std::int32_t> boundary;    ///< tags of the blocks around it, negative when reversed
  TArray<std::int32_t> partitions;  ///< that it belongs to
};

/// A piece of a file's text for which the model has no place. It goes back where it came from: to
/// a file of the same format, in `order`. Keys in it follow the records that they name.
struct QXDB_API tagTCarried final : TRecord<tagTCarried, code::kCarried> {
  /// Values of `checked`.
  static constexpr std::int32_t kUnchecked = 0;  ///< it is not known which numbers are keys
  static constexpr std::int32_t kChecked = 1;    ///< every key in it is listed below
  static constexpr std::int32_t kNoKeys = 2;     ///< there are none

  Key key = 0;
  TString<16> format;
  TString<64> keyword;     ///< card, keyword or section
  std::int32_t part = 0;   ///< of the file, as the format numbers them
  std::int32_t order = 0;  ///< ascending within the file
  std::int32_t checked = kUnchecked;
  TRef<code::kBset> owner;       ///< the boundary set that the text says more about; 0 for none
  TArray<char> text;             ///< as in the file
  TArray<tagTTextPlace> places;  ///< of all keys in it, in the order of the text
  TArray<tagTNodeInText> node_keys;
  TArray<tagTElemInText> element_keys;
  TArray<tagTCordInText> system_keys;
};

/// A file that was brought into the model.
struct QXDB_API tagTOrigin final : TRecord<tagTOrigin, code::kOrigin> {
  Key key = 0;
  TString<16> format;
  TString<16> version;                   ///< of the format
  TString<128> file;                     ///< name without folders
  TString<128> title;                    ///< as the file gives it
  std::int32_t units[kUnitBaseCount]{};  ///< that its numbers were read in
  std::int32_t units_assumed = 0;        ///< flag: neither the file nor the user named them
};

#pragma pack(pop)

QX_DECLARE_RECORD(tagTField);
QX_DECLARE_RECORD(tagTSetTag);
QX_DECLARE_RECORD(tagTBlock);
QX_DECLARE_RECORD(tagTCarried);
QX_DECLARE_RECORD(tagTOrigin);

/// Unit categories, group by group: a field's numbers are of the category that it names.
using CQXFieldUnit = TUnitDescriptor<tagTField, 2>;
extern template class TUnitDescriptor<tagTField, 2>;

}  // namespace qx
