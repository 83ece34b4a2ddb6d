// Every address below the token's is the page's; all else is refused. What guards it:
// - a token of 128 random bits is the first part of every address;
// - the Host header must be a number, "localhost" or the machine's own name, so that no name that
//   someone else controls leads here;
// - a request that a browser makes for another site (Origin, Sec-Fetch-Site) is refused;
// - the content policy allows scripts, styles and connections of this address alone, none inline.

#include "viewer/server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <future>
#include <httplib.h>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <thread>
#include <unistd.h>

#include "viewer/assets.h"

namespace qx::viewer {
namespace {

using Clock = std::chrono::steady_clock;

std::atomic<bool> g_told_to_end{false};

extern "C" void EndServing(int) { g_told_to_end = true; }

/// Takes the signals for as long as it lives.
class SignalGuard {
 public:
  SignalGuard() {
    g_told_to_end = false;
    for (std::size_t i = 0; i < kSignals.size(); ++i)
      before_[i] = std::signal(kSignals[i], EndServing);
  }
  ~SignalGuard() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) std::signal(kSignals[i], before_[i]);
  }
  SignalGuard(const SignalGuard&) = delete;
  SignalGuard& operator=(const SignalGuard&) = delete;

 private:
  static constexpr std::array<int, 2> kSignals{SIGINT, SIGTERM};
  std::array<void (*)(int), 2> before_{};
};

std::string NewToken() {
  std::random_device random;  // of the system
  std::string token;
  for (int i = 0; i < 32; ++i) token += "0123456789abcdef"[random() & 15];
  return token;
}

/// Takes as long for a wrong token as for the right one.
bool IsSame(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned different = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    different |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  }
  return different == 0;
}

/// Work for the thread that owns the source.
class Desk {
 public:
  /// Has `work` done there and waits for its result; nothing once the desk has closed.
  template <class Work>
  auto Ask(Work work) -> std::optional<decltype(work())> {
    std::promise<decltype(work())> promise;
    auto result = promise.get_future();
    {
      const std::lock_guard lock(mutex_);
      if (closed_) return {};
      jobs_.push_back([&promise, &work] {
        try {
          promise.set_value(work());
        } catch (...) {
          promise.set_exception(std::current_exception());
        }
      });
    }
    wake_.notify_one();
    return result.get();
  }
  /// Does one job, or waits for at most `patience`.
  void Work(std::chrono::milliseconds patience) {
    std::function<void()> job;
    {
      std::unique_lock lock(mutex_);
      if (!wake_.wait_for(lock, patience, [&] { return !jobs_.empty(); })) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    job();
  }
  /// Does what is waiting, and takes nothing more.
  void Close() {
    {
      const std::lock_guard lock(mutex_);
      closed_ = true;
    }
    for (;;) {
      std::function<void()> job;
      {
        const std::lock_guard lock(mutex_);
        if (jobs_.empty()) return;
        job = std::move(jobs_.front());
        jobs_.pop_front();
      }
      job();
    }
  }

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> jobs_;
  bool closed_ = false;
};

/// "192.168.0.7" or "[::1]".
bool IsNumericAddress(std::string host) {
  std::array<unsigned char, 16> bytes;
  if (host.starts_with('[') && host.ends_with(']')) {
    return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), bytes.data()) == 1;
  }
  return inet_pton(AF_INET, host.c_str(), bytes.data()) == 1;
}

std::string MachineName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string ErrorJson(const Failure& failure) {
  Json json;
  json.StartObject();
  json.Text("error", failure.Line()).EndObject();
  return json.Result();
}

/// Gives a body as it is. Set as text, the library would compress it with its slowest settings,
/// which takes seconds for the page's script and spares a loopback nothing.
void Give(httplib::Response& response, std::shared_ptr<const std::string> body, const char* type) {
  const std::size_t size = body->size();
  response.set_content_provider(
      size, type, [body = std::move(body)](std::size_t at, std::size_t count, auto& sink) {
        return sink.write(body->data() + at, count);
      });
}
void Give(httplib::Response& response, std::string body, const char* type) {
  Give(response, std::make_shared<const std::string>(std::move(body)), type);
}

std::int64_t NumberOf(const httplib::Request& request, const char* name, std::int64_t otherwise) {
  const std::string text = request.get_param_value(name);
  std::int64_t value = otherwise;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

class PageServer {
 public:
  PageServer(Source& source, const ServeOptions& options)
      : source_(source), options_(options), token_(NewToken()) {}

  Outcome Run();

 private:
  void AddRoutes();
  bool LeadsHere(std::string host) const;
  bool IsAllowed(const httplib::Request& request) const;
  void Answer(const httplib::Request& request, httplib::Response& response);
  void AnswerPost(const httplib::Request& request, httplib::Response& response);
  void AnswerState(httplib::Response& response);
  void AnswerPack(const std::string& name, const httplib::Request& request,
                  httplib::Response& response);
  bool IsDeserted() const;

  Source& source_;
  const ServeOptions& options_;
  const std::string token_;
  int port_ = 0;
  httplib::Server server_;
  Desk desk_;
  // When the page was last heard of, and when it said that it goes; in milliseconds, 0 for never.
  std::atomic<std::int64_t> heard_{0}, left_{0};

  static std::int64_t Now() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now().time_since_epoch())
        .count();
  }
};

/// Whether a Host header is one that only our own page has. An attacker's page is reached by a name
/// of his, which he may lead to any address; so numbers are good whatever they are, as the server
/// may listen at several, and of names only our own.
bool PageServer::LeadsHere(std::string host) const {
  const std::string port = ":" + std::to_string(port_);
  if (host.ends_with(port)) {
    host.resize(host.size() - port.size());
  } else if (port_ != 80) {  // which a browser leaves out
    return false;
  }
  return host == options_.host || host == "localhost" || IsNumericAddress(host) ||
         (!MachineName().empty() && host == MachineName());
}

bool PageServer::IsAllowed(const httplib::Request& request) const {
  const std::string host = request.get_header_value("Host");
  if (!LeadsHere(host)) return false;
  const std::string origin = request.get_header_value("Origin");
  if (!origin.empty() && origin != "http://" + host) return false;
  const std::string site = request.get_header_value("Sec-Fetch-Site");
  return site.empty() || site == "same-origin" || site == "none" ||
         // The file that opens the browser leads to the page itself, and to nothing else.
         (request.get_header_value("Sec-Fetch-Mode") == "navigate" &&
          request.path == "/" + token_ + "/");
}

void PageServer::AnswerState(httplib::Response& response) {
  heard_ = Now();
  left_ = 0;
  const auto text = desk_.Ask([&] {
    Json json;
    json.StartObject();
    json.Integer("revision", static_cast<std::int64_t>(source_.Revision()));
    json.Integer("done", static_cast<std::int64_t>(source_.StepsDone())).EndObject();
    return json.Result();
  });
  Give(response, text.value_or("{}"), "application/json");
}

void PageServer::AnswerPack(const std::string& name, const httplib::Request& request,
                            httplib::Response& response) {
  const std::int64_t step = NumberOf(request, "step", Source::kNow);
  auto pack = desk_.Ask([&] { return source_.Get(name, step); });
  if (!pack) return;
  if (!*pack) {
    response.status = 404;
    Give(response, ErrorJson(pack->Error()), "application/json");
    return;
  }
  Give(response, std::move(**pack), "application/octet-stream");
}

void PageServer::Answer(const httplib::Request& request, httplib::Response& response) {
  const std::string what = request.matches[2];
  if (!IsSame(std::string(request.matches[1]), token_)) {
    response.status = 404;
    return;
  }
  if (what.empty()) {
    heard_ = Now();
    std::string page(PageHtml());
    const auto put = [&](std::string_view mark, std::string_view with) {
      const std::size_t at = page.find(mark);
      if (at != std::string::npos) page.replace(at, mark.size(), with);
    };
    put("<!--TITLE-->", "QX_db");
    put("<!--HEAD-->", "<link rel=\"stylesheet\" href=\"page.css\">");
    put("<!--TAIL-->", "<script src=\"page.js\"></script>");
    Give(response, std::move(page), "text/html; charset=utf-8");
  } else if (what == "page.js") {
    Give(response, std::string(PageScript()), "text/javascript");
  } else if (what == "page.css") {
    Give(response, std::string(PageStyle()), "text/css");
  } else if (what == "api/state") {
    AnswerState(response);
  } else if (what == "api/record") {
    const std::string table = request.get_param_value("table");
    const std::int64_t number = NumberOf(request, "key", 0);
    const Key key = number >= 1 && number <= kMaxKey ? static_cast<Key>(number) : 0;
    const std::int64_t step = NumberOf(request, "step", Source::kNow);
    auto text = desk_.Ask([&] { return source_.Record(table, key, step); });
    if (!text) return;
    if (!*text) response.status = 404;
    Give(response, *text ? std::move(**text) : ErrorJson(text->Error()), "application/json");
  } else if (what.starts_with("api/")) {
    AnswerPack(what.substr(4), request, response);
  } else {
    response.status = 404;
  }
}

void PageServer::AnswerPost(const httplib::Request& request, httplib::Response& response) {
  const std::string what = request.matches[2];
  if (!IsSame(std::string(request.matches[1]), token_)) {
    response.status = 404;
    return;
  }
  if (what == "api/bye") {
    left_ = Now();
    return;
  }
  // A form cannot be of this type, so that no other page sends it unasked.
  if (request.get_header_value("Content-Type") != "application/json") {
    response.status = 415;
    return;
  }
  if (what == "api/edit") {
    const auto done = desk_.Ask([&] { return source_.Edit(request.body); });
    if (!done) return;
    if (!*done) response.status = 409;
    Give(response, *done ? "{}" : ErrorJson(done->Error()), "application/json");
  } else if (what == "api/preview") {
    auto pack = desk_.Ask([&] { return source_.Preview(request.body); });
    if (!pack) return;
    if (*pack) {
      Give(response, std::move(**pack), "application/octet-stream");
    } else {
      response.status = 409;
      Give(response, ErrorJson(pack->Error()), "application/json");
    }
  } else {
    response.status = 404;
  }
}

void PageServer::AddRoutes() {
  server_.set_default_headers({
      {"Content-Security-Policy",
       "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
       "img-src 'self' data: blob:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
      {"X-Content-Type-Options", "nosniff"},
      {"Referrer-Policy", "no-referrer"},
      {"Cross-Origin-Opener-Policy", "same-origin"},
      {"Cross-Origin-Resource-Policy", "same-origin"},
      {"Cache-Control", "no-store"},
  });
  server_.set_pre_routing_handler(
      [&](const httplib::Request& request, httplib::Response& response) {
        if (IsAllowed(request)) return httplib::Server::HandlerResponse::Unhandled;
        response.status = 403;
        response.set_content("refused\n", "text/plain");
        return httplib::Server::HandlerResponse::Handled;
      });
  server_.set_payload_max_length(std::size_t{64} << 20);
  server_.set_keep_alive_max_count(1000);
  server_.set_keep_alive_timeout(1);  // its end waits for idle connections that long
  server_.Get(R"(/([0-9a-f]{32})/(.*))",
              [&](const auto& request, auto& response) { Answer(request, response); });
  server_.Post(R"(/([0-9a-f]{32})/(.*))",
               [&](const auto& request, auto& response) { AnswerPost(request, response); });
}

bool PageServer::IsDeserted() const {
  if (options_.stay) return false;
  // A page that is loaded anew goes and comes back at once; one in the background asks rarely.
  constexpr std::int64_t kToComeBack_ms = 3000, kToAsk_ms = 180'000;
  if (left_ != 0 && Now() - left_ > kToComeBack_ms) return true;
  return heard_ != 0 && Now() - heard_ > kToAsk_ms;
}

Outcome PageServer::Run() {
  AddRoutes();
  if (options_.port == 0) {
    port_ = server_.bind_to_any_port(options_.host);
  } else {
    port_ = server_.bind_to_port(options_.host, options_.port) ? options_.port : -1;
  }
  if (port_ <= 0) {
    return Failure{"", options_.host + ":" + std::to_string(options_.port), "cannot be listened at",
                   "name another --port"};
  }
  const SignalGuard guard;
  std::thread listener([&] { server_.listen_after_bind(); });
  // However this ends, who waits for an answer is let go first.
  const std::shared_ptr<void> ending(nullptr, [&](void*) {
    desk_.Close();
    server_.stop();
    listener.join();
  });
  // An address that stands for all of the machine's is none to be opened.
  std::string host = options_.host == "0.0.0.0" ? "127.0.0.1"
                     : options_.host == "::"    ? "::1"
                                                : options_.host;
  if (host.find(':') != std::string::npos) host = "[" + host + "]";
  if (options_.on_ready) {
    options_.on_ready("http://" + host + ":" + std::to_string(port_) + "/" + token_ + "/");
  }
  // What the page asks first is made while the browser starts.
  if (auto base = source_.Get("base"); !base) return base.AsOutcome();
  if (heard_ != 0) heard_ = Now();  // the page could not ask meanwhile
  auto followed = Clock::now();
  while (!g_told_to_end && !IsDeserted()) {
    desk_.Work(std::chrono::milliseconds(200));
    if (Clock::now() - followed > std::chrono::milliseconds(500)) {
      source_.Follow();
      followed = Clock::now();
    }
  }
  return {};
}

}  // namespace

Outcome Serve(Source& source, const ServeOptions& options) {
  source.SetServed(true);
  return PageServer(source, options).Run();
}

}  // namespace qx::viewer
