#pragma once

#include <QString>

namespace corvina {

// The mail application's own URL scheme: every command an extension sends it, and every compose
// URL, is "corvina://<command>?<query>", the command standing where a host would (its names:
// CommandKind.h).
struct CommandURL {
    static inline const QString scheme = QStringLiteral("corvina");
    static inline const QString prefix = scheme + QStringLiteral("://");

    // The query keys of a command about one message, lower case and always in this order.
    static inline const QString mailKey = QStringLiteral("mail");
    static inline const QString messageIdKey = QStringLiteral("messageid");
    static inline const QString folderStandardIdKey = QStringLiteral("folderstandardid");
    // What a field the snapshot left out is sent as; the bridge reads it so.
    static inline const QString nullField = QStringLiteral("(null)");

    // "corvina://<command>?mail=<mail>&messageid=<messageId>&folderstandardid=<folderStandardId>",
    // each text put in as it is given: the caller encodes what needs encoding.
    static QString messageCommand(const QString& command, const QString& mail, const QString& messageId,
                                  const QString& folderStandardId) {
        return prefix + command + u'?' + mailKey + u'=' + mail + u'&' + messageIdKey + u'=' + messageId +
               u'&' + folderStandardIdKey + u'=' + folderStandardId;
    }
};

} // namespace corvina
