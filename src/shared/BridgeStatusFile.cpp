#include "BridgeStatusFile.h"

#include "platform/RegularFile.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>

namespace corvina {

QString BridgeStatusFile::defaultPath() {
    // Qt 6.4 knows no state location of its own; the XDG rule is simple enough to follow here.
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    if (state.isEmpty() || !QDir::isAbsolutePath(state))
        state = QDir::homePath() + QStringLiteral("/.local/state");
    return state + QStringLiteral("/corvina/bridge-status.json");
}

QList<BridgeStatusFile::Failure> BridgeStatusFile::failures(const QString& path) {
    // Not a plain file (a FIFO would block the reader), missing or too large: nothing to say.
    RegularFile file = RegularFile::open(path);
    if (!file.isOpen())
        return {};
    const std::optional<QByteArray> bytes = file.readAll(MostBytes);
    if (!bytes)
        return {};
    const QJsonObject status = QJsonDocument::fromJson(*bytes).object();
    // Only the version this reader knows; a later bridge's file may mean other things.
    if (status.value(Key::version).toInt() != FormatVersion)
        return {};
    const QJsonObject accounts = status.value(Key::accounts).toObject();
    QList<Failure> found;
    for (auto it = accounts.begin(); it != accounts.end(); ++it) {
        const QJsonObject account = it.value().toObject();
        // "ok" true or missing: the latest attempt did not fail (the error kept from before a
        // later success is history, not news).
        if (account.value(Key::ok).toBool(true))
            continue;
        const QString error = account.value(Key::lastError).toString().simplified();
        if (error.isEmpty())
            continue;
        Failure failure;
        failure.account = it.key();
        failure.mail = account.value(Key::mail).toString();
        failure.error = error;
        failure.time = QDateTime::fromString(account.value(Key::lastErrorTime).toString(), Qt::ISODate);
        found << failure;
    }
    return found;
}

} // namespace corvina
