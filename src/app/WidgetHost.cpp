#include "WidgetHost.h"

#include "TodayWindow.h"
#include "platform/Dispatch.h"
#include "platform/Log.h"
#include "widget/MailNotifier.h"
#include "widget/NewMailTracker.h"
#include "widget/SharedFolderWatch.h"
#include "widget/TrayIcon.h"
#include "widget/UpdateResult.h"

#include <QApplication>
#include <QLayout>

namespace corvina {

WidgetHost::WidgetHost(int intervalSeconds) : m_controller(std::make_unique<TodayViewController>()) {
    m_watch = new SharedFolderWatch(intervalSeconds, this);
    connect(m_watch, &SharedFolderWatch::changed, this, &WidgetHost::performUpdate);
    m_newMail = new NewMailTracker(this);
    m_controller->setNewMailTracker(m_newMail);
    // A look at the window takes the markers off (or leaves them for its length): draw the rows again.
    connect(m_newMail, &NewMailTracker::markersChanged, this, [this] { m_controller->ReloadData(); });
    m_mailNotifier = new MailNotifier(m_newMail, nullptr, this);
}

WidgetHost::~WidgetHost() {
    // The window hides as it goes: that ends a look, which must not reload a controller whose
    // view is going.
    if (m_newMail)
        disconnect(m_newMail, nullptr, this, nullptr);
    m_window.reset(); // the controller's view goes with it, before the controller
}

void WidgetHost::start(bool inTray) {
    QWidget* root = m_controller->view();
    m_window = std::make_unique<TodayWindow>(root);
    const EdgeInsets margins = m_controller->widgetMarginInsetsForProposedMarginInsets(proposedMargins);
    m_window->layout()->setContentsMargins(int(margins.left), int(margins.top), int(margins.right),
                                           int(margins.bottom));
    m_window->restorePosition();
    m_controller->viewWillAppear();
    m_newMail->watchWindow(m_window.get());
    bool showWindow = true;
    if (inTray) {
        m_tray = new TrayIcon(m_newMail, m_window.get(), this);
        connect(m_mailNotifier, &MailNotifier::showListRequested, m_tray, &TrayIcon::showWindow);
        // Closing the window (Escape, the window's close button) hides it; the tray's menu quits.
        QApplication::setQuitOnLastWindowClosed(false);
        if (TrayIcon::isSystemTrayAvailable()) {
            m_tray->setVisible(true);
            showWindow = false;
        } else {
            Log::write(QStringLiteral("the desktop shows no tray; the window is shown instead"), {});
            QApplication::setQuitOnLastWindowClosed(true);
        }
    }
    if (showWindow)
        m_window->show();
    m_watch->start();
    performUpdate();
}

void WidgetHost::performUpdate() {
    m_controller->widgetPerformUpdateWithCompletionHandler([this](int result) {
        if (result == UpdateResult::NewData)
            ++m_completedUpdates;
    });
}

bool WidgetHost::isSettled() const {
    return m_completedUpdates > 0 && Dispatch::pendingMainBlocks() == 0 && !m_controller->isAnimating();
}

} // namespace corvina
