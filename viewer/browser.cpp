// Opening the user's browser. The address holds the token, and the arguments of a process are for
// everybody to read; so the browser is given a file of the user's own that leads to the address.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "viewer/assets.h"
#include "viewer/server.h"

extern char** environ;

namespace qx::viewer {
namespace {

/// A folder that goes when the program ends.
struct Folder {
  std::string path;
  ~Folder() {
    std::error_code error;
    if (!path.empty()) std::filesystem::remove_all(path, error);
  }
};

}  // namespace

bool OpenBrowser(const std::string& address) {
  if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) return false;
  std::string folder = (std::filesystem::temp_directory_path() / "qxdb-XXXXXX").string();
  if (!mkdtemp(folder.data())) return false;  // for this user alone
  // The browser may read it after this returns.
  static Folder kept;
  kept.path = folder;
  const std::string file = folder + "/view.html";
  std::ofstream(file) << "<!doctype html><meta charset=\"utf-8\"><meta http-equiv=\"refresh\" "
                         "content=\"0;url="
                      << EscapedHtml(address) << "\">\n";
  std::string command = "xdg-open";
  std::string argument = file;
  char* const arguments[] = {command.data(), argument.data(), nullptr};
  pid_t child = 0;
  if (posix_spawnp(&child, "xdg-open", nullptr, nullptr, arguments, environ) != 0) return false;
  int status = 0;
  // It hands over to the browser and ends.
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace qx::viewer
