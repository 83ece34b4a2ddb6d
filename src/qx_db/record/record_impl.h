#pragma once
// Definitions of the operations of TRecord, for the .cpp files of the catalogue only.
// Threads: any.

#include <algorithm>
#include <cstring>

#include "qx_db/record/record.h"
#include "qx_db/record/unit_descriptor.h"

namespace qx {

namespace detail {

/// The name of a record type and the function that declares its members; see QX_RECORD.
template <class T>
struct Declaration;

}  // namespace detail

template <class T, std::uint16_t Code>
const Schema& TRecord<T, Code>::GetSchema() {
  static const Schema schema(detail::Declaration<T>::kName, Code, sizeof(T), Member(&T::key),
                             detail::Declaration<T>::Declare);
  return schema;
}

template <class T, std::uint16_t Code>
const T& TRecord<T, Code>::GTCD() {
  static const T instance;
  return instance;
}

template <class T, std::uint16_t Code>
CString TRecord<T, Code>::GetName() const {
  if constexpr (requires(const T& t) { t.name.Text(); }) {
    return Self().name.Text();
  } else {
    return {};
  }
}

template <class T, std::uint16_t Code>
int TRecord<T, Code>::KeyToIterator(CQXDBSession* session) {
  KeysToIterators(GetSchema(), *this, *session, ReferenceScope::kOwn);
  return 1;
}

template <class T, std::uint16_t Code>
int TRecord<T, Code>::IteratorToKey(CQXDBSession*) {
  return IteratorsToKeys(GetSchema(), *this) ? 1 : 0;
}

template <class T, std::uint16_t Code>
void TRecord<T, Code>::ConvertUnitIn(const CQXUnitCtrl* units) {
  ConvertUnits(GetSchema(), *this, *units, UnitDirection::kIn);
}

template <class T, std::uint16_t Code>
void TRecord<T, Code>::ConvertUnitOut(const CQXUnitCtrl* units) {
  ConvertUnits(GetSchema(), *this, *units, UnitDirection::kOut);
}

template <class T, std::uint16_t Code>
void TRecord<T, Code>::ConvertUnitPrev(const CQXUnitCtrl* units) {
  ConvertUnits(GetSchema(), *this, *units, UnitDirection::kPreviousIn);
  this->ConvertUnitOut(units);
}

template <class T, std::uint16_t Code>
std::uint32_t TRecord<T, Code>::GetSizePlusVfptr() const {
  // More than 32 bits can tell is more than any image has; see kMaxImageSize.
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(ImageSize(GetSchema(), *this) + 8, 0xFFFFFFFF));
}

/// Whether images vary in length; asked for every image, so at the cost of a load.
template <class T, std::uint16_t Code>
bool TRecord<T, Code>::HasArrays() {
  static const bool has_arrays = GetSchema().HasArrays();
  return has_arrays;
}

/// Copies an image without arrays; the right length is known to the compiler.
template <class T, std::uint16_t Code>
void TRecord<T, Code>::CopyFixed(char* to, const char* from, int length) {
  if (length == static_cast<int>(sizeof(T)) - 8) {
    std::memcpy(to, from, sizeof(T) - 8);
  } else {
    std::memcpy(to, from, static_cast<std::size_t>(length));
  }
}

template <class T, std::uint16_t Code>
int TRecord<T, Code>::Stream2Data(const char* stream, int length) {
  if (HasArrays()) {
    return ReadImage(GetSchema(), stream, *this) == static_cast<std::uint64_t>(length) ? 1 : 0;
  }
  // A fixed record copies what it is told to: a wrong length cannot be detected here.
  CopyFixed(detail::Bytes(*this) + 8, stream, length);
  return 1;
}

template <class T, std::uint16_t Code>
int TRecord<T, Code>::Data2Stream(char* stream, int length) const {
  if (HasArrays()) {
    if (ImageSize(GetSchema(), *this) > kMaxImageSize) return 0;  // no buffer has room for it
    return WriteImage(GetSchema(), *this, stream) == static_cast<std::uint64_t>(length) ? 1 : 0;
  }
  CopyFixed(stream, detail::Bytes(*this) + 8, length);
  return 1;
}

template <class T, std::uint16_t Code>
void TRecord<T, Code>::Init() {
  // A fresh record rather than GTCD: some defaults depend on the edition at this moment.
  static_cast<T&>(*this) = T();
}

template <class T, std::uint16_t Code>
bool TRecord<T, Code>::api_convert_db_to_record(CQXDBSession*, dbgateway::Record* to, int) const {
  return !to || GatewayWrite(GetSchema(), *this, *to);
}

template <class T, std::uint16_t Code>
bool TRecord<T, Code>::api_convert_record_to_db(CQXDBSession* session, dbgateway::Record* from) {
  return !from || GatewayRead(GetSchema(), session, *from, *this);
}

template <class T, std::uint16_t Code>
bool TRecord<T, Code>::api_description(dbgateway::Field* to) const {
  return !to || GatewayDescribe(GetSchema(), *to);
}

template <class T, int Groups>
TUnitDescriptor<T, Groups>::TUnitDescriptor() {
  for (const Row* row : T::GetSchema().UnitRows()) {
    codes_.at(static_cast<std::size_t>(row->unit.group)) = row->unit.category;
  }
}

template <class T, int Groups>
const TUnitDescriptor<T, Groups>& TUnitDescriptor<T, Groups>::Instance() {
  static const TUnitDescriptor instance;
  return instance;
}

}  // namespace qx

/// In the .cpp of a record: compiles its operations, and heads the function that declares what its
/// members are, all but the key.
///
///   QX_RECORD(tagTNode) {
///     rows.Add(u"_POSITION", &tagTNode::position).In(unit::kLength);
///     rows.Add(u"_FLAGS", &tagTNode::flags);
///     fields.Add("POS", &tagTNode::position, "X, Y, Z");
///   }
#define QX_RECORD(T)                                                   \
  template <>                                                          \
  struct detail::Declaration<T> {                                      \
    static constexpr const char* kName = #T;                           \
    static void Declare(RowList& rows, FieldList& fields);             \
  };                                                                   \
  template class TRecord<T, T::kType>;                                 \
  void detail::Declaration<T>::Declare([[maybe_unused]] RowList& rows, \
                                       [[maybe_unused]] FieldList& fields)
