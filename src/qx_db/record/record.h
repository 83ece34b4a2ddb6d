#pragma once
// What a record type inherits: every virtual operation of the base, each one call of a verb.
// Threads: records are values (TStructBase); what is static here, any.

#include "qx_db/record/verbs.h"

namespace qx {

#pragma pack(push, 4)

/// Base of record type `T` with type code `Code`. `T` declares its members with their defaults, the
/// key first, as `Key key`; its .cpp says what the members are, with QX_RECORD(T).
template <class T, std::uint16_t Code>
class QXDB_API TRecord : public TStructBase {
 public:
  static constexpr std::uint16_t kType = Code;

  /// The type's default instance, as Init leaves a record. Thread-safe; never modified.
  static const T& GTCD();
  /// The type's schema. Thread-safe; always the same.
  static const Schema& GetSchema();
  /// The type's member descriptors, ended by an all-zero one. Thread-safe; always the same.
  static const IO_VAR* GetVarIOInfo() { return GetSchema().IoVars(); }

  std::uint16_t GetType() const override { return Code; }
  CString GetName() const override;
  int KeyToIterator(CQXDBSession* session) override;
  int IteratorToKey(CQXDBSession* session) override;
  void ConvertUnitIn(const CQXUnitCtrl* units) override;
  void ConvertUnitOut(const CQXUnitCtrl* units) override;
  void ConvertUnitPrev(const CQXUnitCtrl* units) override;
  std::uint32_t GetSizePlusVfptr() const override;
  int Stream2Data(const char* stream, int length) override;
  int Data2Stream(char* stream, int length) const override;
  void Init() override;
  bool api_convert_db_to_record(CQXDBSession*, dbgateway::Record* to, int) const override;
  bool api_convert_record_to_db(CQXDBSession* session, dbgateway::Record* from) override;
  bool api_description(dbgateway::Field* to) const override;

 protected:
  TRecord() = default;

 private:
  const T& Self() const { return static_cast<const T&>(*this); }
  static bool HasArrays();
  static void CopyFixed(char* to, const char* from, int length);
};

#pragma pack(pop)

}  // namespace qx

/// In the header, after the struct: its operations are compiled once, in its .cpp.
#define QX_DECLARE_RECORD(T) extern template class TRecord<T, T::kType>
