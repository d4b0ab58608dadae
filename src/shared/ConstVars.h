#pragma once

#include <QString>

namespace corvina {

// The constants that the mail application and its extensions agree on. No operations.
class ConstVars {
public:
    // The mail application's base identifier, and those of its other builds.
    static inline const QString appIdentifier = QStringLiteral("org.corvina.mail");
    static inline const QString appIdentifierBeta8 = appIdentifier + QStringLiteral(".beta8");
    static inline const QString appIdentifierBeta10 = appIdentifier + QStringLiteral(".beta10");
    static inline const QString appIdentifier2 = appIdentifier + QStringLiteral("2");
    static inline const QString appIdentifierPro = appIdentifier + QStringLiteral(".pro");

    // Commands an extension asks the mail application to carry out.
    static inline const QString commandArchive = QStringLiteral("archive");
    static inline const QString commandDelete = QStringLiteral("delete");
    static inline const QString commandReply = QStringLiteral("reply");
    static inline const QString commandMessage = QStringLiteral("message");
    static inline const QString commandCompose = QStringLiteral("compose");
    static inline const QString commandSend = QStringLiteral("send");
    static inline const QString commandOpen = QStringLiteral("open");
};

} // namespace corvina
