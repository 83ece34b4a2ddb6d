// qxdb probe, as a shell sees it.

#include <algorithm>

#include "tests/cli/cli_fixture.h"
#include "tests/net/loopback_server.h"

namespace qx {
namespace {

using net_test::LoopbackServer;
using net_test::Response;

class ProbeCommand : public Cli {
 protected:
  static void SetUpTestSuite() {
    for (const char* name :
         {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
      unsetenv(name);
    }
  }
};

TEST_F(ProbeCommand, PrintsOneLineAndExitsByTheAnswer) {
  std::string status = "200 OK";
  LoopbackServer server(
      LoopbackServer::Answering([&](const std::string&) { return Response(status); }));
  const std::string address = "http://" + server.Host() + "/";
  Ran run = Qxdb("probe " + address);
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.out, "connected: " + address + " answers 200\n");
  EXPECT_EQ(run.err, "");
  status = "404 Not Found";
  run = Qxdb("probe " + address);
  EXPECT_EQ(run.code, 3);
  EXPECT_EQ(run.out, "not connected: " + address + " answers 404\n");
  run = Qxdb("probe --json " + address);
  EXPECT_EQ(run.code, 3);
  EXPECT_EQ(run.out, "{\"address\":\"" + address + "\",\"connected\":false,\"status\":404}\n");
}

TEST_F(ProbeCommand, PrintsOneLineWhateverIsTyped) {
  LoopbackServer server(
      LoopbackServer::Answering([](const std::string&) { return Response("200 OK"); }));
  const std::string host = server.Host();
  EXPECT_EQ(Qxdb("probe 'http://" + host + "/\n '").out,
            "connected: http://" + host + "/ answers 200\n");
  const Ran run = Qxdb("probe 'http://ho\x1B[2J\xC2\x9B\xE2\x80\xAE/\nend'");
  EXPECT_EQ(run.code, 3);
  EXPECT_EQ(run.out,
            "not connected: http://ho%1B[2J%C2%9B%E2%80%AE/%0Aend: holds control characters; write "
            "it as https://host/path\n");
}

TEST_F(ProbeCommand, RefusesLimitsThatAreNone) {
  for (const char* limit : {"nan", "-nan", "inf", "0", "-1", "3601", "1e400", "2s", "''"}) {
    const Ran run = Qxdb(std::string("probe --limit=") + limit + " http://127.0.0.1:9/");
    EXPECT_EQ(run.code, 2) << limit;
    EXPECT_NE(run.err.find("--limit"), std::string::npos) << run.err;
  }
}

TEST_F(ProbeCommand, SaysWhyThereIsNoAnswer) {
  Ran run = Qxdb("probe ftp://127.0.0.1/");
  EXPECT_EQ(run.code, 3);
  EXPECT_EQ(run.out,
            "not connected: ftp://127.0.0.1/: is neither http nor https; probe a web address\n");
  LoopbackServer silent([](net_test::Connection& connection) { connection.WaitForEnd(); });
  run = Qxdb("probe --limit 0.3 http://" + silent.Host());
  EXPECT_EQ(run.code, 3);
  EXPECT_TRUE(run.out.starts_with("not connected: ")) << run.out;
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1);
  EXPECT_EQ(Qxdb("probe").code, 2);
}

TEST_F(ProbeCommand, TrustsTheAuthoritiesItIsGiven) {
  const net_test::Identity authority = net_test::Issue({.name = "Own", .authority = true});
  const net_test::Identity identity = net_test::Issue({.issuer = &authority});
  LoopbackServer server(LoopbackServer::AnsweringSecurely(identity, Response("200 OK")));
  const std::string address = " https://" + server.Host() + "/";
  Write("own.pem", net_test::Pem(authority));
  EXPECT_EQ(Qxdb("probe" + address).code, 3);
  EXPECT_EQ(Qxdb("probe --ca own.pem" + address).code, 0);
  const Ran run = Qxdb("probe --ca missing.pem" + address);
  EXPECT_EQ(run.code, 3);
  EXPECT_EQ(run.out,
            "not connected: missing.pem: cannot be read as the certificates of authorities; give a "
            "PEM file with at least one\n");
  Write("revoked.pem", net_test::RevocationPem(authority, {&identity}));
  const Ran revoked = Qxdb("probe --ca own.pem --crl revoked.pem" + address);
  EXPECT_EQ(revoked.code, 3);
  EXPECT_NE(revoked.out.find("revoked; probe a server whose certificate stands"), std::string::npos)
      << revoked.out;
  const Ran unread = Qxdb("probe --ca own.pem --crl missing.pem" + address);
  EXPECT_TRUE(unread.out.starts_with("not connected: missing.pem: ")) << unread.out;
}

}  // namespace
}  // namespace qx
