#include "views/TodayTableViewCell.h"

#include "platform/NotificationCenter.h"
#include "shared/ExtensionUtilities.h"
#include "support/FakeHostApp.h"
#include "support/WidgetTesting.h"
#include "ui/Images.h"
#include "views/TodayMetrics.h"

#include <QFontMetrics>
#include <QImage>
#include <QTest>
#include <gtest/gtest.h>

using namespace corvina;
using corvina::test::FakeHostApp;

namespace {

// A row of the widget's table.
const QRect kRowFrame(0, 0, TodayMetrics::width, TodayMetrics::rowHeight);

ExtensionMessagePtr message(const QString& subject, const QString& from = QStringLiteral("Ann Lee"),
                            const QString& date = QStringLiteral("09:41")) {
    ExtensionMessagePtr m = ExtensionMessage::init();
    m->setMessageId(QStringLiteral("id-1"));
    m->setAccount(QStringLiteral("ann@example.org"));
    m->setFolderStandardId(qint64(1));
    m->setSubject(subject);
    m->setFrom(from);
    m->setDateString(date);
    return m;
}

struct Commands {
    Commands() {
        NotificationCenter::defaultCenter().addObserver(
            this, ExtensionUtilities::ACTION_CALLED_EXTENSION, [this](const Notification& n) {
                names << n.object.toMap().value(QStringLiteral("command")).toString();
            });
    }
    ~Commands() { NotificationCenter::defaultCenter().removeObserver(this); }
    QStringList names;
};

} // namespace

TEST(TodayTableViewCell, FramesOfEveryPartAtTheWidgetsWidth) {
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    cell.PopulateExtensionMessage(message(QStringLiteral("Subject")));
    EXPECT_TRUE(TodayTableViewCell::isFlipped());
    EXPECT_EQ(cell.swipingView()->geometry(), kRowFrame);
    EXPECT_EQ(cell.horizontalSeparator1()->geometry(), QRect(35, 0, 285, 1));
    EXPECT_EQ(cell.avatarIMview()->geometry(), QRect(35, 20, 20, 20));
    EXPECT_EQ(cell.fromField()->geometry().topLeft(), QPoint(70, 10));
    EXPECT_EQ(cell.fromField()->height(), 20);
    EXPECT_EQ(cell.dateField()->geometry().right() + 1, 300); // ends 20 before the right edge
    EXPECT_EQ(cell.dateField()->y(), 10);
    EXPECT_EQ(cell.dateField()->height(), 20);
    EXPECT_EQ(cell.subjectField()->geometry(), QRect(70, 30, 151, 20));
    EXPECT_EQ(cell.replyButton()->geometry(), QRect(224, 30, 20, 20));
    EXPECT_EQ(cell.archiveButton()->geometry(), QRect(252, 30, 20, 20));
    EXPECT_EQ(cell.trashButton()->geometry(), QRect(280, 30, 20, 20));
}

TEST(TodayTableViewCell, LayoutFollowsTheCellsWidth) {
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    cell.resize(400, TodayMetrics::rowHeight);
    EXPECT_EQ(cell.swipingView()->geometry(), QRect(0, 0, 400, TodayMetrics::rowHeight));
    EXPECT_EQ(cell.subjectField()->geometry(), QRect(70, 30, 400 - 169, 20));
    EXPECT_EQ(cell.trashButton()->geometry(), QRect(400 - 40, 30, 20, 20));
    EXPECT_EQ(cell.horizontalSeparator1()->geometry(), QRect(35, 0, 365, 1));
}

TEST(TodayTableViewCell, SenderAndDateTakeTheirTextsWidthWithAtLeastTenBetween) {
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    cell.PopulateExtensionMessage(
        message(QStringLiteral("s"), QStringLiteral("Al"), QStringLiteral("09:41")));
    EXPECT_EQ(cell.fromField()->width(), cell.fromField()->sizeHint().width());
    EXPECT_EQ(cell.dateField()->width(), cell.dateField()->sizeHint().width());
    EXPECT_GE(cell.dateField()->x() - cell.fromField()->geometry().right() - 1, 10);

    const QString longName = QStringLiteral("Bartholomew Maximilian Featherstonehaugh-Wolfeschlegel");
    cell.PopulateExtensionMessage(message(QStringLiteral("s"), longName, QStringLiteral("22 Nov 2026")));
    EXPECT_EQ(cell.dateField()->geometry().right() + 1, 300);
    EXPECT_EQ(cell.dateField()->width(), cell.dateField()->sizeHint().width()); // the date stays whole
    EXPECT_EQ(cell.dateField()->x() - cell.fromField()->geometry().right() - 1, 10);
    EXPECT_LT(cell.fromField()->width(), cell.fromField()->sizeHint().width());
}

TEST(TodayTableViewCell, ALongSenderEndsInAnEllipsisWithinItsFieldAndTheDateStaysWhole) {
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    const QString longName = QStringLiteral("Bartholomew Maximilian Featherstonehaugh-Wolfeschlegel");
    const QString date = QStringLiteral("22 Nov 2026");
    cell.PopulateExtensionMessage(message(QStringLiteral("s"), longName, date));
    const QString shown = cell.fromField()->displayedText();
    EXPECT_TRUE(shown.endsWith(QChar(0x2026))) << shown.toStdString();
    EXPECT_TRUE(longName.startsWith(shown.chopped(1))) << shown.toStdString();
    EXPECT_GT(shown.size(), 1); // some of the name shows, not the ellipsis alone
    EXPECT_LE(QFontMetrics(cell.fromField()->font()).horizontalAdvance(shown), cell.fromField()->width());
    EXPECT_EQ(cell.dateField()->displayedText(), date);
    // A name that fits shows whole, without an ellipsis.
    cell.PopulateExtensionMessage(message(QStringLiteral("s"), QStringLiteral("Ann Lee"), date));
    EXPECT_EQ(cell.fromField()->displayedText(), QStringLiteral("Ann Lee"));
}

TEST(TodayTableViewCell, LongSubjectShowsOneLineCutAtTheEnd) {
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    const QString subject =
        QStringLiteral("Minutes of the quarterly planning meeting with every decision and open question");
    cell.PopulateExtensionMessage(message(subject));
    const QString shown = cell.subjectField()->displayedText();
    EXPECT_TRUE(shown.endsWith(QChar(0x2026))) << shown.toStdString();
    EXPECT_TRUE(subject.startsWith(shown.chopped(1)));
    EXPECT_LE(QFontMetrics(cell.subjectField()->font()).horizontalAdvance(shown),
              cell.subjectField()->width());
    EXPECT_EQ(cell.subjectField()->height(), 20);
    // A subject over two lines shows its first, cut.
    cell.PopulateExtensionMessage(message(QStringLiteral("Short\nsecond line")));
    EXPECT_EQ(cell.subjectField()->displayedText(), QStringLiteral("Short") + QChar(0x2026));
    // A short one shows whole.
    cell.PopulateExtensionMessage(message(QStringLiteral("Lunch?")));
    EXPECT_EQ(cell.subjectField()->displayedText(), QStringLiteral("Lunch?"));
}

TEST(TodayTableViewCell, TextsAndColours) {
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    cell.PopulateExtensionMessage(
        message(QStringLiteral("Subject"), QStringLiteral("Ann Lee"), QStringLiteral("09:41")));
    EXPECT_EQ(cell.subjectField()->stringValue(), QStringLiteral("Subject"));
    EXPECT_EQ(cell.fromField()->stringValue(), QStringLiteral("Ann Lee"));
    EXPECT_EQ(cell.dateField()->stringValue(), QStringLiteral("09:41"));
    EXPECT_EQ(cell.dateField()->textColor(), QColor(255, 255, 255, 102)); // white at 0.4
    EXPECT_FALSE(cell.subjectField()->drawsBackground());
    EXPECT_EQ(cell.subjectField()->font().pixelSize(), 13);
    // A null date text (a record cut short by an error) shows an empty field.
    auto broken = message(QStringLiteral("x"));
    broken->setDateString(QString());
    cell.PopulateExtensionMessage(broken);
    EXPECT_EQ(cell.dateField()->displayedText(), QString());
}

TEST(TodayTableViewCell, AvatarPlaceholderUntilTheMessageHasAnImage) {
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    EXPECT_EQ(cell.avatarIMview()->imageName(), QStringLiteral("prof10"));
    cell.PopulateExtensionMessage(message(QStringLiteral("no image")));
    EXPECT_EQ(cell.avatarIMview()->imageName(), QStringLiteral("prof10"));
    QImage avatar(40, 40, QImage::Format_ARGB32);
    avatar.fill(Qt::green);
    auto withImage = message(QStringLiteral("image"));
    withImage->setImage(avatar);
    cell.PopulateExtensionMessage(withImage);
    EXPECT_TRUE(cell.avatarIMview()->imageName().isEmpty());
    EXPECT_EQ(cell.avatarIMview()->image(), avatar);
}

TEST(TodayTableViewCell, ButtonsShowOnlyTheirImagesAtThreeTenths) {
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    EXPECT_EQ(cell.replyButton()->imageName(), QStringLiteral("w_reply"));
    EXPECT_EQ(cell.archiveButton()->imageName(), QStringLiteral("w_archive"));
    EXPECT_EQ(cell.trashButton()->imageName(), QStringLiteral("w_trash"));
    for (ImageButton* b : {cell.replyButton(), cell.archiveButton(), cell.trashButton()}) {
        EXPECT_DOUBLE_EQ(b->alphaValue(), 0.3);
        EXPECT_TRUE(b->text().isEmpty());
        EXPECT_TRUE(b->toolTip().isEmpty());
        EXPECT_FALSE(b->isBordered());
        EXPECT_EQ(b->backgroundColor().alpha(), 0);
        // The artwork renders at 1x and 2x at the full pixel size, not scaled up.
        const QPixmap one = Images::imageNamed(b->imageName(), QSize(20, 20), 1.0);
        const QPixmap two = Images::imageNamed(b->imageName(), QSize(20, 20), 2.0);
        EXPECT_EQ(one.size(), QSize(20, 20));
        EXPECT_EQ(two.size(), QSize(40, 40));
        EXPECT_EQ(two.deviceIndependentSize(), QSizeF(20, 20));
    }
}

TEST(TodayTableViewCell, SwipeMembersStayEmpty) {
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    EXPECT_EQ(cell.readButton(), nullptr);
    EXPECT_EQ(cell.backView(), nullptr);
    EXPECT_EQ(cell.archiveField(), nullptr);
    EXPECT_EQ(cell.deleteField(), nullptr);
    EXPECT_EQ(cell.deltax(), 0.0);
}

TEST(TodayTableViewCell, SeparatorIsWhiteAtTwoTenths) {
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    QImage image(cell.size(), QImage::Format_ARGB32);
    image.fill(Qt::black);
    cell.render(&image);
    const QColor line = image.pixelColor(100, 0);
    EXPECT_NEAR(line.red(), 51, 2);                         // white at 0.2 over black
    EXPECT_EQ(image.pixelColor(20, 0), QColor(Qt::black));  // starts at x 35
    EXPECT_EQ(image.pixelColor(100, 1), QColor(Qt::black)); // one point high
}

TEST(TodayTableViewCell, ButtonsSendTheirCommandsInTheForegroundOrBackground) {
    FakeHostApp host;
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    Commands commands;
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    cell.PopulateExtensionMessage(message(QStringLiteral("s")));
    QTest::mouseClick(cell.replyButton(), Qt::LeftButton);
    ASSERT_EQ(host.waitForLaunches(1).size(), 1);
    QTest::mouseClick(cell.archiveButton(), Qt::LeftButton);
    ASSERT_EQ(host.waitForLaunches(2).size(), 2);
    QTest::mouseClick(cell.trashButton(), Qt::LeftButton);
    const auto launches = host.waitForLaunches(3);
    ASSERT_EQ(launches.size(), 3);
    EXPECT_EQ(commands.names,
              (QStringList{QStringLiteral("reply"), QStringLiteral("archive"), QStringLiteral("delete")}));
    const QString query = QStringLiteral("?mail=ann%40example.org&messageid=id-1&folderstandardid=1");
    EXPECT_EQ(launches.at(0).arguments, QStringList{QStringLiteral("corvina://reply") + query});
    EXPECT_EQ(launches.at(1).arguments, QStringList{QStringLiteral("corvina://archive") + query});
    EXPECT_EQ(launches.at(2).arguments, QStringList{QStringLiteral("corvina://delete") + query});
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")),
              QStringLiteral("0x20000"));
    EXPECT_EQ(launches.at(1).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
    EXPECT_EQ(launches.at(2).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
    for (ImageButton* b : {cell.replyButton(), cell.archiveButton(), cell.trashButton()}) {
        EXPECT_FALSE(b->isCheckable());
        EXPECT_FALSE(b->isDown());
    }
}

TEST(TodayTableViewCell, ButtonsOfACellNeverFilledDoNothing) {
    FakeHostApp host;
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    Commands commands;
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    QTest::mouseClick(cell.archiveButton(), Qt::LeftButton);
    EXPECT_TRUE(commands.names.isEmpty());
    EXPECT_TRUE(host.waitForLaunches(1, 200).isEmpty());
}

TEST(TodayTableViewCell, ReUseChangesNothing) {
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    cell.ReUse();
    EXPECT_EQ(cell.message(), nullptr);
    EXPECT_EQ(cell.avatarIMview()->imageName(), QStringLiteral("prof10"));
    const auto m = message(QStringLiteral("kept"));
    cell.PopulateExtensionMessage(m);
    cell.ReUse();
    EXPECT_EQ(cell.message(), m);
    EXPECT_EQ(cell.subjectField()->stringValue(), QStringLiteral("kept"));
}

TEST(TodayTableViewCell, TheNewMarkerIsADotLeftOfTheAvatarAndMovesNothing) {
    TodayTableViewCell cell(QRect(0, 0, 320, 60));
    cell.PopulateExtensionMessage(message(QStringLiteral("Lunch")));
    EXPECT_FALSE(cell.isMarkedNew());
    const QImage plain = test::renderTransparent(cell);
    const QRect avatar = cell.avatarIMview()->geometry();
    const QRect from = cell.fromField()->geometry();
    EXPECT_EQ(qAlpha(plain.pixel(20, 20)), 0);

    cell.setMarkedNew(true);
    EXPECT_TRUE(cell.isMarkedNew());
    const QImage marked = test::renderTransparent(cell);
    EXPECT_EQ(qAlpha(marked.pixel(20, 20)), 255);
    EXPECT_GT(qBlue(marked.pixel(20, 20)), qRed(marked.pixel(20, 20)));
    // Only the dot's few pixels differ, all in the free space left of the avatar.
    int changed = 0;
    for (int y = 0; y < plain.height(); ++y)
        for (int x = 0; x < plain.width(); ++x)
            if (plain.pixel(x, y) != marked.pixel(x, y)) {
                ++changed;
                EXPECT_LT(x, 35);
            }
    EXPECT_GT(changed, 20);
    EXPECT_LT(changed, 80);
    EXPECT_EQ(cell.avatarIMview()->geometry(), avatar);
    EXPECT_EQ(cell.fromField()->geometry(), from);

    cell.setMarkedNew(false);
    EXPECT_EQ(test::renderTransparent(cell), plain);
}

TEST(TodayTableViewCell, ARowOnItsWayOutSendsNothing) {
    FakeHostApp host;
    host.installRecorder(QStringLiteral("org.corvina.mail"));
    Commands commands;
    TodayTableViewCell cell(kRowFrame);
    cell.show();
    cell.PopulateExtensionMessage(message(QStringLiteral("s")));
    EXPECT_FALSE(cell.isLeaving()); // a cell alone sends every click (see the buttons' test)
    cell.setLeaving(true);
    for (ImageButton* b : {cell.archiveButton(), cell.trashButton(), cell.replyButton()})
        QTest::mouseClick(b, Qt::LeftButton);
    EXPECT_TRUE(commands.names.isEmpty());
    EXPECT_TRUE(host.waitForLaunches(1, 300).isEmpty());
}
