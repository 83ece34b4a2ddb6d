#include "viewer/picture.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "qx_db/platform/file.h"

#include "viewer/html_file.h"
#include "viewer/png_mark.h"

extern char** environ;

namespace qx::viewer {
namespace {

namespace fs = std::filesystem;

/// A folder of this user alone, gone with its contents at the end.
class PrivateFolder {
 public:
  PrivateFolder() {
    std::error_code error;
    std::string name = (fs::temp_directory_path(error) / "qxdb-XXXXXX").string();
    if (mkdtemp(name.data())) path_ = name;
  }
  ~PrivateFolder() {
    std::error_code error;
    if (!path_.empty()) fs::remove_all(path_, error);
  }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  const fs::path& Path() const { return path_; }

 private:
  fs::path path_;
};

/// Runs a program with its output thrown away; its exit code, -1 where it cannot be started.
int Run(const std::string& program, const std::vector<std::string>& arguments) {
  std::vector<std::string> texts{program};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int stream : {0, 1, 2}) {
    posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", stream ? O_WRONLY : O_RDONLY,
                                     0);
  }
  pid_t child = 0;
  const int error =
      posix_spawnp(&child, program.c_str(), &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  if (error != 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status) == 127 ? -1 : WEXITSTATUS(status);
}

std::string SceneText(const PictureOptions& options) {
  Json json;
  json.StartObject();
  const auto list = [&](const char* name, const std::vector<std::string>& texts) {
    json.Name(name).StartArray();
    for (const std::string& text : texts) json.Text(text);
    json.EndArray();
  };
  list("views", options.views);
  list("sets", options.sets);
  json.Text("color", options.color).Text("palette", options.palette);
  if (options.range.size() == 2) {
    json.Name("range").StartArray();
    for (const double bound : options.range) json.Number(bound);
    json.EndArray();
  }
  if (!options.cut_axis.empty()) {
    json.Text("cut_axis", options.cut_axis).Number("cut_at", options.cut_at);
  }
  json.Flag("changes", options.changes).Flag("findings", options.findings);
  json.Flag("edges", !options.no_edges).Flag("dark", options.dark);
  json.Flag("perspective", options.perspective);
  json.Integer("step", options.step).EndObject();
  return json.Result();
}

}  // namespace

Outcome DrawPicture(Source& source, const PictureOptions& options, const std::string& png) {
  HtmlOptions page_options;
  page_options.step_bytes = 0;
  page_options.scene = SceneText(options);
  page_options.step = options.step;
  page_options.with_changes = options.changes;
  if (options.cut_axis.empty() && options.sets.empty()) page_options.most_solids = 0;
  page_options.values = {options.color};
  for (const char* plain : {"none", "set", "property", "material", "kind"}) {
    if (options.color == plain) page_options.values = {"part"};
  }
  HtmlReport report;
  const Result<std::string> page = HtmlPage(source, page_options, report);
  if (!page) return page.Error();
  const PrivateFolder folder;
  if (folder.Path().empty()) {
    return Failure{png, "", "needs a temporary folder, and none can be made",
                   "name one that can be written with TMPDIR"};
  }
  const fs::path html = folder.Path() / "page.html", drawn = folder.Path() / "drawn.png";
  if (Outcome written = WriteWholeFile(html.string(), *page); !written) return written;
  std::vector<std::string> arguments{
      "--headless",
      "--use-angle=swiftshader",
      "--enable-unsafe-swiftshader",
      "--hide-scrollbars",
      "--no-first-run",
      "--disable-background-networking",
      "--force-device-scale-factor=1",
      "--virtual-time-budget=60000",
      "--user-data-dir=" + (folder.Path() / "profile").string(),
      "--window-size=" + std::to_string(options.width) + "," + std::to_string(options.height),
      "--screenshot=" + drawn.string()};
  if (geteuid() == 0) arguments.push_back("--no-sandbox");  // it refuses to run as root otherwise
  arguments.push_back("file://" + html.string());
  std::vector<std::string> browsers{"chromium", "chromium-browser", "google-chrome", "chrome"};
  if (const char* named = std::getenv("QXDB_BROWSER"); named && *named) browsers = {named};
  int code = -1;
  for (const std::string& browser : browsers) {
    code = Run(browser, arguments);
    if (code != -1) break;
  }
  std::error_code error;
  if (code == -1) {
    return Failure{png, "", "takes a browser to draw, and none was found",
                   "install chromium, or name one with QXDB_BROWSER"};
  }
  if (code != 0 || !fs::exists(drawn, error)) {
    return Failure{png, "",
                   "the browser ended without a picture (exit code " + std::to_string(code) + ")",
                   "try qxdb view " + source.Path() + " --html page.html, and open that"};
  }
  const Result<std::string> bytes = ReadWholeFile(drawn.string());
  return bytes ? WriteWholeFile(png, MarkedPng(*bytes)) : bytes.AsOutcome();
}

}  // namespace qx::viewer
