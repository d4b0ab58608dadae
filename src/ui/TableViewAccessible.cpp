#include "TableViewAccessible.h"

#include "TableView.h"

namespace corvina {

TableViewAccessible::TableViewAccessible(TableView* table) : QAccessibleWidget(table, QAccessible::List) {}

QAccessibleInterface* TableViewAccessible::create(const QString& className, QObject* object) {
    if (className != QLatin1String(TableView::staticMetaObject.className()))
        return nullptr;
    auto* table = qobject_cast<TableView*>(object);
    return table ? new TableViewAccessible(table) : nullptr;
}

TableView* TableViewAccessible::table() const {
    return static_cast<TableView*>(widget());
}

int TableViewAccessible::childCount() const {
    return int(table()->numberOfRows());
}

QAccessibleInterface* TableViewAccessible::child(int index) const {
    TableRowView* row = table()->rowViewAtRow(index);
    return row ? QAccessible::queryAccessibleInterface(row) : nullptr;
}

int TableViewAccessible::indexOfChild(const QAccessibleInterface* child) const {
    if (!child)
        return -1;
    auto* row = qobject_cast<TableRowView*>(child->object());
    return row ? int(table()->rowOfView(row)) : -1;
}

QAccessibleInterface* TableViewAccessible::childAt(int x, int y) const {
    return child(int(table()->rowAtPoint(table()->mapFromGlobal(QPoint(x, y)))));
}

QAccessibleInterface* TableViewAccessible::focusChild() const {
    if (!table()->hasFocus())
        return nullptr;
    return child(int(table()->currentRow()));
}

} // namespace corvina
