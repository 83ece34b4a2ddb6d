#pragma once
// User texts by resource key, and the way messages reach the user. The library holds keys only:
// the host supplies the texts and decides how a message is shown.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qx_db/platform/text.h"

namespace qx {

/// The host's catalogue of user texts.
class QXDB_API ITextSource {
 public:
  virtual ~ITextSource() = default;
  /// Sets `text` (UTF-8, with {} where arguments go) and returns true when the key is known.
  virtual bool Text(std::string_view key, std::string& text) const = 0;
};

enum class Severity { kInfo, kWarning, kError, kRefusal };

/// One message: its resource key, the arguments, and the finished text.
struct Message {
  Severity severity = Severity::kInfo;
  std::string key;
  std::vector<std::string> arguments;
  std::string text;
};

/// Where messages go: a modal box in a desktop host, stderr in a command line, a list in a test.
/// Threads: messages come on the thread whose call they are about; install sinks and texts before
/// threads start, and make them safe to call from several where there are several.
class QXDB_API IMessageSink {
 public:
  virtual ~IMessageSink() = default;
  virtual void Show(const Message& message) = 0;
};

/// Registers the host's catalogue or sink; null unregisters. Neither is owned.
QXDB_API void SetTextSource(const ITextSource* source);
QXDB_API void SetMessageSink(IMessageSink* sink);

/// Makes a table of keys and their texts (UTF-8) the catalogue, for an application that has no
/// class of its own for it. The table is copied; one installed before is replaced. An application
/// on QX_db::host calls qx::host::RegisterTexts instead, which brings the English texts.
QXDB_API void InstallTexts(std::vector<std::pair<std::string, std::string>> table);

/// The text of a key with {} replaced by the arguments in turn. A key without a text is shown as
/// itself, followed by the arguments, so that nothing is lost when a host has no catalogue; the
/// first time that there is no catalogue at all a warning says so, to the sink or else on stderr.
QXDB_API std::string qxText(std::string_view key, const std::vector<std::string>& arguments = {});

/// The same as UTF-16.
QXDB_API CString qxLoadText(std::string_view key);

/// Sends a message to the host's sink; without one it goes nowhere.
QXDB_API void qxMsgOut(Severity severity, std::string_view key,
                       const std::vector<std::string>& arguments = {});

/// While it lives, what the calls of this thread have to say is kept here, and neither text source
/// nor sink hears of it. The one made last takes all.
class QXDB_API MessageCapture {
 public:
  MessageCapture();
  ~MessageCapture();
  MessageCapture(const MessageCapture&) = delete;
  MessageCapture& operator=(const MessageCapture&) = delete;
  const std::vector<Message>& Messages() const { return messages_; }
  /// Keeps a message, without a text.
  void Take(Severity severity, std::string_view key, const std::vector<std::string>& arguments);

 private:
  MessageCapture* outer_;
  std::vector<Message> messages_;
};

/// The same for a text that is not the host's to word: the message has no key.
QXDB_API void qxMsgOutText(Severity severity, const std::string& text);

}  // namespace qx
