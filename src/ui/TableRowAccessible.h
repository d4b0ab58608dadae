#pragma once

#include <QAccessibleWidget>
#include <QList>

namespace corvina {

class ImageButton;
class TableRowView;
class TableView;

// One row of a TableView as a screen reader sees it: an item of the table's list, named and
// described as its cell is (read from the cell each time, so a text the cell changes later is
// never stale), selected when the row is, focused when it is the keyboard's current row. Its
// children are the buttons of its cell in reading order, top to bottom and left to right, as they
// are drawn: the order a cell happens to make them in says nothing to a listener, and the labels
// and pictures of the cell are already in the row's name.
class TableRowAccessible : public QAccessibleWidget {
public:
    explicit TableRowAccessible(TableRowView* row);

    // For QAccessible::installFactory: the interface of a TableRowView, null for anything else.
    static QAccessibleInterface* create(const QString& className, QObject* object);

    QString text(QAccessible::Text t) const override;
    QAccessible::State state() const override;
    int childCount() const override;
    QAccessibleInterface* child(int index) const override;
    int indexOfChild(const QAccessibleInterface* child) const override;
    QAccessibleInterface* childAt(int x, int y) const override;

private:
    TableRowView* row() const;
    TableView* table() const;
    // The row's cell: the one widget a row view holds.
    QWidget* cell() const;
    QList<ImageButton*> buttons() const;
};

} // namespace corvina
