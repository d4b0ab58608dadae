#include "AccountList.h"

#include "bridge/config/AccountCredential.h"
#include "platform/DateFormatter.h"
#include "platform/Localization.h"
#include "platform/RegularFile.h"
#include "shared/BridgeStatusFile.h"

#include <QFileInfo>
#include <QJsonDocument>

namespace corvina {

namespace {

// A time of the status file for a person, as the widget says its "As of 10:42": the time alone
// today, with the day otherwise.
QString when(const QDateTime& utc, const QDateTime& now) {
    DateFormatter formatter;
    formatter.setLocale(Localization::locale());
    formatter.setTimeStyle(DateFormatter::Style::Short);
    if (formatter.calendarDay(utc) != formatter.calendarDay(now))
        formatter.setDateStyle(DateFormatter::Style::Short);
    return formatter.stringFromDate(utc);
}

QDateTime timeOf(const QJsonObject& status, const QString& key) {
    return QDateTime::fromString(status.value(key).toString(), Qt::ISODate);
}

// The folder `path` is in, or the nearest one above it that exists.
QString nearestFolder(const QString& path) {
    QFileInfo folder(QFileInfo(path).absolutePath());
    while (!folder.exists() && !folder.isRoot())
        folder = QFileInfo(folder.absolutePath());
    return folder.absoluteFilePath();
}

} // namespace

AccountList::AccountList(QString configPath, QString statusPath, QObject* parent)
    : QAbstractListModel(parent), m_configPath(std::move(configPath)), m_statusPath(std::move(statusPath)) {
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, &AccountList::reload);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &AccountList::reload);
    reload();
}

int AccountList::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_config.accounts().size());
}

QVariant AccountList::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_config.accounts().size())
        return {};
    const BridgeConfig::Account& account = m_config.accounts().at(index.row());
    const QString state = stateOf(account, m_status.value(account.name), QDateTime::currentDateTimeUtc());
    switch (role) {
    case Qt::DisplayRole:
        return QStringLiteral("%1 (%2)\n%3").arg(account.name, account.mail, state);
    case Qt::AccessibleTextRole:
        return QStringLiteral("%1, %2: %3").arg(account.name, account.mail, state);
    case NameRole:
        return account.name;
    case MailRole:
        return account.mail;
    case StateRole:
        return state;
    default:
        return {};
    }
}

QString AccountList::stateOf(const BridgeConfig::Account& account, const QJsonObject& status,
                             const QDateTime& now) {
    if (!account.problem.isEmpty())
        return Localization::text(QStringLiteral("The bridge cannot use it: %1")).arg(account.problem);
    if (!account.enabled)
        return Localization::text(QStringLiteral("Turned off (enabled = false in bridge.conf)"));
    if (status.isEmpty())
        return Localization::text(QStringLiteral("Not read yet: the bridge has not synced it"));
    using Key = BridgeStatusFile::Key;
    const QDateTime lastSync = timeOf(status, Key::lastSync);
    if (status.value(Key::ok).toBool(true) && lastSync.isValid())
        return Localization::text(QStringLiteral("Current as of %1")).arg(when(lastSync, now));
    const QString error = status.value(Key::lastError).toString().simplified();
    const QDateTime errorTime = timeOf(status, Key::lastErrorTime);
    const QString at = errorTime.isValid() ? when(errorTime, now) : QStringLiteral("?");
    // The bridge's own words stay as they are; only what the window adds is ours.
    if (error.startsWith(QLatin1String(AccountCredential::SignInNeeded)))
        return Localization::text(QStringLiteral("Sign-in needed (since %1): %2"))
            .arg(at, error.mid(int(qstrlen(AccountCredential::SignInNeeded))));
    if (lastSync.isValid())
        return Localization::text(QStringLiteral("Not current: %1 (at %2); last current at %3"))
            .arg(error, at, when(lastSync, now));
    return Localization::text(QStringLiteral("Not current: %1 (at %2)")).arg(error, at);
}

QMap<QString, QJsonObject> AccountList::readStatus() const {
    // Written by another program: not a plain file (a FIFO would block), too large, or a version
    // this reader does not know means nothing to show, as for the widget.
    RegularFile file = RegularFile::open(m_statusPath);
    if (!file.isOpen())
        return {};
    const std::optional<QByteArray> bytes = file.readAll(BridgeStatusFile::MostBytes);
    if (!bytes)
        return {};
    const QJsonObject status = QJsonDocument::fromJson(*bytes).object();
    if (status.value(BridgeStatusFile::Key::version).toInt() != BridgeStatusFile::FormatVersion)
        return {};
    QMap<QString, QJsonObject> found;
    const QJsonObject accounts = status.value(BridgeStatusFile::Key::accounts).toObject();
    for (auto it = accounts.begin(); it != accounts.end(); ++it) {
        if (it.value().isObject())
            found.insert(it.key(), it.value().toObject());
    }
    return found;
}

void AccountList::reload() {
    // The watches first, then the reads: a file written between the two is then either read now
    // or reported by a watch already in place. Read first, a status file the bridge wrote into a
    // folder it had just made could land before that folder was watched, and never show.
    follow();
    beginResetModel();
    m_config = BridgeConfig::load(m_configPath);
    m_status = readStatus();
    endResetModel();
    emit reloaded();
}

void AccountList::follow() {
    QStringList paths;
    for (const QString& file : {m_configPath, m_statusPath}) {
        if (QFileInfo::exists(file))
            paths << file;
        paths << nearestFolder(file);
    }
    paths.removeDuplicates();
    const QStringList watched = m_watcher.files() + m_watcher.directories();
    QStringList missing;
    for (const QString& path : paths) {
        if (!watched.contains(path))
            missing << path;
    }
    if (!missing.isEmpty())
        m_watcher.addPaths(missing);
}

} // namespace corvina
