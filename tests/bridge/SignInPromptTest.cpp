// The running bridge's notification for a sign-in that ran out, in this process against the test's
// notification service (NotificationRecorder, a stand-in on the private session bus): when it is
// shown, that it is shown once, taken away when the account syncs, and what becomes of its action
// when the sign-in cannot even start. The whole way through the program, with a real sign-in, is
// FollowedSignInTest's (TokenAccountTest.cpp).
#include "bridge/service/SignInPrompt.h"

#include "support/NotificationRecorder.h"
#include "support/PrivateSessionBus.h"
#include "support/ScopedZone.h"
#include "support/WidgetTesting.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina;
using corvina::test::drain;
using corvina::test::NotificationRecorder;
using corvina::test::PrivateSessionBus;
using corvina::test::ScopedLanguage;

namespace {

const QString SignInNeeded = QStringLiteral("sign-in needed: the provider no longer accepts the sign-in of "
                                            "ada@example.org; run corvina-mail-bridge account signin work");

class SignInPromptTest : public ::testing::Test {
protected:
    void SetUp() override {
        PrivateSessionBus* bus = PrivateSessionBus::instance();
        ASSERT_NE(bus, nullptr) << "dbus-daemon could not be started";
        recorder = std::make_unique<NotificationRecorder>(bus->address());
        ASSERT_TRUE(recorder->isRegistered());
    }

    // Lets the bus calls and answers through until `count` notifications were shown.
    bool shown(qsizetype count) {
        return drain([&] { return recorder->notifications().size() >= count; }, 15000);
    }

    std::unique_ptr<NotificationRecorder> recorder;
    QTemporaryDir dir;
};

} // namespace

TEST_F(SignInPromptTest, OnlyASignInNeededIsToldAndOnlyOnceUntilTheAccountSyncs) {
    SignInPrompt prompt(QStringLiteral("/bin/false"), dir.filePath(QStringLiteral("bridge.conf")));
    prompt.failed(QStringLiteral("work"), QStringLiteral("ada@example.org"),
                  QStringLiteral("login refused for ada: [AUTHENTICATIONFAILED]"));
    prompt.failed(QStringLiteral("work"), QStringLiteral("ada@example.org"), SignInNeeded);
    prompt.failed(QStringLiteral("work"), QStringLiteral("ada@example.org"), SignInNeeded);
    // Another account's comes after whatever was sent for work (one connection keeps the order).
    prompt.failed(QStringLiteral("home"), QStringLiteral("ada@home.example"), SignInNeeded);
    ASSERT_TRUE(shown(2));
    // The other failure was not told, the second sign-in needed not again; each account on its own.
    ASSERT_EQ(recorder->notifications().size(), 2);
    EXPECT_EQ(recorder->notifications().at(1).summary, QStringLiteral("Sign in again to ada@home.example"));
    const NotificationRecorder::Notification notification = recorder->notifications().first();
    EXPECT_EQ(notification.summary, QStringLiteral("Sign in again to ada@example.org"));
    EXPECT_EQ(notification.body, SignInNeeded);
    EXPECT_EQ(notification.actions, (QStringList{QStringLiteral("default"), QStringLiteral("Sign in"),
                                                 QStringLiteral("signin"), QStringLiteral("Sign in")}));

    // Synced: the notification goes, and the next time is told again.
    prompt.synced(QStringLiteral("work"));
    EXPECT_TRUE(drain([&] { return recorder->closed() == QList<uint>{recorder->idOf(0)}; }, 15000));
    prompt.failed(QStringLiteral("work"), QStringLiteral("ada@example.org"), SignInNeeded);
    ASSERT_TRUE(shown(3));
    EXPECT_EQ(recorder->notifications().at(2).summary, QStringLiteral("Sign in again to ada@example.org"));
}

TEST_F(SignInPromptTest, TheTitleAndTheActionAreInThePersonsLanguage) {
    {
        const ScopedLanguage language(QLocale(QLocale::German, QLocale::Germany));
        EXPECT_EQ(SignInPrompt::title(QStringLiteral("ada@example.org")),
                  QStringLiteral("Erneut bei ada@example.org anmelden"));
        EXPECT_EQ(SignInPrompt::actionLabel(), QStringLiteral("Anmelden"));
    }
    const ScopedLanguage language(QLocale(QLocale::French, QLocale::France));
    EXPECT_EQ(SignInPrompt::title(QStringLiteral("ada@example.org")),
              QStringLiteral("Reconnectez-vous à ada@example.org"));
    EXPECT_EQ(SignInPrompt::actionLabel(), QStringLiteral("Se connecter"));
}

TEST_F(SignInPromptTest, ASignInThatCannotStartIsALineAndNoSync) {
    const QString missing = dir.filePath(QStringLiteral("no-such-program"));
    SignInPrompt prompt(missing, dir.filePath(QStringLiteral("bridge.conf")));
    QSignalSpy logged(&prompt, &SignInPrompt::log);
    QSignalSpy signedIn(&prompt, &SignInPrompt::signedIn);
    prompt.failed(QStringLiteral("work"), QStringLiteral("ada@example.org"), SignInNeeded);
    ASSERT_TRUE(shown(1));
    // Another client's notification with the same key is not ours.
    recorder->invokeAction(recorder->idOf(0) + 100, QStringLiteral("signin"));
    recorder->invokeAction(recorder->idOf(0), QStringLiteral("signin"));
    ASSERT_TRUE(
        drain([&] { return logged.size() >= 2 && !prompt.isSigningIn(QStringLiteral("work")); }, 15000));
    EXPECT_EQ(logged.at(0).at(0).toString(),
              QStringLiteral("work: signing in, in the browser (from the notification)"));
    const QString line = logged.at(1).at(0).toString();
    EXPECT_TRUE(line.startsWith(QStringLiteral("work: sign-in failed: cannot start %1: ").arg(missing)))
        << line.toStdString();
    EXPECT_EQ(signedIn.size(), 0);
}

TEST_F(SignInPromptTest, ASignInThatFailsSaysTheProgramsLineAndNoSync) {
    // A stand-in for the program that fails as `account signin` does when the browser came back
    // with another sign-in's state.
    const QString program = dir.filePath(QStringLiteral("signin.sh"));
    QFile script(program);
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\n"
                 "echo \"$@\" > \"$(dirname \"$0\")/arguments\"\n"
                 "echo 'Opening the sign-in page'\n"
                 "echo \"corvina-mail-bridge: $5: sign-in failed: sign-in refused: the browser came back "
                 "with another sign-in's state; nothing was stored\" >&2\n"
                 "exit 1\n");
    script.close();
    script.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    SignInPrompt prompt(program, dir.filePath(QStringLiteral("bridge.conf")));
    QSignalSpy logged(&prompt, &SignInPrompt::log);
    QSignalSpy signedIn(&prompt, &SignInPrompt::signedIn);
    prompt.failed(QStringLiteral("work"), QStringLiteral("ada@example.org"), SignInNeeded);
    ASSERT_TRUE(shown(1));
    // A click on the notification itself signs in as well.
    recorder->invokeAction(recorder->idOf(0), QStringLiteral("default"));
    ASSERT_TRUE(
        drain([&] { return logged.size() >= 2 && !prompt.isSigningIn(QStringLiteral("work")); }, 15000));
    EXPECT_EQ(logged.at(1).at(0).toString(),
              QStringLiteral("work: sign-in failed: sign-in refused: the browser came back with another "
                             "sign-in's state; nothing was stored"));
    EXPECT_EQ(signedIn.size(), 0);
    // Its words, as a list: the same bridge.conf, the account's name as it is.
    QFile arguments(dir.filePath(QStringLiteral("arguments")));
    ASSERT_TRUE(arguments.open(QIODevice::ReadOnly));
    EXPECT_EQ(arguments.readAll(), QStringLiteral("--config %1 account signin work\n")
                                       .arg(dir.filePath(QStringLiteral("bridge.conf")))
                                       .toUtf8());
}
