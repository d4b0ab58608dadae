#pragma once

#include "bridge/config/AccountAnswers.h"
#include "bridge/config/AccountChanges.h"
#include "bridge/config/AccountGroup.h"
#include "bridge/config/BridgeConfig.h"
#include "bridge/config/ProviderTable.h"
#include "bridge/config/SecretStore.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QTextStream>
#include <QVariantMap>
#include <functional>
#include <optional>

namespace corvina {

// The subcommands that change the accounts: `account add` asks for the mail address first; for a
// provider of the providers table it fills in the server and the way of signing in, else it asks for
// them. Then it asks for the rest and the password (or a passwordCommand, then no password; or,
// signing in with oauth2, none: that is `account signin`), writes the group into bridge.conf and
// the password into the Secret Service;
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
    // The answers of `account add` so far, by the key each question has.
    using Answers = QMap<QString, QString>;
    // One question of `account add`, in the order they are asked.
    struct Question {
        QString key;    // the key in bridge.conf (or, for the group's name, a key of Answers alone)
        QString prompt; // as shown, before the default in brackets
        QString what;   // "the input ended before <what>"
        // Where the answer goes among the answers the group is made from (AccountAnswers).
        QString AccountAnswers::*field = nullptr;
        // The default offered from the answers before it; none when null.
        std::function<QString(const Answers&)> defaultValue = nullptr;
        // Whether it is asked at all; always when null. One not asked takes its default, if any.
        std::function<bool(const Answers&)> asked = nullptr;
        // What is wrong with the answer (the whole line after "account add: "), or empty; it may
        // also put the answer in the form it is kept in. Anything is taken when null.
        std::function<QString(QString& answer, const Answers&)> check = nullptr;
        // What is said once the answer is taken (lines for the person), or nothing when empty.
        std::function<QString(const Answers&)> told = nullptr;
    };
    // The questions of `account add` against the accounts already in `config`, with the providers
    // of `providers` known by their addresses' domains.
    QList<Question> questions(const BridgeConfig& config, const ProviderTable& providers) const;
    // Asks `questions` in turn: the answers, or nothing once one failed (said on `m_err`).
    std::optional<Answers> askAll(const QList<Question>& questions);
    // The account's group from its answers, made by AccountAnswers as the window makes it.
    static AccountGroup groupOf(const QList<Question>& questions, const Answers& answers);
    // Stores the typed password, then writes the group; the status of `account add`.
    int storeAndWrite(const AccountGroup& group, const BridgeConfig::Account& account);

    // The answer (trimmed; the default when empty), or nothing at the end of the input.
    std::optional<QString> ask(const QString& question, const QString& defaultValue = QString());
    // The password as typed: without echo at a terminal, never trimmed. Nothing at the end of input.
    std::optional<QString> askPassword();
    int fail(const QString& text);
    // The command `words` for account `name`, as printed for a person to run in a shell
    // (`check work`, `account signin work`).
    QString commandFor(const QString& words, const QString& name) const;

    QString m_path;
    QTextStream& m_in;
    QTextStream& m_out;
    QTextStream& m_err;
    bool m_terminal;
    AccountChanges m_changes; // what the window changes too, by the same code
};

} // namespace corvina
