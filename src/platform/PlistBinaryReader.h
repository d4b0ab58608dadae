#pragma once

#include <QByteArray>

namespace corvina {

class PlistTree;

// A fast reader of binary property lists as writers make them, into a PlistTree (see
// PlistXmlReader for the idea): it takes a strict subset of the format and declines everything
// else (answers false), which then goes to libplist and is taken or refused as it always was.
//
// Taken: "bplist00" with a trailer and offset table as PropertyList checks them; booleans,
// integers of 1, 2, 4 or 8 bytes, reals of 4 or 8 bytes, dates of whole seconds from 2001 to
// 2069, data, ASCII texts (no NUL, nothing past 0x7F), UTF-16 texts (not empty, no NUL, no lone
// surrogate),
// arrays, and dictionaries whose keys are texts. A text, number or date may be referenced from
// several places (writers share repeated keys and values); a container only from one.
// Declined: null, fill, UIDs, sets, 16-byte integers, anything unknown, a container referenced
// twice (and so every cycle), and a list that reaches one of PropertyList's bounds.
class PlistBinaryReader {
public:
    // True when `bytes` was taken and `tree` (empty before) now holds it; false when declined,
    // `tree` then holding anything.
    static bool read(const QByteArray& bytes, PlistTree& tree);
};

} // namespace corvina
