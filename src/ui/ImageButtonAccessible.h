#pragma once

#include <QAccessibleWidget>

namespace corvina {

class ImageButton;

// An ImageButton as a screen reader sees it: a push button named by its accessible name (it has
// no title of its own), whose action "Press" is a click. A button inside a table row belongs to
// the row's list item (TableRowAccessible lists it), so that is its parent, not the views the row
// lays its cell out in: going up from a button leads where going down led. The button installs the
// factory that makes it.
class ImageButtonAccessible : public QAccessibleWidget {
public:
    explicit ImageButtonAccessible(ImageButton* button);

    // For QAccessible::installFactory: the interface of an ImageButton, null for anything else.
    static QAccessibleInterface* create(const QString& className, QObject* object);

    QAccessibleInterface* parent() const override;
    QAccessible::State state() const override;

    QStringList actionNames() const override;
    void doAction(const QString& actionName) override;
    QStringList keyBindingsForAction(const QString& actionName) const override;

private:
    ImageButton* button() const;
};

} // namespace corvina
