#include "views/TodayHeaderView.h"

#include "platform/Localization.h"
#include "platform/UserDefaults.h"
#include "shared/ConstVars.h"
#include "support/WidgetTesting.h"
#include "views/TodayMetrics.h"

#include <QAction>
#include <QContextMenuEvent>
#include <QDir>
#include <QFontMetrics>
#include <QMenu>
#include <QTest>
#include <gtest/gtest.h>

using namespace corvina;

namespace {

const QString kKey = ConstVars::segmentedKey;

// Answers selectedSegment and notes what the settings held when it was told.
class RecordingDelegate : public QObject, public TodayHeaderViewDelegate {
public:
    void selectedSegment(SegmentedControl* control) override {
        calls.push_back({control, UserDefaults::integerForKey(kKey)});
    }
    struct Call {
        SegmentedControl* control;
        qint64 storedAtCall;
    };
    std::vector<Call> calls;
};

void click(TodayHeaderView& header, int segment) {
    QTest::mouseClick(header.control(), Qt::LeftButton, {}, header.control()->segmentRect(segment).center());
}

} // namespace

TEST(TodayHeaderView, FirstStartSelectsInboxAndWritesNothing) {
    test::ScopedSettings settings;
    TodayHeaderView header;
    EXPECT_EQ(header.control()->segmentCount(), 3);
    EXPECT_EQ(header.control()->labelForSegment(0), QStringLiteral("Inbox"));
    EXPECT_EQ(header.control()->labelForSegment(1), QStringLiteral("To Do"));
    EXPECT_EQ(header.control()->labelForSegment(2), QStringLiteral("Memo"));
    EXPECT_EQ(header.control()->selectedSegment(), 0);
    EXPECT_FALSE(UserDefaults::valueForKey(kKey).isValid());
}

TEST(TodayHeaderView, StartsOnTheStoredSegment) {
    test::ScopedSettings settings;
    UserDefaults::setInteger(2, kKey);
    EXPECT_EQ(TodayHeaderView().control()->selectedSegment(), 1);
    UserDefaults::setInteger(3, kKey);
    EXPECT_EQ(TodayHeaderView().control()->selectedSegment(), 2);
}

TEST(TodayHeaderView, ValuesWithoutASegmentSelectInboxAndStayStored) {
    test::ScopedSettings settings;
    for (const qint64 value : {9, -5, 4}) {
        UserDefaults::setInteger(value, kKey);
        EXPECT_EQ(TodayHeaderView().control()->selectedSegment(), 0) << value;
        EXPECT_EQ(UserDefaults::integerForKey(kKey), value);
    }
}

TEST(TodayHeaderView, ChoosingMemoStoresThreeBeforeTheDelegateHears) {
    test::ScopedSettings settings;
    TodayHeaderView header;
    header.resize(TodayMetrics::width, TodayMetrics::headerHeight);
    header.show();
    RecordingDelegate delegate;
    header.setDelegate(&delegate);
    click(header, 2);
    EXPECT_EQ(UserDefaults::integerForKey(kKey), 3);
    ASSERT_EQ(delegate.calls.size(), 1u);
    EXPECT_EQ(delegate.calls.at(0).control, header.control());
    EXPECT_EQ(delegate.calls.at(0).storedAtCall, 3);
    click(header, 1);
    EXPECT_EQ(UserDefaults::integerForKey(kKey), 2);
    ASSERT_EQ(delegate.calls.size(), 2u);
    EXPECT_EQ(delegate.calls.at(1).storedAtCall, 2);
}

TEST(TodayHeaderView, WithoutADelegateTheChoiceIsStillStored) {
    test::ScopedSettings settings;
    TodayHeaderView header;
    header.resize(TodayMetrics::width, TodayMetrics::headerHeight);
    header.show();
    click(header, 1);
    EXPECT_EQ(UserDefaults::integerForKey(kKey), 2);
    RecordingDelegate delegate;
    header.setDelegate(&delegate);
    header.setDelegate(nullptr); // none again
    click(header, 2);
    EXPECT_EQ(UserDefaults::integerForKey(kKey), 3);
    EXPECT_TRUE(delegate.calls.empty());
}

TEST(TodayHeaderView, ControlSitsFortyFromTheLeftTwentyFromTheRight) {
    test::ScopedSettings settings;
    TodayHeaderView header;
    header.resize(TodayMetrics::width, TodayMetrics::headerHeight);
    header.show();
    EXPECT_EQ(header.control()->geometry(), QRect(40, 1, 260, 20));
    EXPECT_EQ(header.autoresizingMask(), 18);
    EXPECT_TRUE(TodayHeaderView::isFlipped());
}

TEST(TodayHeaderView, SelectingFromCodeSendsNoAction) {
    test::ScopedSettings settings;
    TodayHeaderView header;
    RecordingDelegate delegate;
    header.setDelegate(&delegate);
    header.control()->setSelectedSegment(2);
    EXPECT_TRUE(delegate.calls.empty());
    EXPECT_FALSE(UserDefaults::valueForKey(kKey).isValid());
}

TEST(TodayHeaderView, EverySegmentLabelShowsWholeInEveryShippedLanguage) {
    test::ScopedSettings settings;
    // The languages the program ships, found as the program finds its tables: English (no table)
    // and one compiled string table per language.
    QList<QLocale> languages{QLocale(QLocale::English, QLocale::UnitedStates)};
    const QStringList tables = QDir(QStringLiteral(":/i18n")).entryList({QStringLiteral("corvina_*.qm")});
    for (const QString& table : tables)
        languages << QLocale(table.mid(8, table.size() - 8 - 3));
    ASSERT_GE(languages.size(), 3) << tables.join(u' ').toStdString(); // English, German, French
    const QLocale before = Localization::locale();
    for (const QLocale& language : languages) {
        Localization::setLocale(language);
        TodayHeaderView header;
        header.resize(TodayMetrics::width, TodayMetrics::headerHeight);
        header.show();
        const SegmentedControl* control = header.control();
        EXPECT_EQ(control->geometry(), QRect(40, 1, 260, 20));
        const QFontMetrics metrics(control->labelFont());
        int right = 0;
        for (int s = 0; s < control->segmentCount(); ++s) {
            const QString label = control->labelForSegment(s);
            const QRect segment = control->segmentRect(s);
            const std::string where = (language.name() + u' ' + label).toStdString();
            // The key itself would mean the table was not used.
            if (language.language() == QLocale::French && s == 0) {
                EXPECT_EQ(label, QStringLiteral("Boîte de réception"));
            }
            EXPECT_EQ(control->displayedLabelForSegment(s), label) << where;
            EXPECT_LE(metrics.horizontalAdvance(label) + 2 * SegmentedControl::labelInset, segment.width())
                << where;
            EXPECT_EQ(segment.left(), right) << where; // side by side, filling the control
            right = segment.right() + 1;
        }
        EXPECT_EQ(right, control->width()) << language.name().toStdString();
        EXPECT_GE(control->labelFont().pixelSize(), 9) << language.name().toStdString(); // still legible
    }
    Localization::setLocale(before);
}

TEST(TodayHeaderView, LabelsTooLongEvenSideBySideGetASmallerFontThatFitsThem) {
    SegmentedControl control;
    control.setSegmentCount(3);
    control.resize(260, 20);
    const int usual = control.labelFont().pixelSize();
    control.setLabel(QStringLiteral("Eingegangene Nachrichten"), 0);
    control.setLabel(QStringLiteral("Noch zu erledigen"), 1);
    control.setLabel(QStringLiteral("Notizen"), 2);
    EXPECT_LT(control.labelFont().pixelSize(), usual);
    const QFontMetrics metrics(control.labelFont());
    for (int s = 0; s < 3; ++s) {
        EXPECT_EQ(control.displayedLabelForSegment(s), control.labelForSegment(s)) << s;
        EXPECT_LE(metrics.horizontalAdvance(control.labelForSegment(s)) + 2 * SegmentedControl::labelInset,
                  control.segmentRect(s).width())
            << s;
    }
    // Short labels again: the usual size and equal widths.
    control.setLabel(QStringLiteral("A"), 0);
    control.setLabel(QStringLiteral("B"), 1);
    control.setLabel(QStringLiteral("C"), 2);
    EXPECT_EQ(control.labelFont().pixelSize(), usual);
    EXPECT_EQ(control.segmentRect(0).width(), 86);
    EXPECT_EQ(control.segmentRect(2).width(), 87);
}

// An addition of this desktop: the header's context menu opens the mail bridge's Accounts window
// (through whoever hosts the widget); a left click still only picks a list.
TEST(TodayHeaderViewAccounts, ItsContextMenuAsksForTheAccountsWindow) {
    TodayHeaderView header;
    ASSERT_NE(header.contextMenu(), nullptr);
    ASSERT_NE(header.accountsAction(), nullptr);
    EXPECT_EQ(header.accountsAction()->text(), QStringLiteral("Accounts…"));
    EXPECT_EQ(header.contextMenu()->actions(), QList<QAction*>{header.accountsAction()});
    int asked = 0;
    QObject::connect(&header, &TodayHeaderView::accountsRequested, [&] { ++asked; });
    header.accountsAction()->trigger();
    EXPECT_EQ(asked, 1);
}

TEST(TodayHeaderViewAccounts, AContextMenuEventOnTheListSelectorShowsTheMenu) {
    TodayHeaderView header;
    header.resize(320, 30);
    header.show();
    // The menu key (or Shift+F10) on the focused selector: Qt sends the event to the selector, which
    // leaves it to the header.
    QContextMenuEvent event(QContextMenuEvent::Keyboard, QPoint(50, 10), header.mapToGlobal(QPoint(50, 10)));
    QCoreApplication::sendEvent(header.control(), &event);
    EXPECT_TRUE(QTest::qWaitFor([&] { return header.contextMenu()->isVisible(); }, 5000));
    header.contextMenu()->hide();
}
