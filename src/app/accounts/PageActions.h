#pragma once

#include "bridge/config/BridgeConfig.h"

#include <QList>
#include <QString>
#include <functional>
#include <initializer_list>
#include <optional>

class QHBoxLayout;
class QLabel;
class QPushButton;
class QWidget;

namespace corvina {

class BackgroundJob;
class FolderChooser;

// What the Accounts window's pages that set up an account have alike: "Test connection", "Save" and
// "Cancel", the line under them that says how a test or a save went (a screen reader reads it too),
// and the one piece of background work (a test or a save) a page runs at a time. While it runs,
// Test and Save are off and the line says what is under way. A page keeps its own fields and says
// what its test and save do; the job handling is here once.
class PageActions {
public:
    // The buttons and the line are made for `page`, which places them (buttonRow(), result()).
    explicit PageActions(QWidget* page);

    QPushButton* test() const { return m_test; }
    QPushButton* save() const { return m_save; }
    QPushButton* cancel() const { return m_cancel; }
    QLabel* result() const { return m_result; }
    // The row of buttons: `first` (a page's own, when any) and Test on the left, Cancel and Save on
    // the right. The page's own are off while a job runs, as Test and Save are.
    QHBoxLayout* buttonRow(std::initializer_list<QWidget*> first = {});

    QString resultText() const;
    void showResult(const QString& text, bool ok);
    void clearResult();

    // Whether a test or a save runs.
    bool isBusy() const { return m_job != nullptr; }
    // `job` runs now (Test and Save off, `what` under them), or none does (null).
    void setBusy(BackgroundJob* job, const QString& what);
    // Another piece of the page's work runs (a sign-in in the browser): the buttons are off as for a
    // job, without one.
    void setHeld(bool held);
    // The job ended and its result was taken: it goes, Test and Save are on again.
    void finishJob();
    // Nobody waits for the job any more (Cancel, the page left): it ends on its own thread, unseen.
    void abandonJob();

    // The bridge's check of `account` (with `password`, or the account's own when none); its line
    // under the buttons.
    void testConnection(const BridgeConfig::Account& account, const std::optional<QString>& password,
                        int timeoutSeconds);
    // The same check, and on its connection the server's folders, offered in `folders` when it
    // passed; a chosen folder the server does not list is said in the line.
    void testListingFolders(const BridgeConfig::Account& account, const std::optional<QString>& password,
                            int timeoutSeconds, FolderChooser& folders);
    // Runs `work` (true when it saved; else `*error` says why) on a thread of its own; then either
    // its error under the buttons, or `saved` on the page's thread.
    void startSave(std::function<bool(QString* error)> work, std::function<void()> saved);

private:
    void enableButtons();

    QWidget* m_page;
    QPushButton* m_test = nullptr;
    QPushButton* m_save = nullptr;
    QPushButton* m_cancel = nullptr;
    QLabel* m_result = nullptr;
    QList<QWidget*> m_own;
    BackgroundJob* m_job = nullptr;
    bool m_held = false;
};

} // namespace corvina
