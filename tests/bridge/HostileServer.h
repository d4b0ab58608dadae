#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

namespace corvina::test {

// The scripted IMAP server of tests/support/programs/hostile_imap.py, a stand-in that misbehaves on
// purpose (see the script for its modes), run for the life of this object on a port of its own.
class HostileServer {
public:
    // Starts the script with `arguments` (for instance {"--mode", "reset"}); false with `error`
    // set when it does not come up.
    bool start(const QStringList& arguments, QString* error);
    ~HostileServer();

    quint16 port() const { return m_port; }

private:
    QProcess m_process;
    quint16 m_port = 0;
};

} // namespace corvina::test
