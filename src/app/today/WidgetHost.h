#pragma once

#include "widget/TodayViewController.h"

#include <QObject>
#include <QTimer>
#include <functional>
#include <memory>

namespace corvina {

class ColorScheme;
class FileWatch;
class FirstFrameWatch;
class MailNotifier;
class NewMailTracker;
class SharedFolderWatch;
class TodayWindow;
class TrayIcon;

// What the desktop's widget host does for the widget: builds the controller, shows its view in a
// window with the margins the controller answers, calls the will-appear step, and asks for an
// update when it is needed (SharedFolderWatch): soon after the mail application changed its files
// (the snapshot folder, an account's folder or the account list), when the day turns (the rows'
// date texts age), and every `intervalSeconds` only when that was asked for (0: never). Each
// update still reads the whole shared folder, as the controller's update must; the saving is in
// asking for one only when something may have changed.
//
// The will-appear step, the first update and the folder watch start only once the window's first
// frame is on the screen: the controller reads the snapshot on the main thread, and a large
// shared folder would otherwise keep the window blank for as long as the read takes. Between the
// two, the rows the first read will show are put on the screen from a read that builds only them
// (TodayViewController::showNewestRows), and the whole read waits for their frame.
//
// The same for a change of the shared folder while the window is on the screen: the rows the update
// will show are put in the table first (TodayViewController::showChangedRows) and the update follows
// their frame, so that a changed message shows without waiting for the whole read and the new-mail
// bookkeeping. That update is the one that counts, as always: it stores the whole list, tells the
// new-mail tracker (the markers, the notification) and sizes the table. When the rows would not
// change, the window is hidden (in the tray) or the folder is small, the update runs at once as
// before.
class WidgetHost : public QObject {
    Q_OBJECT

public:
    // The margins the host proposes; the widget answers with its own (left 0). Nothing above or
    // below: the window is the widget's panel, exactly as high as the widget (30 + 5 + 60 a row),
    // with no band under the last row. Only the status line, when it has something to say, adds
    // to it.
    static constexpr EdgeInsets proposedMargins{0, 16, 0, 0};
    // How long the widget waits for its window's first frame before it reads all the same (a
    // window mapped where it cannot be seen is never painted).
    static constexpr int firstFrameWaitMs = 500;
    // How long the update after a change waits at most for the frame of the rows put in the table
    // first, before it runs all the same. Only a window that paints nothing although it is exposed
    // waits that long; a busy machine's frame is late, and an update that came before it would
    // hold it back.
    static constexpr int changedRowsWaitMs = 500;
    // Fewer messages than this in the last read: a change goes straight to the update. Its whole
    // read is quick enough then (under some 45 ms on a quiet 2-core machine) to put the rows on the
    // screen itself, and a frame of rows before it would only put off the notification.
    static constexpr qsizetype changedRowsFromMessages = 2000;

    // Light or dark: as the desktop is (Auto), or as the user said.
    enum class Appearance { Auto, Light, Dark };

    explicit WidgetHost(int intervalSeconds);
    ~WidgetHost() override;

    // Before start(); Auto by default.
    void setAppearance(Appearance appearance) { m_appearance = appearance; }
    ColorScheme* colorScheme() const { return m_colorScheme; }

    // Shows the widget's window; `inTray`: puts the widget in the desktop's tray instead, its window
    // hidden until asked for (and shown at once, with a line saying why, when there is no tray).
    // The controller is asked for its content after the window's first frame (at once when the
    // window starts hidden).
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
    // Nothing queued, no animation running, at least one update completed, the desktop's look known.
    bool isSettled() const;

    // Says in the window's status line what the list alone does not (see TodayStatus).
    void updateStatus();
signals:
    // The window's first frame is on the screen (after its first paint and one more turn of the
    // event loop). Not sent when the window starts hidden (in the tray).
    void firstFramePainted();
    // start() has made the window, before it is shown.
    void windowMade();

private:
    // The will-appear step, the folder watch, the first update and the periodic ones; once.
    void appear();
    // After the window's first frame: the rows the first read will show, at once, from a read that
    // builds only them (TodayViewController::showNewestRows); then appear() after their frame.
    void showNewestRows();
    void applyAppearance();
    // The shared folder changed (SharedFolderWatch::changed): the rows first where they can be
    // shown, then the update.
    void folderChanged();
    // The update of a change whose rows went to the table first, once their frame is on the screen.
    void updateAfterRows();

    std::unique_ptr<TodayViewController> m_controller;
    // Declared after the controller, so it goes first: the controller's view goes with it.
    std::unique_ptr<TodayWindow> m_window;
    // Asks for an update when the shared folder changed or the day turned (and every interval, if
    // one was asked for).
    SharedFolderWatch* m_watch = nullptr;
    int m_completedUpdates = 0;
    FirstFrameWatch* m_firstFrame = nullptr;
    // How long a frame is waited for before appear() runs all the same.
    QTimer* m_frameWait = nullptr;
    bool m_appeared = false;
    // Set while an update waits for the frame of a change's rows (it will read whatever changed
    // meanwhile as well).
    FirstFrameWatch* m_changedRowsFrame = nullptr;
    QTimer* m_changedRowsWait = nullptr;
    // New mail: the rows' marker, the notifications and, in the tray, the count.
    NewMailTracker* m_newMail = nullptr;
    MailNotifier* m_mailNotifier = nullptr;
    TrayIcon* m_tray = nullptr;
    Appearance m_appearance = Appearance::Auto;
    ColorScheme* m_colorScheme = nullptr;
    // The bridge's status file, read for the status line (BridgeStatusFile::defaultPath()).
    FileWatch* m_bridgeStatus = nullptr;
};

} // namespace corvina
