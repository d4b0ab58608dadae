#pragma once

#include "widget/TodayViewController.h"

#include <QObject>
#include <functional>
#include <memory>

namespace corvina {

class MailNotifier;
class NewMailTracker;
class SharedFolderWatch;
class TodayWindow;
class TrayIcon;

// What the desktop's widget host does for the widget: builds the controller, shows its view in a
// window with the margins the controller answers, calls the will-appear step, and asks for an
// update every `interval` and soon after the mail application changed its files (the snapshot
// folder, an account's folder or the account list).
class WidgetHost : public QObject {
    Q_OBJECT

public:
    // The margins the host proposes; the widget answers with its own (left 0).
    static constexpr EdgeInsets proposedMargins{8, 16, 8, 0};
    explicit WidgetHost(int intervalSeconds);
    ~WidgetHost() override;

    // Shows the widget's window; `inTray`: puts the widget in the desktop's tray instead, its window
    // hidden until asked for (and shown at once, with a line saying why, when there is no tray).
    void start(bool inTray = false);
    TodayViewController* controller() const { return m_controller.get(); }
    NewMailTracker* newMail() const { return m_newMail; }
    MailNotifier* mailNotifier() const { return m_mailNotifier; }
    TrayIcon* tray() const { return m_tray; }
    TodayWindow* window() const { return m_window.get(); }

    // Asks the widget for an update now.
    void performUpdate();
    // Updates that completed (the final "new data" of each).
    int completedUpdates() const { return m_completedUpdates; }
    // Nothing queued, no animation running, at least one update completed.
    bool isSettled() const;

private:
    std::unique_ptr<TodayViewController> m_controller;
    // Declared after the controller, so it goes first: the controller's view goes with it.
    std::unique_ptr<TodayWindow> m_window;
    // Asks for an update every interval and soon after the shared folder changed.
    SharedFolderWatch* m_watch = nullptr;
    int m_completedUpdates = 0;
    // New mail: the rows' marker, the notifications and, in the tray, the count.
    NewMailTracker* m_newMail = nullptr;
    MailNotifier* m_mailNotifier = nullptr;
    TrayIcon* m_tray = nullptr;
};

} // namespace corvina
