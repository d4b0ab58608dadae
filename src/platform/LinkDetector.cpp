#include "LinkDetector.h"

#include "requestutils/UrlCharacters.h"

#include <QFile>
#include <QSet>
#include <QUrl>
#include <vector>

namespace corvina {

namespace {

// How the scanner sees one UTF-16 code unit; both halves of a surrogate pair get the class of the
// character they make.
enum class CharClass : quint8 {
    Stop,   // ends a link
    Word,   // letters, digits and marks of any script: what host labels and local parts are made of
    Dot,    // "."
    Hyphen, // "-"
    Other,  // anything else a link may hold: "/", "?", "&", "(", "'", "@", ...
};

bool isAsciiLetter(QChar c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

bool isAsciiDigit(QChar c) {
    return c >= u'0' && c <= u'9';
}

CharClass classify(char32_t c) {
    if (c < 0x80) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
            return CharClass::Word;
        }
        switch (c) {
        case '.':
            return CharClass::Dot;
        case '-':
            return CharClass::Hyphen;
        default:
            return UrlCharacters::neverInURL(c) ? CharClass::Stop : CharClass::Other;
        }
    }
    if (c == 0x2026) {
        return CharClass::Stop; // "…": nobody means an ellipsis to belong to a link
    }
    if ((c >= 0x3000 && c <= 0x303F) || (c >= 0xFF00 && c <= 0xFFEF && !QChar::isLetterOrNumber(c))) {
        return CharClass::Stop; // CJK and full-width punctuation, the ideographic full stop among them
    }
    switch (QChar::category(c)) {
    case QChar::Letter_Uppercase:
    case QChar::Letter_Lowercase:
    case QChar::Letter_Titlecase:
    case QChar::Letter_Modifier:
    case QChar::Letter_Other:
    case QChar::Number_DecimalDigit:
    case QChar::Number_Letter:
    case QChar::Number_Other:
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
        return CharClass::Word;
    case QChar::Separator_Space:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Other_Surrogate:
    // quotation marks, brackets and dashes of other scripts, and symbols such as emoji, end a link:
    // "„https://example.com“", "example.com—or not", "https://example.com🎉"
    case QChar::Punctuation_Dash:
    case QChar::Punctuation_Open:
    case QChar::Punctuation_Close:
    case QChar::Punctuation_InitialQuote:
    case QChar::Punctuation_FinalQuote:
    case QChar::Symbol_Math:
    case QChar::Symbol_Currency:
    case QChar::Symbol_Modifier:
    case QChar::Symbol_Other:
        return CharClass::Stop;
    default:
        return CharClass::Other;
    }
}

// Characters that, right before or after a host, make it part of a longer word that is no link:
// "file_example.com", "a/example.com", "example.com+more".
bool isJoiner(QChar c) {
    switch (c.unicode()) {
    case '_':
    case '%':
    case '+':
    case '@':
    case '\\':
    case '=':
    case '&':
    case '$':
    case '~':
        return true;
    default:
        return false;
    }
}

// Sentence punctuation that may follow a link and is taken to end the sentence, not the link.
bool isTrailingPunctuation(QChar c) {
    switch (c.unicode()) {
    case '.':
    case ',':
    case ';':
    case ':':
    case '!':
    case '?':
    case '\'':
    case '*':
        return true;
    default:
        return false;
    }
}

const QSet<QString>& topLevelDomains() {
    static const QSet<QString> domains = [] {
        QSet<QString> set;
        QFile file(QStringLiteral(":/corvina/linkdetector/tlds.txt"));
        if (!file.open(QIODevice::ReadOnly)) {
            return set; // cannot happen with the resource compiled in; then only scheme links are found
        }
        const QString text = QString::fromUtf8(file.readAll());
        for (QString line : text.split(u'\n')) {
            const qsizetype hash = line.indexOf(u'#');
            if (hash >= 0) {
                line.truncate(hash);
            }
            line = line.trimmed().toLower();
            if (!line.isEmpty()) {
                set.insert(line);
            }
        }
        return set;
    }();
    return domains;
}

class Scanner {
public:
    explicit Scanner(const QString& text) : m_text(text), m_classes(static_cast<size_t>(text.size())) {
        const qsizetype n = text.size();
        for (qsizetype i = 0; i < n; ++i) {
            const QChar c = text.at(i);
            if (c.isHighSurrogate() && i + 1 < n && text.at(i + 1).isLowSurrogate()) {
                const CharClass both = classify(QChar::surrogateToUcs4(c, text.at(i + 1)));
                m_classes[static_cast<size_t>(i)] = both;
                m_classes[static_cast<size_t>(i + 1)] = both;
                ++i;
            } else {
                m_classes[static_cast<size_t>(i)] = classify(c.unicode());
            }
        }
    }

    QList<LinkDetector::Match> scan() {
        const qsizetype n = m_text.size();
        qsizetype i = 0;
        while (i < n) {
            while (i < n && cls(i) == CharClass::Stop) {
                ++i;
            }
            const qsizetype start = i;
            while (i < n && cls(i) != CharClass::Stop) {
                ++i;
            }
            if (i > start) {
                scanRun(start, i);
            }
        }
        return m_matches;
    }

private:
    CharClass cls(qsizetype i) const { return m_classes[static_cast<size_t>(i)]; }
    bool isHostChar(qsizetype i) const {
        const CharClass c = cls(i);
        return c == CharClass::Word || c == CharClass::Dot || c == CharClass::Hyphen;
    }
    bool isLocalPartChar(qsizetype i) const {
        const QChar c = m_text.at(i);
        return isHostChar(i) || c == u'_' || c == u'%' || c == u'+';
    }
    static bool isSchemeChar(QChar c) {
        return isAsciiLetter(c) || isAsciiDigit(c) || c == u'+' || c == u'-' || c == u'.';
    }

    void add(qsizetype start, qsizetype end, const QString& prefix, LinkDetector::Kind kind) {
        m_matches.append({start, end - start, prefix + m_text.mid(start, end - start), kind});
    }

    // A run is a stretch of text without stop characters. A link with a scheme takes the rest of
    // its run (a query may well hold another URL: "https://a.example/?next=https://b.example");
    // the text before it may still hold links without a scheme and addresses.
    void scanRun(qsizetype start, qsizetype end) {
        for (qsizetype colon = start; colon < end; ++colon) {
            if (m_text.at(colon) != u':') {
                continue;
            }
            qsizetype schemeStart = colon;
            while (schemeStart > start && isSchemeChar(m_text.at(schemeStart - 1))) {
                --schemeStart;
            }
            while (schemeStart < colon && !isAsciiLetter(m_text.at(schemeStart))) {
                ++schemeStart;
            }
            // at least two letters, so that a drive letter ("C://") is no scheme
            if (colon - schemeStart < 2) {
                continue;
            }
            qsizetype body = 0;
            LinkDetector::Kind kind = LinkDetector::Kind::Web;
            if (colon + 2 < end && m_text.at(colon + 1) == u'/' && m_text.at(colon + 2) == u'/') {
                body = colon + 3;
            } else if (QStringView(m_text)
                           .mid(schemeStart, colon - schemeStart)
                           .compare(QLatin1String("mailto"), Qt::CaseInsensitive) == 0) {
                body = colon + 1;
                kind = LinkDetector::Kind::Mail;
            } else {
                continue; // "Re:", "10:30", "example.com:8080"
            }
            const qsizetype linkEnd = trimEnd(schemeStart, end, body);
            if (linkEnd == body) {
                continue; // a scheme with nothing after it
            }
            scanWithoutScheme(start, schemeStart);
            add(schemeStart, linkEnd, QString(), kind);
            return;
        }
        scanWithoutScheme(start, end);
    }

    // The end of a link that may reach `end`, without trailing sentence punctuation and without
    // closing brackets that it did not open; never before `minEnd`.
    qsizetype trimEnd(qsizetype start, qsizetype end, qsizetype minEnd) const {
        qsizetype parens = 0;   // "(" minus ")"
        qsizetype brackets = 0; // "[" minus "]"
        for (qsizetype i = start; i < end; ++i) {
            switch (m_text.at(i).unicode()) {
            case '(':
                ++parens;
                break;
            case ')':
                --parens;
                break;
            case '[':
                ++brackets;
                break;
            case ']':
                --brackets;
                break;
            default:
                break;
            }
        }
        while (end > minEnd) {
            const QChar last = m_text.at(end - 1);
            if (isTrailingPunctuation(last)) {
                --end;
            } else if (last == u')' && parens < 0) {
                ++parens;
                --end;
            } else if (last == u']' && brackets < 0) {
                ++brackets;
                --end;
            } else {
                break;
            }
        }
        return end;
    }

    // E-mail addresses first, since the domain of an address would otherwise read as a web link;
    // the stretches between them are searched for hosts.
    void scanWithoutScheme(qsizetype start, qsizetype end) {
        qsizetype from = start;
        for (qsizetype at = start; at < end; ++at) {
            if (m_text.at(at) != u'@') {
                continue;
            }
            qsizetype localStart = at;
            while (localStart > from && isLocalPartChar(localStart - 1)) {
                --localStart;
            }
            while (localStart < at && m_text.at(localStart) == u'.') {
                ++localStart;
            }
            if (localStart == at || m_text.at(at - 1) == u'.') {
                continue;
            }
            qsizetype domainEnd = at + 1;
            while (domainEnd < end && isHostChar(domainEnd)) {
                ++domainEnd;
            }
            while (domainEnd > at + 1 && cls(domainEnd - 1) != CharClass::Word) {
                --domainEnd; // "me@example.com." ends a sentence
            }
            if (!isValidHost(at + 1, domainEnd, false) ||
                (domainEnd < end && isJoiner(m_text.at(domainEnd)))) {
                continue;
            }
            scanHosts(from, localStart);
            add(localStart, domainEnd, QStringLiteral("mailto:"), LinkDetector::Kind::Mail);
            from = domainEnd;
            at = domainEnd - 1;
        }
        scanHosts(from, end);
    }

    void scanHosts(qsizetype start, qsizetype end) {
        qsizetype i = start;
        while (i < end) {
            if (!isHostChar(i)) {
                ++i;
                continue;
            }
            const qsizetype runStart = i;
            while (i < end && isHostChar(i)) {
                ++i;
            }
            const qsizetype runEnd = i;
            if (runStart > 0 && (isHostChar(runStart - 1) || isJoiner(m_text.at(runStart - 1)) ||
                                 m_text.at(runStart - 1) == u'/' || m_text.at(runStart - 1) == u'#')) {
                continue; // the tail of a longer word or of a path: "a/example.com", "#example.com"
            }
            // Two dots or more never sit inside a host name: "see...example.com" is a word, an
            // ellipsis and a host, each piece tried on its own.
            qsizetype pieceStart = runStart;
            while (true) {
                const qsizetype found =
                    QStringView(m_text).mid(pieceStart, runEnd - pieceStart).indexOf(QLatin1String(".."));
                const bool last = found < 0;
                const qsizetype dots = last ? runEnd : pieceStart + found;
                const qsizetype linkEnd = tryHost(pieceStart, dots, last ? end : dots);
                i = std::max(i, linkEnd);
                if (last) {
                    break;
                }
                pieceStart = dots;
                while (pieceStart < runEnd && m_text.at(pieceStart) == u'.') {
                    ++pieceStart;
                }
            }
        }
    }

    // The host candidate [start, end), which a port and a path may follow up to `limit`. Adds the
    // link when there is one and answers where it ends (`start` when there is none).
    qsizetype tryHost(qsizetype start, qsizetype end, qsizetype limit) {
        qsizetype hostStart = start;
        while (hostStart < end && cls(hostStart) != CharClass::Word) {
            ++hostStart; // "-example.com"
        }
        qsizetype hostEnd = end;
        while (hostEnd > hostStart && cls(hostEnd - 1) != CharClass::Word) {
            --hostEnd; // "example.com."
        }
        if (!isValidHost(hostStart, hostEnd, true)) {
            return start;
        }
        qsizetype linkEnd = hostEnd;
        if (linkEnd < limit && m_text.at(linkEnd) == u':') {
            qsizetype port = linkEnd + 1;
            while (port < limit && isAsciiDigit(m_text.at(port))) {
                ++port;
            }
            if (port > linkEnd + 1 && (port == limit || cls(port) != CharClass::Word)) {
                linkEnd = port;
            }
        }
        if (linkEnd < limit) {
            const QChar next = m_text.at(linkEnd);
            if (next == u'/' || next == u'?' || next == u'#') {
                linkEnd = trimEnd(hostStart, limit, linkEnd);
            } else if (isJoiner(next)) {
                return start; // "example.com_old", "example.com+more"
            }
        }
        add(hostStart, linkEnd, QStringLiteral("http://"), LinkDetector::Kind::Web);
        return linkEnd;
    }

    // At least two labels of letters, digits and inner hyphens, the last a real top-level domain;
    // with `allowWww`, "www." and two more labels will do whatever the last one is.
    bool isValidHost(qsizetype start, qsizetype end, bool allowWww) const {
        if (end <= start) {
            return false;
        }
        const QString host = m_text.mid(start, end - start);
        const QStringList labels = host.split(u'.');
        if (labels.size() < 2) {
            return false;
        }
        for (const QString& label : labels) {
            if (label.isEmpty() || label.size() > 63 || label.startsWith(u'-') || label.endsWith(u'-')) {
                return false;
            }
        }
        bool ascii = true;
        for (QChar c : host) {
            ascii = ascii && c.unicode() < 0x80;
        }
        if (!ascii && QUrl::toAce(host).isEmpty()) {
            return false; // not a name that the domain name system could hold
        }
        const QString& last = labels.last();
        if (allowWww && labels.size() >= 3 &&
            labels.first().compare(QLatin1String("www"), Qt::CaseInsensitive) == 0) {
            for (QChar c : last) {
                if (!c.isDigit()) {
                    return true;
                }
            }
            return false; // "www.1.2" is a number, not a name
        }
        return LinkDetector::isTopLevelDomain(last);
    }

    const QString& m_text;
    std::vector<CharClass> m_classes;
    QList<LinkDetector::Match> m_matches;
};

} // namespace

QList<LinkDetector::Match> LinkDetector::matches(const QString& text) {
    return Scanner(text).scan();
}

bool LinkDetector::isTopLevelDomain(QStringView label) {
    if (label.isEmpty()) {
        return false;
    }
    bool ascii = true;
    for (QChar c : label) {
        ascii = ascii && c.unicode() < 0x80;
    }
    QString key;
    if (ascii) {
        key = label.toString().toLower();
    } else {
        const QByteArray ace = QUrl::toAce(label.toString());
        if (ace.isEmpty()) {
            return false;
        }
        key = QString::fromLatin1(ace).toLower();
    }
    return topLevelDomains().contains(key);
}

} // namespace corvina
