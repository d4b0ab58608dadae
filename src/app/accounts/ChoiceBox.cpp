#include "ChoiceBox.h"

#include <QAbstractItemView>
#include <QItemSelectionModel>

namespace corvina {

ChoiceBox::ChoiceBox(QWidget* parent) : QComboBox(parent) {
    // The list's selection model is the one of the combo's own model, made by QComboBox's
    // constructor; these boxes never get another model or view, so the connection holds.
    connect(view()->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (view()->isVisible())
            return;
        const QModelIndexList selected = view()->selectionModel()->selectedRows(modelColumn());
        if (selected.size() == 1 && selected.first().row() != currentIndex())
            setCurrentIndex(selected.first().row());
    });
}

} // namespace corvina
