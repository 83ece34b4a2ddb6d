#pragma once
// qxdb at a pseudo-terminal.

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <span>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace qx {

/// What is typed, and what is then awaited.
struct Said {
  const char* typed;
  const char* shows;
};

/// qxdb at a terminal, as someone who types sees it.
class Terminal {
 public:
  Terminal(const std::string& folder, std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "qxdb");
    arguments.push_back(nullptr);
    child_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (child_ != 0) return;
    setenv("TERM", "xterm", 1);
    if (chdir(folder.c_str()) == 0) execv(QX_QXDB, const_cast<char* const*>(arguments.data()));
    _exit(127);
  }
  ~Terminal() {
    close(terminal_);
    if (child_ > 0) kill(child_, SIGKILL);
    if (child_ > 0) waitpid(child_, nullptr, 0);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  void Type(const std::string& keys) const {
    EXPECT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  /// Reads on until the text is shown, from behind what was awaited before; what was shown instead
  /// when nothing more comes.
  std::string Await(const std::string& text) {
    constexpr int kPatience_ms = 20000;
    std::size_t at = 0;
    for (pollfd ready{terminal_, POLLIN, 0}; (at = shown_.find(text)) == std::string::npos;) {
      char part[4096];
      const ssize_t got =
          poll(&ready, 1, kPatience_ms) > 0 ? read(terminal_, part, sizeof(part)) : 0;
      if (got <= 0) return "no \"" + text + "\" in: " + shown_;
      shown_.append(part, static_cast<std::size_t>(got));
    }
    shown_.erase(0, at + text.size());
    return "";
  }
  /// Types and awaits in turns; what went wrong. A prompt is shown before keys are taken one by
  /// one: what would be typed between would be the terminal's.
  std::string Talk(std::span<const Said> said) {
    for (const Said& one : said) {
      if (is_at_prompt_) AwaitKeys();
      is_at_prompt_ = std::string_view(one.shows).ends_with("> ");
      Type(one.typed);
      if (std::string fault = Await(one.shows); !fault.empty()) {
        return std::string(one.typed) + ": " + fault;
      }
    }
    return "";
  }
  /// The exit code of the program, which is about to leave.
  int Code() {
    int status = 0;
    waitpid(child_, &status, 0);
    child_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  void AwaitKeys() const {
    termios now{};
    for (int i = 0; i < 20000 && tcgetattr(terminal_, &now) == 0 && (now.c_lflag & ICANON); ++i) {
      usleep(1000);
    }
  }

  bool is_at_prompt_ = false;
  int terminal_ = -1;
  pid_t child_ = -1;
  std::string shown_;  // and not yet awaited
};

}  // namespace qx
