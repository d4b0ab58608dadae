#pragma once

#include <QWidget>

namespace corvina {

// The view behind one row of a TableView: it holds the row's cell and draws the selection
// highlight when the row is selected.
class TableRowView : public QWidget {
    Q_OBJECT

public:
    explicit TableRowView(const QRect& frame = QRect(), QWidget* parent = nullptr);

    bool isSelected() const { return m_selected; }
    void setSelected(bool selected);

    // Draws the highlight of a selected row into `rect`.
    virtual void drawSelectionInRect(QPainter& painter, const QRect& rect);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool m_selected = false;
};

} // namespace corvina
