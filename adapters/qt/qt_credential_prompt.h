#pragma once
// The dialog that asks for the credentials of a proxy.
// Threads: that of the user interface.

#include <QtCore/QPointer>
#include <QtWidgets/QDialog>

#include "qx_db/net/web_util.h"

class QLineEdit;

namespace qx {

/// Asks in a modal dialog above `parent`; above all windows without one.
class QtCredentialPrompt final : public ICredentialPrompt {
 public:
  explicit QtCredentialPrompt(QWidget* parent = nullptr) : parent_(parent) {}
  std::uint32_t Ask(const ProxyChallenge& challenge, ProxyCredentials& credentials) override;

 private:
  QPointer<QWidget> parent_;
  QString user_;  // typed before
};

}  // namespace qx
