#include "LineBreaks.h"

namespace corvina {

QString LineBreaks::unbrokenAtHyphens(const QString& text) {
    constexpr char16_t WordJoiner = 0x2060;
    QString shown;
    shown.reserve(text.size() + 8);
    for (qsizetype i = 0; i < text.size(); ++i) {
        shown += text.at(i);
        if (text.at(i) == u'-' && i > 0 && text.at(i - 1).isLetterOrNumber() && i + 1 < text.size() &&
            text.at(i + 1).isLetterOrNumber())
            shown += QChar(WordJoiner);
    }
    return shown;
}

} // namespace corvina
