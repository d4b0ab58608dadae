#pragma once

#include "platform/AtomicProperty.h"

#include <QRectF>
#include <QString>
#include <QWidget>
#include <functional>

namespace corvina {

class FlippedView;
// Draws a view: the rectangle to draw (the dirty part) and the view itself.
using DrawingBlock = std::function<void(const QRectF& rect, FlippedView* view)>;

// A view with its origin at the top left that draws nothing of its own and hands its drawing to a
// block its owner installs. Without a block it stays transparent.
//
// Its autoresizing mask (width- and height-sizable, 18) makes it follow its parent's size: when
// the parent grows or shrinks, so does the view, by the same amount.
class FlippedView : public QWidget {
    Q_OBJECT

public:
    enum AutoresizingMask : int {
        NotSizable = 0,
        WidthSizable = 2,
        HeightSizable = 16,
    };

    explicit FlippedView(const QRect& frame = QRect(), QWidget* parent = nullptr);
    FlippedView(const QRect& frame, DrawingBlock drawingBlock, QWidget* parent = nullptr);
    ~FlippedView() override;

    static bool isFlipped() { return true; }

    // An empty hook.
    void Refresh() {}

    int autoresizingMask() const { return m_autoresizingMask; }
    void setAutoresizingMask(int mask) { m_autoresizingMask = mask; }

    // Installing a block does not redraw the view by itself; the owner asks for that (update()).
    CORVINA_ATOMIC_PROPERTY(DrawingBlock, drawingBlock, setDrawingBlock)
    CORVINA_ATOMIC_PROPERTY(QString, viewId, setViewId)

protected:
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void watchParent();

    int m_autoresizingMask = WidthSizable | HeightSizable;
    QWidget* m_watchedParent = nullptr;
};

} // namespace corvina
