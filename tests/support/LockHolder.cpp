#include "LockHolder.h"

#include "platform/FileCoordinator.h"

#include <QUrl>
#include <gtest/gtest.h>

namespace corvina::test {

LockHolder::LockHolder(const QString& item, std::chrono::milliseconds wait)
    : m_savedWait(FileCoordinator::defaultTimeout()) {
    FileCoordinator::setDefaultTimeout(wait);
    m_process.start("flock", {"-x", FileCoordinator::lockPath(QUrl::fromLocalFile(item)), "-c",
                              "echo locked; exec sleep 60"});
    EXPECT_TRUE(m_process.waitForStarted(5000));
    // the line comes once the lock is held
    EXPECT_TRUE(m_process.waitForReadyRead(5000));
    EXPECT_EQ(m_process.readLine().trimmed(), QByteArray("locked"));
}

LockHolder::~LockHolder() {
    m_process.kill();
    m_process.waitForFinished(5000);
    FileCoordinator::setDefaultTimeout(m_savedWait);
}

} // namespace corvina::test
