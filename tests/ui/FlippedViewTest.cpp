#include "ui/FlippedView.h"

#include "platform/NotificationCenter.h"
#include "support/WidgetTesting.h"

#include <QImage>
#include <QPainter>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina;

using corvina::test::opaquePixels;

namespace {

QImage render(QWidget& view, const QRegion& region = QRegion()) {
    return corvina::test::renderTransparent(view, region);
}

} // namespace

TEST(FlippedView, IsFlippedAndSizableWithItsParent) {
    EXPECT_TRUE(FlippedView::isFlipped());
    QWidget parent;
    parent.resize(100, 60);
    auto* view = new FlippedView(QRect(0, 0, 100, 60), &parent);
    parent.show(); // sizes follow through resize events, which a hidden widget does not get
    EXPECT_EQ(view->autoresizingMask(), 18);
    parent.resize(150, 40);
    EXPECT_EQ(view->size(), QSize(150, 40));
    auto* fixed = new FlippedView(QRect(0, 0, 10, 10), &parent);
    fixed->setAutoresizingMask(FlippedView::NotSizable);
    parent.resize(200, 80);
    EXPECT_EQ(fixed->size(), QSize(10, 10));
    EXPECT_EQ(view->size(), QSize(200, 80));
}

TEST(FlippedView, WithoutADrawingBlockDrawsNothing) {
    FlippedView view(QRect(0, 0, 40, 30));
    EXPECT_EQ(opaquePixels(render(view)), 0);
}

TEST(FlippedView, TheBlockGetsTheDirtyRectangleAndTheView) {
    QRectF seenRect;
    FlippedView* seenView = nullptr;
    FlippedView view(QRect(0, 0, 40, 30), [&](const QRectF& rect, FlippedView* v) {
        seenRect = rect;
        seenView = v;
        QPainter painter(v);
        painter.fillRect(rect, Qt::red);
    });
    const QImage whole = render(view);
    EXPECT_EQ(seenView, &view);
    EXPECT_EQ(opaquePixels(whole), 40 * 30);
    // A partial redraw fills only the dirty part.
    const QImage part = render(view, QRegion(5, 5, 10, 8));
    EXPECT_EQ(seenRect, QRectF(5, 5, 10, 8));
    EXPECT_EQ(opaquePixels(part), 10 * 8);
}

TEST(FlippedView, ABlockCanBeReplacedOrRemoved) {
    FlippedView view(QRect(0, 0, 10, 10));
    int calls = 0;
    view.setDrawingBlock([&](const QRectF&, FlippedView*) { ++calls; });
    render(view);
    EXPECT_EQ(calls, 1);
    view.setDrawingBlock(nullptr);
    EXPECT_EQ(opaquePixels(render(view)), 0);
    EXPECT_EQ(calls, 1);
    view.setViewId(QStringLiteral("label"));
    EXPECT_EQ(view.viewId(), QStringLiteral("label"));
}

TEST(FlippedView, DestroyedViewStopsObservingEveryNotification) {
    auto view = std::make_unique<FlippedView>();
    const void* key = view.get();
    int calls = 0;
    NotificationCenter::defaultCenter().addObserver(key, QStringLiteral("a"),
                                                    [&](const Notification&) { ++calls; });
    NotificationCenter::defaultCenter().addObserver(key, QStringLiteral("b"),
                                                    [&](const Notification&) { ++calls; });
    view.reset();
    EXPECT_EQ(NotificationCenter::defaultCenter().observationCount(key), 0);
    NotificationCenter::defaultCenter().postNotificationName(QStringLiteral("a"));
    EXPECT_EQ(calls, 0);
}
