// Answers, bad answers and bad addresses, from servers on the loopback interface.

#include <fstream>

#include "tests/net/net_fixture.h"
#include "tests/scratch_folder.h"

namespace qx::net_test {
namespace {

using Probe = NetTest;
using namespace std::chrono_literals;

TEST_F(Probe, CountsNothingBut200) {
  std::string status;
  LoopbackServer server(LoopbackServer::Answering(
      [&](const std::string&) { return Response(status, "Location: /there\r\n"); }));
  const std::pair<const char*, int> kCases[] = {
      {"200 OK", 1},        {"204 No Content", 0}, {"201 Created", 0},
      {"301 Moved", 0},     {"302 Found", 0},      {"404 Not Found", 0},
      {"401 Who is it", 0}, {"500 Broken", 0},     {"206 Partial", 0}};
  int connections = 0;
  for (const auto& [line, expected] : kCases) {
    status = line;
    EXPECT_EQ(Connected("http://" + server.Host() + "/here"), expected) << line;
    EXPECT_EQ(server.Connections(), ++connections) << "a redirect was followed at " << line;
  }
  EXPECT_TRUE(messages_.empty());
}

TEST_F(Probe, AsksForTheObjectInItsOwnName) {
  std::string request;
  LoopbackServer server(LoopbackServer::Answering([&](const std::string& header) {
    request = header;
    return Response("200 OK");
  }));
  EXPECT_EQ(Connected("  http://" + server.Host() + "/a path?q=1#place "), 1);
  EXPECT_TRUE(request.starts_with("GET /a%20path?q=1 HTTP/1.1\r\n")) << request;
  EXPECT_NE(request.find("\r\nUser-Agent: new session\r\n"), request.npos) << request;
  EXPECT_EQ(request.find("Authorization"), request.npos);
}

TEST_F(Probe, SurvivesWhatServersDo) {
  const struct {
    const char* what;
    LoopbackServer::Serve serve;
    int expected;
  } kCases[] = {
      {"closes at once", [](Connection&) {}, 0},
      {"closes after the request", [](Connection& to) { to.ReadHeader(); }, 0},
      {"closes within the header",
       [](Connection& to) {
         to.ReadHeader();
         to.Write("HTTP/1.1 200 OK\r\nServ");
       },
       0},
      {"never answers", [](Connection& to) { to.WaitForEnd(); }, 0},
      {"speaks something else",
       [](Connection& to) {
         to.ReadHeader();
         to.Write("220 smtp here\r\n\r\n");
       },
       0},
      {"sends a megabyte of header",
       [](Connection& to) {
         to.ReadHeader();
         to.Write("HTTP/1.1 200 OK\r\n");
         for (int i = 0; i < 1024; ++i) {
           if (!to.Write("X-Long: " + std::string(1014, 'x') + "\r\n")) return;
         }
         to.Write("Content-Length: 0\r\n\r\n");
       },
       0},
      {"sends a megabyte in one line",
       [](Connection& to) {
         to.ReadHeader();
         to.Write("HTTP/1.1 200 OK\r\nX-Long: " + std::string(1 << 20, 'x') + "\r\n\r\n");
       },
       0},
      {"announces before it answers",
       [](Connection& to) {
         to.ReadHeader();
         to.Write("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\n\r\n" +
                  Response("200 OK"));
         to.WaitForEnd();
       },
       1},
      {"announces only",
       [](Connection& to) {
         to.ReadHeader();
         to.Write("HTTP/1.1 103 Early Hints\r\n\r\n");
         to.WaitForEnd();
       },
       0},
      {"answers without the body that it promises",
       [](Connection& to) {
         to.ReadHeader();
         to.Write("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n");
         to.WaitForEnd();
       },
       1},
      {"sends a body without end",
       [](Connection& to) {
         to.ReadHeader();
         to.Write("HTTP/1.1 200 OK\r\n\r\n");
         while (to.Write(std::string(4096, 'b'))) {
         }
       },
       1},
      {"speaks no TLS", [](Connection& to) { to.WaitForEnd(); }, 0},
  };
  ProbeOptions options;
  options.connect_limit = options.answer_limit = 700ms;
  CQXWebUtil::SetOptions(options);
  for (const auto& test : kCases) {
    LoopbackServer server(test.serve);
    const bool secure = std::string_view(test.what) == "speaks no TLS";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Connected((secure ? "https://" : "http://") + server.Host()), test.expected)
        << test.what;
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s) << test.what;
    EXPECT_EQ(server.Connections(), 1) << test.what;
  }
  EXPECT_TRUE(messages_.empty());
}

TEST_F(Probe, EndsWithinItsLimit) {
  LoopbackServer server([](Connection& to) { to.WaitForEnd(); });
  ProbeOptions options;
  for (const auto limit : {300ms, 0ms, -5ms}) {
    options.answer_limit = limit;
    CQXWebUtil::SetOptions(options);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Connected("http://" + server.Host()), 0);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, limit - 50ms);
    EXPECT_LT(took, 4s);
  }
}

TEST_F(Probe, RefusesWhatIsNoWebAddress) {
  LoopbackServer server(
      LoopbackServer::Answering([](const std::string&) { return Response("200 OK"); }));
  const std::string host = server.Host();
  const std::string kCases[] = {"",
                                "   ",
                                host,
                                "127.0.0.1",
                                "//" + host,
                                "ftp://" + host,
                                "file:///etc/hostname",
                                "httpss://" + host,
                                "ht tp://" + host,
                                "javascript:alert(1)",
                                "http:/" + host,
                                "http://",
                                "http:///path",
                                "http://:80/",
                                "http://127.0.0.1:99999/",
                                "http://127.0.0.1:-1/",
                                "http://127.0.0.1:port/",
                                "http://user@" + host,
                                "http://user:password@" + host,
                                "http://127.0.0.1 :80/",
                                "http://local host/",
                                "http://[::1/",
                                "http://" + host + "/a\r\nX-Injected: 1",
                                std::string("http://") + host + "/a\0b" + std::string(1, '\0')};
  for (const std::string& address : kCases) {
    EXPECT_EQ(Connected(address), 0) << address;
    const Result<int> status = CQXWebUtil::Probe(CString::FromUtf8(address));
    ASSERT_FALSE(status) << address;
    EXPECT_FALSE(status.Error().remedy.empty()) << address;
  }
  EXPECT_EQ(server.Connections(), 0) << "none of them is tried";
  EXPECT_EQ(CQXWebUtil::Probe(u"ftp://127.0.0.1/").Error().Line(),
            "ftp://127.0.0.1/: is neither http nor https; probe a web address");
  EXPECT_EQ(Connected("HTTP://" + host), 1) << "schemes have no case";
  EXPECT_EQ(CQXWebUtil::IsInternetConnected(CString(u"http://\xD800/")), 0) << "half a character";
}

TEST_F(Probe, SaysWhyThereIsNoAnswer) {
  const auto reason = [](const std::string& address) {
    const Result<int> status = CQXWebUtil::Probe(CString::FromUtf8(address));
    return status ? "an answer" : status.Error().what;
  };
  EXPECT_EQ(reason("http:/far.test"), "has no // after its scheme");
  EXPECT_EQ(reason("far.test:80"), "does not begin with http:// or https://");
  const std::pair<const char*, const char*> kAnswers[] = {
      {"HTTP/1.1 200 OK\r\nServ", "closes the connection before its header is complete"},
      {"HTTP/1.1 200 OK\r\n", "closes the connection before its header is complete"},
      {"", "closes the connection without an answer"},
      {"220 smtp here\r\n\r\n", "answers, but not as a web server does"},
  };
  for (const auto& [answer, expected] : kAnswers) {
    LoopbackServer server([answer = answer](Connection& to) {
      to.ReadHeader();
      to.Write(answer);
    });
    EXPECT_EQ(reason("http://" + server.Host()), expected) << answer;
  }
  int closed = 0;
  {
    LoopbackServer server([](Connection&) {});
    closed = server.Port();
  }
  const std::string address = "http://127.0.0.1:" + std::to_string(closed) + "/";
  const Result<int> status = CQXWebUtil::Probe(CString::FromUtf8(address));
  ASSERT_FALSE(status);
  EXPECT_EQ(status.Error().file, address);
  EXPECT_NE(status.Error().what.find("connect"), std::string::npos) << status.Error().what;
}

// ---- the browser component ----------------------------------------------------------------------

TEST(BrowserVersion, IsTheNumberBeforeTheFirstDot) {
  const ScratchFolder folder;
  const std::string file = folder.Path("registry.ini");
  const std::string key = "[Software\\Microsoft\\Internet Explorer]\n";
  const std::pair<std::string, unsigned> kCases[] = {
      {key + "Version = 11.0.19041\n", 11},
      {key + "version=9\r\n", 9},
      {"\xEF\xBB\xBF# none\n", 6},
      {"", 6},
      {key, 6},
      {"Version = 11.0\n" + key, 6},
      {"[Software\\Microsoft]\nVersion = 11.0\n", 6},
      {key + "; Version = 11.0\n", 6},
      {key + "Version =\n", 6},
      {key + "Version = .5\n", 6},
      {key + "Version = eleven.0\n", 6},
      {key + "Version = -3.0\n", 6},
      {key + "Version = 11x.0\n", 6},
      {key + "Version = 99999999999.0\n", 6},
      {key + "Version = 7." + std::string(47, '1') + "\n", 7},  // 100 bytes with its end
      {key + "Version = 7." + std::string(48, '1') + "\n", 6},
      {key + "Version = 8.\xFF\n", 6},
      {key + "Version = 8\n[Other]\nVersion = 9\n" + key + "Version = 10\n", 10},
      {key + std::string(1 << 21, '\n') + "Version = 8\n", 6},
  };
  setenv("QXDB_REGISTRY", file.c_str(), 1);
  for (const auto& [text, expected] : kCases) {
    std::ofstream(file, std::ios::binary) << text;
    EXPECT_EQ(CQXWebUtil::GetIEVersion(SettingsFileRegistry(file)), expected)
        << text.substr(0, 200);
    EXPECT_EQ(CQXWebUtil::GetIEVersion(), expected) << text.substr(0, 200);
  }
  EXPECT_EQ(CQXWebUtil::GetIEVersion(SettingsFileRegistry(folder.Path("none"))), 6u);
  EXPECT_EQ(CQXWebUtil::GetIEVersion(SettingsFileRegistry(folder.Path().string())), 6u)
      << "a folder";
  unsetenv("QXDB_REGISTRY");
}

}  // namespace
}  // namespace qx::net_test
