#pragma once

#include <QString>

namespace corvina {

// Where a text shown on screen may be broken into lines, for the widget's views and the Accounts
// window alike (both show lines that name commands).
class LineBreaks {
public:
    // The text as drawn: a hyphen between two letters or digits is held to what follows it (an
    // invisible word joiner, U+2060, after it), so that a command the bridge names ("run
    // corvina-mail-bridge account signin work") is never broken as "corvina-mail-" and "bridge",
    // two words a person would type apart. Lines still break at spaces; a hyphen at a word's edge
    // ("-x", "x -") is left alone. Only for drawing: screen readers and copies get the text as it is.
    static QString unbrokenAtHyphens(const QString& text);
};

} // namespace corvina
