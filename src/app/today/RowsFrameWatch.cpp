#include "RowsFrameWatch.h"

#include "views/TodayTableView.h"
#include "views/TodayTableViewCell.h"
#include "widget/TodayViewController.h"

#include <QApplication>
#include <QEvent>
#include <QWidget>

namespace corvina {

RowsFrameWatch::RowsFrameWatch(QWidget* window, TodayViewController* controller, QObject* parent)
    : QObject(parent), m_window(window), m_controller(controller) {
    // Every widget of the window paints on its own; the application sees all of their paints.
    qApp->installEventFilter(this);
}

RowsFrameWatch::~RowsFrameWatch() {
    qApp->removeEventFilter(this);
}

QString RowsFrameWatch::shownNow() const {
    TodayTableView* table = m_controller->myTableView();
    if (!table || m_controller->isAnimating() || table->numberOfRows() == 0)
        return QString();
    // rows still growing into their place are not shown yet
    if (table->height() != int(table->rowHeight() * double(table->numberOfRows())))
        return QString();
    const auto* cell = dynamic_cast<const TodayTableViewCell*>(table->viewAtColumn(0, 0));
    if (!cell || !cell->message() || !cell->isVisible())
        return QString();
    return cell->message()->subject() + QLatin1Char('\t') + QString::number(table->numberOfRows());
}

bool RowsFrameWatch::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Paint && m_window && watched->isWidgetType() &&
        static_cast<QWidget*>(watched)->window() == m_window) {
        // The state as painted; a reload later in the same turn is not on the screen yet.
        m_atPaint = shownNow();
        if (!m_checkQueued) {
            m_checkQueued = true;
            QMetaObject::invokeMethod(this, &RowsFrameWatch::check, Qt::QueuedConnection);
        }
    }
    return QObject::eventFilter(watched, event);
}

void RowsFrameWatch::check() {
    m_checkQueued = false;
    const QString shown = m_atPaint;
    if (shown.isNull() || shown != shownNow() || shown == m_reported)
        return;
    m_reported = shown;
    emit rowsOnScreen(shown.section(QLatin1Char('\t'), 0, 0));
}

} // namespace corvina
