#include "bridge/commands/MailClient.h"

#include "requestutils/RequestUtils.h"
#include "support/FakeHostApp.h"
#include "support/Fixtures.h"
#include "support/MailDesktop.h"
#include "support/ScopedEnvironment.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimer>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

using namespace corvina;
using corvina::test::FakeHostApp;
using corvina::test::HostLaunch;
using corvina::test::MailDesktop;
using corvina::test::s;
using corvina::test::ScopedEnvironment;

namespace {

// The recorder writes a line break as "\n" and a backslash as "\\"; this is the text it was given.
QString unescaped(const QString& recorded) {
    QString out;
    for (qsizetype i = 0; i < recorded.size(); ++i) {
        if (recorded.at(i) == u'\\' && i + 1 < recorded.size()) {
            ++i;
            out += recorded.at(i) == u'n' ? QChar(u'\n') : recorded.at(i);
        } else {
            out += recorded.at(i);
        }
    }
    return out;
}

struct Outcome {
    bool called = false;
    bool ok = false;
    QString error;
};

// Runs the event loop until `done` is called (at most 20 s).
template <typename Start> Outcome waitFor(Start start) {
    Outcome outcome;
    QEventLoop loop;
    start([&outcome, &loop](bool ok, const QString& error) {
        EXPECT_FALSE(outcome.called) << "done called twice";
        outcome = Outcome{true, ok, error};
        loop.quit();
    });
    EXPECT_FALSE(outcome.called) << "done called before the call returned";
    if (!outcome.called) {
        QTimer::singleShot(20000, &loop, &QEventLoop::quit);
        loop.exec();
    }
    EXPECT_TRUE(outcome.called) << "done not called";
    return outcome;
}

MailDraft hostileDraft() {
    MailDraft draft;
    draft.to = {QStringLiteral("ada@example.org"), QStringLiteral("\"Bob, B.\" <bob+x@example.org>")};
    draft.cc = {QStringLiteral("cy@example.org")};
    draft.bcc = {QStringLiteral("dee@example.org")};
    draft.subject = QStringLiteral("Re: it's \"$(rm -rf ~)\"; `id` & 100% \u00e4 #1 ?x=y");
    draft.body = QStringLiteral("Hi,\n-- \nline with $HOME and \\n and 'quotes'\n");
    draft.inReplyTo = QStringLiteral("abc.123@example.org");
    draft.references = {QStringLiteral("root@example.org"), QStringLiteral("abc.123@example.org")};
    return draft;
}

} // namespace

TEST(MailClient, MailtoUrlCarriesEveryField) {
    MailDraft draft;
    draft.to = {QStringLiteral("ada@example.org"), QStringLiteral("b c@example.org")};
    draft.cc = {QStringLiteral("cy@example.org")};
    draft.bcc = {QStringLiteral("dee@example.org")};
    draft.subject = QStringLiteral("Re: a&b=c \u00e4");
    draft.body = QStringLiteral("one\ntwo\r\nthree");
    draft.inReplyTo = QStringLiteral("abc@x.org");
    draft.references = {QStringLiteral("r1@x.org"), QStringLiteral("abc@x.org")};
    EXPECT_EQ(s(MailClient::mailtoUrl(draft)),
              "mailto:ada@example.org,b%20c@example.org?cc=cy@example.org&bcc=dee@example.org"
              "&subject=Re%3A%20a%26b%3Dc%20%C3%A4&body=one%0D%0Atwo%0D%0Athree"
              "&In-Reply-To=%3Cabc%40x.org%3E&References=%3Cr1%40x.org%3E%20%3Cabc%40x.org%3E");
    EXPECT_EQ(s(MailClient::mailtoUrl(MailDraft{})), "mailto:");
    MailDraft onlySubject;
    onlySubject.subject = QStringLiteral("x");
    EXPECT_EQ(s(MailClient::mailtoUrl(onlySubject)), "mailto:?subject=x");
    // nothing a URL cannot hold
    const QString hostile = MailClient::mailtoUrl(hostileDraft());
    EXPECT_TRUE(Url::URLWithString(hostile)) << s(hostile);
}

TEST(MailClient, OpensAMessageInTheDesktopsDefaultApplicationForMessages) {
    MailDesktop desktop;
    desktop.installDefaultClient();
    const QString file = desktop.message(QStringLiteral("-n it's \"$(touch pwned)\"; `id` & x.eml"));
    MailClient client;
    const Outcome outcome = waitFor([&](MailClient::Done done) {
        client.openMessage(QString(), file, QStringLiteral("abc.123@example.org"),
                           QStringLiteral("token-1_TIME1"), done);
    });
    EXPECT_TRUE(outcome.ok) << s(outcome.error);
    const QList<HostLaunch> launches = desktop.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.first().arguments, QStringList{file});
    EXPECT_EQ(s(launches.first().values.value(QStringLiteral("XDG_ACTIVATION_TOKEN"))), "token-1_TIME1");
    EXPECT_EQ(s(launches.first().values.value(QStringLiteral("DESKTOP_STARTUP_ID"))), "token-1_TIME1");
    EXPECT_FALSE(QFileInfo::exists(desktop.path(QStringLiteral("pwned"))));
}

TEST(MailClient, AMessageGoesToTheMailClientWhereATextEditorIsTheDefaultForText) {
    // A message whose first header a type sniffer does not know passes for text/plain: asked for
    // by its type, which the bridge knows, it still goes to the mail client.
    MailDesktop desktop;
    desktop.installDefaultClient();
    desktop.installTextEditor();
    const QString file = desktop.messageTakenForText(QStringLiteral("signed.eml"));
    MailClient client;
    const Outcome outcome = waitFor([&](MailClient::Done done) {
        client.openMessage(QString(), file, QStringLiteral("abc.123@example.org"), QString(), done);
    });
    EXPECT_TRUE(outcome.ok) << s(outcome.error);
    const QList<HostLaunch> launches = desktop.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.first().arguments, QStringList{file}) << "not the mail client";
}

TEST(MailClient, AMailClientForATerminalIsStartedInOne) {
    MailDesktop desktop;
    desktop.host().installDesktopFile(QStringLiteral("corvina-test-tui.desktop"),
                                      "[Desktop Entry]\nType=Application\nName=Terminal "
                                      "mail\nTerminal=true\nExec=corvina-test-tui -f %f\n");
    desktop.setDefault(QStringLiteral("message/rfc822"), QStringLiteral("corvina-test-tui.desktop"));
    // xdg-mime only names a desktop file whose program is installed
    ScopedEnvironment path(
        "PATH", (desktop.path(QStringLiteral("bin")) + u':' + qEnvironmentVariable("PATH")).toUtf8());
    QDir().mkpath(desktop.path(QStringLiteral("bin")));
    ASSERT_TRUE(
        QFile::link(QStringLiteral("/bin/true"), desktop.path(QStringLiteral("bin/corvina-test-tui"))));
    // The stand-in terminal records what it is asked to run; given as more than one word, it gets
    // no "-e" added, as with xdg-open.
    ScopedEnvironment terminal("TERMINAL", (desktop.recorderCommand() + QStringLiteral(" --run")).toUtf8());
    const QString file = desktop.message(QStringLiteral("m.eml"));
    MailClient client;
    const Outcome outcome = waitFor(
        [&](MailClient::Done done) { client.openMessage(QString(), file, QString(), QString(), done); });
    EXPECT_TRUE(outcome.ok) << s(outcome.error);
    const QList<HostLaunch> launches = desktop.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.first().arguments,
              QStringList(
                  {QStringLiteral("--run"), QStringLiteral("corvina-test-tui"), QStringLiteral("-f"), file}));
}

TEST(MailClient, ADesktopFileIsStartedInItsPathWithTheFileAddedWhenItHasNoFieldCode) {
    MailDesktop desktop;
    const QString folder = desktop.path(QStringLiteral("work folder"));
    QDir().mkpath(folder);
    // no field code: the file comes last, as "$0" of the shell's script
    desktop.host().installDesktopFile(
        QStringLiteral("corvina-test-sh.desktop"),
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Shell\nPath=%1\n"
                       "Exec=sh -c \"pwd > where.txt; echo \\\"\\$0\\\" > what.txt\"\n")
            .arg(folder)
            .toUtf8());
    desktop.setDefault(QStringLiteral("message/rfc822"), QStringLiteral("corvina-test-sh.desktop"));
    const QString file = desktop.message(QStringLiteral("m.eml"));
    MailClient client;
    const Outcome outcome = waitFor(
        [&](MailClient::Done done) { client.openMessage(QString(), file, QString(), QString(), done); });
    EXPECT_TRUE(outcome.ok) << s(outcome.error);
    QFile where(folder + QStringLiteral("/where.txt"));
    ASSERT_TRUE(where.open(QIODevice::ReadOnly)) << "not started in its Path";
    EXPECT_EQ(s(QString::fromUtf8(where.readAll()).trimmed()), s(folder));
    QFile what(folder + QStringLiteral("/what.txt"));
    ASSERT_TRUE(what.open(QIODevice::ReadOnly));
    EXPECT_EQ(s(QString::fromUtf8(what.readAll()).trimmed()), s(file));
}

TEST(MailClient, AReplyGoesToTheDefaultApplicationForMailtoWithTheUrlAsItIs) {
    MailDesktop desktop;
    desktop.installDefaultClient();
    const MailDraft draft = hostileDraft();
    MailClient client;
    const Outcome outcome = waitFor(
        [&](MailClient::Done done) { client.compose(QString(), draft, QStringLiteral("tok-2"), done); });
    EXPECT_TRUE(outcome.ok) << s(outcome.error);
    const QList<HostLaunch> launches = desktop.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.first().arguments, QStringList{MailClient::mailtoUrl(draft)});
    EXPECT_EQ(s(launches.first().values.value(QStringLiteral("XDG_ACTIVATION_TOKEN"))), "tok-2");
}

TEST(MailClient, ComposesThroughXdgEmailWithTheThreadAndAttachments) {
    MailDesktop desktop;
    desktop.installDefaultClient();
    MailDraft draft = hostileDraft();
    draft.attachments = {desktop.file(QStringLiteral("report 1 (final).pdf")),
                         desktop.file(QStringLiteral("it's \"$(x)\"; \u00e4 -a.txt"))};
    // inherited tokens are not passed on when the draft comes without one
    ScopedEnvironment inherited("XDG_ACTIVATION_TOKEN", QByteArray("from-the-bridge-start"));
    ScopedEnvironment inheritedId("DESKTOP_STARTUP_ID", QByteArray("from-the-bridge-start"));
    MailClient client;
    const Outcome outcome =
        waitFor([&](MailClient::Done done) { client.compose(QString(), draft, QString(), done); });
    EXPECT_TRUE(outcome.ok) << s(outcome.error);
    const QList<HostLaunch> launches = desktop.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    ASSERT_EQ(launches.first().arguments.size(), 1);
    const QString url = launches.first().arguments.first();
    // the URL as the bridge made it, In-Reply-To and References included, with xdg-email's
    // "attach" fields after it
    const QString made = MailClient::mailtoUrl(draft);
    ASSERT_TRUE(url.startsWith(made + QStringLiteral("&attach="))) << s(url);
    QStringList attached;
    for (const QString& field : url.mid(made.size() + 1).split(u'&')) {
        ASSERT_TRUE(field.startsWith(QStringLiteral("attach="))) << s(field);
        attached << RequestUtils::URLDecodedString(field.mid(7), false);
    }
    EXPECT_EQ(attached, draft.attachments);
    EXPECT_TRUE(url.contains(QStringLiteral("&In-Reply-To=%3Cabc.123%40example.org%3E&References=")));
    EXPECT_FALSE(launches.first().values.contains(QStringLiteral("XDG_ACTIVATION_TOKEN")));
    EXPECT_FALSE(launches.first().values.contains(QStringLiteral("DESKTOP_STARTUP_ID")));
}

TEST(MailClient, NoDefaultApplicationIsAFailureWithItsLine) {
    MailDesktop desktop; // nothing installed, no mimeapps.list
    // a text editor for text and a web browser (a stand-in for each) do not stand in for a mail client
    desktop.installTextEditor();
    ScopedEnvironment browser("BROWSER", (desktop.recorderCommand() + QStringLiteral(" --browser")).toUtf8());
    const QString file = desktop.messageTakenForText(QStringLiteral("m.eml"));
    MailClient client;
    Outcome outcome = waitFor(
        [&](MailClient::Done done) { client.openMessage(QString(), file, QString(), QString(), done); });
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(s(outcome.error),
              "no application is set for message/rfc822 (xdg-mime query default "
              "message/rfc822 names none): choose your mail client for it, or set openCommand");

    for (const bool attachments : {false, true}) {
        MailDraft draft = hostileDraft();
        if (attachments)
            draft.attachments = {file};
        outcome = waitFor([&](MailClient::Done done) { client.compose(QString(), draft, QString(), done); });
        EXPECT_FALSE(outcome.ok);
        EXPECT_EQ(
            s(outcome.error),
            "no application is set for x-scheme-handler/mailto (xdg-mime query default "
            "x-scheme-handler/mailto names none): choose your mail client for it, or set composeCommand");
    }
    EXPECT_TRUE(desktop.launches().isEmpty());
}

TEST(MailClient, ADefaultApplicationThatCannotBeStartedIsAFailureWithItsLine) {
    MailDesktop desktop;
    // Deleted by the person (Hidden=true), though its program is there.
    desktop.host().installDesktopFile(
        QStringLiteral("corvina-test-gone.desktop"),
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Gone\nHidden=true\nExec=%1 %2 %u\n")
            .arg(FakeHostApp::recorderProgram(), desktop.host().recordFile())
            .toUtf8());
    desktop.setDefault(QStringLiteral("message/rfc822"), QStringLiteral("corvina-test-gone.desktop"));
    const QString file = desktop.message(QStringLiteral("m.eml"));
    MailClient client;
    Outcome outcome = waitFor(
        [&](MailClient::Done done) { client.openMessage(QString(), file, QString(), QString(), done); });
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(s(outcome.error),
              s(QStringLiteral("the default application for message/rfc822 cannot be started: "
                               "%1/corvina-test-gone.desktop is hidden (Hidden=true: the "
                               "entry was deleted)")
                    .arg(desktop.host().applicationsFolder())));
    EXPECT_TRUE(desktop.launches().isEmpty());
}

TEST(MailClient, ConfiguredOpenCommandGetsItsFields) {
    MailDesktop desktop;
    const QString file = desktop.message(QStringLiteral("a message.eml"));
    const QString id = QStringLiteral("a\"b' $(id); `x`\n-rf \\ %m %f");
    MailClient client;
    Outcome outcome = waitFor([&](MailClient::Done done) {
        client.openMessage(desktop.recorderCommand() + QStringLiteral(" \"--file=%f\" mid:%m %% 100%%"), file,
                           id, QStringLiteral("tok"), done);
    });
    EXPECT_TRUE(outcome.ok) << s(outcome.error);
    QList<HostLaunch> launches = desktop.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    QStringList got;
    for (const QString& argument : launches.at(0).arguments)
        got << unescaped(argument);
    EXPECT_EQ(got, QStringList({QStringLiteral("--file=") + file, QStringLiteral("mid:") + id,
                                QStringLiteral("%"), QStringLiteral("100%")}));
    EXPECT_EQ(s(launches.at(0).values.value(QStringLiteral("XDG_ACTIVATION_TOKEN"))), "tok");

    // without %f or %m the file comes last
    outcome = waitFor([&](MailClient::Done done) {
        client.openMessage(desktop.recorderCommand() + QStringLiteral(" --view"), file, id, QString(), done);
    });
    EXPECT_TRUE(outcome.ok) << s(outcome.error);
    launches = desktop.waitForLaunches(2);
    ASSERT_EQ(launches.size(), 2);
    EXPECT_EQ(launches.at(1).arguments, QStringList({QStringLiteral("--view"), file}));
    EXPECT_FALSE(launches.at(1).values.contains(QStringLiteral("XDG_ACTIVATION_TOKEN")));

    outcome = waitFor([&](MailClient::Done done) {
        client.openMessage(desktop.recorderCommand() + QStringLiteral(" %x"), file, id, QString(), done);
    });
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(s(outcome.error), "openCommand: unknown field %x in \"%x\"");
    outcome = waitFor([&](MailClient::Done done) {
        client.openMessage(desktop.recorderCommand() + QStringLiteral(" x%"), file, id, QString(), done);
    });
    EXPECT_EQ(s(outcome.error), "openCommand: a lone % at the end of \"x%\"");
    EXPECT_EQ(desktop.launches().size(), 2);
}

TEST(MailClient, ConfiguredComposeCommandGetsItsFields) {
    MailDesktop desktop;
    MailDraft draft = hostileDraft();
    draft.attachments = {desktop.file(QStringLiteral("-first \"one\".txt")),
                         desktop.file(QStringLiteral("second; $(x)\\.txt"))};
    MailClient client;
    Outcome outcome = waitFor([&](MailClient::Done done) {
        client.compose(desktop.recorderCommand() + QStringLiteral(" --url %u %a --end"), draft, QString(),
                       done);
    });
    EXPECT_TRUE(outcome.ok) << s(outcome.error);
    QList<HostLaunch> launches = desktop.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    QStringList got;
    for (const QString& argument : launches.at(0).arguments)
        got << unescaped(argument);
    EXPECT_EQ(got, QStringList({QStringLiteral("--url"), MailClient::mailtoUrl(draft),
                                draft.attachments.at(0), draft.attachments.at(1), QStringLiteral("--end")}));

    // no %u: the URL comes last; no attachments: %a is no word at all
    MailDraft plain = hostileDraft();
    outcome = waitFor([&](MailClient::Done done) {
        client.compose(desktop.recorderCommand() + QStringLiteral(" --new %a"), plain, QString(), done);
    });
    EXPECT_TRUE(outcome.ok) << s(outcome.error);
    launches = desktop.waitForLaunches(2);
    ASSERT_EQ(launches.size(), 2);
    EXPECT_EQ(launches.at(1).arguments, QStringList({QStringLiteral("--new"), MailClient::mailtoUrl(plain)}));

    // attachments the command has no place for are not silently lost
    outcome = waitFor([&](MailClient::Done done) {
        client.compose(desktop.recorderCommand() + QStringLiteral(" %u"), draft, QString(), done);
    });
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(s(outcome.error),
              "composeCommand has no %a for the draft's 2 attachment(s), which would be lost");
    outcome = waitFor([&](MailClient::Done done) {
        client.compose(desktop.recorderCommand() + QStringLiteral(" --attach=%a"), draft, QString(), done);
    });
    EXPECT_EQ(s(outcome.error), "composeCommand: %a must be a word of its own, not part of \"--attach=%a\"");
    EXPECT_EQ(desktop.launches().size(), 2);
}

TEST(MailClient, AProgramThatCannotBeStartedOrFailsIsAFailureWithItsLine) {
    MailDesktop desktop;
    const QString file = desktop.message(QStringLiteral("m.eml"));
    MailClient client;
    Outcome outcome = waitFor([&](MailClient::Done done) {
        client.openMessage(QStringLiteral("/nonexistent/mailer %f"), file, QString(), QString(), done);
    });
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(s(outcome.error),
              "openCommand /nonexistent/mailer could not be started: No such file or directory");

    outcome = waitFor([&](MailClient::Done done) {
        client.compose(QStringLiteral("sh -c \"exit 7\" mailer"), MailDraft{}, QString(), done);
    });
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(s(outcome.error), "composeCommand sh failed with status 7");

    outcome = waitFor([&](MailClient::Done done) {
        client.openMessage(QStringLiteral("sh -c \"kill -9 $$\""), file, QString(), QString(), done);
    });
    EXPECT_EQ(s(outcome.error), "openCommand sh was killed by signal 9");

    // xdg-utils not installed (not on PATH)
    ScopedEnvironment path("PATH", desktop.path(QStringLiteral("empty-path")).toUtf8());
    outcome = waitFor(
        [&](MailClient::Done done) { client.openMessage(QString(), file, QString(), QString(), done); });
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(s(outcome.error),
              "xdg-mime query default message/rfc822: xdg-mime is not installed (it comes with xdg-utils)");
}

TEST(MailClient, ADefaultApplicationThatFailsIsAFailureNamingIt) {
    MailDesktop desktop;
    desktop.host().installDesktopFile(
        QStringLiteral("corvina-test-fails.desktop"),
        "[Desktop Entry]\nType=Application\nName=Fails\nExec=sh -c \"exit 4\" %f\n");
    desktop.setDefault(QStringLiteral("message/rfc822"), QStringLiteral("corvina-test-fails.desktop"));
    const QString file = desktop.message(QStringLiteral("m.eml"));
    MailClient client;
    const Outcome outcome = waitFor(
        [&](MailClient::Done done) { client.openMessage(QString(), file, QString(), QString(), done); });
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(s(outcome.error),
              "corvina-test-fails.desktop, the default application for message/rfc822, failed with status 4");
}

TEST(MailClient, AClientThatStaysInTheForegroundIsASuccessAndIsReapedWhenItEnds) {
    MailDesktop desktop;
    const QString pidFile = desktop.path(QStringLiteral("pid"));
    MailClient client;
    client.setExitWaitMs(300);
    // the shell's pid is the sleep's: it replaces itself
    const Outcome outcome = waitFor([&](MailClient::Done done) {
        client.openMessage(QStringLiteral("sh -c \"echo $$ > '%1'; exec sleep 2\"").arg(pidFile), QString(),
                           QString(), QString(), done);
    });
    EXPECT_TRUE(outcome.ok) << s(outcome.error);
    QFile file(pidFile);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString pid = QString::fromLatin1(file.readAll()).trimmed();
    ASSERT_FALSE(pid.isEmpty());
    const QString proc = QStringLiteral("/proc/") + pid;

    // still running: a session of its own, standard input from /dev/null
    QFile stat(proc + QStringLiteral("/stat"));
    ASSERT_TRUE(stat.open(QIODevice::ReadOnly));
    const QString statText = QString::fromLatin1(stat.readAll());
    const QStringList fields = statText.mid(statText.lastIndexOf(u')') + 2).split(u' ');
    ASSERT_GT(fields.size(), 4);
    EXPECT_EQ(s(fields.at(3)), s(pid)) << "session";
    EXPECT_EQ(s(QFileInfo(proc + QStringLiteral("/fd/0")).symLinkTarget()), "/dev/null");

    // it ends after 2 s and is reaped: no zombie stays behind
    QDeadlineTimer deadline(10000);
    while (QFileInfo::exists(proc) && !deadline.hasExpired()) {
        QEventLoop loop;
        QTimer::singleShot(50, &loop, &QEventLoop::quit);
        loop.exec();
    }
    EXPECT_FALSE(QFileInfo::exists(proc)) << "process " << s(pid) << " was not reaped";
}

TEST(MailClient, AClientStillRunningWhenTheMailClientGoesIsReapedWhenItEndsAndNobodyIsTold) {
    MailDesktop desktop;
    const QString pidFile = desktop.path(QStringLiteral("pid"));
    bool called = false;
    auto client = std::make_unique<MailClient>();
    client->openMessage(QStringLiteral("sh -c \"echo $$ > '%1'; exec sleep 1000\"").arg(pidFile), QString(),
                        QString(), QString(), [&called](bool, const QString&) { called = true; });
    QString pid;
    QDeadlineTimer started(10000);
    while (!pid.endsWith(u'\n') && !started.hasExpired()) {
        QEventLoop loop;
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.exec();
        QFile file(pidFile);
        if (file.open(QIODevice::ReadOnly))
            pid = QString::fromLatin1(file.readAll());
    }
    pid = pid.trimmed();
    ASSERT_FALSE(pid.isEmpty());
    const QString proc = QStringLiteral("/proc/") + pid;

    client.reset();
    ASSERT_TRUE(QFileInfo::exists(proc));
    ASSERT_EQ(::kill(pid.toInt(), SIGTERM), 0);
    // ended, and reaped by the watch the application object keeps: no zombie stays behind
    QDeadlineTimer deadline(10000);
    while (QFileInfo::exists(proc) && !deadline.hasExpired()) {
        QEventLoop loop;
        QTimer::singleShot(50, &loop, &QEventLoop::quit);
        loop.exec();
    }
    EXPECT_FALSE(QFileInfo::exists(proc)) << "process " << s(pid) << " was not reaped";
    EXPECT_FALSE(called) << "done called after the MailClient went";
}
