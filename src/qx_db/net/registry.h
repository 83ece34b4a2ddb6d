#pragma once
// Settings by key and name, as one platform keeps them in its registry.
// Threads: any; each question reads the settings anew.

#include <cstdint>
#include <string>
#include <string_view>

#include "qx_db/export.h"

namespace qx {

/// Where settings are read from.
class QXDB_API IRegistry {
 public:
  virtual ~IRegistry();
  /// Reads the text value `name` of a key such as u"Software\\Maker\\Program". False, leaving
  /// `value` as it was, when the key or value is not there, cannot be read, or is longer than
  /// `max_bytes`, two for each unit and for the end.
  virtual bool ReadText(std::u16string_view key, std::u16string_view name, std::size_t max_bytes,
                        std::u16string& value) const = 0;
  /// Reads the number value `name` of a key; false as above, also for what is no number.
  virtual bool ReadNumber(std::u16string_view key, std::u16string_view name,
                          std::uint32_t& value) const = 0;
};

/// The registries of the machine and of the user: the real ones on Windows; elsewhere, for both,
/// the settings file that the environment variable QXDB_REGISTRY names, else qxdb/registry.ini in
/// the user's settings folder.
QXDB_API const IRegistry& PlatformRegistry();
QXDB_API const IRegistry& UserRegistry();

/// A registry in a settings file, read anew for each question. Lines: "[Key\Below\Key]", then
/// "Name = value"; the case of ASCII letters does not count in keys and names. Empty lines and
/// those that begin with # or ; do not count. Files above a megabyte are not read.
class QXDB_API SettingsFileRegistry final : public IRegistry {
 public:
  /// `path` in UTF-8. A file that is not there is an empty registry.
  explicit SettingsFileRegistry(std::string path) : path_(std::move(path)) {}
  bool ReadText(std::u16string_view key, std::u16string_view name, std::size_t max_bytes,
                std::u16string& value) const override;
  bool ReadNumber(std::u16string_view key, std::u16string_view name,
                  std::uint32_t& value) const override;

 private:
  std::string path_;
};

}  // namespace qx
