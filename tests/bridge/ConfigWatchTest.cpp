// The running bridge's watch on bridge.conf: the writers replace the file whole (a temporary
// renamed over it), and every replacement must be noticed, once per burst.
#include "bridge/service/ConfigWatch.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

// Generous, so that a loaded machine does not fail the test; the watch itself answers in well
// under a second.
constexpr int ConfigWatchBoundMs = 20000;

void writeReplacing(const QString& path, const QByteArray& text) {
    const QString temporary = path + QStringLiteral(".new");
    QFile file(temporary);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
    file.close();
    QFile::remove(path);
    ASSERT_TRUE(QFile::rename(temporary, path));
}

// Waits until `spy` has at least `count` signals, then a little longer for a stray one.
void waitFor(QSignalSpy& spy, int count) {
    const QDeadlineTimer deadline(ConfigWatchBoundMs);
    while (spy.size() < count && !deadline.hasExpired())
        spy.wait(100);
}

TEST(ConfigWatchTest, AReplacedFileIsNoticedOncePerBurstAndEveryTime) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("bridge.conf"));
    writeReplacing(path, "[work]\nmail = a@b.org\n");
    // A second, so that the three writes of the burst fall within it on a busy machine too.
    ConfigWatch watch(path, 1000);
    ASSERT_TRUE(watch.isWatching());
    QSignalSpy changed(&watch, &ConfigWatch::changed);

    // A burst: three replacements in a row are read once.
    for (int i = 0; i < 3; ++i)
        writeReplacing(path,
                       QByteArrayLiteral("[work]\nmail = a@b.org\npoll = ") + QByteArray::number(60 + i));
    waitFor(changed, 1);
    ASSERT_EQ(changed.size(), 1);
    // Nothing more comes of it: the burst is over (a stray signal would arrive within the gather).
    EXPECT_FALSE(changed.wait(2000));
    EXPECT_EQ(changed.size(), 1);

    // The file replaced again is a new file: still noticed.
    writeReplacing(path, "[work]\nmail = c@d.org\n");
    waitFor(changed, 2);
    EXPECT_EQ(changed.size(), 2);

    // Written in place, as an editor may do.
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("poll = 90\n");
    file.close();
    waitFor(changed, 3);
    EXPECT_EQ(changed.size(), 3);
}

TEST(ConfigWatchTest, AFileMadeWhereThereWasNoneIsNoticed) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("bridge.conf"));
    ConfigWatch watch(path, 200);
    ASSERT_TRUE(watch.isWatching());
    QSignalSpy changed(&watch, &ConfigWatch::changed);
    writeReplacing(path, "[work]\nmail = a@b.org\n");
    waitFor(changed, 1);
    EXPECT_EQ(changed.size(), 1);
}

TEST(ConfigWatchTest, WithoutItsFolderItSaysItIsNotWatching) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    ConfigWatch watch(dir.filePath(QStringLiteral("gone/bridge.conf")));
    EXPECT_FALSE(watch.isWatching());
}

} // namespace
} // namespace corvina::test
