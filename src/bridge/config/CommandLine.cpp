#include "CommandLine.h"

#include <QProcess>

namespace corvina {

QStringList CommandLine::words(const QString& line) {
    return QProcess::splitCommand(line);
}

std::optional<QStringList> CommandLine::expand(const QStringList& words, const QHash<QChar, QString>& fields,
                                               const QHash<QChar, QStringList>& listFields, QString* error,
                                               QList<QChar>* used) {
    auto fail = [error](const QString& why) -> std::optional<QStringList> {
        if (error)
            *error = why;
        return std::nullopt;
    };
    auto note = [used](QChar key) {
        if (used && !used->contains(key))
            used->append(key);
    };
    QStringList out;
    for (const QString& word : words) {
        if (word.size() == 2 && word.at(0) == u'%' && listFields.contains(word.at(1))) {
            note(word.at(1));
            out += listFields.value(word.at(1));
            continue;
        }
        QString filled;
        for (qsizetype i = 0; i < word.size(); ++i) {
            if (word.at(i) != u'%') {
                filled += word.at(i);
                continue;
            }
            if (i + 1 >= word.size())
                return fail(QStringLiteral("a lone % at the end of \"%1\"").arg(word));
            const QChar key = word.at(++i);
            if (key == u'%') {
                filled += u'%';
            } else if (fields.contains(key)) {
                note(key);
                filled += fields.value(key);
            } else if (listFields.contains(key)) {
                return fail(QStringLiteral("%%1 must be a word of its own, not part of \"%2\"")
                                .arg(QString(key), word));
            } else {
                return fail(QStringLiteral("unknown field %%1 in \"%2\"").arg(QString(key), word));
            }
        }
        out << filled;
    }
    return out;
}

} // namespace corvina
