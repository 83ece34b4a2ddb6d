#include "qx_db/net/registry.h"

#ifdef _WIN32
#define NOMINMAX
#include <windows.h>
#endif

#include <charconv>
#include <cstdlib>

#include "qx_db/platform/file.h"
#include "qx_db/platform/text.h"

namespace qx {

IRegistry::~IRegistry() = default;

// ---- a settings file ----------------------------------------------------------------------------

namespace {

constexpr std::uintmax_t kLargestSettingsFile = std::uintmax_t{1} << 20;

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// The last value of that name under that key, as a registry keeps one of each.
bool FindValue(std::string_view lines, std::string_view key, std::string_view name,
               std::string_view& value) {
  bool in_key = false;
  bool found = false;
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    const std::string_view line = Trimmed(lines.substr(0, end));
    lines.remove_prefix(std::min(end + 1, lines.size()));
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    if (line.front() == '[' && line.back() == ']') {
      in_key = EqualNoCase(Trimmed(line.substr(1, line.size() - 2)), key);
      continue;
    }
    const std::size_t equals = line.find('=');
    if (!in_key || equals == line.npos) continue;
    if (!EqualNoCase(Trimmed(line.substr(0, equals)), name)) continue;
    value = Trimmed(line.substr(equals + 1));
    found = true;
  }
  return found;
}

bool Fits(std::u16string_view value, std::size_t max_bytes) {
  return (value.size() + 1) * sizeof(char16_t) <= max_bytes;
}

}  // namespace

bool SettingsFileRegistry::ReadText(std::u16string_view key, std::u16string_view name,
                                    std::size_t max_bytes, std::u16string& value) const {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(PathFromUtf8(path_), error);
  if (error || size > kLargestSettingsFile) return false;
  const Result<std::string> lines = ReadWholeFile(path_);
  std::string_view found;
  if (!lines || !IsUtf8(*lines) || !FindValue(*lines, Utf8(key), Utf8(name), found)) return false;
  std::u16string text = Utf16(found);
  if (!Fits(text, max_bytes)) return false;
  value = std::move(text);
  return true;
}

bool SettingsFileRegistry::ReadNumber(std::u16string_view key, std::u16string_view name,
                                      std::uint32_t& value) const {
  constexpr std::size_t kMostBytes = 24;  // ten digits and the end
  std::u16string text;
  if (!ReadText(key, name, kMostBytes, text)) return false;
  const std::string digits = Utf8(text);
  const char* const end = digits.data() + digits.size();
  std::uint32_t number = 0;
  const auto [stop, error] = std::from_chars(digits.data(), end, number);
  if (error != std::errc() || stop != end) return false;
  value = number;
  return true;
}

// ---- the platform's -----------------------------------------------------------------------------

#ifdef _WIN32

namespace {

class WindowsRegistry final : public IRegistry {
 public:
  explicit WindowsRegistry(HKEY root) : root_(root) {}
  bool ReadText(std::u16string_view key, std::u16string_view name, std::size_t max_bytes,
                std::u16string& value) const override {
    const std::wstring wide_key(key.begin(), key.end());
    const std::wstring wide_name(name.begin(), name.end());
    std::wstring buffer(max_bytes / sizeof(wchar_t), L'\0');
    DWORD bytes = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
    const LSTATUS status = RegGetValueW(root_, wide_key.c_str(), wide_name.c_str(), RRF_RT_REG_SZ,
                                        nullptr, buffer.data(), &bytes);
    if (status != ERROR_SUCCESS) return false;
    buffer.resize(bytes / sizeof(wchar_t) - 1);
    value.assign(buffer.begin(), buffer.end());
    return true;
  }
  bool ReadNumber(std::u16string_view key, std::u16string_view name,
                  std::uint32_t& value) const override {
    const std::wstring wide_key(key.begin(), key.end());
    const std::wstring wide_name(name.begin(), name.end());
    DWORD number = 0;
    DWORD bytes = sizeof number;
    const LSTATUS status = RegGetValueW(root_, wide_key.c_str(), wide_name.c_str(),
                                        RRF_RT_REG_DWORD, nullptr, &number, &bytes);
    if (status != ERROR_SUCCESS) return false;
    value = number;
    return true;
  }

 private:
  HKEY root_;
};

}  // namespace

const IRegistry& PlatformRegistry() {
  static const WindowsRegistry registry(HKEY_LOCAL_MACHINE);
  return registry;
}

const IRegistry& UserRegistry() {
  static const WindowsRegistry registry(HKEY_CURRENT_USER);
  return registry;
}

#else

namespace {

std::string SettingsFile() {
  const auto variable = [](const char* name) {
    const char* text = std::getenv(name);
    return std::string(text ? text : "");
  };
  if (const std::string file = variable("QXDB_REGISTRY"); !file.empty()) return file;
  std::string folder = variable("XDG_CONFIG_HOME");
  if (folder.empty()) folder = variable("HOME") + "/.config";
  return folder + "/qxdb/registry.ini";
}

/// Looks the file's place up for each question, since a host may set it after its start.
class SettingsRegistry final : public IRegistry {
 public:
  bool ReadText(std::u16string_view key, std::u16string_view name, std::size_t max_bytes,
                std::u16string& value) const override {
    return SettingsFileRegistry(SettingsFile()).ReadText(key, name, max_bytes, value);
  }
  bool ReadNumber(std::u16string_view key, std::u16string_view name,
                  std::uint32_t& value) const override {
    return SettingsFileRegistry(SettingsFile()).ReadNumber(key, name, value);
  }
};

}  // namespace

const IRegistry& PlatformRegistry() {
  static const SettingsRegistry registry;
  return registry;
}

const IRegistry& UserRegistry() { return PlatformRegistry(); }

#endif

}  // namespace qx
