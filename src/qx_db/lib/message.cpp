#include "qx_db/lib/message.h"

namespace qx {
namespace {

const ITextSource* g_texts = nullptr;
IMessageSink* g_sink = nullptr;

}  // namespace

void SetTextSource(const ITextSource* source) { g_texts = source; }
void SetMessageSink(IMessageSink* sink) { g_sink = sink; }

std::string qxText(std::string_view key, const std::vector<std::string>& arguments) {
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

void qxMsgOut(Severity severity, std::string_view key, const std::vector<std::string>& arguments) {
  if (!g_sink) return;
  g_sink->Show({severity, std::string(key), arguments, qxText(key, arguments)});
}

}  // namespace qx
