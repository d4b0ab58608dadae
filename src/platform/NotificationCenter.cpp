#include "NotificationCenter.h"

#include <QMutexLocker>
#include <algorithm>

namespace corvina {

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

void NotificationCenter::addObserver(const void* observer, const QString& name, Callback callback) {
    auto entry = std::make_shared<Entry>(Entry{observer, name, std::move(callback)});
    QMutexLocker lock(&m_mutex);
    m_entries.push_back(std::move(entry));
}

void NotificationCenter::addObserver(QObject* observer, const QString& name, Callback callback) {
    addObserver(static_cast<const void*>(observer), name, std::move(callback));
    // Connected to the observer itself (not to a context object of ours): the connection dies with
    // it, and the centre may outlive every observer.
    QObject::connect(observer, &QObject::destroyed,
                     [this, observer] { removeObserver(static_cast<const void*>(observer)); });
}

void NotificationCenter::removeObserver(const void* observer) {
    markRemoved([observer](const Entry& e) { return e.observer == observer; });
}

void NotificationCenter::removeObserver(const void* observer, const QString& name) {
    markRemoved([observer, &name](const Entry& e) { return e.observer == observer && e.name == name; });
}

void NotificationCenter::markRemoved(const std::function<bool(const Entry&)>& which) {
    QMutexLocker lock(&m_mutex);
    // A delivery in progress holds its own references to the entries; the flag tells it to skip
    // the ones removed meanwhile.
    for (const auto& entry : m_entries) {
        if (which(*entry))
            entry->removed = true;
    }
    m_entries.erase(
        std::remove_if(m_entries.begin(), m_entries.end(), [](const auto& e) { return e->removed; }),
        m_entries.end());
}

int NotificationCenter::observationCount(const void* observer) const {
    QMutexLocker lock(&m_mutex);
    return int(std::count_if(m_entries.begin(), m_entries.end(),
                             [observer](const auto& e) { return e->observer == observer; }));
}

void NotificationCenter::postNotificationName(const QString& name, const QVariant& object,
                                              const QVariantMap& userInfo) {
    std::vector<std::shared_ptr<Entry>> receivers;
    {
        QMutexLocker lock(&m_mutex);
        for (const auto& entry : m_entries) {
            if (entry->name == name)
                receivers.push_back(entry);
        }
    }
    const Notification notification{name, object, userInfo};
    // The lock is not held while observers run: they may post, add or remove in turn.
    for (const auto& entry : receivers) {
        bool removed;
        {
            QMutexLocker lock(&m_mutex);
            removed = entry->removed;
        }
        if (!removed)
            entry->callback(notification);
    }
}

} // namespace corvina
