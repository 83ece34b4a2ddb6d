#include "qx_db/platform/drive.h"

#include <algorithm>
#include <cstdlib>
#include <map>

#include "qx_db/platform/text.h"

namespace qx {
namespace {

std::map<char, std::string>& Folders() {
  static std::map<char, std::string> folders;
  return folders;
}

char Lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
}

std::string Environment(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  return value ? value : "";
}

}  // namespace

void SetDriveFolder(char letter, std::string folder) {
  if (folder.empty()) {
    Folders().erase(Lower(letter));
  } else {
    Folders()[Lower(letter)] = std::move(folder);
  }
}

std::string DriveFolder(char letter) {
  letter = Lower(letter);
  if (const auto set = Folders().find(letter); set != Folders().end()) return set->second;
  const std::string named = Environment(std::string("QX_DRIVE_") + static_cast<char>(letter - 32));
  if (!named.empty()) return named;
#ifdef _WIN32
  return std::string(1, letter) + ":";
#else
  return Environment("HOME") + "/.qx_db/drive_" + letter;
#endif
}

std::string SystemPath(std::u16string_view path) {
  std::string text = Utf8(path);
  const bool on_drive =
      text.size() >= 2 && text[1] == ':' && Lower(text[0]) >= 'a' && Lower(text[0]) <= 'z';
  if (!on_drive) return text;
  std::replace(text.begin(), text.end(), '\\', '/');
  const std::size_t rest = text.find_first_not_of('/', 2);
  return DriveFolder(text[0]) + "/" + (rest == std::string::npos ? "" : text.substr(rest));
}

}  // namespace qx
