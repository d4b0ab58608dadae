#pragma once

#include <QObject>
#include <QPointer>

class QWidget;

namespace corvina {

// Tells, once, that a window has put its first frame on the screen: after the window's first paint
// (the backing store is flushed to the screen in the same repaint) and one more turn of the event
// loop, so that whatever is started from `painted` cannot hold that frame back.
//
// With `Scope::AnyPart`, the next frame that paints any part of the window counts (the first paint
// of any of its widgets, not only of the window itself): rows redrawn in a table of the same
// height repaint the table and its cells, not the window.
class FirstFrameWatch : public QObject {
    Q_OBJECT

public:
    enum class Scope { Window, AnyPart };

    explicit FirstFrameWatch(QWidget* window, QObject* parent = nullptr, Scope scope = Scope::Window);
    ~FirstFrameWatch() override;

    bool hasPainted() const { return m_painted; }

signals:
    void painted();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QPointer<QWidget> m_window;
    Scope m_scope;
    bool m_painted = false;
};

} // namespace corvina
