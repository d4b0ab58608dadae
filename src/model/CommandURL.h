#pragma once

#include <QString>

namespace corvina {

// The mail application's own URL scheme: every command an extension sends it, and every compose
// URL, is "corvina://<command>?<query>", the command standing where a host name would.
struct CommandURL {
    static inline const QString scheme = QStringLiteral("corvina");
    static inline const QString prefix = scheme + QStringLiteral("://");
};

} // namespace corvina
