#include "NewMailTracker.h"

#include "platform/PlistValue.h"
#include "platform/UserDefaults.h"

#include <QEvent>
#include <QStringList>
#include <QUrl>
#include <QWidget>

namespace corvina {

namespace {

using Key = QPair<QString, QString>;

// Account names are mail addresses, but nothing stops one holding "/", which the settings read as
// a group: each account is one key, percent-encoded.
QString seenKey(const QString& account) {
    return NewMailTracker::seenGroup + u'/' + QString::fromLatin1(QUrl::toPercentEncoding(account));
}

bool hasKey(const ExtensionMessagePtr& message) {
    return message && !message->account().isNull() && !message->messageId().isNull();
}

Key keyOf(const ExtensionMessagePtr& message) {
    return {message->account(), message->messageId()};
}

} // namespace

NewMailTracker::NewMailTracker(QObject* parent) : QObject(parent) {}

bool NewMailTracker::isInbox(const ExtensionMessagePtr& message) {
    // The Inbox is the standard folder kind 1, compared as the list filter compares it.
    const QVariant value = message ? PlistValue::numberValue(message->folderStandardId()) : QVariant();
    return value.isValid() && value.toDouble() == 1.0;
}

void NewMailTracker::update(const ExtensionMessageList& messages) {
    const QString before = signature();
    m_messages = messages;
    QHash<QString, Ids> held;
    for (const ExtensionMessagePtr& message : messages)
        if (hasKey(message))
            held[message->account()].insert(message->messageId());

    QList<Key> gone;
    for (auto it = m_held.cbegin(); it != m_held.cend(); ++it)
        for (const QString& id : it.value())
            if (!held.value(it.key()).contains(id))
                gone << Key(it.key(), id);
    m_held = held;

    QSet<Key> came;
    for (auto it = held.cbegin(); it != held.cend(); ++it) {
        const QString& account = it.key();
        if (!m_seen.contains(account)) {
            const QVariant stored = UserDefaults::valueForKey(seenKey(account));
            if (stored.isValid()) {
                const QStringList ids = stored.toStringList();
                m_seen.insert(account, Ids(ids.cbegin(), ids.cend()));
            } else {
                // First sight of this account: what it holds is what the user already has.
                m_seen.insert(account, it.value());
                store(account);
            }
        }
        if (!m_presentThisRun.contains(account)) {
            // There at the start: never announced, even when not yet seen.
            m_presentThisRun.insert(account, it.value());
        } else {
            Ids& present = m_presentThisRun[account];
            for (const QString& id : it.value())
                if (!present.contains(id)) {
                    present.insert(id);
                    came.insert(Key(account, id));
                }
        }
        // Forget what left, so the stored lists stay as long as the snapshots. An account that
        // holds nothing in this read keeps its list: a read that found nothing for a moment must
        // not make everything new afterwards.
        Ids& seen = m_seen[account];
        const qsizetype size = seen.size();
        seen.intersect(it.value());
        if (seen.size() != size)
            store(account);
    }

    ExtensionMessageList arrivals;
    QSet<Key> announced;
    for (const ExtensionMessagePtr& message : messages) {
        if (!hasKey(message) || !isInbox(message))
            continue;
        const Key key = keyOf(message);
        if (came.contains(key) && isNew(message) && !announced.contains(key)) {
            announced.insert(key);
            arrivals << message;
        }
    }
    // What comes in while the user looks is seen as it comes, and keeps its marker for this look.
    if (m_looking)
        takeLook();

    if (!gone.isEmpty())
        emit left(gone);
    if (!arrivals.isEmpty())
        emit arrived(arrivals);
    if (signature() != before)
        emit changed();
}

void NewMailTracker::beginLook() {
    const QString before = signature();
    const QSet<Key> marked = m_markedAtLook;
    m_looking = true;
    takeLook();
    if (m_markedAtLook != marked)
        emit markersChanged();
    if (signature() != before)
        emit changed();
}

void NewMailTracker::takeLook() {
    for (const ExtensionMessagePtr& message : m_messages)
        if (hasKey(message) && isNew(message))
            m_markedAtLook.insert(keyOf(message));
    for (auto it = m_held.cbegin(); it != m_held.cend(); ++it) {
        if (m_seen.value(it.key()) != it.value()) {
            m_seen.insert(it.key(), it.value());
            store(it.key());
        }
    }
}

void NewMailTracker::endLook() {
    const QString before = signature();
    const bool hadMarkers = !m_markedAtLook.isEmpty();
    m_looking = false;
    m_markedAtLook.clear();
    if (hadMarkers)
        emit markersChanged();
    if (signature() != before)
        emit changed();
}

void NewMailTracker::watchWindow(QWidget* window) {
    window->installEventFilter(this);
    if (window->isVisible())
        beginLook();
}

bool NewMailTracker::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
    case QEvent::Show:
        beginLook();
        break;
    case QEvent::WindowActivate:
        // The window system's word may come after the window was hidden again.
        if (auto* window = qobject_cast<QWidget*>(watched); window && window->isVisible())
            beginLook();
        break;
    case QEvent::Hide:
    case QEvent::WindowDeactivate:
        endLook();
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

bool NewMailTracker::isNew(const ExtensionMessagePtr& message) const {
    if (!hasKey(message))
        return false;
    const auto seen = m_seen.constFind(message->account());
    // An account not yet read has nothing new.
    return seen != m_seen.cend() && !seen->contains(message->messageId());
}

bool NewMailTracker::isMarked(const ExtensionMessagePtr& message) const {
    return isNew(message) || (hasKey(message) && m_markedAtLook.contains(keyOf(message)));
}

ExtensionMessageList NewMailTracker::newInboxMessages() const {
    ExtensionMessageList out;
    QSet<Key> listed;
    for (const ExtensionMessagePtr& message : m_messages) {
        if (!isInbox(message) || !isNew(message))
            continue;
        const Key key = keyOf(message);
        if (!listed.contains(key)) {
            listed.insert(key);
            out << message;
        }
    }
    return out;
}

bool NewMailTracker::holds(const QString& account, const QString& messageId) const {
    return m_held.value(account).contains(messageId);
}

void NewMailTracker::store(const QString& account) const {
    QStringList ids(m_seen.value(account).cbegin(), m_seen.value(account).cend());
    ids.sort();
    UserDefaults::setValue(ids, seenKey(account));
}

QString NewMailTracker::signature() const {
    // What the views show of this object: the marked rows and the new Inbox messages.
    QStringList parts;
    for (const ExtensionMessagePtr& message : m_messages) {
        if (!hasKey(message))
            continue;
        if (isMarked(message))
            parts << QStringLiteral("m") + message->account() + u'\n' + message->messageId();
        if (isInbox(message) && isNew(message))
            parts << QStringLiteral("n") + message->account() + u'\n' + message->messageId();
    }
    return parts.join(QChar(0));
}

} // namespace corvina
