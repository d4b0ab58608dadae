#pragma once

#include <atomic>
#include <memory>

namespace corvina {

// A part of an object that most objects never need, made by the first caller that does and kept
// until the object goes: the object holds one pointer instead of the whole part. Safe when two
// threads make it at once (one part wins, the other is dropped before it held anything). `T` may
// be incomplete where this is declared; it must be complete where the holder is destroyed.
template <typename T> class LazyPart {
public:
    LazyPart() = default;
    LazyPart(const LazyPart&) = delete;
    LazyPart& operator=(const LazyPart&) = delete;
    ~LazyPart() { delete m_part.load(std::memory_order_acquire); }

    // The part, or null while nobody has made it.
    T* ifMade() const { return m_part.load(std::memory_order_acquire); }

    // The part, made now if it was not.
    T& made() {
        T* part = m_part.load(std::memory_order_acquire);
        if (part == nullptr) {
            auto fresh = std::make_unique<T>();
            if (m_part.compare_exchange_strong(part, fresh.get(), std::memory_order_acq_rel,
                                               std::memory_order_acquire)) {
                part = fresh.release();
            }
        }
        return *part;
    }

private:
    std::atomic<T*> m_part{nullptr};
};

} // namespace corvina
