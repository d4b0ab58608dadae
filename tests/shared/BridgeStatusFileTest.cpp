#include "shared/BridgeStatusFile.h"

#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace corvina;
using corvina::test::ScopedEnvironment;

namespace {

QString write(const QTemporaryDir& dir, const QByteArray& bytes) {
    const QString path = dir.filePath(QStringLiteral("bridge-status.json"));
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
    return path;
}

} // namespace

TEST(BridgeStatusFile, TheDefaultPathFollowsXdgStateHome) {
    QTemporaryDir dir;
    {
        ScopedEnvironment state("XDG_STATE_HOME", dir.path().toUtf8());
        EXPECT_EQ(BridgeStatusFile::defaultPath(),
                  dir.path() + QStringLiteral("/corvina/bridge-status.json"));
    }
    // Relative or unset: the XDG default under the home folder.
    ScopedEnvironment state("XDG_STATE_HOME", QByteArray("relative/state"));
    EXPECT_EQ(BridgeStatusFile::defaultPath(),
              QDir::homePath() + QStringLiteral("/.local/state/corvina/bridge-status.json"));
}

TEST(BridgeStatusFile, AnAccountWhoseLatestAttemptFailedIsReported) {
    QTemporaryDir dir;
    const QString path = write(dir, R"({"version": 1, "accounts": {
        "work": {"mail": "work@example.org", "ok": false, "lastError": "login refused for work@example.org",
                 "lastErrorTime": "2026-11-25T10:42:00Z", "lastSync": "2026-11-25T09:00:00Z"},
        "home": {"mail": "me@example.net", "ok": true, "lastError": "unreachable", "lastErrorTime": "2026-11-24T08:00:00Z"},
        "quiet": {"mail": "q@example.net"}
    }})");
    const QList<BridgeStatusFile::Failure> failures = BridgeStatusFile::failures(path);
    // Only the account whose latest attempt failed: an error followed by a success is history, and
    // an account the file says nothing about has not failed.
    ASSERT_EQ(failures.size(), 1);
    EXPECT_EQ(failures.at(0).account, QStringLiteral("work"));
    EXPECT_EQ(failures.at(0).mail, QStringLiteral("work@example.org"));
    EXPECT_EQ(failures.at(0).error, QStringLiteral("login refused for work@example.org"));
    EXPECT_EQ(failures.at(0).time, QDateTime(QDate(2026, 11, 25), QTime(10, 42), Qt::UTC));
}

TEST(BridgeStatusFile, AFailureWithoutWordsOrTimeIsHandled) {
    QTemporaryDir dir;
    const QString path = write(dir, R"({"version": 1, "accounts": {
        "a": {"ok": false, "lastError": "   "},
        "b": {"ok": false, "lastError": "folder missing:\n Archive", "lastErrorTime": "yesterday"}
    }})");
    const QList<BridgeStatusFile::Failure> failures = BridgeStatusFile::failures(path);
    // No words: nothing to say. A bad time: said without one. One line, whatever the file held.
    ASSERT_EQ(failures.size(), 1);
    EXPECT_EQ(failures.at(0).error, QStringLiteral("folder missing: Archive"));
    EXPECT_FALSE(failures.at(0).time.isValid());
}

TEST(BridgeStatusFile, MissingForeignOrBrokenFilesSayNothing) {
    QTemporaryDir dir;
    EXPECT_TRUE(BridgeStatusFile::failures(dir.filePath(QStringLiteral("missing.json"))).isEmpty());
    EXPECT_TRUE(BridgeStatusFile::failures(dir.path()).isEmpty()); // a folder
    EXPECT_TRUE(BridgeStatusFile::failures(write(dir, "{\"version\": 1, \"accounts\": {\"a\": {\"ok\": fal"))
                    .isEmpty());
    EXPECT_TRUE(BridgeStatusFile::failures(write(dir, "[1, 2, 3]")).isEmpty());
    // Another version of the file may mean other things by the same keys.
    EXPECT_TRUE(BridgeStatusFile::failures(
                    write(dir, R"({"version": 2, "accounts": {"a": {"ok": false, "lastError": "x"}}})"))
                    .isEmpty());
}

TEST(BridgeStatusFile, AFifoInItsPlaceDoesNotBlock) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("bridge-status.json"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    // Returns at once (a blocking open would hang the test until its timeout).
    EXPECT_TRUE(BridgeStatusFile::failures(path).isEmpty());
}

TEST(BridgeStatusFile, AnOversizedFileIsNotRead) {
    QTemporaryDir dir;
    QByteArray big = R"({"version": 1, "accounts": {"a": {"ok": false, "lastError": "x"}}, "pad": ")";
    big += QByteArray(BridgeStatusFile::MostBytes, 'x');
    big += "\"}";
    EXPECT_TRUE(BridgeStatusFile::failures(write(dir, big)).isEmpty());
    // The same content, small: read.
    EXPECT_EQ(
        BridgeStatusFile::failures(
            write(dir, R"({"version": 1, "accounts": {"a": {"ok": false, "lastError": "x"}}, "pad": ""})"))
            .size(),
        1);
}
