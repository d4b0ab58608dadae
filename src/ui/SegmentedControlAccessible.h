#pragma once

#include <QAccessible>
#include <QAccessibleWidget>
#include <QList>

namespace corvina {

class SegmentedControl;

// A SegmentedControl as a screen reader sees it: a tab list whose children are its segments
// (SegmentAccessible), since the segments are drawn, not widgets of their own. The control
// installs the factory that makes it.
class SegmentedControlAccessible : public QAccessibleWidget {
public:
    explicit SegmentedControlAccessible(SegmentedControl* control);
    ~SegmentedControlAccessible() override;

    // For QAccessible::installFactory: the interface of a SegmentedControl, null for anything else.
    static QAccessibleInterface* create(const QString& className, QObject* object);

    int childCount() const override;
    QAccessibleInterface* child(int index) const override;
    int indexOfChild(const QAccessibleInterface* child) const override;
    QAccessibleInterface* childAt(int x, int y) const override;

private:
    SegmentedControl* control() const;

    // The segments' interfaces, made when first asked for and registered with QAccessible, which
    // hands out their ids; they go with this one.
    mutable QList<QAccessible::Id> m_children;
};

} // namespace corvina
