#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>
#include <optional>

namespace corvina::test {

// The environment of a desktop daemon a test starts (the keyring, the online accounts): the
// process's private session bus (PrivateSessionBus), and a home, runtime folder and XDG folders of
// its own in `folder`, made here, so that nothing it writes lands outside the test. No display:
// the tests are headless, and anything the daemon would show or ask fails instead of waiting.
// Empty, with `error` set, without a private session bus or a folder.
std::optional<QProcessEnvironment> daemonEnvironment(const QTemporaryDir& folder, QString* error);

} // namespace corvina::test
