#pragma once

#include "ListCommand.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

namespace corvina {

// `corvina-today --list --format NAME`: what `--list` shows, as one line for a status bar. Every
// format describes the same rows, the ones `--list` prints (the chosen list's ten, or with --all
// every message), so that a bar and the widget agree.
class StatusLine {
public:
    enum class Format {
        Json,   // the `--json` array on one line, without white space
        Waybar, // {"text","tooltip","class","alt"}: a Waybar custom module's "return-type": "json"
        Text,   // plain text: the count, then the newest sender and subject (Polybar, i3blocks)
    };

    // The names `--format` takes, in the order of Format (and of `--help`). Declared here, whole, for
    // the whole-program tests that check the program's messages against them.
    static inline const QStringList formatNames{QStringLiteral("json"), QStringLiteral("waybar"),
                                                QStringLiteral("text")};
    static std::optional<Format> formatNamed(const QString& name);

    // The values of the Waybar object's "class" and "alt" (the same word: "class" for a style sheet,
    // "alt" for the module's format-icons).
    struct State {
        static inline const QString noFolder = QStringLiteral("no-folder"); // the shared folder is missing
        static inline const QString none = QStringLiteral("none");          // nothing to show
        static inline const QString mail = QStringLiteral("mail");          // at least one row
    };
    // How many of the newest rows the Waybar tooltip names.
    static constexpr int tooltipRows = 5;

    // The line for `reading`, ending with a line feed.
    static QByteArray line(Format format, const ListCommand::Reading& reading);
};

} // namespace corvina
