// The status file: each account's last sync and last error, kept across runs.
#include "bridge/sync/BridgeStatus.h"

#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

class BridgeStatusTest : public ::testing::Test {
protected:
    QString path() const { return dir.filePath(QStringLiteral("state/corvina/bridge-status.json")); }

    QJsonObject read() const {
        QFile file(path());
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        QJsonParseError error{};
        const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
        EXPECT_EQ(error.error, QJsonParseError::NoError);
        return document.object();
    }

    static QDateTime at(const char* iso) { return QDateTime::fromString(QLatin1String(iso), Qt::ISODate); }

    QTemporaryDir dir;
};

TEST_F(BridgeStatusTest, TheFileSaysTheLastSyncAndTheLastErrorWithTheirTimes) {
    BridgeStatus status(path());
    status.recordSync(QStringLiteral("work"), QStringLiteral("ada@example.org"), at("2024-05-02T10:40:00Z"));
    status.recordFailure(QStringLiteral("work"), QStringLiteral("ada@example.org"),
                         QStringLiteral("login refused for ada"), at("2024-05-02T12:42:00+02:00"));
    status.recordSync(QStringLiteral("home"), QStringLiteral("ada@home.example"), at("2024-05-02T10:41:00Z"));
    QString error;
    ASSERT_TRUE(status.write(&error)) << error.toStdString();

    const QJsonObject expected{
        {"version", 1},
        {"accounts", QJsonObject{{"work", QJsonObject{{"mail", "ada@example.org"},
                                                      {"ok", false},
                                                      {"lastSync", "2024-05-02T10:40:00Z"},
                                                      {"lastError", "login refused for ada"},
                                                      {"lastErrorTime", "2024-05-02T10:42:00Z"}}},
                                 {"home", QJsonObject{{"mail", "ada@home.example"},
                                                      {"ok", true},
                                                      {"lastSync", "2024-05-02T10:41:00Z"}}}}}};
    EXPECT_EQ(read(), expected) << QJsonDocument(read()).toJson().toStdString();
}

TEST_F(BridgeStatusTest, ALaterSuccessKeepsTheLastErrorAndSaysOk) {
    BridgeStatus status(path());
    status.recordFailure(QStringLiteral("work"), QStringLiteral("a@x"), QStringLiteral("host unreachable"),
                         at("2024-05-02T10:40:00Z"));
    status.recordSync(QStringLiteral("work"), QStringLiteral("a@x"), at("2024-05-02T10:41:00Z"));
    QString error;
    ASSERT_TRUE(status.write(&error));
    const QJsonObject work = read()["accounts"].toObject()["work"].toObject();
    EXPECT_TRUE(work["ok"].toBool());
    EXPECT_EQ(work["lastError"].toString(), QStringLiteral("host unreachable"));
    EXPECT_EQ(work["lastErrorTime"].toString(), QStringLiteral("2024-05-02T10:40:00Z"));
    EXPECT_EQ(work["lastSync"].toString(), QStringLiteral("2024-05-02T10:41:00Z"));
}

TEST_F(BridgeStatusTest, ANewRunStartsFromTheFileAndForgetsRemovedAccounts) {
    {
        BridgeStatus first(path());
        first.recordSync(QStringLiteral("work"), QStringLiteral("a@x"), at("2024-05-02T10:40:00Z"));
        first.recordSync(QStringLiteral("gone"), QStringLiteral("g@x"), at("2024-05-02T10:40:00Z"));
        QString error;
        ASSERT_TRUE(first.write(&error));
    }
    BridgeStatus second(path());
    second.recordFailure(QStringLiteral("work"), QStringLiteral("a@x"), QStringLiteral("login refused"),
                         at("2024-05-02T11:00:00Z"));
    second.keepOnly({QStringLiteral("work")});
    QString error;
    ASSERT_TRUE(second.write(&error));
    const QJsonObject accounts = read()["accounts"].toObject();
    EXPECT_EQ(accounts.keys(), QStringList{QStringLiteral("work")});
    EXPECT_EQ(accounts["work"].toObject()["lastSync"].toString(), QStringLiteral("2024-05-02T10:40:00Z"));
    EXPECT_FALSE(accounts["work"].toObject()["ok"].toBool(true));
}

TEST_F(BridgeStatusTest, TheLastCommandAndTheLastFailedOneAreKeptAcrossRuns) {
    {
        BridgeStatus status(path());
        status.recordCommand(QStringLiteral("archive"), QStringLiteral("ada@example.org"), false,
                             QStringLiteral("archive: the message is no longer in INBOX"),
                             at("2024-05-02T10:43:00Z"));
        status.recordCommand(QStringLiteral("open"), QStringLiteral("nobody@example.org"), true, QString(),
                             at("2024-05-02T10:44:00Z"));
        QString error;
        ASSERT_TRUE(status.write(&error)) << error.toStdString();
    }
    const QJsonObject written = read();
    EXPECT_EQ(written.value(QStringLiteral("lastCommand")).toObject(),
              (QJsonObject{{QStringLiteral("command"), QStringLiteral("open")},
                           {QStringLiteral("account"), QStringLiteral("nobody@example.org")},
                           {QStringLiteral("ok"), true},
                           {QStringLiteral("time"), QStringLiteral("2024-05-02T10:44:00Z")}}));
    const QJsonObject failure{
        {QStringLiteral("command"), QStringLiteral("archive")},
        {QStringLiteral("account"), QStringLiteral("ada@example.org")},
        {QStringLiteral("ok"), false},
        {QStringLiteral("error"), QStringLiteral("archive: the message is no longer in INBOX")},
        {QStringLiteral("time"), QStringLiteral("2024-05-02T10:43:00Z")}};
    EXPECT_EQ(written.value(QStringLiteral("lastCommandFailure")).toObject(), failure);

    // A new run (the bridge restarted) keeps both until a new command replaces them.
    BridgeStatus again(path());
    again.recordSync(QStringLiteral("work"), QStringLiteral("ada@example.org"), at("2024-05-02T11:00:00Z"));
    EXPECT_EQ(again.toJson().value(QStringLiteral("lastCommandFailure")).toObject(), failure);
    EXPECT_EQ(again.toJson().value(QStringLiteral("lastCommand")).toObject().value(QStringLiteral("command")),
              QStringLiteral("open"));
}

TEST_F(BridgeStatusTest, TheFileIsReplacedWholeWithNothingLeftBeside) {
    BridgeStatus status(path());
    status.recordSync(QStringLiteral("work"), QStringLiteral("a@x"), at("2024-05-02T10:40:00Z"));
    QString error;
    ASSERT_TRUE(status.write(&error));
    ASSERT_TRUE(status.write(&error));
    EXPECT_EQ(QDir(dir.filePath(QStringLiteral("state/corvina"))).entryList(QDir::Files | QDir::Hidden),
              QStringList{QStringLiteral("bridge-status.json")});
}

TEST_F(BridgeStatusTest, AnUnreadableFileIsStartedAfresh) {
    QDir().mkpath(dir.filePath(QStringLiteral("state/corvina")));
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("{ not json");
    file.close();
    BridgeStatus status(path());
    status.recordSync(QStringLiteral("work"), QStringLiteral("a@x"), at("2024-05-02T10:40:00Z"));
    QString error;
    ASSERT_TRUE(status.write(&error));
    EXPECT_EQ(read()["accounts"].toObject().keys(), QStringList{QStringLiteral("work")});
}

TEST_F(BridgeStatusTest, AFolderThatCannotBeMadeIsAnError) {
    QFile blocker(dir.filePath(QStringLiteral("state")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly)); // a file where the folder would go
    blocker.close();
    BridgeStatus status(path());
    QString error;
    EXPECT_FALSE(status.write(&error));
    EXPECT_TRUE(error.contains(QStringLiteral("cannot create"))) << error.toStdString();
}

TEST_F(BridgeStatusTest, TheDefaultPathFollowsXdgStateHome) {
    {
        ScopedEnvironment state("XDG_STATE_HOME", dir.path().toUtf8());
        EXPECT_EQ(BridgeStatus::defaultPath(), dir.path() + QStringLiteral("/corvina/bridge-status.json"));
    }
    ScopedEnvironment relative("XDG_STATE_HOME", QByteArray("relative/state"));
    EXPECT_EQ(BridgeStatus::defaultPath(),
              QDir::homePath() + QStringLiteral("/.local/state/corvina/bridge-status.json"));
}

} // namespace
} // namespace corvina::test
