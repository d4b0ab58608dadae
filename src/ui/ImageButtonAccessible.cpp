#include "ImageButtonAccessible.h"

#include "ImageButton.h"
#include "TableRowView.h"

namespace corvina {

ImageButtonAccessible::ImageButtonAccessible(ImageButton* button)
    : QAccessibleWidget(button, QAccessible::Button) {}

QAccessibleInterface* ImageButtonAccessible::create(const QString& className, QObject* object) {
    if (className != QLatin1String(ImageButton::staticMetaObject.className()))
        return nullptr;
    auto* button = qobject_cast<ImageButton*>(object);
    return button ? new ImageButtonAccessible(button) : nullptr;
}

ImageButton* ImageButtonAccessible::button() const {
    return static_cast<ImageButton*>(widget());
}

QAccessibleInterface* ImageButtonAccessible::parent() const {
    for (QWidget* above = button()->parentWidget(); above; above = above->parentWidget()) {
        if (auto* row = qobject_cast<TableRowView*>(above))
            return QAccessible::queryAccessibleInterface(row);
    }
    return QAccessibleWidget::parent();
}

QAccessible::State ImageButtonAccessible::state() const {
    QAccessible::State state = QAccessibleWidget::state();
    state.pressed = button()->isDown();
    return state;
}

QStringList ImageButtonAccessible::actionNames() const {
    QStringList names = QAccessibleWidget::actionNames();
    names.prepend(pressAction());
    return names;
}

void ImageButtonAccessible::doAction(const QString& actionName) {
    // A disabled button (a row on its way out) does nothing, as it takes no click either.
    if (actionName == pressAction())
        button()->click();
    else
        QAccessibleWidget::doAction(actionName);
}

QStringList ImageButtonAccessible::keyBindingsForAction(const QString& actionName) const {
    if (actionName == pressAction())
        return {};
    return QAccessibleWidget::keyBindingsForAction(actionName);
}

} // namespace corvina
