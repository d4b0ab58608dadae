#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

namespace corvina {

// The widget's side of the mail bridge's status file ($XDG_STATE_HOME/corvina/bridge-status.json,
// written by corvina-mail-bridge, described in docs/bridge.md): which accounts the bridge last
// failed to sync, so that the widget can say why its list may be old ("As of 10:42: login refused
// for ada") instead of showing it as if it were fresh.
//
// Only read, never written here. The file comes from another program: a missing, unreadable,
// oversized or foreign file, or a FIFO in its place, simply means "nothing to report".
class BridgeStatusFile {
public:
    // An account whose latest attempt failed.
    struct Failure {
        QString account; // the bridge's name for it ("work")
        QString mail;    // its address, may be empty
        QString error;   // the bridge's own words ("login refused for ada")
        QDateTime time;  // when it failed; invalid when the file does not say
    };

    // The file's version and keys: the one place both its writer (the bridge's BridgeStatus) and
    // its readers spell them.
    static constexpr int FormatVersion = 1;
    struct Key {
        static inline const QString version = QStringLiteral("version");
        static inline const QString accounts = QStringLiteral("accounts");
        // an account's entry
        static inline const QString mail = QStringLiteral("mail");
        static inline const QString ok = QStringLiteral("ok");
        static inline const QString lastSync = QStringLiteral("lastSync");
        static inline const QString lastError = QStringLiteral("lastError");
        static inline const QString lastErrorTime = QStringLiteral("lastErrorTime");
        // the commands' outcome
        static inline const QString lastCommand = QStringLiteral("lastCommand");
        static inline const QString lastCommandFailure = QStringLiteral("lastCommandFailure");
        static inline const QString command = QStringLiteral("command");
        static inline const QString account = QStringLiteral("account");
        static inline const QString time = QStringLiteral("time");
        static inline const QString error = QStringLiteral("error");
    };

    // Larger than any status file the bridge writes for a few hundred accounts.
    static constexpr qint64 MostBytes = 1024 * 1024;

    // $XDG_STATE_HOME/corvina/bridge-status.json, ~/.local/state when XDG_STATE_HOME is unset or
    // not absolute. The bridge writes where this says.
    static QString defaultPath();

    // The accounts of the file at `path` whose latest attempt failed (ok false, an error given),
    // in the order of their names.
    static QList<Failure> failures(const QString& path);
};

} // namespace corvina
