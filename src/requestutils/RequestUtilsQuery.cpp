// Percent-encoding, query text and parameters.
#include "ParameterValues.h"
#include "RequestUtils.h"

#include <QStringDecoder>
#include <map>

namespace corvina::RequestUtils {

namespace {

using detail::isList;
using detail::listOf;

bool isUnreserved(uchar c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.' || c == '~';
}

int hexValue(QChar c) {
    const ushort u = c.unicode();
    if (u >= '0' && u <= '9') {
        return u - '0';
    }
    if (u >= 'a' && u <= 'f') {
        return u - 'a' + 10;
    }
    if (u >= 'A' && u <= 'F') {
        return u - 'A' + 10;
    }
    return -1;
}

quint32 readMode(quint32 options) {
    const quint32 mode = options & URLQueryRepeatMode;
    return mode == 0 ? URLQueryKeepLast : mode;
}

quint32 writeMode(quint32 options) {
    const quint32 mode = options & URLQueryRepeatMode;
    return mode == 0 ? URLQueryCollectRepeats : mode;
}

} // namespace

QString URLEncodedString(const QString& receiver) {
    static const char hex[] = "0123456789ABCDEF";
    const QByteArray bytes = receiver.toUtf8();
    // built as bytes and widened once: the result is pure ASCII
    QByteArray out(bytes.size() * 3, Qt::Uninitialized);
    char* p = out.data();
    for (const char byte : bytes) {
        const auto c = static_cast<uchar>(byte);
        if (isUnreserved(c)) {
            *p++ = static_cast<char>(c);
        } else {
            *p++ = '%';
            *p++ = hex[c >> 4];
            *p++ = hex[c & 0xF];
        }
    }
    out.truncate(p - out.data());
    return QString::fromLatin1(out);
}

QString URLDecodedString(const QString& receiver, bool plusAsSpace) {
    if (receiver.isNull()) {
        return QString();
    }
    QString text = plusAsSpace ? QString(receiver).replace(QLatin1Char('+'), QLatin1Char(' ')) : receiver;
    if (!text.contains(QLatin1Char('%'))) {
        return text;
    }
    QByteArray bytes;
    bytes.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c != QLatin1Char('%')) {
            bytes += QString(c).toUtf8();
            continue;
        }
        const int high = i + 2 < text.size() ? hexValue(text.at(i + 1)) : -1;
        const int low = i + 2 < text.size() ? hexValue(text.at(i + 2)) : -1;
        if (high < 0 || low < 0) {
            return QString(); // a "%" that escapes nothing
        }
        bytes += static_cast<char>(high * 16 + low);
        i += 2;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString decoded = decoder.decode(bytes);
    if (decoder.hasError()) {
        return QString();
    }
    return decoded.isNull() ? QString(QLatin1String("")) : decoded;
}

QString URLQueryWithParameters(const Parameters& parameters, quint32 options) {
    const quint32 mode = writeMode(options);
    const bool brackets = (options & URLQueryBracketArrays) != 0;
    QString out = QLatin1String("");
    auto pair = [&out](const QString& key, const QString& value, bool withBrackets) {
        if (!out.isEmpty()) {
            out += QLatin1Char('&');
        }
        out += key + (withBrackets ? QLatin1String("[]=") : QLatin1String("=")) + URLEncodedString(value);
    };
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it) {
        const QString key = URLEncodedString(it.key());
        if (isList(it.value())) {
            const QStringList values = listOf(it.value());
            if (mode == URLQueryKeepFirst && !values.isEmpty()) {
                pair(key, values.first(), false);
            } else if (mode == URLQueryKeepLast && !values.isEmpty()) {
                pair(key, values.last(), false);
            } else {
                for (const QString& value : values) {
                    pair(key, value, brackets);
                }
            }
        } else {
            pair(key, it.value().toString(), brackets && mode == URLQueryCollectAll);
        }
    }
    return out;
}

Range rangeOfURLQuery(const QString& receiver) {
    qint64 length = receiver.size();
    const qsizetype hash = receiver.indexOf(QLatin1Char('#'));
    if (hash >= 0) {
        length = hash;
    }
    const qsizetype question = receiver.indexOf(QLatin1Char('?'));
    if (question >= 0) {
        if (question > length) {
            // the "?" belongs to the fragment: the text has no query
            return {};
        }
        return {question, length - question};
    }
    if (receiver.left(length).contains(QLatin1Char('='))) {
        return {0, length}; // a bare query
    }
    return {};
}

QString URLQuery(const QString& receiver) {
    const Range range = rangeOfURLQuery(receiver);
    if (range.location == Range::NotFound) {
        return QString();
    }
    QString query = receiver.mid(range.location, range.length);
    if (query.startsWith(QLatin1Char('?'))) {
        query.remove(0, 1);
    }
    return query.isNull() ? QString(QLatin1String("")) : query;
}

Parameters URLQueryParameters(const QString& receiver) {
    return URLQueryParametersWithOptions(receiver, 0);
}

Parameters URLQueryParametersWithOptions(const QString& receiver, quint32 options) {
    const quint32 mode = readMode(options);
    const QString query = URLQuery(receiver);
    if (query.isNull()) {
        return Parameters();
    }
    // Repeats are collected in place, and the Parameters made once at the end: appending to the
    // list inside a QVariant would copy the whole list at each repeat.
    struct Collected {
        QString text;
        QStringList values;
        bool isList = false;
    };
    std::map<QString, Collected> collected;
    for (const QStringView piece : QStringView(query).split(QLatin1Char('&'))) {
        const qsizetype equals = piece.indexOf(QLatin1Char('='));
        if (equals < 0) {
            continue; // a piece without "=" is no pair
        }
        // the value ends at a second "=", if any
        const qsizetype valueEnd = piece.indexOf(QLatin1Char('='), equals + 1);
        QString key = URLDecodedString(piece.left(equals).toString(), true);
        const QString decoded = URLDecodedString(
            piece.mid(equals + 1, valueEnd < 0 ? -1 : valueEnd - equals - 1).toString(), true);
        if (key.isNull() || decoded.isNull()) {
            continue; // escapes that make no UTF-8: the piece is skipped
        }
        const bool bracketed = key.endsWith(QLatin1String("[]"));
        if (bracketed) {
            key.chop(2);
        }
        const auto [it, inserted] = collected.try_emplace(key);
        Collected& entry = it->second;
        if (inserted) {
            if ((bracketed && mode == URLQueryCollectRepeats) || mode == URLQueryCollectAll) {
                entry.values << decoded;
                entry.isList = true;
            } else {
                entry.text = decoded;
            }
        } else if (entry.isList) {
            entry.values << decoded;
        } else if (mode == URLQueryKeepLast) {
            entry.text = decoded;
        } else if (mode != URLQueryKeepFirst) {
            entry.values = QStringList{entry.text, decoded};
            entry.text.clear();
            entry.isList = true;
        }
    }
    Parameters result;
    for (auto& [key, entry] : collected) {
        // in key order, as the map keeps them: each goes in at the end
        result.insert(result.cend(), key, entry.isList ? QVariant(entry.values) : QVariant(entry.text));
    }
    return result;
}

} // namespace corvina::RequestUtils
