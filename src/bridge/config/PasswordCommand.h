#pragma once

#include <QString>
#include <optional>

namespace corvina {

// Runs an account's passwordCommand (e.g. "pass show mail/work") and takes the password from the
// first line it prints. The command line is split into program and arguments the way a shell
// splits words (quotes kept together) and run directly, never through a shell, so that nothing in
// it is expanded. The password is never logged and never written anywhere by the bridge.
class PasswordCommand {
public:
    // Long enough for a keyring or a GPG agent that asks the user to unlock it.
    static constexpr int DefaultTimeoutMs = 60000;
    // The most a command may print: a password on its first line, and room for what tools such as
    // `pass` print after it. More is refused, and the command stopped.
    static constexpr qint64 MaximumOutputBytes = 64 * 1024;

    // The password, or nothing with `error` set to one line (the command's exit status and the
    // first line it wrote on stderr; never its output). `key` names the command in that line and
    // `what` what it should have printed: a tokenCommand is run by the same code, for a token.
    static std::optional<QString> run(const QString& commandLine, QString* error,
                                      int timeoutMs = DefaultTimeoutMs,
                                      const QString& key = QStringLiteral("passwordCommand"),
                                      const QString& what = QStringLiteral("password"));
};

} // namespace corvina
