#include "SegmentedControlAccessible.h"

#include "SegmentAccessible.h"
#include "SegmentedControl.h"

namespace corvina {

SegmentedControlAccessible::SegmentedControlAccessible(SegmentedControl* control)
    : QAccessibleWidget(control, QAccessible::PageTabList) {}

SegmentedControlAccessible::~SegmentedControlAccessible() {
    for (const QAccessible::Id id : std::as_const(m_children)) {
        if (id != 0)
            QAccessible::deleteAccessibleInterface(id);
    }
}

QAccessibleInterface* SegmentedControlAccessible::create(const QString& className, QObject* object) {
    if (className != QLatin1String(SegmentedControl::staticMetaObject.className()))
        return nullptr;
    auto* control = qobject_cast<SegmentedControl*>(object);
    return control ? new SegmentedControlAccessible(control) : nullptr;
}

SegmentedControl* SegmentedControlAccessible::control() const {
    return static_cast<SegmentedControl*>(widget());
}

int SegmentedControlAccessible::childCount() const {
    return control()->segmentCount();
}

QAccessibleInterface* SegmentedControlAccessible::child(int index) const {
    if (index < 0 || index >= childCount())
        return nullptr;
    while (m_children.size() <= index)
        m_children << QAccessible::Id(0);
    if (m_children.at(index) == 0)
        m_children[index] = QAccessible::registerAccessibleInterface(new SegmentAccessible(control(), index));
    return QAccessible::accessibleInterface(m_children.at(index));
}

int SegmentedControlAccessible::indexOfChild(const QAccessibleInterface* child) const {
    if (!child)
        return -1;
    const int index =
        int(m_children.indexOf(QAccessible::uniqueId(const_cast<QAccessibleInterface*>(child))));
    return index < childCount() ? index : -1;
}

QAccessibleInterface* SegmentedControlAccessible::childAt(int x, int y) const {
    const QPoint local = control()->mapFromGlobal(QPoint(x, y));
    for (int s = 0; s < childCount(); ++s) {
        if (control()->segmentRect(s).contains(local))
            return child(s);
    }
    return nullptr;
}

} // namespace corvina
