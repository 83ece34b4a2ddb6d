#include "adapters/qt/qt_credential_prompt.h"

#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QFormLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>

namespace qx {
namespace {

/// A line as it is: an address is not to be read as markup.
QLabel* PlainLabel(const QString& text) {
  auto* label = new QLabel(text);
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  return label;
}

}  // namespace

std::uint32_t QtCredentialPrompt::Ask(const ProxyChallenge& challenge,
                                      ProxyCredentials& credentials) {
  QDialog dialog(parent_);
  dialog.setWindowTitle(QDialog::tr("Proxy Credentials"));
  dialog.setObjectName("proxy_credentials");
  const QString proxy = QString::fromStdString(challenge.proxy);
  const QString question =
      proxy.isEmpty() ? QDialog::tr("%1 asks as a proxy would, but no proxy is in use. Ask again?")
                            .arg(QString::fromStdString(challenge.address))
      : challenge.attempt > 1
          ? QDialog::tr("The proxy %1 did not accept that. Try again.").arg(proxy)
          : QDialog::tr("The proxy %1 asks for a user and password.").arg(proxy);
  auto* user = new QLineEdit(user_);
  auto* password = new QLineEdit;
  user->setObjectName("user");
  password->setObjectName("password");
  password->setEchoMode(QLineEdit::Password);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
  QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
  QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
  auto* form = new QFormLayout(&dialog);
  form->addRow(PlainLabel(question));
  form->addRow(QDialog::tr("&User"), user);
  form->addRow(QDialog::tr("&Password"), password);
  for (QWidget* field : {user, password}) {
    field->setVisible(!proxy.isEmpty());
    form->labelForField(field)->setVisible(!proxy.isEmpty());
  }
  form->addRow(buttons);
  (user_.isEmpty() ? user : password)->setFocus();
  if (dialog.exec() != QDialog::Accepted) return 0;
  user_ = user->text();
  credentials = {user_.toStdString(), password->text().toStdString()};
  return kForceRetry;
}

}  // namespace qx
