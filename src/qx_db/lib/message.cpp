#include "qx_db/lib/message.h"

#include <atomic>
#include <cstdio>
#include <map>

namespace qx {
namespace {

class TextTable final : public ITextSource {
 public:
  std::map<std::string, std::string, std::less<>> texts;

  bool Text(std::string_view key, std::string& text) const override {
    const auto found = texts.find(key);
    if (found == texts.end()) return false;
    text = found->second;
    return true;
  }
};

const ITextSource* g_texts = nullptr;
IMessageSink* g_sink = nullptr;
thread_local MessageCapture* t_capture = nullptr;

/// Once a process: somebody forgot to bring the texts, and users would see keys.
void WarnOfMissingTexts() {
  static std::atomic<bool> warned = false;
  if (warned.exchange(true)) return;
  const std::string text =
      "QX_db has no texts to show: call qx::host::RegisterTexts() of QX_db::host, or "
      "qx::InstallTexts() with a table of your own, when the application starts";
  if (g_sink) {
    qxMsgOutText(Severity::kWarning, text);
  } else {
    std::fprintf(stderr, "%s\n", text.c_str());
  }
}

}  // namespace

void SetTextSource(const ITextSource* source) { g_texts = source; }
void SetMessageSink(IMessageSink* sink) { g_sink = sink; }

void InstallTexts(std::vector<std::pair<std::string, std::string>> table) {
  static TextTable installed;
  installed.texts.clear();
  for (auto& [key, text] : table) installed.texts.insert_or_assign(std::move(key), std::move(text));
  SetTextSource(&installed);
}

std::string qxText(std::string_view key, const std::vector<std::string>& arguments) {
  if (!g_texts) WarnOfMissingTexts();
  std::string pattern;
  if (!g_texts || !g_texts->Text(key, pattern)) {
    pattern = key;
    for (std::size_t i = 0; i < arguments.size(); ++i) pattern += i == 0 ? ": {}" : ", {}";
  }
  std::string text;
  std::size_t used = 0;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    const bool slot = pattern.compare(i, 2, "{}") == 0;
    if (!slot) {
      text += pattern[i];
      continue;
    }
    if (used < arguments.size()) text += arguments[used++];
    ++i;
  }
  return text;
}

CString qxLoadText(std::string_view key) { return CString::FromUtf8(qxText(key)); }

MessageCapture::MessageCapture() : outer_(t_capture) { t_capture = this; }
MessageCapture::~MessageCapture() { t_capture = outer_; }

void MessageCapture::Take(Severity severity, std::string_view key,
                          const std::vector<std::string>& arguments) {
  messages_.push_back({severity, std::string(key), arguments, ""});
}

void qxMsgOut(Severity severity, std::string_view key, const std::vector<std::string>& arguments) {
  if (t_capture) return t_capture->Take(severity, key, arguments);
  if (!g_sink) return;
  g_sink->Show({severity, std::string(key), arguments, qxText(key, arguments)});
}

void qxMsgOutText(Severity severity, const std::string& text) {
  if (t_capture) return t_capture->Take(severity, "", {text});
  if (g_sink) g_sink->Show({severity, "", {}, text});
}

}  // namespace qx
