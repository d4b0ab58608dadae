#include "SnapshotReadAhead.h"

#include "platform/PropertyList.h"

#include <utility>

namespace corvina {

SnapshotReadAhead::SnapshotReadAhead(QStringList files, int ahead)
    : m_files(std::move(files)), m_ahead(ahead < 1 ? 1 : static_cast<size_t>(ahead)) {
    if (m_files.size() >= 2 && std::thread::hardware_concurrency() > 1) {
        m_thread = std::thread([this] { run(); });
    }
}

SnapshotReadAhead::~SnapshotReadAhead() {
    if (m_thread.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_lock);
            m_stop = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }
}

void SnapshotReadAhead::run() {
    size_t parsed = 0;
    const auto count = static_cast<size_t>(m_files.size());
    std::unique_lock<std::mutex> lock(m_lock);
    for (;;) {
        m_changed.wait(lock, [&] {
            return m_stop || !m_toFree.empty() || (parsed < count && m_ready.size() < m_ahead);
        });
        if (m_stop) {
            return;
        }
        std::vector<PlistDocument> toFree;
        toFree.swap(m_toFree);
        const bool parseOne = parsed < count && m_ready.size() < m_ahead;
        lock.unlock();
        toFree.clear(); // the trees are freed here, outside the lock
        Slot slot;
        if (parseOne) {
            try {
                slot.document = PropertyList::parseFile(m_files.at(static_cast<qsizetype>(parsed)));
            } catch (...) {
                // handed to next(), which raises it where a parse on the caller's thread would have
                slot.raised = std::current_exception();
            }
        }
        lock.lock();
        if (parseOne) {
            ++parsed;
            m_ready.push_back(std::move(slot));
            m_parsed.notify_one();
        }
    }
}

PlistDocument SnapshotReadAhead::next() {
    if (m_taken >= static_cast<size_t>(m_files.size())) {
        return PlistDocument();
    }
    if (!m_thread.joinable()) {
        return PropertyList::parseFile(m_files.at(static_cast<qsizetype>(m_taken++)));
    }
    Slot slot;
    {
        std::unique_lock<std::mutex> lock(m_lock);
        m_parsed.wait(lock, [this] { return !m_ready.empty(); });
        slot = std::move(m_ready.front());
        m_ready.pop_front();
    }
    ++m_taken;
    m_changed.notify_one(); // room for one more
    if (slot.raised) {
        std::rethrow_exception(slot.raised);
    }
    return std::move(slot.document);
}

void SnapshotReadAhead::release(PlistDocument document) {
    if (!m_thread.joinable() || !document.ok()) {
        return; // freed here, as it goes out of scope
    }
    {
        std::lock_guard<std::mutex> lock(m_lock);
        m_toFree.push_back(std::move(document));
    }
    m_changed.notify_one();
}

} // namespace corvina
