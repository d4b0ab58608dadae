#pragma once

#include "bridge/config/BridgeConfig.h"
#include "bridge/config/SecretStore.h"

#include <QString>
#include <QTextStream>
#include <QVariantMap>
#include <optional>

namespace corvina {

// The subcommands that change the accounts: `account add` asks for an account's settings and its
// password (or a passwordCommand, then no password), writes the group into bridge.conf and the
// password into the Secret Service;
// `account password` replaces a stored password; `account remove` takes both away again.
//
// Answers are read a line at a time from `in`: a person at a terminal types them (the password
// without echo), a script pipes them. An empty answer takes the default shown in brackets.
class AccountSetup {
public:
    enum Status : int { Ok = 0, Failed = 1, UsageError = 2 };

    AccountSetup(QString configPath, QTextStream& in, QTextStream& out, QTextStream& err, bool terminal,
                 int secretTimeoutMs = SecretStore::DefaultTimeoutMs);

    int add();
    int setPassword(const QString& account);
    int remove(const QString& account);

private:
    // The answer (trimmed; the default when empty), or nothing at the end of the input.
    std::optional<QString> ask(const QString& question, const QString& defaultValue = QString());
    // The password as typed: without echo at a terminal, never trimmed. Nothing at the end of input.
    std::optional<QString> askPassword();
    // The account as the bridge would read these keys, so that `add` refuses what `--once` would.
    static BridgeConfig::Account validate(const QString& name, const QVariantMap& keys);
    bool writeGroup(const QString& name, const QVariantMap& keys, QString* error) const;
    int fail(const QString& text);
    // The command that checks account `name`, as printed for a person to run in a shell.
    QString checkCommand(const QString& name) const;

    QString m_path;
    QTextStream& m_in;
    QTextStream& m_out;
    QTextStream& m_err;
    bool m_terminal;
    SecretStore m_secrets;
};

} // namespace corvina
