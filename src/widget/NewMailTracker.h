#pragma once

#include "model/ExtensionMessage.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

class QWidget;

namespace corvina {

// Which messages are new since the user last looked at the widget's window: the tray's count, the
// rows' marker and the new-mail notifications all follow it.
//
// It keeps, per account, the ids of the messages that were there when the window was last looked
// at (shown or made the active window), in the settings under "seen/<account>", so a restart
// forgets nothing. A message held now whose id is not among its account's is new. An account
// seen for the first time (the first run, an account just added) takes everything it holds as
// seen: nothing is new until something arrives. While the window is looked at, the rows that were
// new when it was opened keep their marker, so the user can tell them apart; the count is 0 at
// once, and the marker is gone the next time the window opens.
//
// Messages are told apart by account and message id, as the mail application does; two equal
// records are one message.
class NewMailTracker : public QObject {
    Q_OBJECT
public:
    static inline const QString seenGroup = QStringLiteral("seen");

    explicit NewMailTracker(QObject* parent = nullptr);

    // What the widget read from the shared folder (every list), newest first.
    void update(const ExtensionMessageList& messages);

    // The user looks at the window from now on (it was shown, or made active); everything held now
    // is seen. endLook(): the user no longer does (hidden, or another window is active).
    void beginLook();
    void endLook();
    bool isLooking() const { return m_looking; }
    // Looks follow the window: shown or activated begins one, hidden or deactivated ends it.
    void watchWindow(QWidget* window);

    // New since the last look (not yet seen).
    bool isNew(const ExtensionMessagePtr& message) const;
    // Shows the marker: new, or new when the current look began.
    bool isMarked(const ExtensionMessagePtr& message) const;
    // The Inbox's new messages, newest first, each once.
    ExtensionMessageList newInboxMessages() const;
    int newInboxCount() const { return int(newInboxMessages().size()); }
    // Whether a message with this account and id is held now.
    bool holds(const QString& account, const QString& messageId) const;

    static bool isInbox(const ExtensionMessagePtr& message);

signals:
    // The new messages, the count or the markers changed.
    void changed();
    // Inbox messages that came in while the program runs, newest first (not those there at its
    // start, nor those an account held when it first appeared). Each message once per run.
    void arrived(const ExtensionMessageList& messages);
    // A look began or ended, and with it the rows' markers changed (not for an update: the rows are
    // drawn again after one anyway).
    void markersChanged();
    // Messages that were held and are not any more (archived, deleted, moved away).
    void left(const QList<QPair<QString, QString>>& accountAndIds);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    using Ids = QSet<QString>;
    // A message's account and id; null for a record that lacks either.
    using Key = QPair<QString, QString>;
    void store(const QString& account) const;
    // What `messages` (with their `keys`) hold against the last read: what left, what arrived, and
    // the sets of held, seen and present ids brought up to date.
    void compare(const ExtensionMessageList& messages, const QList<Key>& keys, QList<Key>& gone,
                 ExtensionMessageList& arrivals);
    bool isNew(const Key& key) const;
    // Everything held now is seen, and what was new keeps its marker for this look. `keys`: those
    // of m_messages, in its order.
    void takeLook(const QList<Key>& keys);
    QString signature(const QList<Key>& keys) const;
    // Makes m_signature again for what is held now, from `keys` when they are still those of
    // m_messages (read from `messages`); answers m_changes as of then.
    quint64 refreshSignature(const ExtensionMessageList& messages, const QList<Key>& keys);

    ExtensionMessageList m_messages;
    QList<Key> m_keys;                    // those of m_messages, in its order
    QHash<QString, Ids> m_held;           // per account, what the last update held
    QHash<QString, Ids> m_seen;           // per account, seen at the last look (stored)
    QHash<QString, Ids> m_presentThisRun; // per account, every id held since this program started
    QSet<QPair<QString, QString>> m_markedAtLook;
    bool m_looking = false;
    // Within update(): store() gathers the accounts into m_toStore, written once its signals went.
    bool m_deferStores = false;
    mutable QSet<QString> m_toStore;
    // signature() as of the last change: every change of what it depends on (the list, what was
    // seen, the markers of a look) makes it again before it tells anyone, so the next change
    // compares with it instead of walking the list once more. Records do not change their account,
    // id or folder once read. m_changes counts the changes begun, so that a change can tell
    // whether a slot of its signals made another one meanwhile (markersChanged reloads the widget,
    // which updates this object), and then make the signature again.
    QString m_signature;
    quint64 m_changes = 0;
};

} // namespace corvina
