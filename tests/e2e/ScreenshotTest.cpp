// corvina-today --screenshot: the widget rendered without a display, as the docs' picture is made.
#include "support/TempContainer.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using corvina::test::TempContainer;

namespace {

// corvina-today --screenshot with `arguments` after the container and the file; the image, null when
// the program failed. `state`: the XDG state folder (the bridge's status file), a fresh one if empty.
QImage shoot(const QString& container, const QStringList& arguments, const QString& state = QString()) {
    QTemporaryDir out;
    QTemporaryDir config;
    QTemporaryDir freshState;
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    env.insert(QStringLiteral("XDG_STATE_HOME"), state.isEmpty() ? freshState.path() : state);
    // No desktop session and no portal answering: the widget's own look unless told otherwise.
    env.remove(QStringLiteral("XDG_CURRENT_DESKTOP"));
    p.setProcessEnvironment(env);
    const QString file = out.filePath(QStringLiteral("shot.png"));
    p.start(QStringLiteral(CORVINA_TODAY_BINARY),
            QStringList{QStringLiteral("--container"), container, QStringLiteral("--screenshot"), file} +
                arguments);
    if (!p.waitForFinished(30000) || p.exitCode() != 0) {
        ADD_FAILURE() << p.readAllStandardError().toStdString();
        return {};
    }
    return QImage(file);
}

// Pixels in the rows y0..y1 that differ clearly from the panel colour at (2, y0).
int inkBetween(const QImage& image, int y0, int y1) {
    const QColor panel = image.pixelColor(2, y0);
    int ink = 0;
    for (int y = y0; y < std::min(y1, image.height()); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (std::abs(c.lightness() - panel.lightness()) > 40)
                ++ink;
        }
    return ink;
}

TempContainer* withMessages(TempContainer& container, int count) {
    const QString account = QStringLiteral("ann@example.org");
    container.writeAccounts({TempContainer::account(account)});
    QVariantList rows;
    for (int i = 0; i < count; ++i)
        rows << TempContainer::message(QStringLiteral("m%1").arg(i), account, 1795000000 - i * 600, 1);
    container.writeSnapshot(account, QStringLiteral("inbox.plist"), rows);
    return &container;
}

TempContainer* fourMessages(TempContainer& container) {
    return withMessages(container, 4);
}

// The widget's own height: header 30, gap 5, 60 a row; the window adds nothing around it.
constexpr int widgetHeight(int rows) {
    return 30 + 5 + rows * 60;
}
constexpr int kFourRowsHeight = widgetHeight(4);
constexpr int kBareHeaderHeight = widgetHeight(0);

} // namespace

TEST(Screenshot, RendersTheWidgetAtItsSizeAfterTheFirstLoad) {
    TempContainer container;
    fourMessages(container);
    const QImage image = shoot(container.root(), {});
    ASSERT_FALSE(image.isNull());
    // 320 wide; header 30, gap 5, four rows of 60, and nothing above or below.
    EXPECT_EQ(image.size(), QSize(320, 30 + 5 + 4 * 60));
}

TEST(Screenshot, TheWindowIsExactlyAsHighAsItsRows) {
    for (const int rows : {1, 10}) {
        TempContainer container;
        withMessages(container, rows);
        const QImage shot = shoot(container.root(), {});
        ASSERT_FALSE(shot.isNull());
        // No band under the last row: the row itself reaches the bottom edge.
        EXPECT_EQ(shot.size(), QSize(320, widgetHeight(rows))) << rows << " rows";
        EXPECT_GT(inkBetween(shot, widgetHeight(rows) - 60, widgetHeight(rows)), 50) << rows << " rows";
    }
    // No rows: the header, and the words for the empty list below it (a line of text, then the
    // line of the link "Add your mail account…" at most 8 below it, and their margins, 8 above and
    // 12 below).
    TempContainer empty;
    withMessages(empty, 0);
    const QImage shot = shoot(empty.root(), {});
    ASSERT_FALSE(shot.isNull());
    EXPECT_GE(shot.height(), widgetHeight(0) + 8 + 10 + 10 + 12);
    EXPECT_LE(shot.height(), widgetHeight(0) + 8 + 20 + 8 + 20 + 12);
    EXPECT_EQ(inkBetween(shot, widgetHeight(0), widgetHeight(0) + 8), 0);
    EXPECT_GT(inkBetween(shot, widgetHeight(0) + 8, shot.height()), 50);
}

TEST(Screenshot, BadIntervalIsAUsageError) {
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    p.setProcessEnvironment(env);
    p.start(QStringLiteral(CORVINA_TODAY_BINARY), {QStringLiteral("--interval"), QStringLiteral("soon")});
    ASSERT_TRUE(p.waitForFinished(30000));
    EXPECT_EQ(p.exitCode(), 2);
    EXPECT_TRUE(p.readAllStandardError().contains("--interval wants a whole number of seconds"));
}

TEST(Screenshot, LightAndDarkPanels) {
    TempContainer container;
    fourMessages(container);
    const QImage dark = shoot(container.root(), {});
    const QImage light = shoot(container.root(), {QStringLiteral("--appearance"), QStringLiteral("light")});
    ASSERT_FALSE(dark.isNull());
    ASSERT_FALSE(light.isNull());
    EXPECT_EQ(dark.size(), light.size());
    EXPECT_EQ(dark.pixelColor(2, 2), QColor(0x24, 0x26, 0x2b));
    EXPECT_GT(light.pixelColor(2, 2).lightness(), 200);
    // The rows' text is light on the dark panel and dark on the light one, and there is some.
    EXPECT_GT(inkBetween(dark, 60, kFourRowsHeight), 500);
    EXPECT_GT(inkBetween(light, 60, kFourRowsHeight), 500);
    QProcess bad;
    bad.start(QStringLiteral(CORVINA_TODAY_BINARY),
              {QStringLiteral("--appearance"), QStringLiteral("sepia")});
    ASSERT_TRUE(bad.waitForFinished(30000));
    EXPECT_EQ(bad.exitCode(), 2);
    EXPECT_TRUE(bad.readAllStandardError().contains("--appearance is auto, light or dark, not sepia"));
}

TEST(Screenshot, AnEmptyListSaysSoBelowTheHeader) {
    TempContainer container;
    container.writeAccounts({TempContainer::account(QStringLiteral("ann@example.org"))});
    const QImage shot = shoot(container.root(), {});
    ASSERT_FALSE(shot.isNull());
    // The bare header, and one line of words below it, then the link to the Accounts window.
    EXPECT_GT(shot.height(), kBareHeaderHeight + 20);
    EXPECT_LT(shot.height(), kBareHeaderHeight + 80);
    EXPECT_GT(inkBetween(shot, kBareHeaderHeight, shot.height()), 50);
}

TEST(Screenshot, AMissingSharedFolderIsSaidInWords) {
    QTemporaryDir nowhere;
    const QImage shot = shoot(nowhere.filePath(QStringLiteral("not-made")), {});
    ASSERT_FALSE(shot.isNull());
    TempContainer container;
    container.writeAccounts({TempContainer::account(QStringLiteral("ann@example.org"))});
    const QImage empty = shoot(container.root(), {});
    ASSERT_FALSE(empty.isNull());
    // Longer words than "No messages": two lines, where the empty list takes one.
    EXPECT_GT(shot.height(), empty.height() + 8);
    EXPECT_GT(inkBetween(shot, kBareHeaderHeight, shot.height()), 150);
}

TEST(Screenshot, ARefusedAccountListIsSaidInWords) {
    TempContainer container;
    fourMessages(container);
    // Over the bound on objects: the array and 131 072 empty dictionaries.
    QByteArray xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><array>";
    for (int i = 0; i < 131072; ++i)
        xml += "<dict/>";
    xml += "</array></plist>\n";
    container.writeBytes(QStringLiteral("Accounts.plist"), xml);
    const QImage shot = shoot(container.root(), {});
    ASSERT_FALSE(shot.isNull());
    TempContainer empty;
    empty.writeAccounts({TempContainer::account(QStringLiteral("ann@example.org"))});
    const QImage noMessages = shoot(empty.root(), {});
    ASSERT_FALSE(noMessages.isNull());
    // No rows, and more words than "No messages": the account list's refusal, over two lines or more.
    EXPECT_GT(shot.height(), noMessages.height() + 8);
    EXPECT_GT(inkBetween(shot, kBareHeaderHeight, shot.height()), 150);
}

TEST(Screenshot, ABridgeFailureIsSaidBelowAFullList) {
    TempContainer container;
    fourMessages(container);
    QTemporaryDir state;
    QDir().mkpath(state.filePath(QStringLiteral("corvina")));
    QFile status(state.filePath(QStringLiteral("corvina/bridge-status.json")));
    ASSERT_TRUE(status.open(QIODevice::WriteOnly));
    status.write(R"({"version": 1, "accounts": {"work": {"mail": "work@example.org", "ok": false,
        "lastError": "login refused for work@example.org", "lastErrorTime": "2026-11-25T10:42:00Z"}}})");
    status.close();
    const QImage shot = shoot(container.root(), {}, state.path());
    ASSERT_FALSE(shot.isNull());
    EXPECT_GT(shot.height(), kFourRowsHeight + 10);
    EXPECT_GT(inkBetween(shot, kFourRowsHeight, shot.height()), 50);
    // A fresh state folder: the list alone, at its exact height.
    const QImage fresh = shoot(container.root(), {});
    ASSERT_FALSE(fresh.isNull());
    EXPECT_EQ(fresh.height(), kFourRowsHeight);
}
