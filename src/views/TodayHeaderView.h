#pragma once

#include "ui/FlippedView.h"
#include "ui/SegmentedControl.h"

class QAction;
class QMenu;

namespace corvina {

// What the header's delegate answers: the user picked a list in the header.
class TodayHeaderViewDelegate {
public:
    virtual ~TodayHeaderViewDelegate() = default;
    virtual void selectedSegment(SegmentedControl* control) = 0;
};

// The strip above the message list: a three-segment selector "Inbox", "To Do", "Memo". It starts
// on the list stored under "segmented" (the segment index plus one; "Inbox" when the value is
// absent or makes no segment) and writes every choice through at once, before it tells its
// delegate, which reads the value back.
class TodayHeaderView : public FlippedView {
    Q_OBJECT

public:
    explicit TodayHeaderView(QWidget* parent = nullptr);

    SegmentedControl* control() const { return m_control; }

    // Told of every choice; none (null) is allowed and skipped. The header does not own it: the
    // widget's controller owns the header and outlives it, so a plain reference is enough here.
    TodayHeaderViewDelegate* delegate() const { return m_delegate; }
    void setDelegate(TodayHeaderViewDelegate* delegate) { m_delegate = delegate; }

    // The control's action.
    void selectedSegment(SegmentedControl* sender);
    // Stores the chosen segment and tells the delegate.
    void select();

    // The header's context menu (a right click, the menu key or Shift+F10 on the list selector):
    // "Accounts…", which asks for the mail bridge's Accounts window. An addition of this desktop:
    // a left click on the header still only picks a list.
    QMenu* contextMenu() const { return m_menu; }
    QAction* accountsAction() const { return m_accounts; }

signals:
    // "Accounts…" was chosen; whoever hosts the widget starts the window.
    void accountsRequested();

protected:
    void resizeEvent(QResizeEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    void layoutControl();

    SegmentedControl* m_control;
    TodayHeaderViewDelegate* m_delegate = nullptr;
    QMenu* m_menu = nullptr;
    QAction* m_accounts = nullptr;
};

} // namespace corvina
