#include "TodayHeaderView.h"

#include "platform/Localization.h"
#include "platform/UserDefaults.h"
#include "shared/ConstVars.h"

#include <QAction>
#include <QContextMenuEvent>
#include <QMenu>

namespace corvina {

TodayHeaderView::TodayHeaderView(QWidget* parent)
    : FlippedView(QRect(), parent), m_control(new SegmentedControl(this)) {
    m_control->setSegmentCount(3);
    m_control->setLabel(Localization::text(QStringLiteral("Inbox")), 0);
    m_control->setLabel(Localization::text(QStringLiteral("To Do")), 1);
    m_control->setLabel(Localization::text(QStringLiteral("Memo")), 2);
    m_control->setAccessibleName(Localization::text(QStringLiteral("List")));
    m_control->setAccessibleDescription(
        Localization::text(QStringLiteral("Which messages are shown; keys 1, 2 and 3")));
    for (int segment = 0; segment < 3; ++segment)
        m_control->setDescription(Localization::text(QStringLiteral("Shows the list %1 (key %2)"))
                                      .arg(m_control->labelForSegment(segment))
                                      .arg(segment + 1),
                                  segment);
    m_control->setAction([this](SegmentedControl* sender) { selectedSegment(sender); });

    qint64 segment = UserDefaults::integerForKey(ConstVars::segmentedKey) - 1;
    if (segment < 0 || segment > 2)
        segment = 0;
    m_control->setSelectedSegment(int(segment));
    layoutControl();

    m_menu = new QMenu(this);
    m_accounts = m_menu->addAction(Localization::text(QStringLiteral("Accounts…")), this,
                                   &TodayHeaderView::accountsRequested);
}

void TodayHeaderView::contextMenuEvent(QContextMenuEvent* event) {
    m_menu->popup(event->globalPos());
    event->accept();
}

void TodayHeaderView::selectedSegment(SegmentedControl*) {
    select();
}

void TodayHeaderView::select() {
    // Stored first: the delegate reads the choice back from the settings.
    UserDefaults::setInteger(m_control->selectedSegment() + 1, ConstVars::segmentedKey);
    if (m_delegate)
        m_delegate->selectedSegment(m_control);
}

void TodayHeaderView::resizeEvent(QResizeEvent* event) {
    FlippedView::resizeEvent(event);
    layoutControl();
}

void TodayHeaderView::layoutControl() {
    // "H:|-(40)-[control(>=1)]-(20)-|" and "V:|-(1)-[control(20)]": 40 from the left, 20 from the
    // right, 1 below the top, 20 high.
    m_control->setGeometry(40, 1, std::max(1, width() - 60), 20);
}

} // namespace corvina
