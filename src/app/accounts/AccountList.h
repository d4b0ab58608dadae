#pragma once

#include "bridge/config/BridgeConfig.h"

#include <QAbstractListModel>
#include <QDateTime>
#include <QFileSystemWatcher>
#include <QJsonObject>
#include <QMap>
#include <QString>

namespace corvina {

// The accounts of bridge.conf, each with what the bridge last managed for it (its status file), in
// words: the rows of the Accounts window. Both files are followed live: the bridge rewrites the
// status file after every sync and failure, and the config changes when an account is added or
// removed (by this window, by `corvina-mail-bridge account ...` or by hand).
class AccountList : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role {
        NameRole = Qt::UserRole + 1, // the group's name in bridge.conf
        MailRole,
        StateRole, // the state in words (stateOf)
    };

    AccountList(QString configPath, QString statusPath, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    const BridgeConfig& config() const { return m_config; }
    const QString& configPath() const { return m_configPath; }
    // Reads both files again (they are followed; this is for a change the window just made).
    void reload();

    // What the window says of `account`, from its entry in the status file (`status`, empty when
    // it has none) at `now`: current as of when; the last error in the bridge's own words;
    // "Sign-in needed"; or why the bridge cannot use it at all.
    static QString stateOf(const BridgeConfig::Account& account, const QJsonObject& status,
                           const QDateTime& now);

signals:
    // The rows were read again.
    void reloaded();

private:
    // Each account's entry of the status file, by group name; nothing for a missing or foreign file.
    QMap<QString, QJsonObject> readStatus() const;
    // (Re)starts following both files: a file replaced by a rename leaves the watcher, and a file
    // (or folder) that does not exist yet is followed through the nearest folder that does.
    void follow();

    QString m_configPath;
    QString m_statusPath;
    BridgeConfig m_config;
    QMap<QString, QJsonObject> m_status;
    QFileSystemWatcher m_watcher;
};

} // namespace corvina
