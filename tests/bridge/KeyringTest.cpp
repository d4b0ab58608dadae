#include "KeyringTest.h"

#include "bridge/config/SecretStore.h"
#include "support/PrivateSessionBus.h"

namespace corvina::test {

void startKeyring(KeyringDaemon& keyring) {
    ASSERT_NE(PrivateSessionBus::instance(), nullptr);
    QString error;
    ASSERT_TRUE(keyring.start(&error)) << error.toStdString();
}

void stopKeyring(KeyringDaemon& keyring) {
    keyring.stop();
    SecretStore::forgetService();
}

} // namespace corvina::test
