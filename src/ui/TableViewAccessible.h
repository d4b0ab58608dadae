#pragma once

#include <QAccessibleWidget>

namespace corvina {

class TableView;

// A TableView as a screen reader sees it: a list whose items are its rows (TableRowAccessible), in
// the order they are shown. Rows still sliding out after a removal are no longer part of it, and
// the header row is left out: a list has no column headers, its own name says what it lists. The
// table installs the factory that makes it.
class TableViewAccessible : public QAccessibleWidget {
public:
    explicit TableViewAccessible(TableView* table);

    // For QAccessible::installFactory: the interface of a TableView, null for anything else.
    static QAccessibleInterface* create(const QString& className, QObject* object);

    int childCount() const override;
    QAccessibleInterface* child(int index) const override;
    int indexOfChild(const QAccessibleInterface* child) const override;
    QAccessibleInterface* childAt(int x, int y) const override;
    // The keyboard's current row while the table has the focus.
    QAccessibleInterface* focusChild() const override;

private:
    TableView* table() const;
};

} // namespace corvina
