#pragma once

#include <QIcon>
#include <QImage>
#include <QObject>
#include <QPointer>
#include <QString>

class QAction;
class QMenu;
class QSystemTrayIcon;
class QWidget;

namespace corvina {

class NewMailTracker;

// The widget in the desktop's tray (a status notifier item where the desktop has one): an icon
// with the number of Inbox messages new since the window was last looked at, a tooltip naming
// their newest senders, a click that shows or hides the window, and a menu (show or hide, the
// new-mail notifications on or off, quit).
//
// Everything it shows is worked out here, whether or not the desktop has a tray, so that it can be
// read back (count(), toolTip(), icon(), menu()); setVisible() puts it in the tray. The window is
// only shown and hidden, never placed: on Wayland a window cannot place itself.
class TrayIcon : public QObject {
    Q_OBJECT
public:
    // The senders named in the tooltip, newest first.
    static constexpr int TooltipSenders = 3;

    TrayIcon(NewMailTracker* tracker, QWidget* window, QObject* parent = nullptr);

    // Starts the mail bridge's Accounts window, a program of its own (the widget links nothing of
    // the bridge): for the menu's "Accounts…" and the widget's own ways to it (its header's menu,
    // the link under an empty or failing list). A line in the log when it cannot be started.
    static bool openAccountsWindow();
    ~TrayIcon() override;

    int count() const { return m_count; }
    QString toolTip() const { return m_toolTip; }
    QIcon icon() const { return m_icon; }
    QMenu* menu() const { return m_menu; }
    QAction* toggleAction() const { return m_toggle; }
    QAction* notificationsAction() const { return m_notifications; }
    QAction* accountsAction() const { return m_accounts; }
    QAction* quitAction() const { return m_quit; }
    QSystemTrayIcon* systemTrayIcon() const { return m_tray; }

    // Whether the desktop has a tray to show it in.
    static bool isSystemTrayAvailable();
    void setVisible(bool visible);

    // Shows the window (and makes it the active one) when hidden, hides it when shown.
    void toggleWindow();
    void showWindow();

    // How it looks in a desktop's panel with its menu open, for the documentation and for checks by
    // eye (works without a display).
    QImage picture() const;

    // The icon for `count` new messages: the mail icon with the count on it (none for 0).
    static QIcon iconForCount(int count);

private:
    void refresh();
    void updateToggleText();
    bool eventFilter(QObject* watched, QEvent* event) override;

    NewMailTracker* m_tracker;
    QPointer<QWidget> m_window;
    QMenu* m_menu = nullptr;
    QAction* m_toggle = nullptr;
    QAction* m_notifications = nullptr;
    QAction* m_accounts = nullptr;
    QAction* m_quit = nullptr;
    QSystemTrayIcon* m_tray = nullptr;
    int m_count = -1;
    QString m_toolTip;
    QIcon m_icon;
};

} // namespace corvina
