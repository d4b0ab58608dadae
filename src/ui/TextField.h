#pragma once

#include <QColor>
#include <QFont>
#include <QString>
#include <QWidget>

namespace corvina {

// A text that cannot be edited, drawn without border or background: the sender, date and subject
// of a message row. Its natural width is the width of its text (sizeHint), so a layout can place
// it by its text. The text is shown on one line: wrapped at word boundaries where a line break
// comes, only the first line visible; with truncatesLastVisibleLine that line ends in "…" when the
// text goes on beyond it or does not fit, otherwise it is clipped.
class TextField : public QWidget {
    Q_OBJECT

public:
    explicit TextField(QWidget* parent = nullptr);

    QString stringValue() const { return m_text; }
    // A null text shows as an empty field.
    void setStringValue(const QString& text);

    QColor textColor() const { return m_textColor; }
    void setTextColor(const QColor& color);
    QColor backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(const QColor& color) { m_backgroundColor = color; }
    bool drawsBackground() const { return m_drawsBackground; }
    void setDrawsBackground(bool draws);
    bool truncatesLastVisibleLine() const { return m_truncates; }
    void setTruncatesLastVisibleLine(bool truncates);

    // The text as drawn in the current width.
    QString displayedText() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return QSize(0, sizeHint().height()); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_text;
    QColor m_textColor = Qt::white;
    QColor m_backgroundColor = Qt::transparent;
    bool m_drawsBackground = false;
    bool m_truncates = false;
};

} // namespace corvina
