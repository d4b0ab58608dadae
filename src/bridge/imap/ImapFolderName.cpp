#include "ImapFolderName.h"

namespace corvina {

namespace {

bool isPrintable(char16_t c) {
    return c >= 0x20 && c <= 0x7e;
}

// The base64 alphabet of IMAP folder names: the usual one, with "," where "/" would be, because
// "/" separates folders on many servers.
bool isBase64Letter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == ',';
}

void appendRun(QByteArray& out, const QString& name, qsizetype from, qsizetype to) {
    QByteArray utf16;
    utf16.reserve((to - from) * 2);
    for (qsizetype i = from; i < to; ++i) {
        const char16_t c = name.at(i).unicode();
        utf16.append(static_cast<char>(c >> 8));
        utf16.append(static_cast<char>(c & 0xff));
    }
    QByteArray base64 = utf16.toBase64(QByteArray::OmitTrailingEquals);
    base64.replace('/', ',');
    out += '&' + base64 + '-';
}

} // namespace

QByteArray ImapFolderName::encode(const QString& name) {
    QByteArray out;
    out.reserve(name.size());
    qsizetype i = 0;
    while (i < name.size()) {
        const char16_t c = name.at(i).unicode();
        if (c == u'&') {
            out += "&-";
            ++i;
        } else if (isPrintable(c)) {
            out += static_cast<char>(c);
            ++i;
        } else {
            // One run for everything up to the next printable character.
            qsizetype end = i + 1;
            while (end < name.size() && !isPrintable(name.at(end).unicode()))
                ++end;
            appendRun(out, name, i, end);
            i = end;
        }
    }
    return out;
}

std::optional<QString> ImapFolderName::decode(const QByteArray& wire) {
    QString text;
    text.reserve(wire.size());
    qsizetype i = 0;
    while (i < wire.size()) {
        const char c = wire.at(i);
        if (!isPrintable(static_cast<unsigned char>(c)))
            return std::nullopt;
        if (c != '&') {
            text += QLatin1Char(c);
            ++i;
            continue;
        }
        qsizetype end = i + 1;
        while (end < wire.size() && isBase64Letter(wire.at(end)))
            ++end;
        if (end >= wire.size() || wire.at(end) != '-')
            return std::nullopt; // a run must end with "-"
        if (end == i + 1) {
            text += u'&';
            i = end + 1;
            continue;
        }
        QByteArray base64 = wire.mid(i + 1, end - i - 1);
        // Whole UTF-16 units only, and the bits left over after the last one all zero: anything
        // else is not a name an IMAP server writes.
        const qsizetype bits = base64.size() * 6;
        const qsizetype units = bits / 16;
        if (units == 0 || bits - units * 16 >= 6)
            return std::nullopt;
        base64.replace(',', '/');
        const QByteArray::FromBase64Result decoded =
            QByteArray::fromBase64Encoding(base64, QByteArray::AbortOnBase64DecodingErrors);
        if (!decoded || decoded.decoded.size() != units * 2 ||
            decoded.decoded.toBase64(QByteArray::OmitTrailingEquals) != base64)
            return std::nullopt;
        for (qsizetype u = 0; u < units; ++u) {
            const auto high = static_cast<unsigned char>(decoded.decoded.at(2 * u));
            const auto low = static_cast<unsigned char>(decoded.decoded.at(2 * u + 1));
            const auto unit = static_cast<char16_t>((high << 8) | low);
            // What could stand for itself must not be in a run.
            if (isPrintable(unit))
                return std::nullopt;
            text += QChar(unit);
        }
        i = end + 1;
    }
    // Half a surrogate pair is no character.
    for (qsizetype k = 0; k < text.size(); ++k) {
        const QChar c = text.at(k);
        if (c.isHighSurrogate()) {
            if (k + 1 >= text.size() || !text.at(k + 1).isLowSurrogate())
                return std::nullopt;
            ++k;
        } else if (c.isLowSurrogate()) {
            return std::nullopt;
        }
    }
    return text;
}

} // namespace corvina
