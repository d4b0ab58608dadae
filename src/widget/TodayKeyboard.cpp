#include "TodayKeyboard.h"

#include "ui/SegmentedControl.h"
#include "ui/TableView.h"
#include "views/TodayTableViewCell.h"

#include <QKeyEvent>
#include <QWidget>

namespace corvina {

TodayKeyboard::TodayKeyboard(QWidget* root, TableView* table, SegmentedControl* control)
    : QObject(root), m_table(table), m_control(control) {
    root->installEventFilter(this);
}

bool TodayKeyboard::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress && handle(static_cast<QKeyEvent*>(event))) {
        event->accept();
        return true;
    }
    return QObject::eventFilter(watched, event);
}

bool TodayKeyboard::handle(const QKeyEvent* event) {
    // Shift is let through: with Caps Lock or Shift held, R is still R.
    if (event->modifiers() & ~(Qt::KeypadModifier | Qt::ShiftModifier))
        return false;
    const int key = event->key();
    if (key >= Qt::Key_1 && key <= Qt::Key_3) {
        const int segment = key - Qt::Key_1;
        if (!m_control || segment >= m_control->segmentCount())
            return false;
        if (!event->isAutoRepeat())
            m_control->choose(segment);
        return true;
    }
    if (key != Qt::Key_R && key != Qt::Key_A && key != Qt::Key_Delete)
        return false;
    if (!m_table)
        return false;
    auto* cell = dynamic_cast<TodayTableViewCell*>(m_table->viewAtColumn(0, m_table->currentRow()));
    if (!cell)
        return true; // no current row: the key does nothing, and nothing else takes it
    if (event->isAutoRepeat())
        return true;
    ImageButton* button = key == Qt::Key_R   ? cell->replyButton()
                          : key == Qt::Key_A ? cell->archiveButton()
                                             : cell->trashButton();
    button->click();
    return true;
}

} // namespace corvina
