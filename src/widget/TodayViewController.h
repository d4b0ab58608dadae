#pragma once

#include "SnapshotLoader.h"
#include "UpdateResult.h"
#include "model/ExtensionMessage.h"
#include "platform/AtomicProperty.h"
#include "platform/NotificationCenter.h"
#include "ui/LayoutConstraint.h"
#include "ui/TableView.h"
#include "ui/ViewController.h"
#include "views/TodayHeaderView.h"
#include "views/TodayTableView.h"

#include <QPointer>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace corvina {

class FlippedView;
class NewMailTracker;
class TodayRootLayout;

// The widget: the header with the list selector above the table of the newest messages.
//
// Its host builds it (view()), calls viewWillAppear() before showing it, and calls
// widgetPerformUpdateWithCompletionHandler() whenever it wants fresh content. Everything that
// touches views, every snapshot read, reload and resize runs on the main thread's queue.
//
// The root view is 320 wide: the header (30 high) at the top, 5 below it the table, whose height
// is `viewHeightContraint` (50 at first, then 60 x rows), the root's bottom flush with the table's
// (the numbers are TodayMetrics).
//
// The keys (TodayKeyboard, and the table's own) do what clicks do: focusing the widget focuses
// its table, whose current row the arrow keys move without opening anything.
class TodayViewController : public ViewController,
                            public TodayHeaderViewDelegate,
                            public TableViewDataSource,
                            public TableViewDelegate {
    Q_OBJECT

public:
    // Hears an UpdateResult (NewData or NoData).
    using CompletionHandler = std::function<void(int result)>;

    TodayViewController();
    ~TodayViewController() override;

    void loadView() override;
    void viewDidLoad() override;
    void viewWillAppear() override;
    void dismissViewController(ViewController* controller) override;

    // The host's periodic update. When the shared container is missing the list is emptied and
    // the handler hears 1 (no data) at once; then, in every case, the snapshot is read on the main
    // queue, shown, and the handler hears 0 (new data). So with no container it is called twice,
    // with 1 and then 0: deliberate, the host relies on the final 0 to stop waiting.
    void widgetPerformUpdateWithCompletionHandler(const CompletionHandler& completionHandler);
    // The proposed insets with the left one 0: the rows use the full width.
    EdgeInsets widgetMarginInsetsForProposedMarginInsets(EdgeInsets proposed) const;
    bool widgetAllowsEditing() const { return false; }
    void widgetDidBeginEditing() {}
    void widgetDidEndEditing() {}

    // Re-reads the snapshot on the main queue and shows it, only when it differs from what is held.
    void Reload();
    // Recomputes the rows from what is held and the chosen list (at most ten), then reloads the
    // table and resizes on the main queue.
    void ReloadData();
    // Sets the table's height to row height x rows, on the main queue, animated; the first height
    // after the one the table was made with comes at once (there is nothing yet to grow from).
    void Resize();

    // Before the first read, on the main thread: shows at once the rows the chosen list will show,
    // read as SnapshotLoader::newest finds them, and sizes the table to them without animation.
    // Only `dataToShow` and the table change: `dataFromDisk` stays as it was, and the new-mail
    // tracker hears nothing, until the read that counts (Reload, the update) stores the whole list
    // and shows it through ReloadData as always. True when it put rows in the table.
    bool showNewestRows();
    // After the shared folder changed, while the window shows rows: the rows the update that follows
    // will show, put in the table at once, read as showNewestRows reads them, so that a changed
    // message is on the screen before the whole read is done. Only `dataToShow` and the table
    // change; `dataFromDisk`, the new-mail tracker and the table's height are left to that update,
    // whose ReloadData and Resize then run as always (a change of height still moves). True when
    // it put other rows in the table; false, changing nothing, when the rows would be the ones shown
    // now, when the chosen list has none, or when no list is chosen.
    bool showChangedRows();

    // The header's delegate: filters again at once, then re-reads by way of a background hop.
    void selectedSegment(SegmentedControl* control) override;

    // The table's data source and delegate.
    qint64 numberOfRowsInTableView(TableView* table) override;
    QWidget* viewForTableColumn(TableView* table, TableColumn* column, qint64 row) override;
    void tableViewSelectionDidChange() override;

    // ACTION_CALLED_EXTENSION: an archived or deleted message leaves both lists and its row
    // slides out (left for archive, right for delete). The height stays until the next reload.
    void actionCalled(const Notification& notification);
    // Takes every message equal to `message` out of both lists.
    void removeMessage(const ExtensionMessagePtr& message);

    ExtensionMessageList updateData();
    static std::optional<QStringList> directoryContent(const QString& path);
    // Why the last read found no accounts although the account list was there (it was refused);
    // empty otherwise. For the words under the list.
    QString accountsRefusal() const { return m_loader.accountsRefusal(); }

    TodayTableView* myTableView() const { return m_myTableView; }
    TodayHeaderView* myHeaderView() const { return m_myHeaderView; }
    FlippedView* rootView() const { return m_rootView; }

    // Told of every change of what was read (after it is filtered for the rows), and asked which
    // rows carry the new-mail marker. None by default: no marker.
    void setNewMailTracker(NewMailTracker* tracker) { m_newMail = tracker; }

    // True while the table's height or rows are still moving.
    bool isAnimating() const;

    CORVINA_ATOMIC_PROPERTY(ExtensionMessageList, dataFromDisk, setDataFromDisk)
    // Nothing until the first ReloadData that selects a list.
    CORVINA_ATOMIC_PROPERTY(std::optional<ExtensionMessageList>, dataToShow, setDataToShow)
    CORVINA_ATOMIC_PROPERTY(QPointer<LayoutConstraint>, viewHeightContraint, setViewHeightContraint)

signals:
    // The rows to show may have changed: a reload, another list, a message taken out. Sent from the
    // thread that changed them (a command's thread, for a message taken out).
    void shownRowsChanged();

private:
    void reloadFromDisk();
    // The rows the chosen list would show, read through SnapshotLoader::newest; nothing when a value
    // without a list is chosen (ReloadData leaves the rows as they are then).
    std::optional<ExtensionMessageList> readNewestRows();
    // Hands the heap's free pages back to the system in a later turn of the main queue.
    void giveBackAfterRead();

    FlippedView* m_rootView = nullptr;
    TodayTableView* m_myTableView = nullptr;
    TodayHeaderView* m_myHeaderView = nullptr;
    QPointer<TodayRootLayout> m_rootLayout; // the root view's, owned by it
    SnapshotLoader m_loader;
    NewMailTracker* m_newMail = nullptr;
};

} // namespace corvina
