#pragma once

#include <QComboBox>

namespace corvina {

// A combo box whose choice can be made through the accessibility interface as well as with the
// keyboard and the pointer. A screen reader (or a switch device) picks an item by selecting it in
// the combo's list, which AT-SPI shows as the combo's child even while the popup is closed; a plain
// QComboBox of Qt 6.4 offers no other way (no Selection interface on the list, no Value on the
// combo) and ignores that selection, so the item was selected and the choice stayed as it was.
// Here a selection made in the list while the popup is closed becomes the current item. While the
// popup is open the selection follows the keys as before, and only Enter or a click chooses.
class ChoiceBox : public QComboBox {
    Q_OBJECT
public:
    explicit ChoiceBox(QWidget* parent = nullptr);
};

} // namespace corvina
