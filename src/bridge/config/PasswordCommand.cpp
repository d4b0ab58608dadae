#include "PasswordCommand.h"

#include "CommandLine.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QStringList>

namespace corvina {

std::optional<QString> PasswordCommand::run(const QString& commandLine, QString* error, int timeoutMs,
                                            const QString& key, const QString& what) {
    auto fail = [error](const QString& why) {
        if (error)
            *error = why;
        return std::nullopt;
    };
    QStringList words = CommandLine::words(commandLine);
    if (words.isEmpty())
        return fail(QStringLiteral("%1 is empty").arg(key));
    const QString program = words.takeFirst();
    QProcess process;
    // The command may ask for a passphrase through its own agent, never on our standard input.
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, words);
    if (!process.waitForStarted(timeoutMs))
        return fail(
            QStringLiteral("%1 %2 could not be started: %3").arg(key, program, process.errorString()));
    // Read as it comes, so that a command that prints without end is stopped at the bound instead
    // of filling our memory (or being sent to the server as a password).
    const QDeadlineTimer deadline(timeoutMs);
    QByteArray printed;
    QByteArray errors;
    for (;;) {
        printed += process.readAllStandardOutput();
        if (errors.size() < MaximumOutputBytes)
            errors += process.readAllStandardError();
        else
            process.readAllStandardError();
        if (printed.size() > MaximumOutputBytes) {
            process.kill();
            process.waitForFinished(1000);
            return fail(
                QStringLiteral("%1 %2 printed more than %3 bytes").arg(key, program).arg(MaximumOutputBytes));
        }
        if (process.state() == QProcess::NotRunning)
            break;
        if (deadline.hasExpired()) {
            process.kill();
            process.waitForFinished(1000);
            return fail(
                QStringLiteral("%1 %2 did not finish within %3 s").arg(key, program).arg(timeoutMs / 1000));
        }
        const int wait = static_cast<int>(qMin<qint64>(deadline.remainingTime(), 1000));
        // False at once when the command closed its output but goes on: then wait for its end.
        if (!process.waitForReadyRead(wait) && process.state() != QProcess::NotRunning)
            process.waitForFinished(qMin(wait, 100));
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        const QString stderrLine = QString::fromUtf8(errors).section(u'\n', 0, 0).trimmed();
        QString why =
            process.exitStatus() != QProcess::NormalExit
                ? QStringLiteral("%1 %2 crashed").arg(key, program)
                : QStringLiteral("%1 %2 failed with status %3").arg(key, program).arg(process.exitCode());
        if (!stderrLine.isEmpty())
            why += QStringLiteral(": ") + stderrLine;
        return fail(why);
    }
    QString output = QString::fromUtf8(printed);
    const qsizetype newline = output.indexOf(u'\n');
    if (newline >= 0)
        output.truncate(newline);
    if (output.endsWith(u'\r'))
        output.chop(1);
    if (output.isEmpty())
        return fail(QStringLiteral("%1 %2 printed no %3").arg(key, program, what));
    return output;
}

} // namespace corvina
