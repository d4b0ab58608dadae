#pragma once

#include <QProcess>
#include <QString>
#include <chrono>

namespace corvina::test {

// Another process (util-linux flock) holding the exclusive lock that guards `item`, until this
// object goes. While it lives, the default wait of every FileCoordinator is shortened to
// `wait` so that a test sees the timeout quickly.
class LockHolder {
public:
    explicit LockHolder(const QString& item, std::chrono::milliseconds wait = std::chrono::milliseconds(150));
    ~LockHolder();
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

private:
    QProcess m_process;
    std::chrono::milliseconds m_savedWait;
};

} // namespace corvina::test
