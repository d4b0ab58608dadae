#include "platform/FileCoordinator.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

using namespace corvina;
using namespace std::chrono_literals;

namespace {

// A second holder of a sidecar's lock: its own open file, so flock() treats it as another owner
// even inside this process.
class Holder {
public:
    Holder(const QString& path, int operation)
        : m_fd(::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT, 0644)) {
        EXPECT_GE(m_fd, 0);
        EXPECT_EQ(::flock(m_fd, operation | LOCK_NB), 0);
    }
    ~Holder() { ::close(m_fd); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

private:
    int m_fd;
};

QByteArray contents(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TEST(FileCoordinator, TheSidecarLiesHiddenBesideTheItem) {
    EXPECT_EQ(FileCoordinator::lockPath(QUrl::fromLocalFile("/data/SharedData/Today")),
              QStringLiteral("/data/SharedData/.Today.lock"));
    EXPECT_EQ(FileCoordinator::lockPath(QUrl::fromLocalFile("/data/SharedData/Accounts.plist")),
              QStringLiteral("/data/SharedData/.Accounts.plist.lock"));
    EXPECT_EQ(FileCoordinator::lockPath(QUrl::fromLocalFile("/data/SharedData/Contacts/")),
              QStringLiteral("/data/SharedData/.Contacts.lock"));
}

TEST(FileCoordinator, AFreeItemIsReadAtOnceAndTheSidecarIsMade) {
    QTemporaryDir dir;
    const QUrl item = QUrl::fromLocalFile(dir.path() + "/Today");
    QUrl handed;
    QString error;
    EXPECT_TRUE(FileCoordinator(1s).coordinateReadingItemAtURL(
        item, FileCoordinator::ReadingWithoutChanges, &error, [&](const QUrl& url) { handed = url; }));
    EXPECT_EQ(handed, item);
    EXPECT_TRUE(error.isEmpty());
    EXPECT_TRUE(QFile::exists(dir.path() + "/.Today.lock"));
}

TEST(FileCoordinator, WithoutAParentFolderTheAccessorRunsUnlocked) {
    QTemporaryDir dir;
    const QUrl item = QUrl::fromLocalFile(dir.path() + "/missing/Today");
    bool ran = false;
    EXPECT_TRUE(
        FileCoordinator(1s).coordinateWritingItemAtURL(item, 1, nullptr, [&](const QUrl&) { ran = true; }));
    EXPECT_TRUE(ran);
    EXPECT_FALSE(QDir(dir.path() + "/missing").exists());
}

TEST(FileCoordinator, AnExclusiveHolderPastTheTimeoutFailsTheRead) {
    QTemporaryDir dir;
    const QUrl item = QUrl::fromLocalFile(dir.path() + "/Today");
    Holder writer(FileCoordinator::lockPath(item), LOCK_EX);
    bool ran = false;
    QString error;
    EXPECT_FALSE(
        FileCoordinator(100ms).coordinateReadingItemAtURL(item, 1, &error, [&](const QUrl&) { ran = true; }));
    EXPECT_FALSE(ran);
    EXPECT_EQ(error, dir.path() + "/.Today.lock is locked by another process; gave up after 100 ms");
}

TEST(FileCoordinator, ReadersShareButAWriterWaitsForThem) {
    QTemporaryDir dir;
    const QUrl item = QUrl::fromLocalFile(dir.path() + "/Accounts.plist");
    Holder reader(FileCoordinator::lockPath(item), LOCK_SH);
    bool read = false;
    EXPECT_TRUE(FileCoordinator(100ms).coordinateReadingItemAtURL(item, 1, nullptr,
                                                                  [&](const QUrl&) { read = true; }));
    EXPECT_TRUE(read);
    bool wrote = false;
    QString error;
    EXPECT_FALSE(FileCoordinator(100ms).coordinateWritingItemAtURL(item, 1, &error,
                                                                   [&](const QUrl&) { wrote = true; }));
    EXPECT_FALSE(wrote);
    EXPECT_TRUE(error.endsWith("is locked by another process; gave up after 100 ms")) << error.toStdString();
}

TEST(FileCoordinator, ABriefWriterInAnotherProcessIsWaitedForAndItsFileReadWhole) {
    QTemporaryDir dir;
    const QString file = dir.path() + "/Today";
    {
        QFile old(file);
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write("old");
    }
    const QUrl item = QUrl::fromLocalFile(file);
    // the writer's protocol: exclusive lock, new content under a hidden name, rename over the old
    QProcess writer;
    writer.start("flock", {"-x", FileCoordinator::lockPath(item), "-c",
                           "echo locked; sleep 0.3; printf new-content > " + dir.path() + "/.Today.tmp; mv " +
                               dir.path() + "/.Today.tmp " + file});
    ASSERT_TRUE(writer.waitForStarted(5000));
    ASSERT_TRUE(writer.waitForReadyRead(5000));
    ASSERT_EQ(writer.readLine().trimmed(), QByteArray("locked"));
    QByteArray seen;
    QString error;
    EXPECT_TRUE(FileCoordinator(5s).coordinateReadingItemAtURL(
        item, 1, &error, [&](const QUrl& url) { seen = contents(url.toLocalFile()); }));
    EXPECT_EQ(seen, QByteArray("new-content"));
    EXPECT_TRUE(writer.waitForFinished(5000));
    EXPECT_EQ(writer.exitCode(), 0);
}

TEST(FileCoordinator, AWriterInAnotherProcessHoldingTooLongFailsTheRead) {
    QTemporaryDir dir;
    const QUrl item = QUrl::fromLocalFile(dir.path() + "/Accounts.plist");
    QProcess writer;
    writer.start("flock", {"-x", FileCoordinator::lockPath(item), "-c", "echo locked; exec sleep 30"});
    ASSERT_TRUE(writer.waitForStarted(5000));
    ASSERT_TRUE(writer.waitForReadyRead(5000));
    QString error;
    bool ran = false;
    EXPECT_FALSE(
        FileCoordinator(200ms).coordinateWritingItemAtURL(item, 1, &error, [&](const QUrl&) { ran = true; }));
    EXPECT_FALSE(ran);
    EXPECT_EQ(error, dir.path() + "/.Accounts.plist.lock is locked by another process; gave up after 200 ms");
    writer.kill();
    writer.waitForFinished(5000);
}

TEST(FileCoordinator, ASidecarThatCannotBeOpenedIsAnError) {
    QTemporaryDir dir;
    const QUrl item = QUrl::fromLocalFile(dir.path() + "/Today");
    // a folder where the sidecar belongs
    ASSERT_TRUE(QDir().mkpath(dir.path() + "/.Today.lock"));
    QString error;
    bool ran = false;
    EXPECT_FALSE(
        FileCoordinator(100ms).coordinateReadingItemAtURL(item, 1, &error, [&](const QUrl&) { ran = true; }));
    EXPECT_FALSE(ran);
    EXPECT_TRUE(error.startsWith("cannot open lock file " + dir.path() + "/.Today.lock: "))
        << error.toStdString();
}

TEST(FileCoordinator, ASymlinkPlantedAsTheSidecarIsNotFollowed) {
    QTemporaryDir dir;
    const QUrl item = QUrl::fromLocalFile(dir.path() + "/Today");
    ASSERT_TRUE(QFile::link(dir.path() + "/elsewhere", dir.path() + "/.Today.lock"));
    QString error;
    EXPECT_FALSE(FileCoordinator(100ms).coordinateReadingItemAtURL(item, 1, &error, [](const QUrl&) {}));
    EXPECT_TRUE(error.startsWith("cannot open lock file ")) << error.toStdString();
    EXPECT_FALSE(QFile::exists(dir.path() + "/elsewhere"));
}

TEST(FileCoordinator, ANonFileLocationIsAnError) {
    QString error;
    bool ran = false;
    EXPECT_FALSE(FileCoordinator(100ms).coordinateReadingItemAtURL(QUrl(), 1, &error,
                                                                   [&](const QUrl&) { ran = true; }));
    EXPECT_FALSE(ran);
    EXPECT_EQ(error, QStringLiteral("no file location to coordinate: \"\""));
}

TEST(FileCoordinator, TheLockIsReleasedWhenTheAccessorThrows) {
    QTemporaryDir dir;
    const QUrl item = QUrl::fromLocalFile(dir.path() + "/Today");
    EXPECT_THROW(FileCoordinator(100ms).coordinateWritingItemAtURL(
                     item, 1, nullptr, [](const QUrl&) { throw std::runtime_error("boom"); }),
                 std::runtime_error);
    bool ran = false;
    EXPECT_TRUE(FileCoordinator(100ms).coordinateWritingItemAtURL(item, 1, nullptr,
                                                                  [&](const QUrl&) { ran = true; }));
    EXPECT_TRUE(ran);
}

TEST(FileCoordinator, TheDefaultTimeoutIsFiveSecondsAndAdjustable) {
    EXPECT_EQ(FileCoordinator::defaultTimeout(), 5000ms);
    FileCoordinator::setDefaultTimeout(50ms);
    EXPECT_EQ(FileCoordinator::defaultTimeout(), 50ms);
    FileCoordinator::setDefaultTimeout(5000ms);
}
