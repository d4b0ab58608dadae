#pragma once

#include <QObject>
#include <QPointer>

class QKeyEvent;
class QWidget;

namespace corvina {

class SegmentedControl;
class TableView;

// The widget's keys beyond the table's own (Up, Down, Home, End move its current row, Enter opens
// it): R replies to the current row, A archives it and Delete moves it to the trash, each by
// clicking that row's button, so that exactly what the button sends is sent and the row slides
// out as after a click; 1, 2 and 3 pick the list as a click on the header's segment does.
//
// It watches the widget's root view, where the keys arrive that the focused table or header left
// alone; keys with Ctrl, Alt or Meta, and Escape (the window's), go on. A held key acts once: a
// held A must not archive row after row.
class TodayKeyboard : public QObject {
    Q_OBJECT

public:
    // Watches `root`; `table` holds the rows (TodayTableViewCell cells), `control` the lists.
    TodayKeyboard(QWidget* root, TableView* table, SegmentedControl* control);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool handle(const QKeyEvent* event);

    QPointer<TableView> m_table;
    QPointer<SegmentedControl> m_control;
};

} // namespace corvina
