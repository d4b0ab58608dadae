#include "WidgetHost.h"

#include "FirstFrameWatch.h"
#include "TodayWindow.h"
#include "platform/ColorScheme.h"
#include "platform/Dispatch.h"
#include "platform/Log.h"
#include "shared/BridgeStatusFile.h"
#include "ui/SystemColors.h"
#include "views/TodayHeaderView.h"
#include "views/TodayStatusView.h"
#include "widget/FileWatch.h"
#include "widget/MailNotifier.h"
#include "widget/NewMailTracker.h"
#include "widget/SharedFolderWatch.h"
#include "widget/TodayStatus.h"
#include "widget/TrayIcon.h"
#include "widget/UpdateResult.h"

#include <QApplication>
#include <QLayout>
#include <QWindow>

namespace corvina {

WidgetHost::WidgetHost(int intervalSeconds) : m_controller(std::make_unique<TodayViewController>()) {
    m_watch = new SharedFolderWatch(intervalSeconds, this);
    connect(m_watch, &SharedFolderWatch::changed, this, &WidgetHost::folderChanged);
    m_changedRowsWait = new QTimer(this);
    m_changedRowsWait->setSingleShot(true);
    connect(m_changedRowsWait, &QTimer::timeout, this, &WidgetHost::updateAfterRows);
    m_newMail = new NewMailTracker(this);
    m_controller->setNewMailTracker(m_newMail);
    // A look at the window takes the markers off (or leaves them for its length): draw the rows again.
    connect(m_newMail, &NewMailTracker::markersChanged, this, [this] { m_controller->ReloadData(); });
    m_mailNotifier = new MailNotifier(m_newMail, nullptr, this);
    connect(m_controller.get(), &TodayViewController::shownRowsChanged, this, &WidgetHost::updateStatus);
    m_bridgeStatus = new FileWatch(BridgeStatusFile::defaultPath(), this);
    connect(m_bridgeStatus, &FileWatch::changed, this, &WidgetHost::updateStatus);
    m_colorScheme = new ColorScheme(this);
    connect(m_colorScheme, &ColorScheme::changed, this, &WidgetHost::applyAppearance);
}

WidgetHost::~WidgetHost() {
    // The window hides as it goes: that ends a look, which must not reload a controller whose
    // view is going.
    if (m_newMail)
        disconnect(m_newMail, nullptr, this, nullptr);
    m_window.reset(); // the controller's view goes with it, before the controller
}

void WidgetHost::start(bool inTray) {
    // Before anything is made: the rows take their colours when they are made.
    if (m_appearance == Appearance::Auto)
        m_colorScheme->start();
    applyAppearance();
    QWidget* root = m_controller->view();
    m_window = std::make_unique<TodayWindow>(root);
    emit windowMade();
    // The widget's own ways to the Accounts window, beside the tray's.
    connect(m_window->statusView(), &TodayStatusView::accountsRequested, this,
            [] { TrayIcon::openAccountsWindow(); });
    connect(m_controller->myHeaderView(), &TodayHeaderView::accountsRequested, this,
            [] { TrayIcon::openAccountsWindow(); });
    const EdgeInsets margins = m_controller->widgetMarginInsetsForProposedMarginInsets(proposedMargins);
    m_window->layout()->setContentsMargins(int(margins.left), int(margins.top), int(margins.right),
                                           int(margins.bottom));
    m_window->restorePosition();
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
    if (!showWindow) {
        appear();
        return;
    }
    // The header and the empty table go on the screen first; the newest rows follow in the turn
    // after, and the reads once those are on the screen.
    m_firstFrame = new FirstFrameWatch(m_window.get(), this);
    m_frameWait = new QTimer(this);
    m_frameWait->setSingleShot(true);
    connect(m_frameWait, &QTimer::timeout, this, &WidgetHost::appear);
    connect(m_firstFrame, &FirstFrameWatch::painted, this, [this] {
        m_frameWait->stop();
        emit firstFramePainted();
        showNewestRows();
    });
    m_frameWait->start(firstFrameWaitMs);
    m_window->show();
}

void WidgetHost::showNewestRows() {
    if (m_appeared)
        return;
    if (!m_controller->showNewestRows()) {
        appear();
        return;
    }
    // The reads that follow run on the main thread and would hold back the frame with the rows:
    // they wait for it (or for as long as a first frame is waited for).
    auto* rowsFrame = new FirstFrameWatch(m_window.get(), this);
    connect(rowsFrame, &FirstFrameWatch::painted, this, &WidgetHost::appear);
    m_frameWait->start(firstFrameWaitMs);
}

void WidgetHost::appear() {
    if (m_appeared)
        return;
    m_appeared = true;
    if (m_frameWait)
        m_frameWait->stop();
    m_controller->viewWillAppear();
    m_watch->start();
    m_bridgeStatus->start();
    performUpdate();
}

void WidgetHost::performUpdate() {
    m_controller->widgetPerformUpdateWithCompletionHandler([this](int result) {
        if (result == UpdateResult::NewData)
            ++m_completedUpdates;
        updateStatus();
    });
}

void WidgetHost::folderChanged() {
    // The update already waiting reads the folder as it is when it runs, this change included.
    if (m_changedRowsFrame)
        return;
    // Only where rows are on the screen, after the first update: a hidden window (in the tray) or
    // one not exposed paints no frame to wait for, and the tray's idle reads stay single. Only for a
    // large folder (see changedRowsFromMessages).
    const QWindow* handle = m_window ? m_window->windowHandle() : nullptr;
    if (m_completedUpdates == 0 || !m_window->isVisible() || !handle || !handle->isExposed() ||
        m_controller->dataFromDisk().size() < changedRowsFromMessages || !m_controller->showChangedRows()) {
        performUpdate();
        return;
    }
    m_changedRowsFrame = new FirstFrameWatch(m_window.get(), this, FirstFrameWatch::Scope::AnyPart);
    connect(m_changedRowsFrame, &FirstFrameWatch::painted, this, &WidgetHost::updateAfterRows);
    m_changedRowsWait->start(changedRowsWaitMs);
}

void WidgetHost::updateAfterRows() {
    if (!m_changedRowsFrame)
        return;
    m_changedRowsWait->stop();
    m_changedRowsFrame->deleteLater();
    m_changedRowsFrame = nullptr;
    performUpdate();
}

void WidgetHost::updateStatus() {
    if (!m_window)
        return;
    const auto rows = m_controller->dataToShow();
    m_window->statusView()->setLines(
        TodayStatus::lines(TodayStatus::sharedFolderExists(), rows ? rows->size() : 0,
                           BridgeStatusFile::failures(m_bridgeStatus->path()), QDateTime::currentDateTime(),
                           !m_controller->accountsRefusal().isEmpty()));
}

void WidgetHost::applyAppearance() {
    SystemColors::Appearance wanted = SystemColors::Appearance::Dark;
    if (m_appearance == Appearance::Light ||
        (m_appearance == Appearance::Auto && m_colorScheme->preference() == ColorScheme::Preference::Light))
        wanted = SystemColors::Appearance::Light;
    if (wanted == SystemColors::appearance())
        return;
    SystemColors::setAppearance(wanted);
    if (m_window)
        m_window->applyColors();
    // The rows take their colours when they are made: make them again, once there are real ones
    // (an early reload of nothing would tell the new-mail tracker that the list was empty).
    if (m_completedUpdates > 0)
        m_controller->ReloadData();
}

bool WidgetHost::isSettled() const {
    // The desktop's light or dark answered too, so that a picture is taken in the colours it keeps.
    return m_completedUpdates > 0 && Dispatch::pendingMainBlocks() == 0 && !m_controller->isAnimating() &&
           !m_colorScheme->isWaiting();
}

} // namespace corvina
