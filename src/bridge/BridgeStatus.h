#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>

namespace corvina {

// What the bridge last managed for each account, kept in $XDG_STATE_HOME/corvina/bridge-status.json
// so that the widget and scripts can say "as of 10:42, login refused" when the bridge is not
// running:
//
//   {
//     "version": 1,
//     "accounts": {
//       "work": {
//         "mail": "ada@example.org",
//         "ok": false,                              (whether the latest attempt succeeded)
//         "lastSync": "2024-05-02T10:40:00Z",       (the last complete sync, when there was one)
//         "lastError": "login refused for ada",     (the last failure, kept after a later success)
//         "lastErrorTime": "2024-05-02T10:42:00Z"
//       }
//     }
//   }
//
// Times are UTC in ISO 8601. The file is replaced whole (a temporary in the same folder, then a
// rename), so a reader sees the old or the new content, never half of it. One process owns it at a
// time: the bridge's main thread, or `--once`.
class BridgeStatus {
public:
    // $XDG_STATE_HOME/corvina/bridge-status.json, ~/.local/state when XDG_STATE_HOME is unset or
    // not absolute.
    static QString defaultPath();

    // Starts from what `path` holds, so that an account's last sync survives a restart.
    explicit BridgeStatus(QString path);

    QString path() const { return m_path; }

    void recordSync(const QString& account, const QString& mail, const QDateTime& when);
    void recordFailure(const QString& account, const QString& mail, const QString& error,
                       const QDateTime& when);
    // Forgets the accounts not named (removed from the configuration).
    void keepOnly(const QStringList& accounts);

    QJsonObject toJson() const;
    // Replaces the file atomically, creating its folder; false with `error` set when it cannot.
    bool write(QString* error) const;

private:
    QString m_path;
    QMap<QString, QJsonObject> m_accounts;
};

} // namespace corvina
