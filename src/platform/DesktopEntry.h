#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <optional>

namespace corvina {

// The "[Desktop Entry]" group of a desktop file, and what is needed to start the application it
// describes: the Exec line split into arguments and its field codes expanded, as the Desktop Entry
// specification (version 1.5) lays them down.
class DesktopEntry {
public:
    // Reads `path`; nothing when it cannot be read or has no "[Desktop Entry]" group.
    static std::optional<DesktopEntry> load(const QString& path);
    static DesktopEntry parse(const QByteArray& contents, const QString& path);

    // The desktop file "<id>.desktop" in the applications folders of $XDG_DATA_HOME (default
    // ~/.local/share), then of $XDG_DATA_DIRS (default /usr/local/share:/usr/share), first found
    // wins. An id with dashes is also looked for in subfolders ("a-b" as "a/b.desktop"), as the
    // specification's desktop file ids allow.
    static QString locate(const QString& id);

    // The installed application `id`: the desktop file locate() finds, when it is one that can be
    // started. Only the file found first counts, as for any desktop file id: a hidden one
    // (Hidden=true, which means the user deleted the entry) hides the copies further down the
    // search path too. Nothing, with the reason in `problem` when given, when there is no such
    // file, it cannot be read, it is hidden, it is no Type=Application (a Link or a Directory
    // starts nothing), or it gives no way to start it (no usable Exec line and no
    // DBusActivatable=true). What the launcher and the share command both ask, so that they never
    // disagree about whether the mail application is installed.
    static std::optional<DesktopEntry> application(const QString& id, QString* problem = nullptr);

    const QString& path() const { return m_path; }
    // The value of `key` with the string escapes (\s \n \t \r \\) resolved; null when absent.
    QString value(const QString& key) const;
    bool boolValue(const QString& key) const;

    // The command lines to run to open `urls`, in order: one for all of them when the Exec line
    // takes a list (%U, %F) or no files at all, one per URL when it takes a single one (%u, %f).
    // %f and %F receive the local paths of file URLs, and absolute paths as they are, and skip
    // other URLs; %i, %c and %k expand to the icon, the name and the desktop file's path; the
    // deprecated codes vanish; %% is "%".
    // Nothing when the Exec line is unusable or holds a field code the specification does not know.
    std::optional<QList<QStringList>> commandLines(const QStringList& urls) const;

private:
    QString m_path;
    QHash<QString, QString> m_values; // raw values, escapes not yet resolved
};

} // namespace corvina
