#include "widget/TodayStatus.h"

#include "platform/GroupContainer.h"
#include "shared/ConstVars.h"
#include "support/LogCapture.h"
#include "support/ScopedEnvironment.h"
#include "support/ScopedZone.h"
#include "support/TempContainer.h"
#include "views/TodayStatusView.h"
#include "widget/TodayViewController.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTextLayout>
#include <QVBoxLayout>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::LogCapture;
using corvina::test::ScopedEnvironment;
using corvina::test::TempContainer;

namespace {

const QString kNoFolder =
    QStringLiteral("No shared folder: is the mail application (or corvina-mail-bridge) running?");

BridgeStatusFile::Failure failure(const QString& error, const QDateTime& time) {
    BridgeStatusFile::Failure f;
    f.account = QStringLiteral("work");
    f.mail = QStringLiteral("work@example.org");
    f.error = error;
    f.time = time;
    return f;
}

} // namespace

TEST(TodayStatus, TheTextsAreTheWidgetsOwn) {
    EXPECT_EQ(TodayStatus::noMessages(), QStringLiteral("No messages"));
    EXPECT_EQ(TodayStatus::noSharedFolder(), kNoFolder);
}

TEST(TodayStatus, AFullFreshListNeedsNoWords) {
    EXPECT_TRUE(TodayStatus::lines(true, 3, {}, QDateTime::currentDateTime()).isEmpty());
}

TEST(TodayStatus, AnEmptyListSaysSo) {
    EXPECT_EQ(TodayStatus::lines(true, 0, {}, QDateTime::currentDateTime()),
              QStringList{QStringLiteral("No messages")});
}

TEST(TodayStatus, AMissingFolderIsSaidInsteadOfNoMessages) {
    EXPECT_EQ(TodayStatus::lines(false, 0, {}, QDateTime::currentDateTime()), QStringList{kNoFolder});
}

TEST(TodayStatus, ABridgeFailureOfTodayGivesItsTime) {
    // The test program runs in UTC with the C locale: a time of today is hours and minutes.
    const QDateTime now(QDate(2026, 11, 25), QTime(11, 5), Qt::UTC);
    const QDateTime failed(QDate(2026, 11, 25), QTime(10, 42), Qt::UTC);
    const QStringList lines = TodayStatus::lines(
        true, 4, {failure(QStringLiteral("login refused for work@example.org"), failed)}, now);
    EXPECT_EQ(lines, QStringList{QStringLiteral("As of 10:42: login refused for work@example.org")});
}

TEST(TodayStatus, AFailureInTheLocalZoneGivesTheLocalTime) {
    corvina::test::ScopedTimeZone zone("Europe/Berlin");
    const QDateTime now(QDate(2026, 11, 25), QTime(11, 5), Qt::UTC);
    const QDateTime failed(QDate(2026, 11, 25), QTime(10, 42), Qt::UTC);
    EXPECT_EQ(TodayStatus::failureLine(failure(QStringLiteral("unreachable"), failed), now),
              QStringLiteral("As of 11:42: unreachable"));
}

TEST(TodayStatus, AnOlderFailureNamesItsDay) {
    const QDateTime now(QDate(2026, 11, 25), QTime(11, 5), Qt::UTC);
    const QDateTime failed(QDate(2026, 11, 23), QTime(10, 42), Qt::UTC);
    const QString line = TodayStatus::failureLine(failure(QStringLiteral("unreachable"), failed), now);
    EXPECT_TRUE(line.startsWith(QStringLiteral("As of "))) << line.toStdString();
    EXPECT_TRUE(line.contains(QStringLiteral("10:42"))) << line.toStdString();
    EXPECT_TRUE(line.contains(QStringLiteral("23"))) << line.toStdString();
    EXPECT_TRUE(line.endsWith(QStringLiteral(": unreachable"))) << line.toStdString();
}

TEST(TodayStatus, AFailureWithoutTimeIsSaidAsItIs) {
    EXPECT_EQ(TodayStatus::failureLine(failure(QStringLiteral("unreachable"), QDateTime()),
                                       QDateTime::currentDateTime()),
              QStringLiteral("unreachable"));
}

TEST(TodayStatus, TheEmptyListAndEachFailureAreSaidTogether) {
    const QDateTime now(QDate(2026, 11, 25), QTime(11, 5), Qt::UTC);
    const QStringList lines = TodayStatus::lines(
        false, 0,
        {failure(QStringLiteral("a"), QDateTime(QDate(2026, 11, 25), QTime(9, 0), Qt::UTC)),
         failure(QStringLiteral("b"), QDateTime(QDate(2026, 11, 25), QTime(9, 30), Qt::UTC))},
        now);
    EXPECT_EQ(lines,
              (QStringList{kNoFolder, QStringLiteral("As of 09:00: a"), QStringLiteral("As of 09:30: b")}));
}

TEST(TodayStatus, TheSharedFolderIsThereOnlyWhenItsDataFolderIs) {
    {
        TempContainer container;
        EXPECT_TRUE(TodayStatus::sharedFolderExists());
        QDir(container.data()).removeRecursively();
        EXPECT_FALSE(TodayStatus::sharedFolderExists());
    }
    QTemporaryDir dir;
    ScopedEnvironment env(GroupContainer::EnvironmentVariable,
                          dir.filePath(QStringLiteral("not-yet")).toUtf8());
    EXPECT_FALSE(TodayStatus::sharedFolderExists());
}

TEST(TodayStatus, TheControllerSaysWhenItsRowsChange) {
    TempContainer container;
    const QString account = QStringLiteral("ann@example.org");
    container.writeAccounts({TempContainer::account(account)});
    container.writeSnapshot(
        account, QStringLiteral("inbox.plist"),
        TempContainer::inboxMessages(account, {QStringLiteral("a"), QStringLiteral("b")}));
    TodayViewController controller;
    controller.view();
    QSignalSpy changed(&controller, &TodayViewController::shownRowsChanged);
    controller.setDataFromDisk(controller.updateData());
    controller.ReloadData();
    EXPECT_EQ(changed.size(), 1);
    ASSERT_TRUE(controller.dataToShow());
    ASSERT_EQ(controller.dataToShow()->size(), 2);
    // A message taken out (an archive or a delete) changes the rows too.
    controller.removeMessage(controller.dataToShow()->at(0));
    EXPECT_EQ(changed.size(), 2);
    EXPECT_EQ(controller.dataToShow()->size(), 1);
}

TEST(TodayStatus, ARefusedAccountListIsSaidInsteadOfNoMessages) {
    const QString refused =
        QStringLiteral("The mail application's account list could not be read (too large or damaged).");
    EXPECT_EQ(TodayStatus::accountListRefused(), refused);
    EXPECT_EQ(TodayStatus::lines(true, 0, {}, QDateTime::currentDateTime(), true), QStringList{refused});
    // The folder's absence comes first, and a bridge failure still follows.
    EXPECT_EQ(TodayStatus::lines(false, 0, {}, QDateTime::currentDateTime(), true), QStringList{kNoFolder});
    const QDateTime now(QDate(2026, 11, 25), QTime(11, 5), Qt::UTC);
    EXPECT_EQ(TodayStatus::lines(
                  true, 0,
                  {failure(QStringLiteral("a"), QDateTime(QDate(2026, 11, 25), QTime(9, 0), Qt::UTC))}, now,
                  true),
              (QStringList{refused, QStringLiteral("As of 09:00: a")}));
}

TEST(TodayStatus, TheRefusedAccountListIsSaidInGermanAndFrench) {
    {
        test::ScopedLanguage language(QLocale(QLocale::German, QLocale::Germany));
        EXPECT_EQ(
            TodayStatus::accountListRefused(),
            QStringLiteral("Die Kontenliste des Mailprogramms konnte nicht gelesen werden (zu groß oder "
                           "beschädigt)."));
    }
    test::ScopedLanguage language(QLocale(QLocale::French, QLocale::France));
    EXPECT_EQ(TodayStatus::accountListRefused(),
              QStringLiteral("La liste des comptes de l’application de messagerie n’a pas pu être lue (trop "
                             "grande ou endommagée)."));
}

TEST(TodayStatus, TheControllerKnowsWhenItsAccountListWasRefused) {
    TempContainer container;
    const QString account = QStringLiteral("ann@example.org");
    container.writeAccounts({TempContainer::account(account)});
    container.writeSnapshot(account, QStringLiteral("inbox.plist"),
                            TempContainer::inboxMessages(account, {QStringLiteral("a")}));
    TodayViewController controller;
    EXPECT_EQ(controller.updateData().size(), 1);
    EXPECT_TRUE(controller.accountsRefusal().isEmpty());
    // Over the bound on objects: the array and 131 072 empty dictionaries.
    QByteArray xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><array>";
    for (int i = 0; i < 131072; ++i)
        xml += "<dict/>";
    xml += "</array></plist>\n";
    container.writeBytes(ConstVars::accountsFile, xml);
    LogCapture capture;
    EXPECT_TRUE(controller.updateData().isEmpty());
    EXPECT_EQ(controller.accountsRefusal(),
              QStringLiteral("XML property list holds more than 131072 objects"));
    EXPECT_EQ(capture.count(QStringLiteral(
                  "Accounts error deserialize XML property list holds more than 131072 objects")),
              1);
    // Written again as it should be: read, and nothing refused any more.
    container.writeAccounts({TempContainer::account(account)});
    EXPECT_EQ(controller.updateData().size(), 1);
    EXPECT_TRUE(controller.accountsRefusal().isEmpty());
}

// The bridge's words when an account's sign-in has run out name the command a person must run:
// the widget shows them whole below its list, read from the status file as the bridge writes it,
// and never breaks the program's name at its hyphens (a person would copy "corvina-mail-" and
// "bridge" as two words).
TEST(TodayStatus, ASignInNeededIsShownWholeWithTheCommandToRun) {
    const QDateTime now(QDate(2026, 11, 25), QTime(11, 5), Qt::UTC);
    for (const QString& account : {QStringLiteral("work"), QStringLiteral("w"), QStringLiteral("personal"),
                                   QStringLiteral("ada-at-home"), QStringLiteral("x1")}) {
        const QString said =
            QStringLiteral("sign-in needed: the provider no longer accepts the sign-in of ada@example.org; "
                           "run corvina-mail-bridge account signin %1")
                .arg(account);
        QTemporaryDir state;
        ASSERT_TRUE(QDir().mkpath(state.filePath(QStringLiteral("corvina"))));
        QFile file(state.filePath(QStringLiteral("corvina/bridge-status.json")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(
            QJsonDocument(
                QJsonObject{{QStringLiteral("version"), 1},
                            {QStringLiteral("accounts"),
                             QJsonObject{{account, QJsonObject{{QStringLiteral("mail"),
                                                                QStringLiteral("ada@example.org")},
                                                               {QStringLiteral("ok"), false},
                                                               {QStringLiteral("lastError"), said},
                                                               {QStringLiteral("lastErrorTime"),
                                                                QStringLiteral("2026-11-25T10:42:00Z")}}}}}})
                .toJson());
        file.close();
        const QStringList lines =
            TodayStatus::lines(true, 4, BridgeStatusFile::failures(file.fileName()), now);
        ASSERT_EQ(lines, QStringList{QStringLiteral("As of 10:42: ") + said});

        // Below the list as the program's window holds it: a layout as large as its content asks.
        QWidget window;
        auto* column = new QVBoxLayout(&window);
        column->setSizeConstraint(QLayout::SetFixedSize);
        column->setContentsMargins(0, 0, 0, 0);
        auto* view = new TodayStatusView(&window);
        column->addWidget(view);
        view->setLines(lines);
        window.show();
        column->activate();
        const QLabel* label = view->findChild<QLabel*>();
        ASSERT_NE(label, nullptr);
        // Whole, for the eye and for a screen reader.
        EXPECT_EQ(view->text(), lines.first());
        EXPECT_EQ(label->accessibleName(), lines.first());
        // As high as its wrapped lines need: nothing cut off below.
        EXPECT_GE(label->height(), label->heightForWidth(label->width()));
        // Laid out as the label lays it out, no line ends inside the program's name.
        QTextLayout layout(label->text(), label->font());
        QTextOption option;
        option.setWrapMode(QTextOption::WordWrap);
        layout.setTextOption(option);
        layout.beginLayout();
        QList<int> lineStarts;
        for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
            line.setLineWidth(label->contentsRect().width());
            lineStarts << line.textStart();
        }
        layout.endLayout();
        EXPECT_GT(lineStarts.size(), 1) << "the words wrap in the widget's width";
        const qsizetype program = label->text().indexOf(QStringLiteral("corvina"));
        const qsizetype programEnd = label->text().indexOf(QStringLiteral("bridge"), program);
        ASSERT_GE(program, 0) << label->text().toStdString();
        ASSERT_GT(programEnd, program) << label->text().toStdString();
        for (const int start : lineStarts) {
            EXPECT_FALSE(start > program && start <= programEnd)
                << account.toStdString() << ": a line starts at " << label->text().mid(start).toStdString();
        }
    }
}
