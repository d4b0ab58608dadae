#include "DesktopEntry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUrl>

namespace corvina {

namespace {

QString unescapeString(const QString& raw) {
    QString out;
    out.reserve(raw.size());
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const QChar c = raw.at(i);
        if (c != u'\\' || i + 1 == raw.size()) {
            out.append(c);
            continue;
        }
        const QChar n = raw.at(++i);
        switch (n.unicode()) {
        case 's':
            out.append(u' ');
            break;
        case 'n':
            out.append(u'\n');
            break;
        case 't':
            out.append(u'\t');
            break;
        case 'r':
            out.append(u'\r');
            break;
        case '\\':
            out.append(u'\\');
            break;
        default:
            out.append(c).append(n);
            break; // not a string escape: kept for the Exec quoting
        }
    }
    return out;
}

QStringList dataDirectories() {
    QStringList dirs;
    QString home = qEnvironmentVariable("XDG_DATA_HOME");
    if (home.isEmpty())
        home = QDir::homePath() + QStringLiteral("/.local/share");
    dirs << home;
    QString rest = qEnvironmentVariable("XDG_DATA_DIRS");
    if (rest.isEmpty())
        rest = QStringLiteral("/usr/local/share:/usr/share");
    for (const QString& d : rest.split(u':', Qt::SkipEmptyParts))
        dirs << d;
    return dirs;
}

// One argument of the Exec line: its text, and whether any part of it was quoted (field codes
// inside quotes are not expanded).
struct Argument {
    QString text;
    bool quoted = false;
};

std::optional<QList<Argument>> splitExec(const QString& line) {
    QList<Argument> args;
    Argument current;
    bool inArgument = false;
    bool inQuotes = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (inQuotes) {
            if (c == u'"') {
                inQuotes = false;
            } else if (c == u'\\' && i + 1 < line.size() && QStringView(u"\"`$\\").contains(line.at(i + 1))) {
                current.text.append(line.at(++i));
            } else {
                current.text.append(c);
            }
            continue;
        }
        if (c == u' ' || c == u'\t' || c == u'\n') {
            if (inArgument) {
                args << current;
                current = Argument{};
                inArgument = false;
            }
            continue;
        }
        inArgument = true;
        if (c == u'"') {
            inQuotes = true;
            current.quoted = true;
        } else {
            current.text.append(c);
        }
    }
    if (inQuotes)
        return std::nullopt;
    if (inArgument)
        args << current;
    return args;
}

// The path a %f or %F gets: that of a file URL, or an absolute path given as it is (the mail bridge
// hands a message file over by its path, as xdg-open does).
QString localPath(const QString& url) {
    if (url.startsWith(u'/'))
        return url;
    const QUrl u(url);
    return u.isLocalFile() ? u.toLocalFile() : QString();
}

// The list code of an Exec line (f, F, u or U): the first one outside quotes; null when there is
// none. Which kind of list the line takes decides how many processes are started.
QChar listCode(const QList<Argument>& exec) {
    for (const Argument& a : exec) {
        if (a.quoted)
            continue;
        for (qsizetype i = 0; i + 1 < a.text.size(); ++i) {
            if (a.text.at(i) != u'%')
                continue;
            const QChar code = a.text.at(i + 1);
            if (QStringView(u"fFuU").contains(code))
                return code;
            ++i;
        }
    }
    return {};
}

// The groups of URLs, one process each: one per URL for %u and %f (one without any when there are
// none), else one for all of them. %f and %F take the local paths only.
QList<QStringList> batches(QChar listCode, const QStringList& urls) {
    QStringList paths;
    for (const QString& url : urls) {
        const QString p = localPath(url);
        if (!p.isEmpty())
            paths << p;
    }
    QList<QStringList> out;
    if (listCode == u'u' || listCode == u'f') {
        const QStringList& items = listCode == u'u' ? urls : paths;
        for (const QString& item : items)
            out << QStringList{item};
        if (out.isEmpty())
            out << QStringList{};
    } else {
        out << (listCode == u'F' ? paths : urls);
    }
    return out;
}

// What %i, %c and %k expand to.
struct FieldValues {
    QString icon;
    QString name;
    QString path;
};

// `text` with its field codes expanded, a list's items joined by blanks; `hadCode` tells whether it
// held any but "%%". Nothing for a lone "%" at the end or a code the specification does not know.
std::optional<QString> expandCodes(const QString& text, const QStringList& batch, const FieldValues& fields,
                                   bool* hadCode) {
    QString out;
    *hadCode = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c != u'%') {
            out.append(c);
            continue;
        }
        if (i + 1 == text.size())
            return std::nullopt; // a lone "%" at the end is not a field code
        const QChar code = text.at(++i);
        switch (code.unicode()) {
        case '%':
            out.append(u'%');
            break;
        case 'f':
        case 'u':
        case 'F':
        case 'U':
            *hadCode = true;
            out.append(batch.join(u' '));
            break;
        case 'i':
            *hadCode = true;
            out.append(fields.icon);
            break;
        case 'c':
            *hadCode = true;
            out.append(fields.name);
            break;
        case 'k':
            *hadCode = true;
            out.append(fields.path);
            break;
        case 'd':
        case 'D':
        case 'n':
        case 'N':
        case 'v':
        case 'm':
            *hadCode = true; // deprecated: they vanish
            break;
        default:
            return std::nullopt;
        }
    }
    return out;
}

// The arguments one argument of the Exec line becomes for `batch`: itself when quoted, as many as
// the list has items (maybe none) for a list code standing alone, "--icon" and the icon (or none)
// for %i standing alone, else one with its codes expanded, or none when it was nothing but codes
// expanding to nothing. Nothing when a code cannot be expanded.
std::optional<QStringList> expandArgument(const Argument& argument, const QStringList& batch,
                                          const FieldValues& fields) {
    if (argument.quoted)
        return QStringList{argument.text};
    if (argument.text == QLatin1String("%U") || argument.text == QLatin1String("%F"))
        return batch;
    if (argument.text == QLatin1String("%i"))
        return fields.icon.isEmpty() ? QStringList() : QStringList{QStringLiteral("--icon"), fields.icon};
    bool hadCode = false;
    const std::optional<QString> out = expandCodes(argument.text, batch, fields, &hadCode);
    if (!out)
        return std::nullopt;
    if (hadCode && out->isEmpty())
        return QStringList();
    return QStringList{*out};
}

// The command line that opens `batch`; nothing when an argument cannot be expanded or none is left.
std::optional<QStringList> commandLine(const QList<Argument>& exec, const QStringList& batch,
                                       const FieldValues& fields) {
    QStringList line;
    for (const Argument& argument : exec) {
        const std::optional<QStringList> expanded = expandArgument(argument, batch, fields);
        if (!expanded)
            return std::nullopt;
        line << *expanded;
    }
    if (line.isEmpty())
        return std::nullopt;
    return line;
}

} // namespace

std::optional<DesktopEntry> DesktopEntry::load(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    DesktopEntry entry = parse(file.readAll(), path);
    if (entry.m_values.isEmpty())
        return std::nullopt;
    return entry;
}

DesktopEntry DesktopEntry::parse(const QByteArray& contents, const QString& path) {
    DesktopEntry entry;
    entry.m_path = path;
    bool inGroup = false;
    for (const QByteArray& rawLine : contents.split('\n')) {
        const QString line = QString::fromUtf8(rawLine).trimmed();
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        if (line.startsWith(u'[')) {
            inGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inGroup)
            continue;
        const qsizetype eq = line.indexOf(u'=');
        if (eq <= 0)
            continue;
        const QString key = line.left(eq).trimmed();
        if (!entry.m_values.contains(key)) // the first of duplicate keys counts
            entry.m_values.insert(key, line.mid(eq + 1).trimmed());
    }
    return entry;
}

QString DesktopEntry::locate(const QString& id) {
    if (id.isEmpty() || id.contains(u'/'))
        return {};
    const QString fileName = id + QStringLiteral(".desktop");
    for (const QString& dir : dataDirectories()) {
        const QString apps = dir + QStringLiteral("/applications/");
        if (QFileInfo(apps + fileName).isFile())
            return apps + fileName;
        // "a-b-c.desktop" may also stand as "a/b-c.desktop" or "a/b/c.desktop".
        const QStringList parts = id.split(u'-');
        for (qsizetype split = 1; split < parts.size(); ++split) {
            QString candidate = apps;
            for (qsizetype p = 0; p < parts.size(); ++p)
                candidate += parts.at(p) + (p + 1 == parts.size()
                                                ? QString()
                                                : (p < split ? QStringLiteral("/") : QStringLiteral("-")));
            candidate += QStringLiteral(".desktop");
            if (QFileInfo(candidate).isFile())
                return candidate;
        }
    }
    return {};
}

std::optional<DesktopEntry> DesktopEntry::application(const QString& id, QString* problem) {
    const auto refuse = [problem](const QString& reason) -> std::optional<DesktopEntry> {
        if (problem)
            *problem = reason;
        return std::nullopt;
    };
    const QString path = locate(id);
    if (path.isEmpty())
        return refuse(QStringLiteral("no %1.desktop in the applications folders").arg(id));
    std::optional<DesktopEntry> entry = load(path);
    if (!entry)
        return refuse(QStringLiteral("%1 cannot be read as a desktop file").arg(path));
    if (entry->boolValue(QStringLiteral("Hidden")))
        return refuse(QStringLiteral("%1 is hidden (Hidden=true: the entry was deleted)").arg(path));
    const QString type = entry->value(QStringLiteral("Type"));
    if (type != QLatin1String("Application"))
        return refuse(QStringLiteral("%1 is not an application (Type=%2)").arg(path, type));
    if (!entry->boolValue(QStringLiteral("DBusActivatable")) && !entry->commandLines({}))
        return refuse(QStringLiteral("%1 has no usable Exec line").arg(path));
    return entry;
}

QString DesktopEntry::value(const QString& key) const {
    const auto it = m_values.constFind(key);
    if (it == m_values.constEnd())
        return {};
    return unescapeString(*it);
}

bool DesktopEntry::boolValue(const QString& key) const {
    return value(key) == QLatin1String("true");
}

std::optional<QList<QStringList>> DesktopEntry::commandLines(const QStringList& urls) const {
    const QString exec = value(QStringLiteral("Exec"));
    if (exec.trimmed().isEmpty())
        return std::nullopt;
    const auto split = splitExec(exec);
    if (!split || split->isEmpty())
        return std::nullopt;
    const FieldValues fields{value(QStringLiteral("Icon")), value(QStringLiteral("Name")), m_path};
    QList<QStringList> lines;
    for (const QStringList& batch : batches(listCode(*split), urls)) {
        const std::optional<QStringList> line = commandLine(*split, batch, fields);
        if (!line)
            return std::nullopt;
        lines << *line;
    }
    return lines;
}

} // namespace corvina
