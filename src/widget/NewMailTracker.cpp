#include "NewMailTracker.h"

#include "model/SnapshotFormat.h"
#include "platform/UserDefaults.h"

#include <QEvent>
#include <QStringList>
#include <QUrl>
#include <QWidget>
#include <utility>

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

// Each record's account and id, read once: a record's getters lock and copy, and a list is walked
// several times per update. A record without both has a null key.
QList<Key> keysOf(const ExtensionMessageList& messages) {
    QList<Key> keys;
    keys.reserve(messages.size());
    for (const ExtensionMessagePtr& message : messages) {
        if (!message) {
            keys.append(Key());
            continue;
        }
        Key key = keyOf(message);
        keys.append(key.first.isNull() || key.second.isNull() ? Key() : std::move(key));
    }
    return keys;
}

bool isKey(const Key& key) {
    return !key.first.isNull();
}

} // namespace

NewMailTracker::NewMailTracker(QObject* parent) : QObject(parent) {}

bool NewMailTracker::isInbox(const ExtensionMessagePtr& message) {
    // compared as the list filter compares it
    return message && SnapshotFormat::isOfKind(message->folderStandardId(), SnapshotFormat::ListKind::Inbox);
}

void NewMailTracker::update(const ExtensionMessageList& messages) {
    const QString before = m_signature;
    ++m_changes;
    m_messages = messages;
    QList<Key> keys = keysOf(messages);
    QList<Key> gone;
    ExtensionMessageList arrivals;
    // A read that found the same messages in the same order as the last one (the periodic update,
    // most of the time) holds what that one held: nothing left or came, what was seen is already
    // within it, and a look going on has already taken it. The per-id set work is skipped then; a
    // record can still say something new besides its key (an Inbox message moved to another list
    // keeps its key), which the signature below is made again for.
    // What compare() and a look going on change of the seen lists is written after the signals,
    // not before: the write waits for the disk, and the notification of a new message must not.
    m_deferStores = true;
    if (keys != m_keys)
        compare(messages, keys, gone, arrivals);
    m_keys = std::move(keys);

    const quint64 changes = refreshSignature(messages, m_keys);
    if (!gone.isEmpty())
        emit left(gone);
    if (!arrivals.isEmpty())
        emit arrived(arrivals);
    m_deferStores = false;
    const QSet<QString> toStore = std::exchange(m_toStore, {});
    for (const QString& account : toStore)
        store(account);
    if (changes != m_changes)
        refreshSignature(m_messages, keysOf(m_messages));
    if (m_signature != before)
        emit changed();
}

void NewMailTracker::compare(const ExtensionMessageList& messages, const QList<Key>& keys, QList<Key>& gone,
                             ExtensionMessageList& arrivals) {
    QHash<QString, Ids> held;
    for (const Key& key : keys) {
        if (!isKey(key))
            continue;
        auto ids = held.find(key.first);
        if (ids == held.end()) {
            // Made at about the size it will have (that of the last read), not grown step by step:
            // each step of growth would hash every id again.
            ids = held.insert(key.first, Ids());
            ids->reserve(m_held.value(key.first).size());
        }
        ids->insert(key.second);
    }

    // The accounts of the last read none of whose messages left.
    QSet<QString> keptWhole;
    for (auto it = m_held.cbegin(); it != m_held.cend(); ++it) {
        // The account's set looked up once, not once per id.
        const Ids now = held.value(it.key());
        const qsizetype goneBefore = gone.size();
        for (const QString& id : it.value())
            if (!now.contains(id))
                gone << Key(it.key(), id);
        if (gone.size() == goneBefore)
            keptWhole.insert(it.key());
    }
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
        // not make everything new afterwards. What was seen is always within what the last read
        // held (this makes it so, and a look sets it to what is held): where nothing of that
        // left, there is nothing to forget.
        if (keptWhole.contains(account))
            continue;
        Ids& seen = m_seen[account];
        const qsizetype size = seen.size();
        seen.intersect(it.value());
        if (seen.size() != size)
            store(account);
    }

    QSet<Key> announced;
    // Only what came can arrive: with nothing come, no record needs a look.
    for (qsizetype i = 0; !came.isEmpty() && i < messages.size(); ++i) {
        const Key& key = keys.at(i);
        if (!isKey(key) || !came.contains(key) || !isInbox(messages.at(i)))
            continue;
        if (isNew(key) && !announced.contains(key)) {
            announced.insert(key);
            arrivals << messages.at(i);
        }
    }
    // What comes in while the user looks is seen as it comes, and keeps its marker for this look.
    if (m_looking)
        takeLook(keys);
}

void NewMailTracker::beginLook() {
    const ExtensionMessageList messages = m_messages;
    const QList<Key> keys = keysOf(messages);
    const QString before = m_signature;
    ++m_changes;
    const QSet<Key> marked = m_markedAtLook;
    m_looking = true;
    takeLook(keys);
    const quint64 changes = refreshSignature(messages, keys);
    if (m_markedAtLook != marked)
        emit markersChanged();
    if (changes != m_changes)
        refreshSignature(m_messages, keysOf(m_messages));
    if (m_signature != before)
        emit changed();
}

void NewMailTracker::takeLook(const QList<Key>& keys) {
    // What was seen is always within what is held (every update makes it so), so an account whose
    // two sets are as large has nothing new; where no account has, no record needs a look.
    QStringList behind;
    for (auto it = m_held.cbegin(); it != m_held.cend(); ++it)
        if (m_seen.value(it.key()).size() != it.value().size())
            behind << it.key();
    if (behind.isEmpty())
        return;
    for (const Key& key : keys)
        if (isKey(key) && isNew(key))
            m_markedAtLook.insert(key);
    for (const QString& account : behind) {
        m_seen.insert(account, m_held.value(account));
        store(account);
    }
}

void NewMailTracker::endLook() {
    const QString before = m_signature;
    ++m_changes;
    const bool hadMarkers = !m_markedAtLook.isEmpty();
    m_looking = false;
    m_markedAtLook.clear();
    const quint64 changes = refreshSignature(m_messages, keysOf(m_messages));
    if (hadMarkers)
        emit markersChanged();
    if (changes != m_changes)
        refreshSignature(m_messages, keysOf(m_messages));
    if (m_signature != before)
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
    return hasKey(message) && isNew(keyOf(message));
}

bool NewMailTracker::isNew(const Key& key) const {
    const auto seen = m_seen.constFind(key.first);
    // An account not yet read has nothing new.
    return seen != m_seen.cend() && !seen->contains(key.second);
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
    if (m_deferStores) {
        m_toStore.insert(account);
        return;
    }
    QStringList ids(m_seen.value(account).cbegin(), m_seen.value(account).cend());
    ids.sort();
    UserDefaults::setValue(ids, seenKey(account));
}

quint64 NewMailTracker::refreshSignature(const ExtensionMessageList& messages, const QList<Key>& keys) {
    const bool same = messages.constData() == m_messages.constData() && messages.size() == m_messages.size();
    m_signature = signature(same ? keys : keysOf(m_messages));
    return m_changes;
}

QString NewMailTracker::signature(const QList<Key>& keys) const {
    // What the views show of this object: the marked rows and the new Inbox messages. `keys` are
    // those of m_messages, in its order.
    QStringList parts;
    for (qsizetype i = 0; i < keys.size(); ++i) {
        const Key& key = keys.at(i);
        if (!isKey(key))
            continue;
        const bool isNewOne = isNew(key);
        if (isNewOne || m_markedAtLook.contains(key))
            parts << QStringLiteral("m") + key.first + u'\n' + key.second;
        if (isNewOne && isInbox(m_messages.at(i)))
            parts << QStringLiteral("n") + key.first + u'\n' + key.second;
    }
    return parts.join(QChar(0));
}

} // namespace corvina
