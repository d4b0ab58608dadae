#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace corvina::test {

// A real Secret Service for a test: gnome-keyring-daemon on the process's private session bus
// (PrivateSessionBus), with its home, runtime folder and keyrings in a temporary folder, and its
// login keyring made and unlocked with a password fed on its standard input. Stopped when the
// object goes away, so nothing of it outlives the test.
class KeyringDaemon {
public:
    KeyringDaemon();
    ~KeyringDaemon();
    KeyringDaemon(const KeyringDaemon&) = delete;
    KeyringDaemon& operator=(const KeyringDaemon&) = delete;

    // Starts the daemon and waits, for a bounded time, until its default keyring answers on the
    // bus. False with `error` set when it does not.
    bool start(QString* error = nullptr);
    void stop();
    // Stops the daemon's process in its tracks (SIGSTOP): it keeps its name on the bus but answers
    // nothing, as a hung keyring does. resume() lets it go on.
    void freeze();
    void resume();

    // Where the daemon keeps its keyrings, to look into what it wrote.
    QString keyringFolder() const;
    QString directory() const { return m_dir.path(); }

private:
    bool defaultCollectionAnswers() const;

    QTemporaryDir m_dir;
    QProcess m_process;
    bool m_frozen = false;
};

} // namespace corvina::test
