#include "ProcessStop.h"

namespace corvina::test {

void stopProcess(QProcess& process, int timeoutMs) {
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(timeoutMs);
    }
}

} // namespace corvina::test
