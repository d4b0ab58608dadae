#pragma once

#include "platform/PlistDocument.h"

#include <QStringList>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace corvina {

// The snapshot files of one load, parsed in their order on a thread of its own while the loader
// makes records from the files parsed before: parsing is most of a load's time, and a machine
// has a second core for it. The loader still takes the documents one by one in the order of the
// files, so what it logs, keeps and abandons is what a read of one file after the other gives.
//
// At most `ahead` parsed documents wait to be taken; documents handed back through release() are
// freed on the same thread. With fewer than two files, or a single core, nothing is started and
// next() parses the file itself.
class SnapshotReadAhead {
public:
    static constexpr int DefaultAhead = 8;

    explicit SnapshotReadAhead(QStringList files, int ahead = DefaultAhead);
    // Stops the thread once the file it is on is parsed; what was parsed and not taken is freed.
    ~SnapshotReadAhead();
    SnapshotReadAhead(const SnapshotReadAhead&) = delete;
    SnapshotReadAhead& operator=(const SnapshotReadAhead&) = delete;

    // Whether a thread of its own parses the files (false: next() parses them).
    bool parsesAhead() const { return m_thread.joinable(); }

    // The document of the next file, in the order of the files, waiting for it. What the parse
    // raised (out of memory, say) is raised here, in its turn. An empty failed document once every
    // file was taken.
    PlistDocument next();

    // Gives back a document that is no longer needed, to be freed away from the caller's thread.
    void release(PlistDocument document);

private:
    void run();

    const QStringList m_files;
    const size_t m_ahead;
    size_t m_taken = 0; // next() only

    std::mutex m_lock;
    std::condition_variable m_parsed;  // a document is ready, or the thread ended
    std::condition_variable m_changed; // room to parse ahead, a document to free, or stop
    struct Slot {
        PlistDocument document;
        std::exception_ptr raised;
    };
    std::deque<Slot> m_ready;
    std::vector<PlistDocument> m_toFree;
    bool m_stop = false;
    std::thread m_thread;
};

} // namespace corvina
