#include "BridgeStatus.h"

#include "shared/BridgeStatusFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

namespace corvina {

namespace {

QString isoTime(const QDateTime& when) {
    return when.toUTC().toString(Qt::ISODate);
}

} // namespace

QString BridgeStatus::defaultPath() {
    // The widget reads the file where the shared reader says it is.
    return BridgeStatusFile::defaultPath();
}

BridgeStatus::BridgeStatus(QString path) : m_path(std::move(path)) {
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    // An unreadable or foreign file is simply started afresh: it only ever holds what is
    // written again at the next sync.
    const QJsonObject status = QJsonDocument::fromJson(file.readAll()).object();
    const QJsonObject accounts = status.value(BridgeStatusFile::Key::accounts).toObject();
    m_lastCommand = status.value(BridgeStatusFile::Key::lastCommand).toObject();
    m_lastCommandFailure = status.value(BridgeStatusFile::Key::lastCommandFailure).toObject();
    for (auto it = accounts.begin(); it != accounts.end(); ++it) {
        if (it.value().isObject())
            m_accounts.insert(it.key(), it.value().toObject());
    }
}

void BridgeStatus::recordSync(const QString& account, const QString& mail, const QDateTime& when) {
    QJsonObject& entry = m_accounts[account];
    entry.insert(BridgeStatusFile::Key::mail, mail);
    entry.insert(BridgeStatusFile::Key::ok, true);
    entry.insert(BridgeStatusFile::Key::lastSync, isoTime(when));
}

void BridgeStatus::recordFailure(const QString& account, const QString& mail, const QString& error,
                                 const QDateTime& when) {
    QJsonObject& entry = m_accounts[account];
    entry.insert(BridgeStatusFile::Key::mail, mail);
    entry.insert(BridgeStatusFile::Key::ok, false);
    entry.insert(BridgeStatusFile::Key::lastError, error);
    entry.insert(BridgeStatusFile::Key::lastErrorTime, isoTime(when));
}

void BridgeStatus::recordCommand(const QString& command, const QString& mail, bool ok, const QString& error,
                                 const QDateTime& when) {
    QJsonObject entry{{BridgeStatusFile::Key::command, command},
                      {BridgeStatusFile::Key::account, mail},
                      {BridgeStatusFile::Key::ok, ok},
                      {BridgeStatusFile::Key::time, isoTime(when)}};
    if (!ok) {
        entry.insert(BridgeStatusFile::Key::error, error);
        m_lastCommandFailure = entry;
    }
    m_lastCommand = entry;
}

void BridgeStatus::keepOnly(const QStringList& accounts) {
    for (auto it = m_accounts.begin(); it != m_accounts.end();) {
        if (accounts.contains(it.key()))
            ++it;
        else
            it = m_accounts.erase(it);
    }
}

QJsonObject BridgeStatus::toJson() const {
    QJsonObject accounts;
    for (auto it = m_accounts.begin(); it != m_accounts.end(); ++it)
        accounts.insert(it.key(), it.value());
    QJsonObject status{{BridgeStatusFile::Key::version, BridgeStatusFile::FormatVersion},
                       {BridgeStatusFile::Key::accounts, accounts}};
    if (!m_lastCommand.isEmpty())
        status.insert(BridgeStatusFile::Key::lastCommand, m_lastCommand);
    if (!m_lastCommandFailure.isEmpty())
        status.insert(BridgeStatusFile::Key::lastCommandFailure, m_lastCommandFailure);
    return status;
}

bool BridgeStatus::write(QString* error) const {
    const QString folder = QFileInfo(m_path).absolutePath();
    if (!QDir().mkpath(folder)) {
        *error = QStringLiteral("cannot create %1").arg(folder);
        return false;
    }
    // QSaveFile writes a temporary beside the file, flushes it to disk and renames it into place.
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QJsonDocument(toJson()).toJson(QJsonDocument::Indented)) < 0 || !file.commit()) {
        *error = QStringLiteral("cannot write %1: %2").arg(m_path, file.errorString());
        return false;
    }
    return true;
}

} // namespace corvina
