#pragma once

#include <QWidget>

namespace corvina {

// The small window the widget lives in: a dark panel as wide as the widget and as high as its
// content, closed with Escape, at the place where the user last left it. Its focus is its
// content's, given when it is shown.
class TodayWindow : public QWidget {
    Q_OBJECT

public:
    explicit TodayWindow(QWidget* content);

    // Puts the window where it was last closed, when that place is still on a screen.
    void restorePosition();
    void savePosition() const;

    static inline const QString positionKey = QStringLiteral("window/position");

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
};

} // namespace corvina
