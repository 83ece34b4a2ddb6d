// qxdb probe: whether a web address answers.

#include <algorithm>
#include <fmt/format.h>

#include "qx_db/net/web_address.h"
#include "qx_db/net/web_util.h"

#include "apps/qxdb/command/option_values.h"
#include "apps/qxdb/commands.h"

namespace qx::app {
namespace {

struct Arguments {
  std::string address;
  double limit_s = 15;
  ProbeOptions options;
};

constexpr double kLeastLimitS = 0.001;
constexpr double kMostLimitS = 3600;

/// No answer is an answer too: it goes where a result goes.
Outcome Probe(const Arguments& arguments, Context& context) {
  ProbeOptions options = arguments.options;
  options.answer_limit = std::chrono::milliseconds(static_cast<int>(arguments.limit_s * 1000));
  options.connect_limit = std::min(options.connect_limit, options.answer_limit);
  CQXWebUtil::SetOptions(options);
  const Result<int> status = CQXWebUtil::Probe(CString::FromUtf8(arguments.address));
  const bool connected = status && *status == 200;
  // As it was probed: what is typed may hold the end of a line.
  const Result<WebAddress> probed = ReadWebAddress(arguments.address);
  const std::string& address = probed ? probed->url : arguments.address;
  const std::string text =
      status ? fmt::format("{}: {} answers {}", connected ? "connected" : "not connected", address,
                           *status)
             : "not connected: " + status.Error().Line();
  JsonText json;
  json.Begin().Text("address", address).Bool("connected", connected);
  if (status) {
    json.Integer("status", *status);
  } else {
    json.Text("reason", status.Error().Line());
  }
  context.Print(text + "\n", json.End());
  if (!connected) context.exit_code = kNo;
  return {};
}

}  // namespace

void AddProbe(Command& app, Context& context) {
  const auto [command, arguments] = AddCommand<Arguments>(
      app, context, "probe", "Tell whether a web address answers with status 200",
      "qxdb probe https://updates.example.com/", Probe);
  command->Add("address", &arguments->address, "http or https address").Required();
  command->Add("--limit", &arguments->limit_s, "Seconds to wait for an answer")
      .Check(RealBetween(kLeastLimitS, kMostLimitS))
      .ShowDefault();
  command
      ->Add("--ca", &arguments->options.authorities_file,
            "PEM file of the authorities to trust instead of the platform's")
      .File({".pem"});
  command->Add("--crl", &arguments->options.revoked_file, "PEM file of revoked certificates")
      .File({".pem"});
}

}  // namespace qx::app
