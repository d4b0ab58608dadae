#include "FirstFrameWatch.h"

#include <QApplication>
#include <QEvent>
#include <QWidget>

namespace corvina {

FirstFrameWatch::FirstFrameWatch(QWidget* window, QObject* parent, Scope scope)
    : QObject(parent), m_window(window), m_scope(scope) {
    if (!m_window)
        return;
    if (m_scope == Scope::Window)
        m_window->installEventFilter(this);
    else
        // every widget of the window paints on its own; the application sees all of their paints
        qApp->installEventFilter(this);
}

FirstFrameWatch::~FirstFrameWatch() {
    if (m_scope == Scope::AnyPart && !m_painted)
        qApp->removeEventFilter(this);
}

bool FirstFrameWatch::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::Paint || m_painted || !m_window)
        return QObject::eventFilter(watched, event);
    const bool ofTheWindow =
        m_scope == Scope::Window
            ? watched == m_window
            : watched->isWidgetType() && static_cast<QWidget*>(watched)->window() == m_window;
    if (ofTheWindow) {
        m_painted = true;
        if (m_scope == Scope::Window)
            m_window->removeEventFilter(this);
        else
            qApp->removeEventFilter(this);
        // The window's own paint comes first in a repaint; its children follow and the frame is
        // flushed after them. A queued call runs once all of that is done.
        QMetaObject::invokeMethod(this, &FirstFrameWatch::painted, Qt::QueuedConnection);
    }
    return QObject::eventFilter(watched, event);
}

} // namespace corvina
