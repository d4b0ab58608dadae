#include "CommandLine.h"

#include "BridgeConfig.h"

#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>

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

QString CommandLine::shellWord(const QString& text) {
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_@%+=:,./-]+$"));
    if (plain.match(text).hasMatch())
        return text;
    QString quoted = text;
    quoted.replace(u'\'', QLatin1String("'\\''"));
    return u'\'' + quoted + u'\'';
}

QString CommandLine::bridgeCommand(const QString& configPath, const QString& words, const QString& account) {
    QString command = QStringLiteral("corvina-mail-bridge");
    const QString path = QFileInfo(configPath).absoluteFilePath();
    if (path != QFileInfo(BridgeConfig::defaultPath()).absoluteFilePath())
        command += QStringLiteral(" --config ") + shellWord(path);
    return command + u' ' + words + u' ' + shellWord(account);
}

} // namespace corvina
