#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <optional>

namespace corvina {

// The commands a person writes into bridge.conf (passwordCommand, openCommand, composeCommand):
// split into words and filled in, for running a program directly, never through a shell, so that
// nothing in them or in the texts put into them is expanded.
class CommandLine {
public:
    // Words split at spaces, double quotes keeping a word with spaces together ("" is an empty
    // word, """ a quote). No variables, no "~", no globs, no pipes: those need `sh -c "..."`.
    static QStringList words(const QString& line);

    // `words` with their fields filled in: "%" followed by a key of `fields` becomes that text,
    // anywhere in a word ("mid:%m"); a word that is exactly "%" and a key of `listFields` becomes
    // that list's texts, each a word of its own (none for an empty list); "%%" is "%". Every value
    // goes in as it is, as (part of) one word. Nothing, with `error` set to one line, for a "%"
    // followed by anything else, or a list field inside a longer word. `used` collects the keys
    // that occurred.
    static std::optional<QStringList> expand(const QStringList& words, const QHash<QChar, QString>& fields,
                                             const QHash<QChar, QStringList>& listFields, QString* error,
                                             QList<QChar>* used = nullptr);

    // `text` as one word for a POSIX shell: as it is when it holds nothing the shell reads, else in
    // single quotes (a quote inside written '\'').
    static QString shellWord(const QString& text);
    // The bridge's command `words` for `account` ("check", "account signin"), as printed for a person
    // to run in a shell. A config other than the one the bridge reads by default is named by its
    // absolute path, so that the command works as printed, from any folder.
    static QString bridgeCommand(const QString& configPath, const QString& words, const QString& account);
};

} // namespace corvina
