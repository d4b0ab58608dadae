#pragma once

#include <cstdint>

namespace corvina::test {

// Makes file permissions count for the calling thread for a block of a test, also when the tests
// run as root (as they do in CI): root's power to read and list anything is taken out of this
// thread's effective capabilities and given back afterwards. Capabilities are per thread, so only
// work done synchronously on this thread is affected. Without root it changes nothing.
class PermissionChecks {
public:
    PermissionChecks();
    ~PermissionChecks();
    PermissionChecks(const PermissionChecks&) = delete;
    PermissionChecks& operator=(const PermissionChecks&) = delete;

    // False when the capabilities could not be dropped (the test should then fail, not skip).
    bool active() const { return m_active; }

private:
    bool m_active = false;
    bool m_dropped = false;
    std::uint32_t m_saved[2] = {0, 0};
};

} // namespace corvina::test
