#pragma once
// Definitions of the operations of TRecord, for the .cpp files of the catalogue only.

#include <cstring>

#include "qx_db/record/record.h"

namespace qx {

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
  KeysToIterators(T::GetSchema(), *this, *session, ReferenceScope::kOwn);
  return 1;
}

template <class T, std::uint16_t Code>
int TRecord<T, Code>::IteratorToKey(CQXDBSession*) {
  return IteratorsToKeys(T::GetSchema(), *this) ? 1 : 0;
}

template <class T, std::uint16_t Code>
void TRecord<T, Code>::ConvertUnitIn(const CQXUnitCtrl* units) {
  ConvertUnits(T::GetSchema(), *this, *units, UnitDirection::kIn);
}

template <class T, std::uint16_t Code>
void TRecord<T, Code>::ConvertUnitOut(const CQXUnitCtrl* units) {
  ConvertUnits(T::GetSchema(), *this, *units, UnitDirection::kOut);
}

template <class T, std::uint16_t Code>
void TRecord<T, Code>::ConvertUnitPrev(const CQXUnitCtrl* units) {
  ConvertUnits(T::GetSchema(), *this, *units, UnitDirection::kPreviousIn);
  this->ConvertUnitOut(units);
}

template <class T, std::uint16_t Code>
std::uint32_t TRecord<T, Code>::GetSizePlusVfptr() const {
  return ImageSize(T::GetSchema(), *this) + 8;
}

/// Whether images vary in length; asked for every image, so at the cost of a load.
template <class T, std::uint16_t Code>
bool TRecord<T, Code>::HasArrays() {
  static const bool has_arrays = T::GetSchema().HasArrays();
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
    return ReadImage(T::GetSchema(), stream, *this) == static_cast<std::uint64_t>(length) ? 1 : 0;
  }
  // A fixed record copies what it is told to: a wrong length cannot be detected here.
  CopyFixed(detail::Bytes(*this) + 8, stream, length);
  return 1;
}

template <class T, std::uint16_t Code>
int TRecord<T, Code>::Data2Stream(char* stream, int length) const {
  if (HasArrays()) {
    return WriteImage(T::GetSchema(), *this, stream) == static_cast<std::uint32_t>(length) ? 1 : 0;
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
  return !to || GatewayWrite(T::GetSchema(), *this, *to);
}

template <class T, std::uint16_t Code>
bool TRecord<T, Code>::api_convert_record_to_db(CQXDBSession* session, dbgateway::Record* from) {
  return !from || GatewayRead(T::GetSchema(), session, *from, *this);
}

template <class T, std::uint16_t Code>
bool TRecord<T, Code>::api_description(dbgateway::Field* to) const {
  return !to || GatewayDescribe(T::GetSchema(), *to);
}

}  // namespace qx
