// The DevTools protocol of Chromium over a pipe: JSON messages, each ended by a zero byte; to the
// browser on its descriptor 3, from it on its descriptor 4.

#include "viewer/headless.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "viewer/base64.h"

extern char** environ;

namespace qx::viewer {
namespace {

namespace fs = std::filesystem;

/// A text member of an object; empty where there is none.
std::string TextOf(const rapidjson::Value& object, const char* name) {
  const auto member = object.FindMember(name);
  if (member == object.MemberEnd() || !member->value.IsString()) return {};
  return {member->value.GetString(), member->value.GetStringLength()};
}

/// What went wrong in a script, without the places in it; `details` as the protocol tells it.
std::string ScriptFault(const rapidjson::Value& details) {
  const auto thrown = details.FindMember("exception");
  std::string text;
  if (thrown != details.MemberEnd()) {
    text = TextOf(thrown->value, "description");
    if (text.empty()) text = TextOf(thrown->value, "value");  // what is thrown need be no error
  }
  if (text.empty()) text = TextOf(details, "text");
  text.resize(std::min(text.find('\n'), text.size()));
  return text;
}

/// What a script told the console as an error; empty for all else.
std::string ConsoleFault(const rapidjson::Value& call) {
  if (TextOf(call, "type") != "error") return {};
  std::string text;
  const auto arguments = call.FindMember("args");
  if (arguments == call.MemberEnd() || !arguments->value.IsArray())
    return "an error without a text";
  for (const rapidjson::Value& argument : arguments->value.GetArray()) {
    std::string part = TextOf(argument, "value");
    if (part.empty()) part = TextOf(argument, "description");
    text += (text.empty() ? "" : " ") + part;
  }
  text.resize(std::min(text.find('\n'), text.size()));
  return text.empty() ? "an error without a text" : text;
}

/// How long an answer may take: large models are drawn by the processor.
constexpr std::chrono::minutes kPatience{5};

/// The path of a program, found as a shell would; empty where there is none.
std::string PathOf(const std::string& program) {
  const auto can_run = [](const std::string& path) { return access(path.c_str(), X_OK) == 0; };
  if (program.find('/') != std::string::npos) return can_run(program) ? program : std::string();
  const char* list = std::getenv("PATH");
  std::istringstream folders(list ? list : "");
  for (std::string folder; std::getline(folders, folder, ':');) {
    std::string path = (fs::path(folder) / program).string();
    if (can_run(path)) return path;
  }
  return {};
}

/// Starts a program with both ends of its pipe at `socket` and its output thrown away; -1 where it
/// cannot be started. A shell waits for its end and then removes `folder`: the program ends with
/// its pipe, and so with this process, however that ends.
int Spawn(const std::string& program, const std::vector<std::string>& arguments,
          const std::string& folder, int socket) {
  std::vector<std::string> texts{"sh",   "-c",   "folder=$1; shift; \"$@\"; rm -rf -- \"$folder\"",
                                 "qxdb", folder, program};
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
  for (const int stream : {3, 4}) posix_spawn_file_actions_adddup2(&actions, socket, stream);
  // A group of its own, so that its helpers end with it.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  pid_t child = 0;
  const int error = posix_spawn(&child, "/bin/sh", &actions, &attributes, pointers.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? child : -1;
}

}  // namespace

/// A folder of this user alone, gone with its contents at the end.
class HeadlessBrowser::Folder {
 public:
  Folder() {
    std::error_code error;
    std::string name = (fs::temp_directory_path(error) / "qxdb-XXXXXX").string();
    if (mkdtemp(name.data())) path_ = name;
  }
  ~Folder() {
    std::error_code error;
    if (!path_.empty()) fs::remove_all(path_, error);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

HeadlessBrowser::HeadlessBrowser() : folder_(std::make_unique<Folder>()) {}

Result<std::unique_ptr<HeadlessBrowser>> HeadlessBrowser::Start() {
  std::unique_ptr<HeadlessBrowser> browser(new HeadlessBrowser);
  if (browser->folder_->Path().empty()) {
    return Failure{"", "", "the browser needs a temporary folder, and none can be made",
                   "name one that can be written with TMPDIR"};
  }
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    return Failure{"", "", "no pipe to a browser can be made", "close some files"};
  }
  // Away from the descriptors that the browser's end is put on.
  const int theirs = fcntl(ends[1], F_DUPFD_CLOEXEC, 10);
  close(ends[1]);
  browser->socket_ = ends[0];
  std::vector<std::string> arguments{
      "--headless",
      "--remote-debugging-pipe",
      "--no-first-run",
      "--use-angle=swiftshader",
      "--enable-unsafe-swiftshader",
      "--hide-scrollbars",
      "--disable-background-networking",
      "--disable-extensions",
      "--force-device-scale-factor=1",
      "--user-data-dir=" + browser->folder_->Path(),
  };
  if (geteuid() == 0) arguments.push_back("--no-sandbox");  // it refuses to run as root otherwise
  std::vector<std::string> programs{"chromium-headless-shell", "chromium", "chromium-browser",
                                    "google-chrome", "chrome"};
  if (const char* named = std::getenv("QXDB_BROWSER"); named && *named) programs = {named};
  for (const std::string& program : programs) {
    const std::string path = PathOf(program);
    if (path.empty()) continue;
    browser->process_ = Spawn(path, arguments, browser->folder_->Path(), theirs);
    browser->program_ = program;
    if (browser->process_ > 0) break;
  }
  close(theirs);
  if (browser->process_ > 0) return browser;
  return Failure{"", "", "takes a browser to draw, and none was found",
                 "install chromium-headless-shell or chromium, or name one with QXDB_BROWSER"};
}

HeadlessBrowser::~HeadlessBrowser() {
  Stop();
  if (process_ > 0) waitpid(process_, nullptr, 0);
  if (socket_ >= 0) close(socket_);
}

void HeadlessBrowser::Stop() {
  if (process_ > 0) kill(-process_, SIGKILL);
  if (socket_ >= 0) shutdown(socket_, SHUT_RDWR);
}

Failure HeadlessBrowser::Lost(const std::string& what) const {
  return {
      "", program_, what,
      "try it by hand, or another one with QXDB_BROWSER; qxdb view --html writes a page to open"};
}

Outcome HeadlessBrowser::Send(std::string_view method, std::string_view parameters) {
  Json json;
  json.StartObject();
  json.Integer("id", ++last_).Text("method", method);
  if (!session_.empty()) json.Text("sessionId", session_);
  json.Name("params").RawValue(parameters.data(), parameters.size(), rapidjson::kObjectType);
  json.EndObject();
  const std::string message = json.Result();
  // With the zero byte that ends it.
  for (std::size_t sent = 0; sent < message.size() + 1;) {
    const ssize_t count =
        send(socket_, message.c_str() + sent, message.size() + 1 - sent, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return Lost("the browser has ended");
    sent += static_cast<std::size_t>(count);
  }
  return {};
}

Result<rapidjson::Document> HeadlessBrowser::Receive() {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  std::size_t searched = 0;
  for (;;) {
    const std::size_t zero = received_.find('\0', searched);
    if (zero != std::string::npos) {
      rapidjson::Document message;
      message.Parse<rapidjson::kParseIterativeFlag>(received_.data(), zero);
      received_.erase(0, zero + 1);
      if (!message.IsObject()) return Lost("the browser sent what is no message");
      return message;
    }
    searched = received_.size();
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    pollfd waiting{socket_, POLLIN, 0};
    if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) == 0) {
      return Lost("the browser gave no answer in " + std::to_string(kPatience.count()) +
                  " minutes");
    }
    std::array<char, 65536> piece;
    const ssize_t count = recv(socket_, piece.data(), piece.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return Lost("the browser has ended");
    received_.append(piece.data(), static_cast<std::size_t>(count));
  }
}

Outcome HeadlessBrowser::AnswerAll(const Answer& answer) {
  for (const std::string& question : std::exchange(asked_, {})) {
    const auto text = answer(question);
    if (!text) return text.AsOutcome();
    Json script;
    script.StartObject();
    script.Text("expression", *text).EndObject();
    if (Outcome given = Send("Runtime.evaluate", script.Result()); !given) return given;
  }
  return {};
}

Result<rapidjson::Document> HeadlessBrowser::Call(std::string_view method,
                                                  std::string_view parameters,
                                                  const Answer& answer) {
  if (Outcome sent = Send(method, parameters); !sent) return sent.Error();
  const std::int64_t own = last_;
  for (;;) {
    if (answer) {
      if (Outcome answered = AnswerAll(answer); !answered) return answered.Error();
    }
    auto received = Receive();
    if (!received) return received;
    const rapidjson::Document& message = *received;
    if (Outcome sound = CheckScripts(message); !sound) return sound.Error();
    if (TextOf(message, "method") == "Runtime.bindingCalled") {
      asked_.push_back(TextOf(message["params"], "payload"));
      continue;
    }
    const auto id = message.FindMember("id");
    if (id == message.MemberEnd() || !id->value.IsInt64() || id->value.GetInt64() != own) continue;
    if (const auto error = message.FindMember("error"); error != message.MemberEnd()) {
      return Lost("the browser refused " + std::string(method) + ": " +
                  TextOf(error->value, "message"));
    }
    return received;
  }
}

Outcome HeadlessBrowser::OpenPage(int width, int height, std::string_view html) {
  const auto target = Call("Target.createTarget", R"({"url":"about:blank"})");
  if (!target) return target.AsOutcome();
  Json attach;
  attach.StartObject();
  const std::string page = TextOf((*target)["result"], "targetId");
  attach.Text("targetId", page).Flag("flatten", true).EndObject();
  const auto session = Call("Target.attachToTarget", attach.Result());
  if (!session) return session.AsOutcome();
  session_ = TextOf((*session)["result"], "sessionId");
  Json size;
  size.StartObject();
  size.Integer("width", width).Integer("height", height).Integer("deviceScaleFactor", 1);
  size.Flag("mobile", false).EndObject();
  if (auto set = Call("Emulation.setDeviceMetricsOverride", size.Result()); !set) {
    return set.AsOutcome();
  }
  Json content;
  content.StartObject();
  content.Text("frameId", page).Text("html", html).EndObject();  // a target's main frame has its id
  return Call("Page.setDocumentContent", content.Result()).AsOutcome();
}

Outcome HeadlessBrowser::Expose(std::string_view name) {
  // A page has what is added to it only once this is on.
  if (auto on = Call("Runtime.enable", "{}"); !on) return on.AsOutcome();
  Json json;
  json.StartObject();
  json.Text("name", name).EndObject();
  return Call("Runtime.addBinding", json.Result()).AsOutcome();
}

Outcome HeadlessBrowser::Evaluate(std::string_view script, const Answer& answer) {
  Json json;
  json.StartObject();
  json.Text("expression", script).Flag("awaitPromise", true).EndObject();
  const auto message = Call("Runtime.evaluate", json.Result(), answer);
  if (!message) return message.AsOutcome();
  return {};
}

Outcome HeadlessBrowser::CheckScripts(const rapidjson::Document& message) const {
  std::string fault;
  const std::string event = TextOf(message, "method");
  const auto of = [&](const char* member,
                      const rapidjson::Value& object) -> const rapidjson::Value* {
    const auto found = object.FindMember(member);
    return found != object.MemberEnd() && found->value.IsObject() ? &found->value : nullptr;
  };
  const rapidjson::Value* told = of(event.empty() ? "result" : "params", message);
  if (!told) return {};
  if (event == "Runtime.consoleAPICalled") fault = ConsoleFault(*told);
  // Of a script that was sent, its answer; of one of the page's own, an event.
  if (event.empty() || event == "Runtime.exceptionThrown") {
    if (const auto* details = of("exceptionDetails", *told)) fault = ScriptFault(*details);
  }
  return fault.empty() ? Outcome() : Lost("the page cannot be drawn: " + fault);
}

Result<std::string> HeadlessBrowser::Screenshot() {
  const auto message = Call("Page.captureScreenshot", R"({"format":"png"})");
  if (!message) return message.Error();
  std::string bytes = FromBase64(TextOf((*message)["result"], "data"));
  if (bytes.empty()) return Lost("the browser ended without a picture");
  return bytes;
}

}  // namespace qx::viewer
