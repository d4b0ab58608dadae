#include "TodayViewController.h"

#include "NewMailTracker.h"
#include "SegmentFilter.h"
#include "TodayKeyboard.h"
#include "platform/Dispatch.h"
#include "platform/FreeMemory.h"
#include "platform/Localization.h"
#include "platform/UserDefaults.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "ui/FlippedView.h"
#include "views/TodayMetrics.h"
#include "views/TodayRootLayout.h"
#include "views/TodayTableViewCell.h"

#include <QHash>
#include <QPair>
#include <QThread>
#include <vector>

namespace corvina {

namespace {

bool isEqualToArray(const ExtensionMessageList& a, const ExtensionMessageList& b) {
    if (a.size() != b.size())
        return false;
    for (qsizetype i = 0; i < a.size(); ++i) {
        if (!a.at(i) || !a.at(i)->isEqual(b.at(i).get()))
            return false;
    }
    return true;
}

qsizetype indexOfObject(const ExtensionMessageList& list, const ExtensionMessagePtr& message) {
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (list.at(i) && list.at(i)->isEqual(message.get()))
            return i;
    }
    return -1;
}

ExtensionMessageList removingObject(ExtensionMessageList list, const ExtensionMessagePtr& message) {
    list.removeIf([&](const ExtensionMessagePtr& m) { return m && m->isEqual(message.get()); });
    return list;
}

// `read` with every record that holds the same values as one in `held` replaced by that one: a
// read of files that did not change then holds no second copy of what the widget already had (at
// a hundred thousand messages, the copy made while the old list was still held would leave the
// heap twice its size for as long as the program runs). Only values are compared, so the list says
// what it said before; each held record stands in once at most. The lists mostly come in the same
// order, so each place is tried first; a look-up by account and id is made only when one differs.
ExtensionMessageList keepingHeldRecords(ExtensionMessageList read, const ExtensionMessageList& held) {
    if (held.isEmpty())
        return read;
    using Key = QPair<QString, QString>;
    QHash<Key, qsizetype> byKey;
    std::vector<bool> used(size_t(held.size()), false);
    bool looked = false;
    for (qsizetype i = 0; i < read.size(); ++i) {
        const ExtensionMessagePtr& fresh = read.at(i);
        if (!fresh)
            continue;
        qsizetype match = -1;
        if (i < held.size() && !used[size_t(i)] && held.at(i) && held.at(i)->hasSameSnapshotValues(*fresh)) {
            match = i;
        } else {
            if (!looked) {
                looked = true;
                byKey.reserve(held.size());
                for (qsizetype j = 0; j < held.size(); ++j)
                    if (held.at(j))
                        byKey.insert(Key(held.at(j)->account(), held.at(j)->messageId()), j);
            }
            const qsizetype j = byKey.value(Key(fresh->account(), fresh->messageId()), -1);
            if (j >= 0 && !used[size_t(j)] && held.at(j)->hasSameSnapshotValues(*fresh))
                match = j;
        }
        if (match >= 0) {
            used[size_t(match)] = true;
            read[i] = held.at(match);
        }
    }
    return read;
}

} // namespace

TodayViewController::TodayViewController() = default;

TodayViewController::~TodayViewController() {
    NotificationCenter::defaultCenter().removeObserver(this);
}

void TodayViewController::loadView() {
    setDataFromDisk({});

    m_rootView = new FlippedView(QRect(0, 0, TodayMetrics::width, 400));
    setView(m_rootView);
    m_rootView->setAttribute(Qt::WA_TranslucentBackground);

    m_myTableView = new TodayTableView(QRect(), m_rootView);
    m_myTableView->setRowHeight(TodayMetrics::rowHeight);
    m_myTableView->setDelegate(this);
    m_myTableView->setDataSource(this);

    m_myHeaderView = new TodayHeaderView(m_rootView);
    m_myHeaderView->setDelegate(this);

    m_myTableView->setAccessibleName(Localization::text(QStringLiteral("Messages")));
    // Whoever focuses the widget focuses its rows, where the keys move.
    m_rootView->setFocusProxy(m_myTableView);
    // The widget's keys (reply, archive, delete, the lists), beside the table's own; it goes with
    // the root view.
    new TodayKeyboard(m_rootView, m_myTableView, m_myHeaderView->control());

    // The table's own height constraint; the root view's layout reads it.
    auto* height =
        new LayoutConstraint(LayoutConstraint::Height, 1.0, TodayMetrics::initialTableHeight, m_myTableView);
    setViewHeightContraint(height);
    m_rootLayout = new TodayRootLayout(m_rootView, m_myHeaderView, m_myTableView, height);

    NotificationCenter::defaultCenter().addObserver(static_cast<const void*>(this),
                                                    ExtensionUtilities::ACTION_CALLED_EXTENSION,
                                                    [this](const Notification& n) { actionCalled(n); });
}

void TodayViewController::viewDidLoad() {
    ViewController::viewDidLoad();
}

void TodayViewController::viewWillAppear() {
    ViewController::viewWillAppear();
    Reload();
}

void TodayViewController::dismissViewController(ViewController* controller) {
    ViewController::dismissViewController(controller);
}

void TodayViewController::widgetPerformUpdateWithCompletionHandler(
    const CompletionHandler& completionHandler) {
    const std::optional<QUrl> container = ExtensionUtilities::GroupPath();
    // Missing only when there is no location at all: a location whose folder is not on disk still
    // goes on to the read below (which then finds nothing). Deliberately so.
    if (!container) {
        setDataFromDisk({});
        ReloadData();
        if (completionHandler)
            completionHandler(UpdateResult::NoData);
        // No return: the read below runs as well, and reports new data.
    }
    Dispatch::dispatchAsyncMain(this, [this, completionHandler] {
        setDataFromDisk(keepingHeldRecords(updateData(), dataFromDisk()));
        ReloadData();
        giveBackAfterRead();
        if (completionHandler)
            completionHandler(UpdateResult::NewData);
    });
}

EdgeInsets TodayViewController::widgetMarginInsetsForProposedMarginInsets(EdgeInsets proposed) const {
    proposed.left = 0;
    return proposed;
}

void TodayViewController::Reload() {
    Dispatch::dispatchAsyncMain(this, [this] { reloadFromDisk(); });
}

void TodayViewController::reloadFromDisk() {
    const ExtensionMessageList read = updateData();
    // Equal records (same messages, by id and account) mean nothing to redisplay, even when the
    // files were rewritten.
    const ExtensionMessageList held = dataFromDisk();
    // A read kept or dropped leaves its copies free in the middle of the heap: handed back after
    // the rows had their turn (queued behind the table's reload).
    if (isEqualToArray(read, held)) {
        giveBackAfterRead();
        return;
    }
    setDataFromDisk(keepingHeldRecords(read, held));
    ReloadData();
    giveBackAfterRead();
}

void TodayViewController::giveBackAfterRead() {
    // In a later turn of the main queue: by then the records the read replaced are released (the
    // lists that held them are made again in this turn), and the rows are not held back.
    Dispatch::dispatchAsyncMain(this, [] { FreeMemory::giveBackFreePages(); });
}

void TodayViewController::ReloadData() {
    const qint64 segmented = UserDefaults::integerForKey(ConstVars::segmentedKey);
    // A value without a list leaves the rows as they were.
    if (std::optional<ExtensionMessageList> rows = SegmentFilter::dataToShow(dataFromDisk(), segmented))
        setDataToShow(std::move(*rows));
    if (m_newMail)
        m_newMail->update(dataFromDisk());
    emit shownRowsChanged();
    Dispatch::dispatchAsyncMain(this, [this] {
        m_myTableView->reloadData();
        Resize();
    });
}

void TodayViewController::Resize() {
    // Always a further turn of the main queue, so the height changes after the table reloaded.
    Dispatch::dispatchAsyncMain(this, [this] {
        if (LayoutConstraint* height = viewHeightContraint()) {
            const bool first = height->constant() == TodayMetrics::initialTableHeight;
            height->setConstant(m_myTableView->rowHeight() * double(m_myTableView->numberOfRows()));
            // The first rows are not held back by a growing table: the height they need comes at
            // once. Later changes move as before.
            if (first && m_rootLayout)
                m_rootLayout->finishAnimation();
        }
        m_rootView->updateGeometry();
    });
}

std::optional<ExtensionMessageList> TodayViewController::readNewestRows() {
    const qint64 segmented = UserDefaults::integerForKey(ConstVars::segmentedKey);
    const std::optional<SnapshotFormat::ListKind> kind = SegmentFilter::listKindFor(segmented);
    if (segmented != 0 && !kind)
        return std::nullopt;
    return m_loader.newest(SegmentFilter::RowLimit, [&kind](const QVariant& folderStid) {
        return !kind || SnapshotFormat::isOfKind(folderStid, *kind);
    });
}

bool TodayViewController::showNewestRows() {
    // A value without a list shows nothing until the read, as ReloadData would leave the rows.
    std::optional<ExtensionMessageList> rows = readNewestRows();
    if (!rows || rows->isEmpty())
        return false;
    setDataToShow(std::move(*rows));
    emit shownRowsChanged();
    m_myTableView->reloadData();
    if (LayoutConstraint* height = viewHeightContraint())
        height->setConstant(m_myTableView->rowHeight() * double(m_myTableView->numberOfRows()));
    if (m_rootLayout)
        m_rootLayout->finishAnimation();
    m_rootView->updateGeometry();
    return true;
}

bool TodayViewController::showChangedRows() {
    std::optional<ExtensionMessageList> rows = readNewestRows();
    if (!rows || rows->isEmpty())
        return false;
    // The same rows again: the update that follows redraws them anyway, and a table reloaded here
    // would only hold it back.
    const std::optional<ExtensionMessageList> shown = dataToShow();
    if (shown && isEqualToArray(*rows, *shown))
        return false;
    setDataToShow(std::move(*rows));
    emit shownRowsChanged();
    m_myTableView->reloadData();
    return true;
}

void TodayViewController::selectedSegment(SegmentedControl*) {
    ReloadData();
    // The re-read goes by way of a background thread, which only hands it back to the main queue.
    // The guard is taken here, on the main thread: the background thread only passes it on.
    Dispatch::dispatchAsyncBackground([this, receiver = QPointer<const QObject>(this)] {
        Dispatch::dispatchAsyncMain(receiver, [this] { reloadFromDisk(); });
    });
}

qint64 TodayViewController::numberOfRowsInTableView(TableView*) {
    const auto rows = dataToShow();
    return rows ? qint64(rows->size()) : 0;
}

QWidget* TodayViewController::viewForTableColumn(TableView* table, TableColumn*, qint64 row) {
    // A new cell every time: cells are never reused.
    auto* cell = new TodayTableViewCell(QRect(0, 0, m_rootView->width(), int(table->rowHeight())));
    cell->setIdentifier(QStringLiteral("TodayTableViewCell"));
    const auto rows = dataToShow();
    if (rows && row >= 0 && row < rows->size()) {
        cell->PopulateExtensionMessage(rows->at(row));
        cell->setMarkedNew(m_newMail && m_newMail->isMarked(rows->at(row)));
    }
    return cell;
}

void TodayViewController::tableViewSelectionDidChange() {
    const auto rows = dataToShow();
    const qint64 selected = m_myTableView->selectedRow();
    // Compared unsigned, so "no selection" (-1) never passes.
    if (!rows || quint64(selected) >= quint64(rows->size()))
        return;
    // A row whose archive or delete was just sent is still in the table until its removal runs on
    // the main queue, while the lists have already dropped its message: a click on it then opens
    // nothing, rather than the message that took its index.
    if (const auto* cell = dynamic_cast<const TodayTableViewCell*>(m_myTableView->viewAtColumn(0, selected));
        cell && cell->isLeaving())
        return;
    if (const ExtensionMessagePtr message = rows->at(selected))
        // As the row's buttons do: the window never waits for the mail application.
        ExtensionUtilities::LaunchCommandForMessagesWithoutWaiting({message}, ConstVars::commandOpen, false);
}

void TodayViewController::actionCalled(const Notification& notification) {
    if (notification.object.isNull())
        return;
    const QVariantMap object = notification.object.toMap();
    const ExtensionMessagePtr message = object.value(QStringLiteral("message")).value<ExtensionMessagePtr>();
    const QString command = object.value(QStringLiteral("command")).toString();
    if (!message || (command != ConstVars::commandArchive && command != ConstVars::commandDelete))
        return;
    const auto rows = dataToShow();
    const qsizetype index = rows ? indexOfObject(*rows, message) : -1;
    if (index < 0)
        return;
    removeMessage(message);
    // Its row takes no more clicks from now on, although it leaves the table only in a later turn
    // of the main queue: the first row still showing an equal message that is not already leaving.
    auto markLeaving = [this, message] {
        for (qint64 row = 0; row < m_myTableView->numberOfRows(); ++row) {
            auto* cell = dynamic_cast<TodayTableViewCell*>(m_myTableView->viewAtColumn(0, row));
            if (cell && !cell->isLeaving() && cell->message() && cell->message()->isEqual(message.get())) {
                cell->setLeaving(true);
                return;
            }
        }
    };
    if (QThread::currentThread() == thread())
        markLeaving();
    else
        Dispatch::dispatchAsyncMain(this, markLeaving);
    // One row leaves the table, the first equal one, even when several equal messages left the
    // lists: the table keeps its own count until the next reload. Deliberate, and kept.
    Dispatch::dispatchAsyncMain(this, [this, command, index] {
        m_myTableView->removeRowsAtIndexes({qint64(index)}, command == ConstVars::commandArchive
                                                                ? TableView::AnimationSlideLeft
                                                                : TableView::AnimationSlideRight);
    });
}

void TodayViewController::removeMessage(const ExtensionMessagePtr& message) {
    std::optional<ExtensionMessageList> shown = dataToShow();
    if (shown)
        shown = removingObject(*shown, message);
    const ExtensionMessageList fromDisk = removingObject(dataFromDisk(), message);
    setDataFromDisk(fromDisk);
    setDataToShow(shown);
    if (m_newMail)
        m_newMail->update(fromDisk);
    emit shownRowsChanged();
}

ExtensionMessageList TodayViewController::updateData() {
    return m_loader.updateData();
}

std::optional<QStringList> TodayViewController::directoryContent(const QString& path) {
    return SnapshotLoader::directoryContent(path);
}

bool TodayViewController::isAnimating() const {
    if (!m_rootView)
        return false;
    return (m_rootLayout && m_rootLayout->isAnimating()) || (m_myTableView && m_myTableView->isAnimating());
}

} // namespace corvina
