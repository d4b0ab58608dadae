#pragma once

#include <QLabel>
#include <QString>

namespace corvina {

// The words before a field of the Accounts window's pages: its underlined letter (Alt and the
// letter) moves the keyboard to the field, and a screen reader reads the words as the field's label.
class FieldLabel : public QLabel {
    Q_OBJECT
public:
    FieldLabel(const QString& text, QWidget* field, QWidget* parent = nullptr);
};

} // namespace corvina
