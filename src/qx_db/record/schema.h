#pragma once
// The schema of a record type: its rows with what the verbs derive from them (verbs.h).

#include <string>
#include <string_view>
#include <vector>

#include "qx_db/record/gateway_field.h"
#include "qx_db/record/row.h"

namespace qx {

/// The members of a structure that an array is made of, without a key. Built once and kept for the
/// life of the process.
///
/// Invariants: (1) the rows tile the structure; (2) they are numbers, texts and references, at
/// most one of these; (3) each field names a member.
class QXDB_API ElementSchema {
 public:
  ElementSchema(const char* name, std::int32_t size, RowList rows, FieldList fields = {});
  ElementSchema(const ElementSchema&) = delete;
  ElementSchema& operator=(const ElementSchema&) = delete;

  const char* Name() const { return name_; }
  std::span<const Row> Rows() const { return rows_; }
  std::span<const GatewayElementField> Fields() const { return fields_; }
  const IO_VAR* IoVars() const { return io_vars_.data(); }
  bool HasTexts() const;
  /// First broken invariant as a text, "" when all hold.
  const std::string& Validate() const { return fault_; }

 private:
  std::string FirstFault(std::int32_t size) const;

  const char* name_;
  std::vector<Row> rows_;
  std::vector<GatewayElementField> fields_;
  std::vector<IO_VAR> io_vars_;
  std::string fault_;
};

/// The rows of one record type with what the verbs derive from them. Built once per type and kept
/// for the life of the process. It checks itself when it is made: one with a fault says so, has
/// neither rows nor fields, and no session takes a pool of it.
///
/// Invariants: (1) the first row is the key, "_KEY", at byte 8; (2) the rows stand in member order
/// and tile the record from byte 8 to its end without gap or overlap; (3) each is named, by at
/// most 19 characters that no other has, and of the size of its kind; (4) what a row says fits its
/// member: units are of doubles, removal rules of references, and so on; (5) each gateway field
/// carries whole members, of one kind, under a name of its own.
/// Threads: never changes once made; any number may read it.
class QXDB_API Schema {
 public:
  /// A stretch of the record that images copy as it is, or one array member.
  struct Segment {
    std::int32_t offset;
    std::int32_t size;  ///< bytes in the record
    const Row* array;   ///< null for plain bytes
  };

  /// The schema of a record type that declares all members but its key.
  Schema(const char* record_name, std::uint16_t type, std::int32_t record_size, const Member& key,
         void (*declare)(RowList& rows, FieldList& fields));
  /// The schema of rows that are known already, without gateway fields.
  Schema(const char* record_name, std::uint16_t type, std::int32_t record_size,
         std::vector<Row> rows);
  Schema(const Schema&) = delete;
  Schema& operator=(const Schema&) = delete;

  const char* Name() const { return name_; }  ///< "tagTNode"
  std::uint16_t Type() const { return type_; }
  std::int32_t RecordSize() const { return record_size_; }
  /// Bytes of an image whose arrays are empty; of every image when there are no arrays.
  std::int32_t FixedImageSize() const { return record_size_ - 8; }
  bool HasArrays() const { return has_arrays_; }
  bool HasTexts() const { return has_texts_; }
  std::span<const Row> Rows() const { return rows_; }
  std::span<const Row* const> References() const { return references_; }
  std::span<const Row* const> UnitRows() const { return unit_rows_; }
  std::span<const Segment> Segments() const { return segments_; }
  std::span<const GatewayField> Gateway() const { return gateway_; }
  /// The (first) member of each gateway field, in the order of Gateway().
  std::span<const Row* const> GatewayRows() const { return gateway_rows_; }
  const IO_VAR* IoVars() const { return io_vars_.data(); }
  /// The row of that name, or null.
  const Row* Find(std::u16string_view name) const;
  /// The row at that offset in the record, or null.
  const Row* At(std::int32_t offset) const;
  /// First broken invariant as a text, "" when all hold.
  const std::string& Validate() const { return fault_; }

 private:
  void TakeAll(std::vector<GatewayField> fields);
  void TakeRows();
  std::string TakeFields(std::vector<GatewayField> fields);
  std::string RowFault(const Row& row) const;
  std::string FirstFault() const;
  std::string FieldFault(const GatewayField& field, const Row* first) const;

  const char* name_;
  std::uint16_t type_;
  std::int32_t record_size_;
  bool has_arrays_ = false;
  bool has_texts_ = false;
  std::vector<Row> rows_;
  std::vector<const Row*> references_;
  std::vector<const Row*> unit_rows_;
  std::vector<Segment> segments_;
  std::vector<IO_VAR> io_vars_;
  std::vector<GatewayField> gateway_;
  std::vector<const Row*> gateway_rows_;
  std::string fault_;
};

}  // namespace qx
