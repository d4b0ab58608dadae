#include "TodayViewController.h"

#include "SegmentFilter.h"
#include "platform/Dispatch.h"
#include "platform/UserDefaults.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "views/FlippedView.h"
#include "views/TodayTableViewCell.h"

#include <QLayout>
#include <QVariantAnimation>

namespace corvina {

namespace {

constexpr int kWidth = 320;
constexpr int kHeaderHeight = 30;
constexpr int kGap = 5;
constexpr int kAnimationMs = 250;

// The root view's constraints:
//   "H:|-(0)-[myTableView(320)]-(0)-|", "H:|-(0)-[myHeaderView(320)]-(0)-|",
//   "V:|-(0)-[myHeaderView(30)]-(5)-[myTableView]-(0)-|", and the table's height constraint.
// The root is as high as they make it; a change of the height constraint is animated, the
// constraint itself holding the final value at once.
class RootLayout : public QLayout {
public:
    RootLayout(QWidget* root, QWidget* header, QWidget* table, LayoutConstraint* height)
        : QLayout(root), m_header(header), m_table(table), m_height(height), m_shown(height->value()) {
        setContentsMargins(0, 0, 0, 0);
        setSizeConstraint(QLayout::SetFixedSize);
        m_animation = new QVariantAnimation(this);
        m_animation->setDuration(kAnimationMs);
        m_animation->setEasingCurve(QEasingCurve::InOutQuad);
        connect(m_animation, &QVariantAnimation::valueChanged, this, [this](const QVariant& v) {
            m_shown = v.toReal();
            invalidate();
            if (parentWidget())
                parentWidget()->updateGeometry();
            activate();
        });
        connect(m_height, &LayoutConstraint::changed, this, [this] {
            m_animation->stop();
            m_animation->setStartValue(m_shown);
            m_animation->setEndValue(m_height->value());
            m_animation->start();
        });
    }

    bool isAnimating() const { return m_animation->state() == QAbstractAnimation::Running; }

    void addItem(QLayoutItem*) override {}
    QLayoutItem* itemAt(int) const override { return nullptr; }
    QLayoutItem* takeAt(int) override { return nullptr; }
    int count() const override { return 0; }
    QSize sizeHint() const override { return QSize(kWidth, kHeaderHeight + kGap + qRound(m_shown)); }
    QSize minimumSize() const override { return sizeHint(); }
    QSize maximumSize() const override { return sizeHint(); }
    void setGeometry(const QRect& rect) override {
        QLayout::setGeometry(rect);
        m_header->setGeometry(0, 0, kWidth, kHeaderHeight);
        m_table->setGeometry(0, kHeaderHeight + kGap, kWidth, qRound(m_shown));
    }

private:
    QWidget* m_header;
    QWidget* m_table;
    LayoutConstraint* m_height;
    qreal m_shown;
    QVariantAnimation* m_animation;
};

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

} // namespace

TodayViewController::TodayViewController() = default;

TodayViewController::~TodayViewController() {
    m_alive->store(false);
    NotificationCenter::defaultCenter().removeObserver(this);
}

void TodayViewController::loadView() {
    setDataFromDisk({});

    m_rootView = new FlippedView(QRect(0, 0, kWidth, 400));
    setView(m_rootView);
    m_rootView->setAttribute(Qt::WA_TranslucentBackground);

    m_myTableView = new TodayTableView(QRect(), m_rootView);
    m_myTableView->setRowHeight(60);
    m_myTableView->setDelegate(this);
    m_myTableView->setDataSource(this);

    m_myHeaderView = new TodayHeaderView(m_rootView);
    m_myHeaderView->setDelegate(this);

    // The table's own height constraint; the root view's layout reads it.
    auto* height = new LayoutConstraint(LayoutConstraint::Height, 1.0, 50, m_myTableView);
    setViewHeightContraint(height);
    new RootLayout(m_rootView, m_myHeaderView, m_myTableView, height);

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
            completionHandler(NoData);
        // No return: the read below runs as well, and reports new data.
    }
    AliveFlag alive = m_alive;
    Dispatch::dispatchAsyncMain([alive, this, completionHandler] {
        if (!*alive)
            return;
        setDataFromDisk(updateData());
        ReloadData();
        if (completionHandler)
            completionHandler(NewData);
    });
}

EdgeInsets TodayViewController::widgetMarginInsetsForProposedMarginInsets(EdgeInsets proposed) const {
    proposed.left = 0;
    return proposed;
}

void TodayViewController::scheduleReload(const AliveFlag& alive, TodayViewController* controller) {
    Dispatch::dispatchAsyncMain([alive, controller] {
        if (*alive)
            controller->reloadFromDisk();
    });
}

void TodayViewController::Reload() {
    scheduleReload(m_alive, this);
}

void TodayViewController::reloadFromDisk() {
    const ExtensionMessageList read = updateData();
    // Equal records (same messages, by id and account) mean nothing to redisplay, even when the
    // files were rewritten.
    if (isEqualToArray(read, dataFromDisk()))
        return;
    setDataFromDisk(read);
    ReloadData();
}

void TodayViewController::ReloadData() {
    const qint64 segmented = UserDefaults::integerForKey(SegmentFilter::segmentedKey);
    // A value without a list leaves the rows as they were.
    if (std::optional<ExtensionMessageList> rows = SegmentFilter::dataToShow(dataFromDisk(), segmented))
        setDataToShow(std::move(*rows));
    AliveFlag alive = m_alive;
    Dispatch::dispatchAsyncMain([alive, this] {
        if (!*alive)
            return;
        m_myTableView->reloadData();
        Resize();
    });
}

void TodayViewController::Resize() {
    // Always a further turn of the main queue, so the height changes after the table reloaded.
    AliveFlag alive = m_alive;
    Dispatch::dispatchAsyncMain([alive, this] {
        if (!*alive)
            return;
        if (LayoutConstraint* height = viewHeightContraint())
            height->setConstant(m_myTableView->rowHeight() * double(m_myTableView->numberOfRows()));
        m_rootView->updateGeometry();
    });
}

void TodayViewController::selectedSegment(SegmentedControl*) {
    ReloadData();
    // The re-read goes by way of a background thread, which only hands it back to the main queue.
    AliveFlag alive = m_alive;
    TodayViewController* controller = this;
    Dispatch::dispatchAsyncBackground([alive, controller] { scheduleReload(alive, controller); });
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
    if (rows && row >= 0 && row < rows->size())
        cell->PopulateExtensionMessage(rows->at(row));
    return cell;
}

void TodayViewController::tableViewSelectionDidChange() {
    const auto rows = dataToShow();
    const qint64 selected = m_myTableView->selectedRow();
    // Compared unsigned, so "no selection" (-1) never passes.
    if (!rows || quint64(selected) >= quint64(rows->size()))
        return;
    if (const ExtensionMessagePtr message = rows->at(selected))
        ExtensionUtilities::LaunchCommandForMessages({message}, ConstVars::commandOpen, false);
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
    // One row leaves the table, the first equal one, even when several equal messages left the
    // lists: the table keeps its own count until the next reload. Deliberate, and kept.
    AliveFlag alive = m_alive;
    Dispatch::dispatchAsyncMain([alive, this, command, index] {
        if (!*alive)
            return;
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
    const auto* layout = dynamic_cast<const RootLayout*>(m_rootView->layout());
    return (layout && layout->isAnimating()) || (m_myTableView && m_myTableView->isAnimating());
}

} // namespace corvina
