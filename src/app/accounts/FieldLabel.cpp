#include "FieldLabel.h"

namespace corvina {

FieldLabel::FieldLabel(const QString& text, QWidget* field, QWidget* parent) : QLabel(text, parent) {
    setBuddy(field);
}

} // namespace corvina
