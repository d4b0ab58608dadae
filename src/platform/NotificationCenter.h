#pragma once

#include <QMutex>
#include <QObject>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <memory>
#include <vector>

namespace corvina {

// A notification as its observers receive it: a name, an object (for the commands an extension
// sends, a QVariantMap) and user information, which the program's own notifications leave empty.
struct Notification {
    QString name;
    QVariant object;
    QVariantMap userInfo;
};

// Named notifications inside one process. Posting delivers synchronously, on the posting thread,
// to every observer of that name in the order they were added, before post returns.
//
// An observer is identified by a pointer (usually the object that registers); removing it removes
// it from every name at once. Observers that are QObjects are also removed when they are destroyed,
// so a forgotten removal cannot call into a dead object. An observer removed while a notification
// is being delivered (by itself or by another observer) is not called after the removal.
class NotificationCenter {
public:
    using Callback = std::function<void(const Notification&)>;

    static NotificationCenter& defaultCenter();

    NotificationCenter() = default;
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    void addObserver(const void* observer, const QString& name, Callback callback);
    // As above, and removed on its own when `observer` is destroyed.
    void addObserver(QObject* observer, const QString& name, Callback callback);
    // Removes `observer` from every name.
    void removeObserver(const void* observer);
    // Removes `observer` from `name` only.
    void removeObserver(const void* observer, const QString& name);

    void postNotificationName(const QString& name, const QVariant& object = {},
                              const QVariantMap& userInfo = {});

    // How many registrations `observer` has (for every name together).
    int observationCount(const void* observer) const;

private:
    struct Entry {
        const void* observer;
        QString name;
        Callback callback;
        bool removed = false; // read and written under m_mutex
    };

    void markRemoved(const std::function<bool(const Entry&)>& which);

    mutable QMutex m_mutex;
    std::vector<std::shared_ptr<Entry>> m_entries;
};

} // namespace corvina
