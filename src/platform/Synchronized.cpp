#include "Synchronized.h"

#include <array>
#include <cstdint>
#include <functional>
#include <mutex>

namespace corvina {

namespace {

std::recursive_mutex& lockFor(const void* object) {
    static std::array<std::recursive_mutex, 64> locks;
    // the low bits of an address are alignment; mix before picking a slot
    const std::size_t slot = std::hash<std::uintptr_t>{}(reinterpret_cast<std::uintptr_t>(object) >> 4);
    return locks[(slot ^ (slot >> 7)) % locks.size()];
}

} // namespace

Synchronized::Synchronized(const void* object) : m_lock(&lockFor(object)) {
    static_cast<std::recursive_mutex*>(m_lock)->lock();
}

Synchronized::~Synchronized() {
    static_cast<std::recursive_mutex*>(m_lock)->unlock();
}

} // namespace corvina
