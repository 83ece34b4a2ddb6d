#include "apps/qxdb/command/console.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <fmt/format.h>
#include <unistd.h>
#include <utility>

#include "qx_db/lib/message.h"
#include "qx_db/platform/plain_text.h"
#include "qx_db/platform/text.h"

namespace qx::app {
namespace {

/// Columns that a UTF-8 text takes on a terminal, every code point counted as one.
std::size_t Width(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

std::string Quoted(std::string_view text) {
  std::string out = "\"";
  const std::string valid = ValidUtf8(text);
  for (std::size_t i = 0; i < valid.size(); ++i) {
    const auto u = static_cast<unsigned char>(valid[i]);
    const auto next = static_cast<unsigned char>(i + 1 < valid.size() ? valid[i + 1] : 0);
    if (u == '"' || u == '\\') {
      out += '\\';
      out += valid[i];
    } else if (u < 0x20 || u == 0x7F) {
      out += fmt::format("\\u{:04x}", u);
    } else if (u == 0xC2 && next < 0xA0) {  // the control characters behind ASCII
      out += fmt::format("\\u{:04x}", next);
      ++i;
    } else {
      out += valid[i];
    }
  }
  return out + '"';
}

}  // namespace

Table::Table(std::vector<std::string> headings) : headings_(std::move(headings)) {
  for (std::string& heading : headings_) {
    right_.push_back(heading.starts_with('>'));
    if (right_.back()) heading.erase(0, 1);
  }
}

void Table::Row(std::vector<std::string> cells) {
  for (std::string& cell : cells) cell = OneLine(cell);
  rows_.push_back(std::move(cells));
}

std::string Table::Text() const {
  std::vector<std::size_t> widths;
  for (const std::string& heading : headings_) widths.push_back(Width(heading));
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
  }
  std::string out;
  const auto line = [&](const std::vector<std::string>& cells) {
    std::string text;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const std::string fill(widths[i] - Width(cells[i]), ' ');
      text += (i ? "  " : "") + (right_[i] ? fill + cells[i] : cells[i] + fill);
    }
    text.resize(text.find_last_not_of(' ') + 1);
    out += text + '\n';
  };
  line(headings_);
  for (const auto& row : rows_) line(row);
  return out;
}

void JsonText::Name(std::string_view name) {
  if (!first_) out_ += ',';
  first_ = false;
  if (!open_.empty() && open_.back() == '}') out_ += Quoted(name) + ':';
}

JsonText& JsonText::Begin(std::string_view name) {
  Name(name);
  out_ += '{';
  open_.push_back('}');
  first_ = true;
  return *this;
}

JsonText& JsonText::BeginArray(std::string_view name) {
  Name(name);
  out_ += '[';
  open_.push_back(']');
  first_ = true;
  return *this;
}

JsonText& JsonText::End() {
  out_ += open_.back();
  open_.pop_back();
  first_ = false;
  return *this;
}

JsonText& JsonText::Text(std::string_view name, std::string_view value) {
  return Raw(name, Quoted(value));
}
JsonText& JsonText::Integer(std::string_view name, std::int64_t value) {
  return Raw(name, std::to_string(value));
}
JsonText& JsonText::Real(std::string_view name, double value) {
  return Raw(name, std::isfinite(value) ? fmt::format("{}", value) : "null");
}
JsonText& JsonText::Bool(std::string_view name, bool value) {
  return Raw(name, value ? "true" : "false");
}
JsonText& JsonText::Raw(std::string_view name, std::string_view json) {
  Name(name);
  out_ += json;
  return *this;
}

std::string Grouped(std::int64_t number) {
  std::string digits = std::to_string(number);
  const std::size_t sign = number < 0 ? 1 : 0;
  for (std::size_t at = digits.size(); at > sign + 3;) digits.insert(at -= 3, " ");
  return digits;
}

std::string Bytes(std::uint64_t bytes) {
  constexpr const char* kUnits[] = {"B", "kB", "MB", "GB", "TB"};
  double value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= 1000 && unit + 1 < std::size(kUnits)) {
    value /= 1000;
    ++unit;
  }
  return unit == 0 ? fmt::format("{} B", bytes) : fmt::format("{:.1f} {}", value, kUnits[unit]);
}

std::string Short(double number) { return fmt::format("{:.6g}", number); }

std::string HashText(std::uint64_t hash) { return fmt::format("{:016x}", hash); }

namespace {

ProgressBar* t_innermost = nullptr;
bool t_is_shown = false;

}  // namespace

ProgressBar::ProgressBar(std::string what)
    : what_(std::move(what)), outer_(std::exchange(t_innermost, this)) {}

ProgressBar::~ProgressBar() {
  Hide();
  t_innermost = outer_;
}

void ProgressBar::Hide() {
  if (std::exchange(t_is_shown, false)) std::fputs("\r\033[K", stderr);
}

void ProgressBar::Show(double fraction) {
  using std::chrono::seconds;
  if (t_innermost != this || !isatty(STDERR_FILENO)) return;
  const auto passed = std::chrono::steady_clock::now() - start_;
  if (passed < seconds(1)) return;
  t_is_shown = true;
  if (fraction < 1) {
    const int filled = static_cast<int>(30 * std::max(fraction, 0.0));
    fmt::print(stderr, "\r{} [{:<30}] {:3.0f} %\033[K", OneLine(what_),
               std::string(static_cast<std::size_t>(filled), '#'), 100 * fraction);
  } else {
    fmt::print(stderr, "\r{}: {} s\033[K", OneLine(what_),
               std::chrono::duration_cast<seconds>(passed).count());
  }
  std::fflush(stderr);
}

LongTask::LongTask(const std::string& what)
    : bar_(what), watch_([this](double part) {
        if (Interrupt::IsAnyAsked()) throw Stopped{};
        bar_.Show(part);
      }) {}

namespace {

volatile std::sig_atomic_t interrupted = 0;
bool is_listening = false;

void Remember(int signal) {
  interrupted = 1;
  std::signal(signal, SIG_DFL);
}

}  // namespace

Interrupt::Interrupt() : is_outermost_(!is_listening) {
  if (!is_outermost_) return;
  is_listening = true;
  interrupted = 0;
  before_ = std::signal(SIGINT, Remember);
  if (before_ == SIG_IGN) std::signal(SIGINT, SIG_IGN);  // as in the background of a script
}

Interrupt::~Interrupt() {
  if (!is_outermost_) return;
  std::signal(SIGINT, before_);
  is_listening = false;
}

bool Interrupt::IsAnyAsked() { return is_listening && interrupted != 0; }

bool Interrupt::IsAsked() const { return interrupted != 0; }

void Interrupt::Renew() {
  interrupted = 0;
  if (before_ != SIG_IGN) std::signal(SIGINT, Remember);
}

void Context::Print(const std::string& text, const JsonText& json_text) const {
  std::string out = json ? PlainJson(json_text.Result()) : text;
  if (!json) {
    for (const std::string& name : names_of_lines) {
      for (std::size_t at = 0; (at = out.find(name, at)) != std::string::npos;) {
        const std::string shown = OneLine(name);
        out.replace(at, name.size(), shown);
        at += shown.size();
      }
    }
    out = PlainLines(out);
  }
  ProgressBar::Hide();
  std::fwrite(out.data(), 1, out.size(), stdout);
  if (!out.empty() && out.back() != '\n') std::fputc('\n', stdout);
}

namespace {

class RefusalListener final : public IMessageSink {
 public:
  void Show(const Message& message) override {
    if (message.severity == Severity::kInfo) {
      fmt::print(stderr, "note: {}\n", OneLine(message.text));
    } else {
      text = MidLine(message.text);
    }
  }
  std::string text;
};

RefusalListener& Listener() {
  static RefusalListener listener;
  return listener;
}

}  // namespace

std::string MidLine(std::string text) {
  if (text.ends_with('.')) text.pop_back();
  const auto is = [&](std::size_t at, char from, char to) {
    return at < text.size() && text[at] >= from && text[at] <= to;
  };
  // A name in capitals keeps them.
  const bool is_word = is(0, 'A', 'Z') && (is(1, 'a', 'z') || is(1, ' ', ' '));
  if (is_word) text[0] = static_cast<char>(text[0] - 'A' + 'a');
  return text;
}

void ForgetRefusals() { Listener().text.clear(); }

void ListenForRefusals() { SetMessageSink(&Listener()); }

const std::string& LastRefusal() { return Listener().text; }

Failure RefusalOf(const std::string& file, const std::string& place) {
  std::string text = LastRefusal();
  if (text.starts_with(file + ": ")) text.erase(0, file.size() + 2);
  if (text.empty()) return {file, place, "the edit was refused", "look for what hangs on it"};
  for (const char* divider : {"; ", ": "}) {
    const std::size_t at = text.rfind(divider);
    if (at != std::string::npos) return {file, place, text.substr(0, at), text.substr(at + 2)};
  }
  return {file, place, text, "change what it names first"};
}

void Context::Conclude(const Outcome& outcome) {
  if (outcome) return;
  Failure failure = outcome.Error();
  exit_code = failure.file.empty() ? kMisuse : kRefused;
  if (failure.remedy.starts_with("see the message above")) {
    failure.remedy = LastRefusal().empty() ? "look for what hangs on it" : LastRefusal();
  }
  Tell(failure);
}

void Context::Tell(const Failure& failure) const {
  told = true;
  ProgressBar::Hide();
  std::fflush(stdout);  // what was printed before stands before
  if (json) {
    JsonText error;
    error.Begin().Begin("error");
    if (!place.empty()) error.Text("script", place);
    error.Text("file", failure.file).Text("place", failure.place);
    error.Text("fault", failure.what).Text("remedy", failure.remedy).End().End();
    fmt::print(stderr, "{}\n", PlainJson(error.Result()));
  } else {
    fmt::print(stderr, "qxdb: {}{}\n", place.empty() ? "" : OneLine(place) + ": ", failure.Line());
  }
}

}  // namespace qx::app
