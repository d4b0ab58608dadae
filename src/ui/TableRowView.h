#pragma once

#include <QWidget>

namespace corvina {

// The view behind one row of a TableView: it holds the row's cell and draws the selection
// highlight when the row is selected, and a focus ring when it is the keyboard's current row.
class TableRowView : public QWidget {
    Q_OBJECT

public:
    explicit TableRowView(const QRect& frame = QRect(), QWidget* parent = nullptr);

    bool isSelected() const { return m_selected; }
    void setSelected(bool selected);

    // Draws the highlight of a selected row into `rect`.
    virtual void drawSelectionInRect(QPainter& painter, const QRect& rect);

    // The ring around the keyboard's current row, apart from the selection: moving through the
    // rows with the keys selects nothing.
    bool showsFocusRing() const { return m_focusRing; }
    void setShowsFocusRing(bool shown);
    virtual void drawFocusRingInRect(QPainter& painter, const QRect& rect);

    // A removed row on its way out: drawn on the panel's colour (light or dark, as it is when
    // drawn) rather than transparent, so that nothing under it shows through.
    bool isLeaving() const { return m_leaving; }
    void setLeaving(bool leaving);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool m_selected = false;
    bool m_focusRing = false;
    bool m_leaving = false;
};

} // namespace corvina
