#pragma once

#include <QDBusConnection>

namespace corvina {

// The system bus, where logind says the machine woke up and NetworkManager that the network
// changed.
//
// CORVINA_BRIDGE_SYSTEM_BUS, when set, names the address of another bus to use instead: for tests,
// which cannot make the real services send their signals. Every watcher of the bridge takes its
// bus from here, so that one variable moves them all.
class SystemBus {
public:
    static constexpr const char* AddressVariable = "CORVINA_BRIDGE_SYSTEM_BUS";

    // The connection; check isConnected(). The same one for every caller.
    static QDBusConnection connection();
    // Lets go of another bus named by the variable; a watcher's connection stays usable until the
    // watcher goes. Nothing for the real system bus, which Qt keeps.
    static void release();
};

} // namespace corvina
