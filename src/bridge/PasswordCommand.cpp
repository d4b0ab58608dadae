#include "PasswordCommand.h"

#include "CommandLine.h"

#include <QProcess>
#include <QStringList>

namespace corvina {

std::optional<QString> PasswordCommand::run(const QString& commandLine, QString* error, int timeoutMs) {
    auto fail = [error](const QString& why) {
        if (error)
            *error = why;
        return std::nullopt;
    };
    QStringList words = CommandLine::words(commandLine);
    if (words.isEmpty())
        return fail(QStringLiteral("passwordCommand is empty"));
    const QString program = words.takeFirst();
    QProcess process;
    // The command may ask for a passphrase through its own agent, never on our standard input.
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, words);
    if (!process.waitForStarted(timeoutMs))
        return fail(QStringLiteral("passwordCommand %1 could not be started: %2")
                        .arg(program, process.errorString()));
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(1000);
        return fail(QStringLiteral("passwordCommand %1 did not finish within %2 s")
                        .arg(program)
                        .arg(timeoutMs / 1000));
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        const QString stderrLine =
            QString::fromUtf8(process.readAllStandardError()).section(u'\n', 0, 0).trimmed();
        QString why = process.exitStatus() != QProcess::NormalExit
                          ? QStringLiteral("passwordCommand %1 crashed").arg(program)
                          : QStringLiteral("passwordCommand %1 failed with status %2")
                                .arg(program)
                                .arg(process.exitCode());
        if (!stderrLine.isEmpty())
            why += QStringLiteral(": ") + stderrLine;
        return fail(why);
    }
    QString output = QString::fromUtf8(process.readAllStandardOutput());
    const qsizetype newline = output.indexOf(u'\n');
    if (newline >= 0)
        output.truncate(newline);
    if (output.endsWith(u'\r'))
        output.chop(1);
    if (output.isEmpty())
        return fail(QStringLiteral("passwordCommand %1 printed no password").arg(program));
    return output;
}

} // namespace corvina
