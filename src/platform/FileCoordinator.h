#pragma once

#include <QString>
#include <QUrl>
#include <chrono>
#include <functional>

namespace corvina {

// Keeps a reader from seeing a file that the mail application is writing, and a writer from
// replacing one that an extension is reading.
//
// The protocol, shared with the mail application's writers: an advisory flock() on the hidden
// sidecar ".<name>.lock" in the parent folder of the item (created when missing, never removed),
// shared for reading and exclusive for writing. The lock is waited for up to a bounded time; when it
// cannot be had in time, or the sidecar cannot be opened, the coordination fails with an error text
// and the accessor does not run. When the parent folder does not exist the accessor runs without a
// lock: there is nothing there to race with. The accessor always runs on the calling thread, before
// the call returns, and is handed the location to use (the item's own URL).
class FileCoordinator {
public:
    // Option values as the callers pass them; they do not change how the lock is taken.
    static constexpr int ReadingWithoutChanges = 1;
    static constexpr int WritingForDeleting = 1;

    using Accessor = std::function<void(const QUrl& newURL)>;

    // A coordinator that waits at most `timeout` for a lock; by default defaultTimeout().
    FileCoordinator();
    explicit FileCoordinator(std::chrono::milliseconds timeout);

    // Shared lock. False, with `error` set, when the lock could not be had: the accessor did not run.
    bool coordinateReadingItemAtURL(const QUrl& url, int options, QString* error, const Accessor& byAccessor);
    // Exclusive lock; otherwise as above.
    bool coordinateWritingItemAtURL(const QUrl& url, int options, QString* error, const Accessor& byAccessor);

    // The sidecar that guards `url`: "<parent>/.<name>.lock".
    static QString lockPath(const QUrl& url);

    // 5 seconds, unless changed (tests shorten it so that a held lock fails quickly).
    static std::chrono::milliseconds defaultTimeout();
    static void setDefaultTimeout(std::chrono::milliseconds timeout);

private:
    bool coordinate(const QUrl& url, bool exclusive, QString* error, const Accessor& accessor);

    std::chrono::milliseconds m_timeout;
};

} // namespace corvina
