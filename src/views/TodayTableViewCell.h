#pragma once

#include "model/ExtensionMessage.h"
#include "platform/AtomicProperty.h"
#include "ui/FlippedView.h"
#include "ui/ImageButton.h"
#include "ui/ImageView.h"
#include "ui/TextField.h"

#include <QPointer>
#include <QWidget>

namespace corvina {

// One message row: avatar, sender, date, subject, and the reply, archive and trash buttons that
// send a command about the row's message to the mail application. Everything visible sits in
// `swipingView`, which fills the cell. For a cell W wide (coordinates from the top left):
//
//   separator      x 35 .. W, y 0, 1 high
//   avatar         (35, 20), 20 x 20
//   sender         x 70, y 10, 20 high, as wide as its text (ending in "…" where the date leaves less)
//   date           y 10, 20 high, as wide as its text, ending 20 before W, at least 10 after the sender
//   subject        x 70, y 30, 20 high, W - 169 wide, one line cut at the end
//   reply, archive, trash   20 x 20 at y 30, x W-96, W-68, W-40
class TodayTableViewCell : public QWidget {
    Q_OBJECT

public:
    explicit TodayTableViewCell(const QRect& frame, QWidget* parent = nullptr);

    static bool isFlipped() { return true; }

    QString identifier() const { return m_identifier; }
    void setIdentifier(const QString& identifier) { m_identifier = identifier; }

    // The hook for a cell handed back for reuse. Cells are never reused (the controller makes a
    // new one for every row), and it does nothing, by design; it stays callable.
    void ReUse() {}

    // Shows `message`: subject, sender, date text, and its avatar when it has one (otherwise the
    // avatar stays as it is, on a new cell the "prof10" placeholder). Nothing else depends on the
    // message: an unread message looks like a read one.
    void PopulateExtensionMessage(const ExtensionMessagePtr& message);

    // A small dot before the sender: the message came in since the user last looked.
    void setMarkedNew(bool marked);
    // The row as a screen reader reads it (the cell's accessible name and description, and the
    // buttons'): sender, subject and date; read or unread, new or not, and what the keys do.
    // Set with the message and the marker.
    void updateAccessibleTexts();
    bool isMarkedNew() const { return m_markedNew; }

    // A row whose message was archived or deleted is on its way out: its buttons send nothing more.
    // The controller marks it when it takes the message out of its lists; a cell alone sends every
    // click.
    bool isLeaving() const { return m_leaving; }
    void setLeaving(bool leaving) { m_leaving = leaving; }

    // The buttons' actions: "reply" in the foreground, "archive" and "delete" in the background.
    void reply(ImageButton* sender);
    void trash(ImageButton* sender);
    void archive(ImageButton* sender);

    // Members, for tests and the controller. The swipe members are declared for a swipe-to-reveal
    // row that is laid out but never driven; they stay empty on purpose.
    TextField* subjectField() const { return m_subjectField; }
    TextField* fromField() const { return m_fromField; }
    TextField* dateField() const { return m_dateField; }
    ImageView* avatarIMview() const { return m_avatarIMview; }
    ImageButton* archiveButton() const { return m_archiveButton; }
    ImageButton* trashButton() const { return m_trashButton; }
    ImageButton* replyButton() const { return m_replyButton; }
    ImageButton* readButton() const { return m_readButton; }
    FlippedView* swipingView() const { return m_swipingView; }
    FlippedView* backView() const { return m_backView; }
    TextField* archiveField() const { return m_archiveField; }
    TextField* deleteField() const { return m_deleteField; }
    FlippedView* horizontalSeparator1() const { return m_horizontalSeparator1; }
    double deltax() const { return m_deltax; }

    CORVINA_ATOMIC_PROPERTY(ExtensionMessagePtr, message, setMessage)

protected:
    void resizeEvent(QResizeEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void layoutContent();
    void send(const QString& command, bool background);

    QString m_identifier;
    TextField* m_subjectField = nullptr;
    TextField* m_fromField = nullptr;
    TextField* m_dateField = nullptr;
    ImageView* m_avatarIMview = nullptr;
    ImageButton* m_archiveButton = nullptr;
    ImageButton* m_trashButton = nullptr;
    ImageButton* m_replyButton = nullptr;
    ImageButton* m_readButton = nullptr;
    FlippedView* m_swipingView = nullptr;
    FlippedView* m_backView = nullptr;
    TextField* m_archiveField = nullptr;
    TextField* m_deleteField = nullptr;
    FlippedView* m_horizontalSeparator1 = nullptr;
    double m_deltax = 0;
    bool m_markedNew = false;
    bool m_leaving = false;
};

} // namespace corvina
