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

template <class T, std::uint16_t Code>
int TRecord<T, Code>::Stream2Data(const char* stream, int length) {
  const Schema& schema = T::GetSchema();
  if (schema.HasArrays()) {
    return ReadImage(schema, stream, *this) == static_cast<std::uint64_t>(length) ? 1 : 0;
  }
  // A fixed record copies what it is told to: a wrong length cannot be detected here.
  std::memcpy(detail::Bytes(*this) + 8, stream, static_cast<std::size_t>(length));
  return 1;
}

template <class T, std::uint16_t Code>
int TRecord<T, Code>::Data2Stream(char* stream, int length) const {
  const Schema& schema = T::GetSchema();
  if (schema.HasArrays()) {
    return WriteImage(schema, *this, stream) == static_cast<std::uint32_t>(length) ? 1 : 0;
  }
  std::memcpy(stream, detail::Bytes(*this) + 8, static_cast<std::size_t>(length));
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
