#include "TodayWindow.h"

#include "platform/UserDefaults.h"
#include "ui/SystemColors.h"
#include "views/TodayStatusView.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QScreen>
#include <QVBoxLayout>

namespace corvina {

TodayWindow::TodayWindow(QWidget* content) {
    setWindowTitle(QStringLiteral("Corvina Today"));
    setAttribute(Qt::WA_StyledBackground, false);
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(0);
    // The window is exactly as large as its content asks: 320 wide, as high as the table.
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->addWidget(content);
    // Around the widget, not in it: the widget's own view keeps its size and layout.
    m_status = new TodayStatusView(this);
    layout->addWidget(m_status);
    applyColors();
    // Focusing the window focuses its content (and the content's own focus widget, its rows).
    setFocusProxy(content);
}

void TodayWindow::applyColors() {
    QPalette p = palette();
    p.setColor(QPalette::Window, SystemColors::panelBackground());
    p.setColor(QPalette::WindowText, SystemColors::labelColor());
    setPalette(p);
    m_status->applyColors();
    update();
    for (QWidget* child : findChildren<QWidget*>())
        child->update();
}

void TodayWindow::restorePosition() {
    const QVariant stored = UserDefaults::valueForKey(positionKey);
    if (!stored.canConvert<QPoint>())
        return;
    const QPoint position = stored.toPoint();
    for (const QScreen* screen : QGuiApplication::screens()) {
        if (screen->availableGeometry().contains(position)) {
            move(position);
            return;
        }
    }
}

void TodayWindow::savePosition() const {
    UserDefaults::setValue(pos(), positionKey);
}

void TodayWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

void TodayWindow::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    // The keys reach the content also when the desktop does not activate the window (no window
    // manager): without a focus widget they would stop at the window, which takes only Escape.
    if (!focusWidget())
        setFocus(Qt::OtherFocusReason);
}

void TodayWindow::closeEvent(QCloseEvent* event) {
    savePosition();
    QWidget::closeEvent(event);
}

void TodayWindow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), SystemColors::panelBackground());
}

} // namespace corvina
