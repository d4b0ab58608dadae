#include "TrayIcon.h"

#include "MailNotifier.h"
#include "NewMailTracker.h"
#include "platform/CompanionProgram.h"
#include "platform/Localization.h"
#include "platform/Log.h"

#include <QAction>
#include <QCoreApplication>
#include <QEvent>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QSystemTrayIcon>
#include <QWidget>

namespace corvina {

namespace {

// An envelope, drawn rather than taken from the icon theme, so that the count sits on the same
// picture on every desktop.
QPixmap drawIcon(int side, int count) {
    QPixmap pixmap(side, side);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal unit = side / 32.0;
    const QRectF envelope(2 * unit, 7 * unit, 28 * unit, 19 * unit);
    painter.setPen(QPen(QColor(0x30, 0x33, 0x3a), 1.5 * unit));
    painter.setBrush(QColor(0xf2, 0xf3, 0xf5));
    painter.drawRoundedRect(envelope, 2.5 * unit, 2.5 * unit);
    QPainterPath flap;
    flap.moveTo(envelope.topLeft() + QPointF(unit, unit));
    flap.lineTo(envelope.center().x(), envelope.top() + 11 * unit);
    flap.lineTo(envelope.topRight() + QPointF(-unit, unit));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(flap);
    if (count > 0) {
        const QString text = count > 99 ? QStringLiteral("99+") : QString::number(count);
        const qreal diameter = (text.size() > 2 ? 20 : 17) * unit;
        const QRectF badge(side - diameter, side - diameter, diameter, diameter);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(0xd9, 0x30, 0x25));
        painter.drawEllipse(badge);
        QFont font = painter.font();
        font.setBold(true);
        font.setPixelSize(qMax(6, int((text.size() > 2 ? 8.5 : text.size() > 1 ? 10 : 12) * unit)));
        painter.setFont(font);
        painter.setPen(Qt::white);
        painter.drawText(badge, Qt::AlignCenter, text);
    }
    return pixmap;
}

} // namespace

bool TrayIcon::openAccountsWindow() {
    QString error;
    if (CompanionProgram::start(QStringLiteral("corvina-accounts"), {}, &error))
        return true;
    Log::error(QStringLiteral("[%@] Accounts window not started: %@"), {error});
    return false;
}

TrayIcon::TrayIcon(NewMailTracker* tracker, QWidget* window, QObject* parent)
    : QObject(parent), m_tracker(tracker), m_window(window), m_menu(new QMenu()) {
    m_menu->setObjectName(QStringLiteral("trayMenu"));
    m_toggle = m_menu->addAction(QString(), this, &TrayIcon::toggleWindow);
    m_notifications = m_menu->addAction(Localization::text(QStringLiteral("Notify about new mail")));
    m_notifications->setCheckable(true);
    m_notifications->setChecked(MailNotifier::isEnabled());
    connect(m_notifications, &QAction::toggled, this, [](bool on) { MailNotifier::setEnabled(on); });
    // The mail bridge's Accounts window, a program of its own: the widget links nothing of the
    // bridge, it only starts it.
    m_accounts = m_menu->addAction(Localization::text(QStringLiteral("Accounts…")), this,
                                   [] { openAccountsWindow(); });
    m_menu->addSeparator();
    m_quit = m_menu->addAction(Localization::text(QStringLiteral("Quit")), qApp, &QCoreApplication::quit);

    m_tray = new QSystemTrayIcon(this);
    m_tray->setContextMenu(m_menu);
    connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::MiddleClick)
            toggleWindow();
    });
    // The menu's check mark follows the setting also when it was changed elsewhere.
    connect(m_menu, &QMenu::aboutToShow, this, [this] {
        const QSignalBlocker blocker(m_notifications);
        m_notifications->setChecked(MailNotifier::isEnabled());
    });
    connect(m_tracker, &NewMailTracker::changed, this, &TrayIcon::refresh);
    if (m_window)
        m_window->installEventFilter(this);
    refresh();
    updateToggleText();
}

TrayIcon::~TrayIcon() {
    delete m_menu;
}

bool TrayIcon::isSystemTrayAvailable() {
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void TrayIcon::setVisible(bool visible) {
    m_tray->setVisible(visible);
}

void TrayIcon::toggleWindow() {
    if (!m_window)
        return;
    if (m_window->isVisible() && !m_window->isMinimized()) {
        // close(), not hide(): the window keeps its place for the next time, as when closed by
        // Escape; the program goes on in the tray.
        m_window->close();
        return;
    }
    showWindow();
}

void TrayIcon::showWindow() {
    if (!m_window)
        return;
    m_window->showNormal();
    m_window->raise();
    m_window->activateWindow();
}

QIcon TrayIcon::iconForCount(int count) {
    QIcon icon;
    for (int side : {16, 22, 24, 32, 48, 64})
        icon.addPixmap(drawIcon(side, count));
    return icon;
}

QImage TrayIcon::picture() const {
    m_menu->ensurePolished();
    m_menu->resize(m_menu->sizeHint());
    constexpr int kPanel = 32;
    constexpr int kIcon = 24;
    const QSize menu = m_menu->size();
    const int width = std::max(menu.width() + 40, 240);
    QImage image(width, kPanel + 2 + menu.height() + 8, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.fillRect(QRect(0, 0, width, kPanel), QColor(0x1b, 0x1c, 0x20));
    // The icon near the panel's right end, the menu opened under it.
    const QRect icon(width - 40, (kPanel - kIcon) / 2, kIcon, kIcon);
    painter.fillRect(icon.adjusted(-4, -4, 4, 4), QColor(0x3a, 0x3c, 0x43));
    m_icon.paint(&painter, icon);
    painter.end();
    m_menu->render(&image, QPoint(std::max(0, icon.right() + 4 - menu.width()), kPanel + 2));
    return image;
}

void TrayIcon::refresh() {
    const ExtensionMessageList messages = m_tracker->newInboxMessages();
    const int count = int(messages.size());
    QString tip;
    if (count == 0) {
        tip = Localization::text(QStringLiteral("No new mail"));
    } else {
        tip = count == 1 ? Localization::text(QStringLiteral("1 new message"))
                         : Localization::text(QStringLiteral("%1 new messages")).arg(count);
        QStringList senders;
        for (const ExtensionMessagePtr& message : messages) {
            const QString from = message->from().trimmed();
            if (!from.isEmpty() && !senders.contains(from))
                senders << from;
            if (senders.size() == TooltipSenders)
                break;
        }
        if (!senders.isEmpty())
            tip += QStringLiteral("\n") + senders.join(QStringLiteral("\n"));
    }
    if (count != m_count) {
        m_count = count;
        m_icon = iconForCount(count);
        m_tray->setIcon(m_icon);
    }
    if (tip != m_toolTip) {
        m_toolTip = tip;
        m_tray->setToolTip(tip);
    }
}

void TrayIcon::updateToggleText() {
    const bool shown = m_window && m_window->isVisible();
    m_toggle->setText(shown ? Localization::text(QStringLiteral("Hide the list"))
                            : Localization::text(QStringLiteral("Show the list")));
}

bool TrayIcon::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Show || event->type() == QEvent::Hide)
        updateToggleText();
    return QObject::eventFilter(watched, event);
}

} // namespace corvina
