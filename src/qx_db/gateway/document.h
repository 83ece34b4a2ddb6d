#pragma once
// The gateway document: named tables of records of named fields, held as JSON.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qx_db/platform/outcome.h"
#include "qx_db/record/types.h"

namespace qx::dbgateway {

/// A JSON value and the allocator of its document, without the types of the JSON library.
struct JsonValue;
struct JsonAllocator;

class DataBase;

/// Error codes of the gateway and their texts.
struct GatewayError {
  int code;
  const char* text;
};
inline constexpr GatewayError kGatewayErrors[] = {
    {0, "No error"},
    {1, "Can not find error"},
    {100, "Add instance error"},
    {1000, "Client internal error"},
    {10000, "At least 1 decimal"},
};
/// The text of a code; that of code 1 for an unknown one.
QXDB_API const char* GatewayErrorText(int code);

/// Statement fragments for a storage behind the gateway. The pool exchange issues none.
inline constexpr const char* kInsertInto = "INSERT INTO ";
inline constexpr const char* kCreateTable = "CREATE TABLE IF NOT EXISTS ";
inline constexpr const char* kSelectAllFrom = "SELECT * FROM ";
inline constexpr const char* kSelect = "SELECT";
inline constexpr const char* kFrom = "FROM";
inline constexpr const char* kBlank = " ";
inline constexpr const char* kComma = ",";
inline constexpr const char* kCloseStatement = ");";

/// A field name taken apart: "SEED[3]" is member SEED, element 3; digits in angle brackets are
/// parsed and carried along.
struct QXDB_API FieldName {
  std::string member;
  std::optional<std::uint32_t> index;
  std::optional<std::uint32_t> angle;
  static FieldName Parse(std::string_view text);
};

/// A field: a name and a reference to its value. An empty field has no value and reads as zero.
class QXDB_API Field {
 public:
  Field() = default;
  Field(std::string name, JsonValue* value, JsonAllocator* allocator)
      : name_(std::move(name)), value_(value), allocator_(allocator) {}

  const std::string& Name() const { return name_; }
  explicit operator bool() const { return value_ != nullptr; }

  /// "Null", "String", "Integer", "Real", "Object", "Array" or "Bool"; "Unknown" otherwise.
  const char* TypeName() const;
  bool IsNumber() const;
  bool IsInteger() const;
  bool IsBool() const;
  bool IsText() const;
  bool IsArray() const;
  bool IsObject() const;

  /// A 32- or 64-bit number narrowed to 32 bits; a real truncated towards zero; 0 for the rest.
  std::int32_t Integer() const;
  /// The same without narrowing, bounded to what 64 bits hold.
  std::int64_t Integer64() const;
  /// The value of a number, 1 or 0 of a Boolean, 0 for the rest.
  double Real() const;
  /// The text of a string, "" for the rest. Valid while the document is.
  std::string_view Text() const;
  /// Number of elements of an array or members of an object, 0 for the rest.
  std::size_t Size() const;
  /// Element of an array; empty when out of range or not an array.
  Field At(std::size_t index) const;
  /// Member of an object, the last of that name; empty when there is none.
  Field Member(std::string_view name) const;

  /// In a description: adds a member `name` that holds the label and the type's name.
  void Describe(const char* name, const std::string& label, const char* type);

  JsonValue* Value() const { return value_; }
  JsonAllocator* Memory() const { return allocator_; }

 private:
  std::string name_;
  JsonValue* value_ = nullptr;
  JsonAllocator* allocator_ = nullptr;
};

/// What a read found worth telling: which table, key and field, and what about it.
struct QXDB_API ReportEntry {
  std::string table;
  Key key = 0;
  std::string field;
  std::string what;
  std::string Line() const;
};

/// One record: an object of fields. A detached record, the default, belongs to no document: every
/// conversion into or out of it succeeds and does nothing.
class QXDB_API Record {
 public:
  Record() = default;
  Record(JsonValue* value, JsonAllocator* allocator, DataBase* document = nullptr,
         std::string_view table = {}, Key key = 0)
      : value_(value), allocator_(allocator), document_(document), table_(table), key_(key) {}

  bool IsDetached() const { return !value_ || !allocator_; }
  /// Whether it is an object of fields at all.
  bool IsObject() const;
  /// Names of the fields, in order; repeated names stand as often as they are there.
  std::vector<std::string_view> FieldNames() const;
  std::size_t FieldCount() const;
  /// The field of that name, resolving an index part; empty when there is none.
  Field Find(std::string_view name) const;

  /// Set a field, replacing one of that name.
  void SetInteger(const char* name, std::int64_t value);
  void SetReal(const char* name, double value);
  void SetBool(const char* name, bool value);
  void SetText(const char* name, std::string_view value);
  void SetReals(const char* name, const std::vector<double>& values);
  /// The field of that name, made if there is none, for the caller to fill; empty for a detached
  /// record.
  Field Set(const char* name);

  /// Puts an entry about this record into the document's report.
  void Tell(const char* field, std::string what) const;

 private:
  JsonValue* value_ = nullptr;
  JsonAllocator* allocator_ = nullptr;
  DataBase* document_ = nullptr;
  std::string_view table_;
  Key key_ = 0;
};

/// One table: an object whose member names are keys in decimal, or an array whose indices are.
class QXDB_API Collection {
 public:
  Collection(std::string name, JsonValue& value, JsonAllocator& allocator, DataBase& document)
      : name_(std::move(name)), value_(&value), allocator_(&allocator), document_(&document) {}

  const std::string& Name() const { return name_; }
  /// Number of entries; 0 for a value that is no table.
  std::size_t Size() const;
  bool IsTable() const;
  /// Calls `visit(key, entry name, record)` in order. The key is 0 for a name that is not a
  /// decimal number of at most 2147483647.
  void ForEach(const std::function<void(Key, std::string_view, Record)>& visit) const;
  /// The same for a table of plain values, such as a list of keys.
  void ForEachValue(const std::function<void(Field)>& visit) const;
  /// Appends an empty record under a key. Requires an object table without that key.
  Record Add(Key key);

 private:
  std::string name_;
  JsonValue* value_;
  JsonAllocator* allocator_;
  DataBase* document_;
};

/// The document. Its root is an object whose members are the tables.
/// Threads: a document shares nothing; one thread at a time.
class QXDB_API DataBase {
 public:
  DataBase();
  ~DataBase();
  DataBase(DataBase&&) noexcept;
  DataBase& operator=(DataBase&&) noexcept;

  /// Replaces the content by a JSON text: UTF-8, at most kMaxDepth levels deep, numbers that a
  /// double or a 64-bit integer can hold. It is parsed in place; move it in to spare a copy. On
  /// failure the document is as it was; the failure names `source` and line and column.
  Outcome Parse(std::string text, const std::string& source = "JSON text");
  Outcome ReadFile(const std::string& path);
  /// The content as JSON; numbers in the shortest form that reads back bit for bit.
  std::string ToText(bool indented = false) const;
  /// The same, handed to `take` piece by piece, so that the whole never lies in memory.
  void WriteTo(const std::function<void(std::string_view)>& take, bool indented = false) const;
  Outcome WriteFile(const std::string& path, bool indented = false) const;
  static constexpr int kMaxDepth = 512;

  /// Adds an empty table, replacing one of that name.
  Collection AddCollection(const std::string& name);
  /// The last table of that name; none when it is missing.
  std::optional<Collection> FindCollection(std::string_view name);
  std::vector<std::string> CollectionNames() const;
  /// A fresh object outside every table, for a description.
  Field NewDescription(const std::string& name);
  /// Puts a description made by NewDescription under the root.
  void AddDescription(const Field& description);

  /// What reads from this document found worth telling.
  const std::vector<ReportEntry>& Report() const { return report_; }
  void Tell(ReportEntry entry) { report_.push_back(std::move(entry)); }
  void ClearReport() { report_.clear(); }
  /// A strict document makes ReadAPI refuse and roll back where it would otherwise report.
  void SetStrict(bool strict) { strict_ = strict; }
  bool IsStrict() const { return strict_; }

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  std::vector<ReportEntry> report_;
  bool strict_ = false;
};

}  // namespace qx::dbgateway
