#include "WidgetTesting.h"

#include "platform/Dispatch.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

namespace corvina::test {

bool drain(const std::function<bool()>& done, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        Dispatch::backgroundPool().waitForDone(50);
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        const bool idle =
            Dispatch::pendingMainBlocks() == 0 && Dispatch::backgroundPool().activeThreadCount() == 0;
        if (idle && (!done || done()))
            return true;
        if (idle && done)
            QThread::msleep(5); // animations advance on timers: let time pass
    }
    return false;
}

ScopedSettings::ScopedSettings() {
    m_environment = std::make_unique<ScopedEnvironment>("XDG_CONFIG_HOME", m_dir.path().toUtf8());
}

} // namespace corvina::test
