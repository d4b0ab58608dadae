#include "FirstFrameWatch.h"

#include <QEvent>
#include <QWidget>

namespace corvina {

FirstFrameWatch::FirstFrameWatch(QWidget* window, QObject* parent) : QObject(parent), m_window(window) {
    if (m_window)
        m_window->installEventFilter(this);
}

bool FirstFrameWatch::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_window && event->type() == QEvent::Paint && !m_painted) {
        m_painted = true;
        m_window->removeEventFilter(this);
        // The window's own paint comes first in a repaint; its children follow and the frame is
        // flushed after them. A queued call runs once all of that is done.
        QMetaObject::invokeMethod(this, &FirstFrameWatch::painted, Qt::QueuedConnection);
    }
    return QObject::eventFilter(watched, event);
}

} // namespace corvina
