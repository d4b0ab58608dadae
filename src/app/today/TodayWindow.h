#pragma once

#include <QWidget>

namespace corvina {

class TodayStatusView;

// The small window the widget lives in: a panel (dark, or light on a light desktop) as wide as the
// widget and as high as its content, closed with Escape, at the place where the user last left it.
// Below the widget, the status line says in words why the list is empty or may be old. Its
// focus is its content's, given when it is shown.
class TodayWindow : public QWidget {
    Q_OBJECT

public:
    explicit TodayWindow(QWidget* content);

    // Puts the window where it was last closed, when that place is still on a screen.
    void restorePosition();
    void savePosition() const;

    TodayStatusView* statusView() const { return m_status; }
    // The panel's colours from the current appearance, and everything drawn again.
    void applyColors();

    static inline const QString positionKey = QStringLiteral("window/position");

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    TodayStatusView* m_status = nullptr;
};

} // namespace corvina
