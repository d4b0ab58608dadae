#pragma once

#include <QByteArray>

namespace corvina {

class PlistTree;

// A fast reader of XML property lists as writers make them, into a PlistTree: a few allocations
// per list instead of several per object. It takes a strict subset of the format and declines
// everything outside it (answers false), never refuses: a declined list goes to libplist, which
// takes or refuses it as it always has. The subset is chosen so that whatever is taken here,
// libplist takes too and reads to the same values (fuzz/PlistReadersFuzzer.cpp checks that).
//
// Taken: an optional <?xml version="1.0"?> declaration (or with encoding="UTF-8") and
// <!DOCTYPE plist PUBLIC "..." "..."> (names in plain ASCII, no internal subset), then <plist> or <plist
// version="1.0"> holding one value, white space between tags; dict (a key before each value), array, key,
// string, integer, real, true, false, date, data, and <dict/>, <array/>, <string/>. Texts in UTF-8 with the
// five named entities. Integers in plain decimal within 64 bits; reals in plain decimal or exponent form that
// read to a finite number; dates as YYYY-MM-DDTHH:MM:SSZ from 2001 to 2037; data in strict Base64. Declined
// besides: comments, CDATA, processing instructions and numeric character references inside the list,
// carriage returns, NUL and other control characters in a text, invalid UTF-8, anything unknown, and a list
// that reaches one of PropertyList's bounds.
class PlistXmlReader {
public:
    // True when `bytes` was taken and `tree` (empty before) now holds it; false when declined,
    // `tree` then holding anything.
    static bool read(const QByteArray& bytes, PlistTree& tree);
};

} // namespace corvina
