#pragma once
// A probe whose environment names no proxy, with short limits, and its messages.

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "qx_db/lib/message.h"
#include "qx_db/net/web_util.h"

#include "tests/net/loopback_server.h"

namespace qx::net_test {

class NetTest : public testing::Test, public IMessageSink {
 protected:
  NetTest() {
    for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY",
                             "no_proxy", "NO_PROXY"}) {
      unsetenv(name);
    }
    ProbeOptions options;
    options.connect_limit = options.answer_limit = std::chrono::milliseconds(5000);
    CQXWebUtil::SetOptions(options);
    SetMessageSink(this);
  }
  ~NetTest() override {
    SetMessageSink(nullptr);
    CQXWebUtil::SetCredentialPrompt(nullptr);
    CQXWebUtil::SetOptions({});
  }
  void Show(const Message& message) override { messages_.push_back(message.text); }

  /// What the two queries say, which must agree: the status, or 0.
  static int Status(const std::string& address) {
    const CString text = CString::FromUtf8(address);
    const Result<int> status = CQXWebUtil::Probe(text);
    return status ? *status : 0;
  }
  static int Connected(const std::string& address) {
    return CQXWebUtil::IsInternetConnected(CString::FromUtf8(address));
  }

  std::vector<std::string> messages_;
};

}  // namespace qx::net_test
