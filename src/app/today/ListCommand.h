#pragma once

#include "model/ExtensionMessage.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTextStream>

namespace corvina {

// `corvina-today --list`: the newest mail, loaded exactly as the widget loads it, for a status bar
// or a script. By default the rows the widget would show (the stored list choice and the ten-row
// cut); with `all` every message read, newest first.
class ListCommand {
public:
    struct Options {
        bool json = false;
        bool all = false;
    };

    // What `--list` shows now: the rows, and why there are none when the shared folder is missing.
    struct Reading {
        ExtensionMessageList rows;
        // Empty when the shared folder exists, else a line saying it does not ("no shared container
        // at DIR"), without the program's name.
        QString missingFolder;
        // Empty unless the account list was there and refused: then a line saying so, with the
        // reader's reason ("refused the account list FILE (...): no account is read"), without the
        // program's name. The rows are empty then.
        QString refusedAccounts;
    };
    // Loads the shared folder as the widget does: the stored list choice and the ten-row cut, or
    // with `all` every message read, newest first.
    static Reading read(bool all);

    // Loads, prints to `out`, explains a missing shared folder or a refused account list on `err`.
    // Always 0: an empty or missing mailbox is an empty list, not a failure.
    static int run(const Options& options, QTextStream& out, QTextStream& err);
    // Writes to `err` why `reading` may be empty (a missing shared folder, a refused account
    // list), one line each with the program's name; nothing when there is nothing to explain.
    static void explain(const Reading& reading, QTextStream& err);

    // One line per message: date text, sender and subject, separated by tabs; line breaks and tabs
    // inside the texts become spaces so that each message stays on one line.
    static QString plainText(const ExtensionMessageList& messages);
    // `text` with line breaks, tabs and other control characters turned into spaces.
    static QString oneLine(const QString& text);
    // The keys of each object of the JSON listing, a script's interface: date is in seconds since
    // 1970, as stored. jsonKeys lists them in this order.
    struct JsonKey {
        static inline const QString subject = QStringLiteral("subject");
        static inline const QString from = QStringLiteral("from");
        static inline const QString account = QStringLiteral("account");
        static inline const QString messageId = QStringLiteral("messageId");
        static inline const QString folderPath = QStringLiteral("folderPath");
        static inline const QString folderStandardId = QStringLiteral("folderStandardId");
        static inline const QString unread = QStringLiteral("unread");
        static inline const QString date = QStringLiteral("date");
        static inline const QString dateString = QStringLiteral("dateString");
        static inline const QString hasAvatar = QStringLiteral("hasAvatar");
    };
    static inline const QStringList jsonKeys{JsonKey::subject,    JsonKey::from,
                                             JsonKey::account,    JsonKey::messageId,
                                             JsonKey::folderPath, JsonKey::folderStandardId,
                                             JsonKey::unread,     JsonKey::date,
                                             JsonKey::dateString, JsonKey::hasAvatar};

    // A JSON array of objects, one per message, each with every key of jsonKeys: indented, as
    // `--json` prints it, or `compact`, on one line without white space (`--list --watch`).
    static QByteArray json(const ExtensionMessageList& messages, bool compact = false);
};

} // namespace corvina
