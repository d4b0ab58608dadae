#pragma once

#include <QObject>
#include <QPointer>

class QWidget;

namespace corvina {

// Tells, once, that a window has put its first frame on the screen: after the window's first paint
// (the backing store is flushed to the screen in the same repaint) and one more turn of the event
// loop, so that whatever is started from `painted` cannot hold that frame back.
class FirstFrameWatch : public QObject {
    Q_OBJECT

public:
    explicit FirstFrameWatch(QWidget* window, QObject* parent = nullptr);

    bool hasPainted() const { return m_painted; }

signals:
    void painted();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QPointer<QWidget> m_window;
    bool m_painted = false;
};

} // namespace corvina
