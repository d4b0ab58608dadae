#pragma once

#include "bridge/config/ProviderTable.h"

#include <QJsonObject>
#include <QStringList>
#include <QTextStream>

namespace corvina {

// `corvina-mail-bridge account guess ADDRESS`: the server and the way of signing in that
// `account add` would use for a mail address, as JSON, for a person to see before adding the
// account and for scripts. Its status tells a known provider from a guess, as grep's does.
class GuessCommand {
public:
    enum Status : int {
        Known = 0,   // the address's domain is in the providers table
        Unknown = 1, // not in the table: the JSON holds only the defaults `account add` offers
        UsageError = 2,
    };

    GuessCommand(QTextStream& out, QTextStream& err);

    // `arguments` are the words after `account guess`; `help` is --help given.
    int exec(const QStringList& arguments, bool help);

    // The JSON answer for `address`, with `provider` when the table knows its domain.
    static QJsonObject describe(const QString& address,
                                const std::optional<ProviderTable::Provider>& provider);

private:
    QTextStream& m_out;
    QTextStream& m_err;
};

} // namespace corvina
