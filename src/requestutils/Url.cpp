#include "Url.h"

#include "UrlCharacters.h"

#include <QDir>

namespace corvina {

namespace {

bool isHex(QChar c) {
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

bool mayHold(const QString& text) {
    if (text.isEmpty()) {
        return false;
    }
    int hashes = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        // Nothing above "~" either: a URL string is printable ASCII.
        if (c.unicode() >= 0x7F || UrlCharacters::neverInURL(c.unicode())) {
            return false;
        }
        switch (c.unicode()) {
        case '#':
            if (++hashes > 1) {
                return false;
            }
            break;
        case '%':
            if (i + 2 >= text.size() || !isHex(text.at(i + 1)) || !isHex(text.at(i + 2))) {
                return false;
            }
            break;
        default:
            break;
        }
    }
    return true;
}

// The length of a scheme at the start of `text` ("http" of "http:..."), or 0 when there is none.
qsizetype schemeLength(const QString& text) {
    if (text.isEmpty() || !text.at(0).isLetter()) {
        return 0;
    }
    for (qsizetype i = 1; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == u':') {
            return i;
        }
        if (!(c.isLetterOrNumber() || c == u'+' || c == u'-' || c == u'.')) {
            return 0;
        }
    }
    return 0;
}

} // namespace

std::optional<Url> Url::URLWithString(const QString& text) {
    if (!mayHold(text)) {
        return std::nullopt;
    }
    Url url;
    url.m_text = text;
    QString rest = text;
    const qsizetype hash = rest.indexOf(u'#');
    if (hash >= 0) {
        url.m_fragment = rest.mid(hash + 1);
        rest.truncate(hash);
    }
    const qsizetype question = rest.indexOf(u'?');
    if (question >= 0) {
        url.m_query = rest.mid(question + 1);
        rest.truncate(question);
    }
    const qsizetype scheme = schemeLength(rest);
    if (scheme > 0) {
        url.m_scheme = rest.left(scheme);
        rest.remove(0, scheme + 1);
    }
    if (rest.startsWith(QLatin1String("//"))) {
        qsizetype end = rest.indexOf(u'/', 2);
        if (end < 0) {
            end = rest.size();
        }
        QString authority = rest.mid(2, end - 2);
        rest.remove(0, end);
        const qsizetype at = authority.lastIndexOf(u'@');
        if (at >= 0) {
            const QString userInfo = authority.left(at);
            authority.remove(0, at + 1);
            const qsizetype colon = userInfo.indexOf(u':');
            url.m_user = colon >= 0 ? userInfo.left(colon) : userInfo;
            if (colon >= 0) {
                url.m_password = userInfo.mid(colon + 1);
            }
        }
        // the port follows the last ":" that is not inside an IPv6 literal's brackets
        const qsizetype bracket = authority.lastIndexOf(u']');
        const qsizetype colon = authority.lastIndexOf(u':');
        if (colon >= 0 && colon > bracket) {
            const QString port = authority.mid(colon + 1);
            for (QChar c : port) {
                if (!c.isDigit() || c.unicode() > '9') {
                    return std::nullopt;
                }
            }
            if (!port.isEmpty()) {
                url.m_port = port;
            }
            authority.truncate(colon);
        }
        url.m_host = authority;
        url.m_path = QLatin1String(""); // "http://h" has a path, and it is empty
    }
    // the parameters belong to the last segment of the path
    const qsizetype lastSlash = rest.lastIndexOf(u'/');
    const qsizetype semicolon = rest.indexOf(u';', lastSlash + 1);
    if (semicolon >= 0) {
        url.m_parameterString = rest.mid(semicolon + 1);
        rest.truncate(semicolon);
    }
    if (!rest.isEmpty() || url.m_path.isNull()) {
        url.m_path = rest.isNull() ? QString(QLatin1String("")) : rest;
    }
    return url;
}

std::optional<Url> Url::URLWithString(const QString& text, const Url& base) {
    if (!mayHold(text)) {
        return std::nullopt;
    }
    const QUrl resolved = base.toQUrl().resolved(QUrl(text, QUrl::StrictMode));
    return URLWithString(resolved.toString(QUrl::FullyEncoded));
}

Url Url::fileURLWithPath(const QString& path) {
    return *URLWithString(QUrl::fromLocalFile(QDir::cleanPath(path)).toString(QUrl::FullyEncoded));
}

QString Url::filePath() const {
    return QUrl::fromPercentEncoding(m_path.toUtf8());
}

} // namespace corvina
