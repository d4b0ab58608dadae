#include "platform/NotificationCenter.h"
#include "requestutils/RequestUtils.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "support/FakeHostApp.h"
#include "support/LogCapture.h"
#include "support/PrivateSessionBus.h"
#include "support/ScopedEnvironment.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::FakeHostApp;
using corvina::test::ScopedEnvironment;

namespace {

ExtensionMessagePtr message(const QString& id, const QString& account,
                            const QVariant& folderStandardId = qint64(1)) {
    ExtensionMessagePtr m = ExtensionMessage::init();
    m->setMessageId(id);
    m->setAccount(account);
    m->setFolderStandardId(folderStandardId);
    return m;
}

// Records every ACTION_CALLED_EXTENSION while it lives.
struct Posted {
    struct Entry {
        ExtensionMessagePtr message;
        QString command;
        int keys;
        bool userInfoEmpty;
        int launchesSoFar;
    };
    explicit Posted(const FakeHostApp* host = nullptr) {
        NotificationCenter::defaultCenter().addObserver(
            this, ExtensionUtilities::ACTION_CALLED_EXTENSION, [this, host](const Notification& n) {
                const QVariantMap object = n.object.toMap();
                entries.push_back({object.value(QStringLiteral("message")).value<ExtensionMessagePtr>(),
                                   object.value(QStringLiteral("command")).toString(), int(object.size()),
                                   n.userInfo.isEmpty(), host ? int(host->launches().size()) : -1});
            });
    }
    ~Posted() { NotificationCenter::defaultCenter().removeObserver(this); }
    std::vector<Entry> entries;
};

// Every build of the mail application installed, each recording which one it is.
void installEveryBuild(FakeHostApp& host) {
    for (const QString& id :
         {ConstVars::appIdentifier, ConstVars::appIdentifierBeta8, ConstVars::appIdentifierBeta10,
          ConstVars::appIdentifier2, ConstVars::appIdentifierPro})
        host.installRecorder(id, QStringLiteral("--app ") + id + QStringLiteral(" %U"));
}

} // namespace

TEST(LaunchCommands, ArchiveUrlEncodesOnlyTheAccount) {
    FakeHostApp host;
    host.installRecorder(ConstVars::appIdentifier);
    const QString account = QStringLiteral("Ann Lee+work@exämple.org/&=?");
    Posted posted;
    const QString storedId = QStringLiteral("abc.123@mail.example.org");
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({message(storedId, account, qint64(4))},
                                                             ConstVars::commandArchive, true));
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).arguments,
              QStringList{QStringLiteral("corvina://archive?mail=") +
                          RequestUtils::URLEncodedString(account) +
                          QStringLiteral("&messageid=abc.123@mail.example.org&folderstandardid=4")});
    EXPECT_EQ(RequestUtils::URLEncodedString(account),
              QStringLiteral("Ann%20Lee%2Bwork%40ex%C3%A4mple.org%2F%26%3D%3F"));
    ASSERT_EQ(posted.entries.size(), 1u);
}

TEST(LaunchCommands, MessageIdGoesInAsStoredEvenWhereEncodingWouldChangeIt) {
    const auto url = ExtensionUtilities::CommandURLForMessage(
        message(QStringLiteral("a%2Fb&x=1"), QStringLiteral("a&b")), ConstVars::commandOpen);
    ASSERT_TRUE(url);
    EXPECT_EQ(url->absoluteString(),
              QStringLiteral("corvina://open?mail=a%26b&messageid=a%2Fb&x=1&folderstandardid=1"));
}

TEST(LaunchCommands, FolderStandardIdIsWrittenInDecimal) {
    auto text = [](const QVariant& v) {
        return ExtensionUtilities::CommandURLForMessage(message(QStringLiteral("1"), QStringLiteral("a"), v),
                                                        ConstVars::commandOpen)
            ->absoluteString();
    };
    EXPECT_TRUE(text(qint64(11)).endsWith(QStringLiteral("&folderstandardid=11")));
    EXPECT_TRUE(text(11.0).endsWith(QStringLiteral("&folderstandardid=11")));
    EXPECT_TRUE(text(2.5).endsWith(QStringLiteral("&folderstandardid=2.5")));
    EXPECT_TRUE(text(true).endsWith(QStringLiteral("&folderstandardid=1")));
    EXPECT_TRUE(text(QVariant()).endsWith(QStringLiteral("&folderstandardid=(null)")));
}

TEST(LaunchCommands, AbsentAccountOrIdIsWrittenAsNull) {
    FakeHostApp host;
    host.installRecorder(ConstVars::appIdentifier);
    Posted posted;
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({message(QString(), QString(), QVariant())},
                                                             ConstVars::commandReply, false));
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(
        launches.at(0).arguments,
        QStringList{QStringLiteral("corvina://reply?mail=(null)&messageid=(null)&folderstandardid=(null)")});
    EXPECT_EQ(posted.entries.size(), 1u);
    // An empty account is not an absent one.
    EXPECT_EQ(ExtensionUtilities::CommandURLForMessage(message(QStringLiteral("7"), QStringLiteral("")),
                                                       ConstVars::commandOpen)
                  ->absoluteString(),
              QStringLiteral("corvina://open?mail=&messageid=7&folderstandardid=1"));
}

TEST(LaunchCommands, EmptyArrayPostsNothingAndIsFalse) {
    FakeHostApp host;
    host.installRecorder(ConstVars::appIdentifier);
    Posted posted;
    EXPECT_FALSE(ExtensionUtilities::LaunchCommandForMessages({}, ConstVars::commandArchive, true));
    EXPECT_FALSE(ExtensionUtilities::LaunchCommands({}, false));
    EXPECT_TRUE(posted.entries.empty());
    EXPECT_TRUE(host.waitForLaunches(1, 300).isEmpty());
}

TEST(LaunchCommands, InvalidUrlMessageIsDroppedWithoutNotificationOthersGoOn) {
    FakeHostApp host;
    host.installRecorder(ConstVars::appIdentifier);
    Posted posted;
    const ExtensionMessagePtr good1 = message(QStringLiteral("one"), QStringLiteral("a@b.org"));
    const ExtensionMessagePtr bad = message(QStringLiteral("<two words@host>"), QStringLiteral("a@b.org"));
    const ExtensionMessagePtr good2 = message(QStringLiteral("three"), QStringLiteral("c@d.org"));
    ASSERT_TRUE(
        ExtensionUtilities::LaunchCommandForMessages({good1, bad, good2}, ConstVars::commandDelete, true));
    ASSERT_EQ(posted.entries.size(), 2u);
    EXPECT_EQ(posted.entries.at(0).message, good1);
    EXPECT_EQ(posted.entries.at(1).message, good2);
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(
        launches.at(0).arguments,
        (QStringList{QStringLiteral("corvina://delete?mail=a%40b.org&messageid=one&folderstandardid=1"),
                     QStringLiteral("corvina://delete?mail=c%40d.org&messageid=three&folderstandardid=1")}));
}

TEST(LaunchCommands, OnlyInvalidUrlsPostNothingAndAreFalse) {
    FakeHostApp host;
    host.installRecorder(ConstVars::appIdentifier);
    Posted posted;
    EXPECT_FALSE(ExtensionUtilities::LaunchCommandForMessages(
        {message(QStringLiteral("has space"), QStringLiteral("a")),
         message(QStringLiteral("caf\u00e9"), QStringLiteral("a"))},
        ConstVars::commandOpen, false));
    EXPECT_TRUE(posted.entries.empty());
    EXPECT_TRUE(host.waitForLaunches(1, 300).isEmpty());
    // A command name that makes the text invalid drops the message the same way.
    EXPECT_FALSE(ExtensionUtilities::LaunchCommandForMessages(
        {message(QStringLiteral("1"), QStringLiteral("a"))}, QStringLiteral("not a command"), false));
    EXPECT_TRUE(posted.entries.empty());
}

TEST(LaunchCommands, NotificationCarriesMessageAndCommandAsItsObject) {
    FakeHostApp host;
    host.installRecorder(ConstVars::appIdentifier);
    Posted posted;
    const ExtensionMessagePtr m = message(QStringLiteral("1"), QStringLiteral("a@b.org"));
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({m}, ConstVars::commandReply, false));
    ASSERT_EQ(posted.entries.size(), 1u);
    EXPECT_EQ(posted.entries.at(0).message, m); // the very record, not a copy
    EXPECT_EQ(posted.entries.at(0).command, QStringLiteral("reply"));
    EXPECT_EQ(posted.entries.at(0).keys, 2);
    EXPECT_TRUE(posted.entries.at(0).userInfoEmpty);
}

TEST(LaunchCommands, AppNotInstalledIsFalseAfterTheNotificationsWentOut) {
    FakeHostApp host; // nothing installed
    Posted posted;
    EXPECT_FALSE(
        ExtensionUtilities::LaunchCommandForMessages({message(QStringLiteral("1"), QStringLiteral("a")),
                                                      message(QStringLiteral("2"), QStringLiteral("a"))},
                                                     ConstVars::commandArchive, true));
    EXPECT_EQ(posted.entries.size(), 2u);
}

TEST(LaunchCommands, EveryNotificationIsDeliveredBeforeTheAppIsAsked) {
    auto* bus = corvina::test::PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr) << "dbus-daemon could not be started";
    FakeHostApp host;
    host.installDBusService(ConstVars::appIdentifier);
    Posted posted(&host);
    ASSERT_TRUE(
        ExtensionUtilities::LaunchCommandForMessages({message(QStringLiteral("1"), QStringLiteral("a")),
                                                      message(QStringLiteral("2"), QStringLiteral("a"))},
                                                     ConstVars::commandArchive, true));
    ASSERT_EQ(posted.entries.size(), 2u);
    // The D-Bus call is answered only after the app recorded it: had it come before a notification,
    // that notification would have seen the record.
    EXPECT_EQ(posted.entries.at(0).launchesSoFar, 0);
    EXPECT_EQ(posted.entries.at(1).launchesSoFar, 0);
    const auto launches = host.launches();
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).arguments.size(), 2);
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("corvina-launch-options")), QStringLiteral("512"));
}

TEST(LaunchCommands, BackgroundFlagChoosesTheOptions) {
    FakeHostApp host;
    host.installRecorder(ConstVars::appIdentifier);
    const ExtensionMessagePtr m = message(QStringLiteral("1"), QStringLiteral("a"));
    // As the widget sends them: open and reply in front, archive and delete in the background.
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({m}, ConstVars::commandOpen, false));
    ASSERT_EQ(host.waitForLaunches(1).size(), 1);
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages({m}, ConstVars::commandDelete, true));
    const auto launches = host.waitForLaunches(2);
    ASSERT_EQ(launches.size(), 2);
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")),
              QStringLiteral("0x20000"));
    EXPECT_EQ(launches.at(1).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
}

TEST(LaunchCommands, LaunchFailureIsNotLogged) {
    FakeHostApp host;
    corvina::test::LogCapture log;
    EXPECT_FALSE(ExtensionUtilities::LaunchCommandForMessages(
        {message(QStringLiteral("1"), QStringLiteral("a"))}, ConstVars::commandOpen, false));
    EXPECT_TRUE(log.lines().isEmpty());
}

namespace {

// What a host following the host guide takes from a command URL: the id between the first
// "&messageid=" and the last "&folderstandardid=", the folder kind after that.
std::pair<QString, QString> idAndFolderKindAsTheGuideSays(const QString& url) {
    const qsizetype idStart = url.indexOf(QStringLiteral("&messageid=")) + 11;
    const qsizetype kindKey = url.lastIndexOf(QStringLiteral("&folderstandardid="));
    return {url.mid(idStart, kindKey - idStart), url.mid(kindKey + 18)};
}

} // namespace

TEST(LaunchCommands, AnIdHoldingTheFolderKindKeyComesBackWholeByTheGuidesRule) {
    // the id is written raw, so this URL has two folderstandardid keys; the widget's own is the last
    for (const QString& id : {QStringLiteral("x&folderstandardid=9"), QStringLiteral("&folderstandardid="),
                              QStringLiteral("a=1&messageid=2&folderstandardid=3&mail=b")}) {
        const std::optional<Url> url = ExtensionUtilities::CommandURLForMessage(
            message(id, QStringLiteral("a&b@example.org"), 4), ConstVars::commandArchive);
        ASSERT_TRUE(url) << id.toStdString();
        const auto [read, kind] = idAndFolderKindAsTheGuideSays(url->absoluteString());
        EXPECT_EQ(read, id);
        EXPECT_EQ(kind, QStringLiteral("4"));
    }
}

TEST(LaunchCommands, TheCommandPrinterOfTheHostGuideRecordsACommand) {
    // the example desktop file of the guide, as a reader would paste it
    QFile guide(QStringLiteral(CORVINA_FIXTURES_DIR "/../../docs/host-commands.md"));
    ASSERT_TRUE(guide.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(guide.readAll()).split(QLatin1Char('\n'));
    const qsizetype start =
        lines.indexOf(QRegularExpression(QStringLiteral(".*org.corvina.mail.desktop <<'EOF'")));
    ASSERT_GE(start, 0);
    QString desktopFile;
    for (qsizetype i = start + 1; i < lines.size() && lines[i] != QStringLiteral("    EOF"); ++i) {
        desktopFile += lines[i].mid(4) + QLatin1Char('\n');
    }
    ASSERT_TRUE(desktopFile.contains(QStringLiteral("/tmp/corvina-commands.txt")));
    FakeHostApp host;
    QTemporaryDir dir;
    const QString printed = dir.filePath(QStringLiteral("corvina-commands.txt"));
    desktopFile.replace(QStringLiteral("/tmp/corvina-commands.txt"), printed);
    host.installDesktopFile(QStringLiteral("org.corvina.mail.desktop"), desktopFile.toUtf8());

    QProcess validate;
    validate.start(QStringLiteral("desktop-file-validate"),
                   {host.applicationsFolder() + QStringLiteral("/org.corvina.mail.desktop")});
    ASSERT_TRUE(validate.waitForFinished(30000));
    EXPECT_EQ(validate.exitCode(), 0) << validate.readAllStandardOutput().toStdString();

    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages(
        {message(QStringLiteral("1042"), QStringLiteral("ann@example.org"))}, ConstVars::commandArchive,
        true));
    QFile out(printed);
    QDeadlineTimer deadline(10000);
    QByteArray text;
    while (!deadline.hasExpired()) {
        if (out.open(QIODevice::ReadOnly)) {
            text = out.readAll();
            out.close();
            if (text.endsWith('\n'))
                break;
        }
        QThread::msleep(20);
    }
    EXPECT_EQ(
        text,
        QByteArray("0x200 corvina://archive?mail=ann%40example.org&messageid=1042&folderstandardid=1\n"));
}

struct TargetCase {
    const char* bundle;
    QString target;
};

class LaunchTarget : public ::testing::TestWithParam<TargetCase> {};

TEST_P(LaunchTarget, BundleIdentifierPrefixSelectsTheBuild) {
    FakeHostApp host;
    installEveryBuild(host);
    ScopedEnvironment bundle("CORVINA_BUNDLE_IDENTIFIER", QByteArray(GetParam().bundle));
    EXPECT_EQ(ExtensionUtilities::LaunchTargetForBundleIdentifier(QString::fromLatin1(GetParam().bundle)),
              GetParam().target);
    ASSERT_TRUE(ExtensionUtilities::LaunchCommandForMessages(
        {message(QStringLiteral("1"), QStringLiteral("a"))}, ConstVars::commandOpen, false));
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    ASSERT_GE(launches.at(0).arguments.size(), 2);
    EXPECT_EQ(launches.at(0).arguments.at(1), GetParam().target);
}

INSTANTIATE_TEST_SUITE_P(
    Builds, LaunchTarget,
    ::testing::Values(TargetCase{"org.corvina.mail.today", ConstVars::appIdentifier},
                      TargetCase{"org.corvina.mail.beta8.today", ConstVars::appIdentifierBeta8},
                      TargetCase{"org.corvina.mail.beta10.today", ConstVars::appIdentifierBeta10},
                      TargetCase{"org.corvina.mail.beta10", ConstVars::appIdentifierBeta10},
                      TargetCase{"org.corvina.mail.beta.today", ConstVars::appIdentifier},
                      TargetCase{"org.corvina.mail.betatoday", ConstVars::appIdentifier},
                      TargetCase{"org.corvina.mail.beta9.today", ConstVars::appIdentifier},
                      TargetCase{"org.corvina.mail2.today", ConstVars::appIdentifier2},
                      TargetCase{"org.corvina.mail.pro.today", ConstVars::appIdentifier},
                      TargetCase{"org.other.today", ConstVars::appIdentifier}));
