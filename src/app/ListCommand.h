#pragma once

#include "model/ExtensionMessage.h"

#include <QByteArray>
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

    // Loads, prints to `out`, explains a missing shared folder on `err`. Always 0: an empty or
    // missing mailbox is an empty list, not a failure.
    static int run(const Options& options, QTextStream& out, QTextStream& err);

    // One line per message: date text, sender and subject, separated by tabs; line breaks and tabs
    // inside the texts become spaces so that each message stays on one line.
    static QString plainText(const ExtensionMessageList& messages);
    // A JSON array of objects with the keys subject, from, account, messageId, folderPath,
    // folderStandardId, unread, date (seconds since 1970, as stored), dateString and hasAvatar.
    static QByteArray json(const ExtensionMessageList& messages);
};

} // namespace corvina
