#pragma once

#include <QDBusConnection>

namespace corvina {

// Tells a running bridge that an account was just changed (saved, signed in again, a new password,
// turned off or on, removed), so that it reads bridge.conf at once and the accounts waiting to try
// again try now rather than at the end of their back-off.
//
// The bridge's own application action on the session bus (ActivateAction "retry" on
// org.corvina.mail), rather than a signal through systemd: it reaches a bridge however it was
// started (the unit, a terminal, the desktop's autostart), and the bus says who owns the name.
// Sent without asking the bus to start a bridge (the name is activatable, and a nudge must never
// start one) and without waiting for an answer: with no bridge running the bus drops it, and a
// window is never held up by it.
class BridgeNudge {
public:
    // False only when the message could not be handed to the bus (no session bus); whether a
    // bridge heard it is not known, by design.
    static bool send(const QDBusConnection& bus = QDBusConnection::sessionBus());
    // send() from a command that ends right after it (`account password`, `account signin`): the
    // message is only queued on the connection, and a process that exits at once may take it along
    // unsent. So a round trip to the bus itself follows (never to the bridge, which may be absent),
    // bounded by `timeoutMs`: the bus answers messages in the order it gets them, so its answer
    // means the nudge went out first. False as for send(), or when the bus did not answer in time.
    static bool sendBeforeExit(const QDBusConnection& bus = QDBusConnection::sessionBus(),
                               int timeoutMs = DefaultBusTimeoutMs);

    static constexpr int DefaultBusTimeoutMs = 2000;
};

} // namespace corvina
