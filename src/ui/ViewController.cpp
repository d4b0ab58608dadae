#include "ViewController.h"

#include <QEvent>

namespace corvina {

ViewController::~ViewController() {
    // Nothing more to follow: the view goes with m_unparentedView, or stays with its parent.
    if (m_view) {
        m_view->removeEventFilter(this);
        disconnect(m_view, nullptr, this, nullptr);
    }
}

QWidget* ViewController::view() {
    if (!m_view) {
        loadView();
        viewDidLoad();
    }
    return m_view;
}

void ViewController::setView(QWidget* view) {
    if (m_view) {
        m_view->removeEventFilter(this);
        disconnect(m_view, nullptr, this, nullptr);
    }
    m_view = view;
    if (view != m_unparentedView.get())
        m_unparentedView.reset(view && !view->parentWidget() ? view : nullptr);
    if (!view)
        return;
    view->installEventFilter(this);
    // Deleted by someone else while it was ours (e.g. a caller that took it without a parent).
    connect(view, &QObject::destroyed, this, [this] { (void)m_unparentedView.release(); });
}

bool ViewController::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_view && event->type() == QEvent::ParentChange) {
        if (m_view->parentWidget())
            (void)m_unparentedView.release(); // its parent owns it now
        else if (!m_unparentedView)
            m_unparentedView.reset(m_view);
    }
    return QObject::eventFilter(watched, event);
}

} // namespace corvina
