#pragma once

#include <QProcess>

namespace corvina::test {

// Ends a server a fixture started: asked politely first (SIGTERM), killed when it does not go within
// `timeoutMs`, and waited for either way, so that no test leaves one behind.
void stopProcess(QProcess& process, int timeoutMs);

} // namespace corvina::test
