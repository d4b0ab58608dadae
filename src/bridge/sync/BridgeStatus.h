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
//     },
//     "lastCommand": {                              (the widget's last command, carried out or not)
//       "command": "archive", "account": "ada@example.org", "ok": false,
//       "error": "archive: the message is no longer in INBOX", "time": "2024-05-02T10:43:00Z"
//     },
//     "lastCommandFailure": { ... }                 (the last command that failed, kept after later ones)
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
    // A command of the widget's (archive, open, ...) for the account of `mail` (as the command named
    // it, which may be no configured account), carried out or failed with `error`.
    void recordCommand(const QString& command, const QString& mail, bool ok, const QString& error,
                       const QDateTime& when);
    // Forgets the accounts not named (removed from the configuration).
    void keepOnly(const QStringList& accounts);

    QJsonObject toJson() const;
    // Replaces the file atomically, creating its folder; false with `error` set when it cannot.
    bool write(QString* error) const;

private:
    QString m_path;
    QMap<QString, QJsonObject> m_accounts;
    QJsonObject m_lastCommand;
    QJsonObject m_lastCommandFailure;
};

} // namespace corvina
