#include "SegmentAccessible.h"

#include "SegmentedControl.h"

#include <QWidget>

namespace corvina {

SegmentAccessible::SegmentAccessible(SegmentedControl* control, int segment)
    : m_control(control), m_segment(segment) {}

bool SegmentAccessible::isValid() const {
    return m_control && m_segment >= 0 && m_segment < m_control->segmentCount();
}

QWindow* SegmentAccessible::window() const {
    return m_control ? m_control->window()->windowHandle() : nullptr;
}

QAccessibleInterface* SegmentAccessible::parent() const {
    return QAccessible::queryAccessibleInterface(m_control.data());
}

QString SegmentAccessible::text(QAccessible::Text t) const {
    if (!isValid())
        return {};
    switch (t) {
    case QAccessible::Name:
        return m_control->labelForSegment(m_segment);
    case QAccessible::Description:
        return m_control->descriptionForSegment(m_segment);
    default:
        return {};
    }
}

QRect SegmentAccessible::rect() const {
    if (!isValid())
        return {};
    const QRect local = m_control->segmentRect(m_segment);
    return QRect(m_control->mapToGlobal(local.topLeft()), local.size());
}

QAccessible::State SegmentAccessible::state() const {
    QAccessible::State state;
    if (!isValid()) {
        state.invalid = true;
        return state;
    }
    state.selectable = true;
    state.focusable = true;
    const bool selected = m_control->selectedSegment() == m_segment;
    state.selected = selected;
    state.focused = selected && m_control->hasFocus();
    state.invisible = !m_control->isVisible();
    return state;
}

void* SegmentAccessible::interface_cast(QAccessible::InterfaceType type) {
    if (type == QAccessible::ActionInterface)
        return static_cast<QAccessibleActionInterface*>(this);
    return nullptr;
}

QStringList SegmentAccessible::actionNames() const {
    return {pressAction()};
}

void SegmentAccessible::doAction(const QString& actionName) {
    if (isValid() && actionName == pressAction())
        m_control->choose(m_segment);
}

} // namespace corvina
