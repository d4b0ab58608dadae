#include "PermissionChecks.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace corvina::test {

namespace {

constexpr std::uint32_t overrideBits =
    (1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH); // both below 32: in the first word

bool readCapabilities(__user_cap_data_struct (&data)[2]) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    return ::syscall(SYS_capget, &header, data) == 0;
}

bool writeCapabilities(__user_cap_data_struct (&data)[2]) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    return ::syscall(SYS_capset, &header, data) == 0;
}

} // namespace

PermissionChecks::PermissionChecks() {
    __user_cap_data_struct data[2] = {};
    if (!readCapabilities(data)) {
        return;
    }
    m_saved[0] = data[0].effective;
    m_saved[1] = data[1].effective;
    if ((data[0].effective & overrideBits) == 0) {
        m_active = true; // nothing to drop: permissions already count
        return;
    }
    data[0].effective &= ~overrideBits;
    m_dropped = writeCapabilities(data);
    m_active = m_dropped;
}

PermissionChecks::~PermissionChecks() {
    if (!m_dropped) {
        return;
    }
    __user_cap_data_struct data[2] = {};
    if (readCapabilities(data)) {
        data[0].effective = m_saved[0];
        data[1].effective = m_saved[1];
        writeCapabilities(data);
    }
}

} // namespace corvina::test
