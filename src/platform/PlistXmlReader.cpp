#include "PlistXmlReader.h"

#include "PlistNode.h"
#include "PlistTree.h"
#include "PropertyList.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace corvina {

namespace {

class XmlReader {
public:
    XmlReader(const QByteArray& bytes, PlistTree& tree)
        : m_p(bytes.constData()), m_end(bytes.constData() + bytes.size()), m_tree(tree) {}

    bool read() {
        skipSpace();
        // the declaration as writers put it, and nothing else: libplist reads what it says
        if (take("<?xml version=\"1.0\" encoding=\"UTF-8\"?>") || take("<?xml version=\"1.0\"?>")) {
            skipSpace();
        }
        // the document type as writers put it: a public and a system name, in plain ASCII; no
        // internal subset (it could declare entities)
        if (take("<!DOCTYPE plist PUBLIC ")) {
            if (!quoted() || !take(" ") || !quoted() || !take(">")) {
                return false;
            }
            skipSpace();
        }
        if (!take("<plist version=\"1.0\">") && !take("<plist>")) {
            return false;
        }
        skipSpace();
        if (!value(false)) {
            return false;
        }
        skipSpace();
        if (!take("</plist>")) {
            return false;
        }
        skipSpace();
        return m_p == m_end;
    }

private:
    static bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n'; }

    void skipSpace() {
        while (m_p < m_end && isSpace(*m_p)) {
            ++m_p;
        }
    }

    bool startsWith(const char* text) const {
        const size_t n = std::strlen(text);
        return static_cast<size_t>(m_end - m_p) >= n && std::memcmp(m_p, text, n) == 0;
    }

    bool take(const char* text) {
        if (!startsWith(text)) {
            return false;
        }
        m_p += std::strlen(text);
        return true;
    }

    // A name in double quotes: printable ASCII but quotes and markup.
    bool quoted() {
        if (!take("\"")) {
            return false;
        }
        for (; m_p < m_end && *m_p != '"'; ++m_p) {
            const char c = *m_p;
            if (c < 0x20 || c > 0x7E || c == '<' || c == '>' || c == '[' || c == '&' || c == '\'') {
                return false;
            }
        }
        return take("\"");
    }

    // One object; a key only where `key` (then nothing else).
    bool value(bool key) {
        if (++m_objects > PropertyList::MaximumNodes) {
            return false;
        }
        if (key) {
            return take("<key>") && text(PlistTree::Type::Key, "</key>");
        }
        if (take("<string>")) {
            return text(PlistTree::Type::String, "</string>");
        }
        if (take("<integer>")) {
            return integer();
        }
        if (take("<dict>")) {
            return container(PlistTree::Type::Dictionary, "</dict>");
        }
        if (take("<array>")) {
            return container(PlistTree::Type::Array, "</array>");
        }
        if (take("<true/>")) {
            m_tree.addBoolean(true);
            return true;
        }
        if (take("<false/>")) {
            m_tree.addBoolean(false);
            return true;
        }
        if (take("<real>")) {
            return real();
        }
        if (take("<date>")) {
            return date();
        }
        if (take("<data>")) {
            return data();
        }
        if (take("<string/>")) {
            m_tree.addBytes(PlistTree::Type::String, "", 0);
            return true;
        }
        if (take("<dict/>")) {
            return emptyContainer(PlistTree::Type::Dictionary);
        }
        if (take("<array/>")) {
            return emptyContainer(PlistTree::Type::Array);
        }
        return false;
    }

    bool emptyContainer(PlistTree::Type type) {
        // an empty container is a level too
        if (m_tree.openContainers() + 1 > PropertyList::MaximumDepth) {
            return false;
        }
        m_tree.beginContainer(type);
        m_tree.endContainer();
        return true;
    }

    bool container(PlistTree::Type type, const char* endTag) {
        if (m_tree.openContainers() + 1 > PropertyList::MaximumDepth) {
            return false;
        }
        m_tree.beginContainer(type);
        for (;;) {
            skipSpace();
            if (take(endTag)) {
                break;
            }
            if (type == PlistTree::Type::Dictionary) {
                if (!value(true)) {
                    return false;
                }
                skipSpace();
            }
            if (!value(false)) {
                return false;
            }
        }
        m_tree.endContainer();
        return true;
    }

    // The raw characters up to the next '<', counted against the bound on text and data, which
    // must be `endTag`. Null when declined.
    const char* rawText(const char* endTag) {
        const char* open = static_cast<const char*>(std::memchr(m_p, '<', static_cast<size_t>(m_end - m_p)));
        if (!open) {
            return nullptr;
        }
        m_textBytes += open - m_p;
        if (m_textBytes > PropertyList::MaximumBytes) {
            return nullptr;
        }
        const char* from = m_p;
        m_p = open;
        if (!take(endTag)) {
            return nullptr;
        }
        return from;
    }

    // The length of the valid UTF-8 sequence at `p` (before `end`), 0 when there is none: no
    // overlong forms, no surrogates, nothing past U+10FFFF.
    static int utf8Length(const unsigned char* p, const unsigned char* end) {
        const unsigned char c = p[0];
        int length = 0;
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        if (c >= 0xC2 && c <= 0xDF) {
            length = 2;
        } else if (c >= 0xE0 && c <= 0xEF) {
            length = 3;
            low = c == 0xE0 ? 0xA0 : 0x80;
            high = c == 0xED ? 0x9F : 0xBF;
        } else if (c >= 0xF0 && c <= 0xF4) {
            length = 4;
            low = c == 0xF0 ? 0x90 : 0x80;
            high = c == 0xF4 ? 0x8F : 0xBF;
        } else {
            return 0;
        }
        if (end - p < length || p[1] < low || p[1] > high) {
            return 0;
        }
        for (int i = 2; i < length; ++i) {
            if (p[i] < 0x80 || p[i] > 0xBF) {
                return 0;
            }
        }
        return length;
    }

    bool text(PlistTree::Type type, const char* endTag) {
        const char* from = rawText(endTag);
        if (!from) {
            return false;
        }
        const char* to = m_p - std::strlen(endTag);
        m_tree.beginBytes();
        const char* run = from; // copied in runs between entities
        for (const char* q = from; q < to;) {
            const auto c = static_cast<unsigned char>(*q);
            if (c >= 0x80) {
                const int length = utf8Length(reinterpret_cast<const unsigned char*>(q),
                                              reinterpret_cast<const unsigned char*>(to));
                if (length == 0) {
                    return false;
                }
                q += length;
                continue;
            }
            if (c < 0x20 && c != '\t' && c != '\n') {
                return false;
            }
            if (c != '&') {
                ++q;
                continue;
            }
            m_tree.appendBytes(run, q - run);
            static constexpr struct {
                const char* name;
                char character;
            } entities[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};
            bool known = false;
            for (const auto& entity : entities) {
                const size_t n = std::strlen(entity.name);
                if (static_cast<size_t>(to - q) >= n && std::memcmp(q, entity.name, n) == 0) {
                    m_tree.appendBytes(&entity.character, 1);
                    q += n;
                    known = true;
                    break;
                }
            }
            if (!known) {
                return false;
            }
            run = q;
        }
        m_tree.appendBytes(run, to - run);
        m_tree.endBytes(type);
        return true;
    }

    bool integer() {
        const char* from = rawText("</integer>");
        if (!from) {
            return false;
        }
        const char* to = m_p - std::strlen("</integer>");
        // plain decimal: no sign but a minus, no leading zero, no space
        const char* digits = from < to && *from == '-' ? from + 1 : from;
        if (digits == to || (*digits == '0' && (to - digits > 1 || digits != from))) {
            return false;
        }
        for (const char* q = digits; q < to; ++q) {
            if (*q < '0' || *q > '9') {
                return false;
            }
        }
        qint64 value = 0;
        const auto [end, error] = std::from_chars(from, to, value);
        if (error != std::errc() || end != to) {
            return false;
        }
        m_tree.addInteger(value);
        return true;
    }

    bool real() {
        const char* from = rawText("</real>");
        if (!from) {
            return false;
        }
        const char* to = m_p - std::strlen("</real>");
        // -?digits(.digits)?([eE][+-]?digits)?, nothing else, and not too long to read alike
        const char* q = from;
        auto digits = [&]() {
            const char* start = q;
            while (q < to && *q >= '0' && *q <= '9') {
                ++q;
            }
            return q > start;
        };
        if (to - from > 40) {
            return false;
        }
        if (q < to && *q == '-') {
            ++q;
        }
        if (!digits()) {
            return false;
        }
        if (q < to && *q == '.') {
            ++q;
            if (!digits()) {
                return false;
            }
        }
        if (q < to && (*q == 'e' || *q == 'E')) {
            ++q;
            if (q < to && (*q == '-' || *q == '+')) {
                ++q;
            }
            if (!digits()) {
                return false;
            }
        }
        if (q != to) {
            return false;
        }
        double value = 0;
        const auto [end, error] = std::from_chars(from, to, value);
        if (error != std::errc() || end != to) {
            return false;
        }
        m_tree.addReal(value);
        return true;
    }

    bool date() {
        const char* from = rawText("</date>");
        if (!from) {
            return false;
        }
        const char* to = m_p - std::strlen("</date>");
        // exactly YYYY-MM-DDTHH:MM:SSZ
        static constexpr char Pattern[] = "dddd-dd-ddTdd:dd:ddZ";
        if (to - from != static_cast<qsizetype>(sizeof(Pattern) - 1)) {
            return false;
        }
        for (size_t i = 0; i < sizeof(Pattern) - 1; ++i) {
            const bool digit = from[i] >= '0' && from[i] <= '9';
            if (Pattern[i] == 'd' ? !digit : from[i] != Pattern[i]) {
                return false;
            }
        }
        auto number = [&](int at, int width) {
            int value = 0;
            for (int i = 0; i < width; ++i) {
                value = value * 10 + (from[at + i] - '0');
            }
            return value;
        };
        const int year = number(0, 4);
        const int month = number(5, 2);
        const int day = number(8, 2);
        const int hour = number(11, 2);
        const int minute = number(14, 2);
        const int second = number(17, 2);
        static constexpr int DaysIn[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
        const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
        if (year < 2001 || year > 2037 || month < 1 || month > 12 || day < 1 ||
            day > DaysIn[month - 1] + (month == 2 && leap ? 1 : 0) || hour > 23 || minute > 59 ||
            second > 59) {
            return false;
        }
        // days since 1970-01-01 of a date in the proleptic Gregorian calendar
        const int y = month <= 2 ? year - 1 : year;
        const int era = y / 400;
        const int yearOfEra = y - era * 400;
        const int dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
        const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
        const qint64 days = static_cast<qint64>(era) * 146097 + dayOfEra - 719468;
        const qint64 seconds = days * 86400 + hour * 3600 + minute * 60 + second;
        m_tree.addDate(seconds * 1000);
        return true;
    }

    static int base64Value(char c) {
        if (c >= 'A' && c <= 'Z') {
            return c - 'A';
        }
        if (c >= 'a' && c <= 'z') {
            return c - 'a' + 26;
        }
        if (c >= '0' && c <= '9') {
            return c - '0' + 52;
        }
        if (c == '+') {
            return 62;
        }
        if (c == '/') {
            return 63;
        }
        return -1;
    }

    // Strict Base64: groups of four, padding only at the very end, unused bits zero; white space
    // (space, tab, line feed) anywhere between the characters. Empty data is declined.
    bool data() {
        const char* from = rawText("</data>");
        if (!from) {
            return false;
        }
        const char* to = m_p - std::strlen("</data>");
        m_tree.beginBytes();
        // at most three bytes for every four characters
        const qsizetype estimate = ((to - from) / 4 + 1) * 3;
        char* out = m_tree.growBytes(estimate);
        char* const start = out;
        int group[4];
        int filled = 0;
        int padding = 0;
        for (const char* q = from; q < to; ++q) {
            if (isSpace(*q)) {
                continue;
            }
            if (padding > 0 && *q != '=') {
                return false;
            }
            if (*q == '=') {
                // "xx==" or "xxx=" only
                if (filled < 2) {
                    return false;
                }
                ++padding;
                group[filled++] = 0;
            } else {
                const int v = base64Value(*q);
                if (v < 0) {
                    return false;
                }
                group[filled++] = v;
            }
            if (filled == 4) {
                if (padding == 1 && (group[2] & 0x3) != 0) {
                    return false;
                }
                if (padding == 2 && (group[1] & 0xF) != 0) {
                    return false;
                }
                if (padding > 2) {
                    return false;
                }
                const unsigned bits = (unsigned(group[0]) << 18) | (unsigned(group[1]) << 12) |
                                      (unsigned(group[2]) << 6) | unsigned(group[3]);
                *out++ = static_cast<char>(bits >> 16);
                if (padding < 2) {
                    *out++ = static_cast<char>((bits >> 8) & 0xFF);
                }
                if (padding < 1) {
                    *out++ = static_cast<char>(bits & 0xFF);
                }
                filled = 0;
                if (padding > 0) {
                    // nothing but white space after the padding
                    padding = 3;
                }
            }
        }
        if (filled != 0 || out == start) {
            return false;
        }
        // give back what the estimate took beyond the data
        m_tree.dropBytes(estimate - static_cast<qsizetype>(out - start));
        m_tree.endBytes(PlistTree::Type::Data);
        return true;
    }

    const char* m_p;
    const char* const m_end;
    PlistTree& m_tree;
    qint64 m_objects = 0;
    qint64 m_textBytes = 0;
};

} // namespace

bool PlistXmlReader::read(const QByteArray& bytes, PlistTree& tree) {
    // a node for every 24 bytes and the bytes themselves fit any usual list without growing; no
    // more than the bounds let a taken list hold
    tree.reserve(std::min<qsizetype>(bytes.size() / 24 + 4, PropertyList::MaximumNodes + 1),
                 std::min<qsizetype>(bytes.size(), PropertyList::MaximumBytes));
    return XmlReader(bytes, tree).read();
}

} // namespace corvina
