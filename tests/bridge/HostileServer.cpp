#include "HostileServer.h"

#include <QDeadlineTimer>

namespace corvina::test {

bool HostileServer::start(const QStringList& arguments, QString* error) {
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(
        QStringLiteral("python3"),
        QStringList{QStringLiteral(CORVINA_SOURCE_DIR "/tests/support/programs/hostile_imap.py")} +
            arguments);
    // The script prints its port once it listens.
    const QDeadlineTimer deadline(20000);
    while (!m_process.canReadLine() && !deadline.hasExpired() && m_process.state() != QProcess::NotRunning)
        m_process.waitForReadyRead(100);
    bool ok = false;
    m_port = static_cast<quint16>(m_process.readLine().trimmed().toUInt(&ok));
    if (!ok || m_port == 0) {
        *error = QStringLiteral("hostile_imap.py did not start: %1").arg(m_process.errorString());
        return false;
    }
    return true;
}

HostileServer::~HostileServer() {
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

} // namespace corvina::test
