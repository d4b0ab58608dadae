#include "TableRowAccessible.h"

#include "ImageButton.h"
#include "TableView.h"

#include <algorithm>

namespace corvina {

TableRowAccessible::TableRowAccessible(TableRowView* row) : QAccessibleWidget(row, QAccessible::ListItem) {}

QAccessibleInterface* TableRowAccessible::create(const QString& className, QObject* object) {
    if (className != QLatin1String(TableRowView::staticMetaObject.className()))
        return nullptr;
    auto* row = qobject_cast<TableRowView*>(object);
    return row ? new TableRowAccessible(row) : nullptr;
}

TableRowView* TableRowAccessible::row() const {
    return static_cast<TableRowView*>(widget());
}

TableView* TableRowAccessible::table() const {
    return qobject_cast<TableView*>(row()->parentWidget());
}

QWidget* TableRowAccessible::cell() const {
    return row()->findChild<QWidget*>(QString(), Qt::FindDirectChildrenOnly);
}

QString TableRowAccessible::text(QAccessible::Text t) const {
    // A name or description given to the row itself wins; otherwise the row reads as its cell, since
    // the row is what the keys move to.
    QString own = QAccessibleWidget::text(t);
    if (!own.isEmpty() || (t != QAccessible::Name && t != QAccessible::Description))
        return own;
    const QWidget* content = cell();
    if (!content)
        return own;
    return t == QAccessible::Name ? content->accessibleName() : content->accessibleDescription();
}

QAccessible::State TableRowAccessible::state() const {
    QAccessible::State state = QAccessibleWidget::state();
    state.selectable = true;
    state.selected = row()->isSelected();
    // Rows take no focus of their own (the table has it); the keys move the current row, and that
    // is the row a screen reader is to read.
    state.focusable = true;
    const TableView* owner = table();
    state.focused = owner && owner->hasFocus() && owner->currentRow() >= 0 &&
                    owner->rowViewAtRow(owner->currentRow()) == row();
    return state;
}

QList<ImageButton*> TableRowAccessible::buttons() const {
    QList<ImageButton*> found;
    for (ImageButton* button : row()->findChildren<ImageButton*>()) {
        if (button->isVisibleTo(row()))
            found << button;
    }
    auto place = [this](const ImageButton* button) {
        const QPoint at = button->mapTo(row(), QPoint(0, 0));
        return std::make_pair(at.y(), at.x());
    };
    std::stable_sort(found.begin(), found.end(),
                     [&](const ImageButton* a, const ImageButton* b) { return place(a) < place(b); });
    return found;
}

int TableRowAccessible::childCount() const {
    return int(buttons().size());
}

QAccessibleInterface* TableRowAccessible::child(int index) const {
    const QList<ImageButton*> all = buttons();
    if (index < 0 || index >= all.size())
        return nullptr;
    return QAccessible::queryAccessibleInterface(all.at(index));
}

int TableRowAccessible::indexOfChild(const QAccessibleInterface* child) const {
    if (!child)
        return -1;
    auto* button = qobject_cast<ImageButton*>(child->object());
    return button ? int(buttons().indexOf(button)) : -1;
}

QAccessibleInterface* TableRowAccessible::childAt(int x, int y) const {
    for (ImageButton* button : buttons()) {
        if (QRect(button->mapToGlobal(QPoint(0, 0)), button->size()).contains(x, y))
            return QAccessible::queryAccessibleInterface(button);
    }
    return nullptr;
}

} // namespace corvina
