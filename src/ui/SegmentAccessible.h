#pragma once

#include <QAccessibleActionInterface>
#include <QAccessibleInterface>
#include <QPointer>

namespace corvina {

class SegmentedControl;

// One segment of a SegmentedControl as a screen reader sees it: a tab of the control's tab list,
// named by its label, described by the control's description for it, selected when it is the
// selected segment, and pressed (its one action) as a click on it is.
class SegmentAccessible : public QAccessibleInterface, public QAccessibleActionInterface {
public:
    SegmentAccessible(SegmentedControl* control, int segment);

    bool isValid() const override;
    QObject* object() const override { return nullptr; }
    QWindow* window() const override;
    QAccessibleInterface* parent() const override;
    QAccessibleInterface* child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QAccessibleInterface* childAt(int, int) const override { return nullptr; }
    QString text(QAccessible::Text t) const override;
    void setText(QAccessible::Text, const QString&) override {}
    QRect rect() const override;
    QAccessible::Role role() const override { return QAccessible::PageTab; }
    QAccessible::State state() const override;
    void* interface_cast(QAccessible::InterfaceType type) override;

    QStringList actionNames() const override;
    void doAction(const QString& actionName) override;
    QStringList keyBindingsForAction(const QString&) const override { return {}; }

    int segment() const { return m_segment; }

private:
    QPointer<SegmentedControl> m_control;
    int m_segment;
};

} // namespace corvina
