#include "TableView.h"

#include "TableRowAccessible.h"
#include "TableViewAccessible.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QVariantAnimation>
#include <algorithm>

namespace corvina {

namespace {

constexpr int kHeaderHeight = 23;
constexpr int kAnimationMs = 250; // the desktop's usual length for a short transition

} // namespace

TableView::TableView(const QRect& frame, QWidget* parent) : QWidget(parent) {
    // A screen reader hears the table as a list of its rows, each a list item with its buttons:
    // without these factories it would get a filler of anonymous fillers. Once per program.
    static const bool factoriesInstalled = [] {
        QAccessible::installFactory(&TableViewAccessible::create);
        QAccessible::installFactory(&TableRowAccessible::create);
        return true;
    }();
    Q_UNUSED(factoriesInstalled);
    setGeometry(frame);
    // Focus from a click as well as from Tab: the keys move through the rows from the row clicked.
    setFocusPolicy(Qt::StrongFocus);
    // A table comes with a header row naming its columns until its owner removes it.
    auto header = std::make_unique<QLabel>(this);
    header->setIndent(4);
    header->setAutoFillBackground(true);
    m_headerView = std::move(header);
}

TableView::~TableView() {
    for (const auto& animation : m_animations) {
        if (animation)
            animation->stop();
    }
}

void TableView::setRowHeight(qreal height) {
    m_rowHeight = height;
    placeRows(false);
}

void TableView::setIntercellSpacing(QSizeF spacing) {
    m_intercellSpacing = spacing;
    placeRows(false);
}

void TableView::setBackgroundColor(const QColor& color) {
    m_backgroundColor = color;
    update();
}

void TableView::setHeaderView(QWidget* header) {
    if (m_headerView.get() != header)
        m_headerView.reset(header);
    if (m_headerView)
        m_headerView->setParent(this);
    placeRows(false);
}

void TableView::addTableColumn(std::unique_ptr<TableColumn> column) {
    m_columns.push_back(std::move(column));
    if (auto* header = qobject_cast<QLabel*>(m_headerView.get()))
        header->setText(m_columns.front()->headerText());
}

QList<TableColumn*> TableView::tableColumns() const {
    QList<TableColumn*> out;
    for (const auto& c : m_columns)
        out << c.get();
    return out;
}

void TableView::clearRows() {
    m_rows.clear(); // each cell goes with its row view
}

void TableView::reloadData() {
    clearRows();
    const qint64 count = m_dataSource ? std::max<qint64>(0, m_dataSource->numberOfRowsInTableView(this)) : 0;
    TableColumn* column = m_columns.empty() ? nullptr : m_columns.front().get();
    for (qint64 i = 0; i < count; ++i) {
        std::unique_ptr<TableRowView> rowView(m_delegate ? m_delegate->rowViewForRow(this, i) : nullptr);
        if (!rowView)
            rowView = std::make_unique<TableRowView>();
        rowView->setParent(this);
        QWidget* cell = m_delegate ? m_delegate->viewForTableColumn(this, column, i) : nullptr;
        // The row reads as its cell to a screen reader (TableRowAccessible asks the cell each time).
        if (cell)
            cell->setParent(rowView.get());
        m_rows.push_back(Row{std::move(rowView), cell});
    }
    if (m_selectedRow >= count)
        m_selectedRow = -1;
    for (qint64 i = 0; i < count; ++i)
        m_rows[size_t(i)].rowView->setSelected(i == m_selectedRow);
    // The current row keeps its place in the list; past the end it is the last row.
    m_currentRow = std::min(m_currentRow, count - 1);
    updateFocusRing();
    placeRows(false);
    for (const Row& row : m_rows)
        row.rowView->show();
    tellChildrenChanged();
}

QRect TableView::rectOfRow(qint64 row) const {
    const int top = m_headerView ? m_headerView->height() : 0;
    const qreal pitch = m_rowHeight + m_intercellSpacing.height();
    return QRect(0, top + int(double(row) * pitch), width(), int(m_rowHeight));
}

void TableView::placeRows(bool animated) {
    if (m_headerView)
        m_headerView->setGeometry(0, 0, width(), kHeaderHeight);
    for (qint64 i = 0; i < numberOfRows(); ++i) {
        const Row& row = m_rows[size_t(i)];
        const QRect target = rectOfRow(i);
        if (row.cell && row.cell->width() != target.width())
            row.cell->resize(target.width(), row.cell->height());
        if (!animated || row.rowView->geometry().topLeft() == target.topLeft()) {
            row.rowView->setGeometry(target);
            continue;
        }
        // Rows below a removed one move up into its place.
        // Positions, not rects: a row keeps its size while it moves (a rect's corners, each
        // rounded on its own, made it a pixel narrower or shorter now and then).
        row.rowView->resize(target.size());
        auto* move = new QVariantAnimation(this);
        move->setDuration(kAnimationMs);
        move->setStartValue(row.rowView->pos());
        move->setEndValue(target.topLeft());
        // Slow at first: a row sliding out (fast at first) is seen leaving before these close the
        // gap over it. Deliberate: with the rows below quicker, they covered it before it had moved.
        move->setEasingCurve(QEasingCurve::InOutQuad);
        QPointer<TableRowView> view = row.rowView.get();
        connect(move, &QVariantAnimation::valueChanged, this, [this, view](const QVariant& v) {
            if (view)
                view->move(v.toPoint());
            clipLeavingRows();
        });
        m_animations << move;
        move->start(QAbstractAnimation::DeleteWhenStopped);
    }
}

void TableView::selectRow(qint64 row) {
    if (row < -1 || row >= numberOfRows())
        row = -1;
    if (row == m_selectedRow)
        return;
    m_selectedRow = row;
    for (qint64 i = 0; i < numberOfRows(); ++i)
        m_rows[size_t(i)].rowView->setSelected(i == m_selectedRow);
    if (m_delegate)
        m_delegate->tableViewSelectionDidChange();
}

void TableView::setCurrentRow(qint64 row) {
    if (row < -1 || row >= numberOfRows())
        row = -1;
    if (row == m_currentRow)
        return;
    m_currentRow = row;
    updateFocusRing();
    if (hasFocus())
        tellFocusedRow();
}

void TableView::tellFocusedRow() {
    // A screen reader follows the focus: the current row is where it is, for the keys.
    if (m_currentRow < 0 || !hasFocus())
        return;
    QAccessibleEvent event(m_rows[size_t(m_currentRow)].rowView.get(), QAccessible::Focus);
    QAccessible::updateAccessibility(&event);
}

void TableView::updateFocusRing() {
    const bool shown = m_keyboardFocus && hasFocus();
    for (qint64 i = 0; i < numberOfRows(); ++i)
        m_rows[size_t(i)].rowView->setShowsFocusRing(shown && i == m_currentRow);
}

void TableView::removeRowsAtIndexes(const QList<qint64>& indexes, quint32 options) {
    QList<qint64> sorted = indexes;
    std::sort(sorted.begin(), sorted.end(), std::greater<>());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    const quint32 slide = options & 0x70;
    for (const qint64 index : sorted) {
        if (index < 0 || index >= numberOfRows())
            continue;
        Row row = std::move(m_rows[size_t(index)]);
        m_rows.erase(m_rows.begin() + index);
        if (m_selectedRow == index)
            m_selectedRow = -1;
        else if (m_selectedRow > index)
            --m_selectedRow;
        // The current row stays where it was, on the row that moves up into the removed one's
        // place, so that the keys go on with the next message.
        if (m_currentRow > index || m_currentRow >= numberOfRows())
            --m_currentRow;
        if (slide != AnimationSlideLeft && slide != AnimationSlideRight && !(options & AnimationEffectFade)) {
            continue; // gone with `row`
        }
        // The removed row slides out sideways (or fades) and is deleted when out of sight.
        auto* out = new QVariantAnimation(this);
        out->setDuration(kAnimationMs);
        // Fast at first, so that it is well on its way out (and seen going) while the rows below
        // have hardly begun to move up.
        out->setEasingCurve(QEasingCurve::OutCubic);
        const QRect start = row.rowView->geometry();
        const int dx = slide == AnimationSlideLeft    ? -start.width()
                       : slide == AnimationSlideRight ? start.width()
                                                      : 0;
        out->setStartValue(start.topLeft());
        out->setEndValue(start.topLeft() + QPoint(dx, 0));
        TableRowView* view = row.rowView.get();
        view->raise();
        // Opaque while it leaves: a row that leaves over another leaving row (two removed in a row)
        // hides it rather than letting its text show through.
        view->setLeaving(true);
        // A removed row takes no more clicks while it slides: not its buttons, and a click on it
        // is not one on the row that is moving up into its place either.
        view->setEnabled(false);
        view->setAttribute(Qt::WA_NoMousePropagation);
        m_leaving.push_back(std::move(row.rowView));
        connect(out, &QVariantAnimation::valueChanged, view, [this, view](const QVariant& v) {
            view->move(v.toPoint());
            clipLeavingRows();
        });
        // Also when the table stops its animations on the way out.
        connect(out, &QVariantAnimation::finished, this, [this, view] {
            std::erase_if(m_leaving, [view](const auto& leaving) { return leaving.get() == view; });
        });
        m_animations << out;
        out->start(QAbstractAnimation::DeleteWhenStopped);
    }
    updateFocusRing();
    // Rows below move up with the same kind of animation, or at once when none was asked for.
    placeRows(options != AnimationEffectNone);
    clipLeavingRows();
    tellChildrenChanged();
}

void TableView::tellChildrenChanged() {
    // A screen reader that keeps the list's items learns that they are other ones now.
    if (!QAccessible::isActive())
        return;
    QAccessibleEvent event(this, QAccessible::ObjectReorder);
    QAccessible::updateAccessibility(&event);
}

void TableView::clipLeavingRows() {
    // A row sliding out is drawn above the rows, and the rows below move up into its place at the
    // same time: without this its text would show through theirs. It keeps only the part of its
    // rect that no row covers, so the rows moving up cover it as they come.
    for (const auto& leaving : m_leaving) {
        const QRegion whole(leaving->rect());
        QRegion visible = whole;
        for (const Row& row : m_rows)
            visible -= row.rowView->geometry().translated(-leaving->pos());
        if (visible.isEmpty()) {
            leaving->hide(); // an empty mask would mean no mask at all
            continue;
        }
        if (visible == whole)
            leaving->clearMask();
        else
            leaving->setMask(visible);
    }
}

TableRowView* TableView::rowViewAtRow(qint64 row) const {
    return row >= 0 && row < numberOfRows() ? m_rows[size_t(row)].rowView.get() : nullptr;
}

qint64 TableView::rowOfView(const TableRowView* rowView) const {
    for (qint64 i = 0; i < numberOfRows(); ++i) {
        if (m_rows[size_t(i)].rowView.get() == rowView)
            return i;
    }
    return -1;
}

QWidget* TableView::viewAtColumn(qint64 column, qint64 row) const {
    return column == 0 && row >= 0 && row < numberOfRows() ? m_rows[size_t(row)].cell : nullptr;
}

qint64 TableView::rowAtPoint(const QPoint& point) const {
    for (qint64 i = 0; i < numberOfRows(); ++i) {
        if (rectOfRow(i).contains(point))
            return i;
    }
    return -1;
}

bool TableView::isAnimating() const {
    return std::any_of(m_animations.begin(), m_animations.end(),
                       [](const auto& a) { return a && a->state() == QAbstractAnimation::Running; });
}

void TableView::paintEvent(QPaintEvent*) {
    if (m_backgroundColor.alpha() == 0)
        return;
    QPainter painter(this);
    painter.fillRect(rect(), m_backgroundColor);
}

void TableView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    const qint64 row = rowAtPoint(event->position().toPoint());
    m_keyboardFocus = false;
    if (row >= 0) {
        setCurrentRow(row);
        selectRow(row);
    }
    updateFocusRing();
}

void TableView::keyPressEvent(QKeyEvent* event) {
    if (event->modifiers() & ~Qt::KeypadModifier) {
        QWidget::keyPressEvent(event);
        return;
    }
    const qint64 count = numberOfRows();
    qint64 row = m_currentRow;
    switch (event->key()) {
    case Qt::Key_Down:
        row = m_currentRow >= 0 ? std::min(m_currentRow + 1, count - 1) : std::max<qint64>(m_selectedRow, 0);
        break;
    case Qt::Key_Up:
        row = m_currentRow >= 0 ? std::max<qint64>(m_currentRow - 1, 0)
                                : (m_selectedRow >= 0 ? m_selectedRow : count - 1);
        break;
    case Qt::Key_Home:
        row = 0;
        break;
    case Qt::Key_End:
        row = count - 1;
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (m_currentRow < 0) {
            QWidget::keyPressEvent(event);
            return;
        }
        // Exactly a click on the row: selecting the selected row again changes nothing.
        selectRow(m_currentRow);
        return;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    m_keyboardFocus = true;
    setCurrentRow(count > 0 ? row : -1);
    updateFocusRing();
}

void TableView::focusInEvent(QFocusEvent* event) {
    QWidget::focusInEvent(event);
    if (event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason) {
        m_keyboardFocus = true;
        if (m_currentRow < 0)
            setCurrentRow(m_selectedRow >= 0 ? m_selectedRow : 0);
        // Deliberately later: the focus event Qt sends for the table itself comes after this
        // handler, and a screen reader would read the list instead of the row the keys act on.
        QMetaObject::invokeMethod(this, &TableView::tellFocusedRow, Qt::QueuedConnection);
    }
    updateFocusRing();
}

void TableView::focusOutEvent(QFocusEvent* event) {
    QWidget::focusOutEvent(event);
    updateFocusRing();
}

void TableView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    placeRows(false);
}

} // namespace corvina
