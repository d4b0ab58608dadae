#pragma once

#include "model/CommandKind.h"

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

    // Commands an extension asks the mail application to carry out, by the names their command URLs
    // give them (spelled once, in model/CommandKind.h).
    static inline const QString commandArchive = commandName(CommandKind::Archive);
    static inline const QString commandDelete = commandName(CommandKind::Delete);
    static inline const QString commandReply = commandName(CommandKind::Reply);
    static inline const QString commandMessage = commandName(CommandKind::Message);
    static inline const QString commandCompose = commandName(CommandKind::Compose);
    static inline const QString commandSend = commandName(CommandKind::Send);
    static inline const QString commandOpen = commandName(CommandKind::Open);

    // The shared data folder's layout: the mail application's snapshot folder (one folder per
    // account, named by its address, holding the snapshot files), its account list, and its
    // contacts. Writers and readers, the window's watch list and the staging checks all use these.
    static inline const QString todayFolder = QStringLiteral("Today");
    static inline const QString accountsFile = QStringLiteral("Accounts.plist");
    static inline const QString contactsFolder = QStringLiteral("Contacts");

    // The setting that holds the list chosen in the header: the segment index plus one.
    static inline const QString segmentedKey = QStringLiteral("segmented");
};

} // namespace corvina
