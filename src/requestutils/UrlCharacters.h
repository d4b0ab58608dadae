#pragma once

namespace corvina {

// The characters no URL holds, wherever they stand: spaces and controls (up to 0x20, and 0x7F) and
// " < > \ ^ ` { | }. A URL string with one makes no URL (Url); the link detector ends a link at one.
struct UrlCharacters {
    static constexpr bool neverInURL(char32_t c) {
        if (c <= 0x20 || c == 0x7F)
            return true;
        switch (c) {
        case '"':
        case '<':
        case '>':
        case '\\':
        case '^':
        case '`':
        case '{':
        case '|':
        case '}':
            return true;
        default:
            return false;
        }
    }
};

} // namespace corvina
