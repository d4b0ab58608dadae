#include "SystemBus.h"

namespace corvina {

namespace {

const QString OtherBusName = QStringLiteral("corvina-system-bus");

} // namespace

QDBusConnection SystemBus::connection() {
    const QString address = qEnvironmentVariable(AddressVariable);
    if (address.isEmpty())
        return QDBusConnection::systemBus();
    // Connecting again under the same name answers the connection made first.
    return QDBusConnection::connectToBus(address, OtherBusName);
}

void SystemBus::release() {
    if (!qEnvironmentVariableIsEmpty(AddressVariable))
        QDBusConnection::disconnectFromBus(OtherBusName);
}

} // namespace corvina
