#include "views/TodayHeaderView.h"

#include "platform/UserDefaults.h"
#include "shared/ConstVars.h"
#include "support/WidgetTesting.h"
#include "views/TodayMetrics.h"

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
