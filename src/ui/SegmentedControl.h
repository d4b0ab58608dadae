#pragma once

#include <QStringList>
#include <QWidget>
#include <functional>

namespace corvina {

// A row of segments drawn as one control, exactly one of them selected. The user picks a segment
// with the mouse (on release inside the segment pressed) or, with focus, with the arrow keys; that
// sends the action. Selecting from code does not.
class SegmentedControl : public QWidget {
    Q_OBJECT

public:
    using Action = std::function<void(SegmentedControl* sender)>;

    explicit SegmentedControl(QWidget* parent = nullptr);

    int segmentCount() const { return int(m_labels.size()); }
    void setSegmentCount(int count);
    QString labelForSegment(int segment) const { return m_labels.value(segment); }
    void setLabel(const QString& label, int segment);
    // What a screen reader says of a segment besides its label (its accessible description).
    QString descriptionForSegment(int segment) const { return m_descriptions.value(segment); }
    void setDescription(const QString& description, int segment);

    // -1 when none is selected.
    int selectedSegment() const { return m_selected; }
    void setSelectedSegment(int segment);

    void setAction(Action action) { m_action = std::move(action); }
    // Picks `segment` as the user does with a click: selects it and sends the action (also when it
    // is the selected one already). For keys that pick a segment, and for screen readers.
    void choose(int segment);

    // Where a segment is drawn, in the control's coordinates, left to right: equal widths, unless a
    // label would not fit its equal share; then wider segments for longer labels (and a smaller
    // font when the labels need more than the control's width).
    QRect segmentRect(int segment) const;

    // A segment's label as drawn: whole, or cut with "…" when its segment is too narrow for it.
    QString displayedLabelForSegment(int segment) const;
    // The room kept free on each side of a label inside its segment.
    static constexpr int labelInset = 3;
    // The font the labels are drawn in: the control's, made smaller (down to 9 pixels) when the
    // labels would not fit side by side in its width.
    QFont labelFont() const;

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;

private:
    int segmentAt(const QPoint& point) const;

    QStringList m_labels;
    QStringList m_descriptions;
    int m_selected = -1;
    int m_pressed = -1;
    bool m_keyboardFocus = false;
    Action m_action;
};

} // namespace corvina
