#pragma once

#include <QByteArray>

namespace corvina {

// The layout of a binary property list: the trailer at the end, the offset table it points to, and
// each object's header (a marker byte, then for texts, data and containers a length), each checked
// against the bounds of the data as it is read. Both readers of binary lists build on it, the
// pre-check that guards libplist and our own fast reader, so that the two cannot come to see a
// list's layout differently.
//
// It reads in place: the bytes given to it must outlive it. Its readers are defined here so that
// they inline: the fast reader calls them for every object, reference and UTF-16 unit, and with
// objectAt and readLength out of line it read a list some 18% slower.
class PlistBinaryLayout {
public:
    // What readTrailer found wrong with the list's trailer or offset table.
    enum class Trailer {
        Valid,
        Truncated,        // too short for a header, a trailer and one object
        Invalid,          // offset or reference size not 1 to 8, no objects or more than bytes, top past them
        TableOutsideData, // the offset table does not fit between the header and the trailer
    };

    // One object's header, as objectAt and readLength find it.
    struct Object {
        unsigned char marker = 0;
        unsigned type = 0;    // the marker's high nibble
        unsigned info = 0;    // its low nibble: a length, a size, or 0xF for "a length follows"
        quint64 position = 0; // just past the marker, and past the length once readLength read it
    };

    // What typeOf answers for an object that is not in the table or lies outside the data.
    static constexpr unsigned NoType = 0xFF;

    explicit PlistBinaryLayout(const QByteArray& bytes)
        : m_data(reinterpret_cast<const unsigned char*>(bytes.constData())),
          m_size(static_cast<quint64>(bytes.size())) {}

    // Reads the trailer and checks that the offset table lies within the data. The accessors below
    // hold only once it answered Valid.
    Trailer readTrailer();

    // Writers leave the six bytes before the trailer's sizes zero; the fast reader takes no list
    // where they are not.
    bool unusedTrailerBytesAreZero() const;

    const unsigned char* data() const { return m_data; }
    quint64 size() const { return m_size; }
    unsigned refSize() const { return m_refSize; }
    quint64 objectCount() const { return m_count; }
    quint64 topObject() const { return m_top; }
    // The objects lie between the 8-byte header and here.
    quint64 tableOffset() const { return m_tableOffset; }

    // The number of `width` bytes (1 to 8), most significant first, at `position`; the caller has
    // checked that they lie within the data.
    quint64 number(quint64 position, unsigned width) const {
        quint64 value = 0;
        for (unsigned i = 0; i < width; ++i) {
            value = (value << 8) | m_data[position + i];
        }
        return value;
    }

    // Reference `index` of the references that begin at `position`.
    quint64 reference(quint64 position, quint64 index) const {
        return number(position + index * m_refSize, m_refSize);
    }

    // Where `object` (below objectCount) begins, as its offset table says; not checked.
    quint64 offsetOf(quint64 object) const {
        return number(m_tableOffset + object * m_offsetSize, m_offsetSize);
    }

    // The header of `object` (below objectCount) into `out`; false when its offset lies outside the
    // objects. A length is not read yet: only some types have one (readLength).
    bool objectAt(quint64 object, Object& out) const {
        const quint64 offset = offsetOf(object);
        if (offset < 8 || offset >= m_tableOffset) {
            return false;
        }
        out.marker = m_data[offset];
        out.type = out.marker >> 4;
        out.info = out.marker & 0x0F;
        out.position = offset + 1;
        return true;
    }

    // The type of `object` without reading further, or NoType when it is not in the table or lies
    // outside the data: a dictionary's keys are checked for texts before they are read.
    unsigned typeOf(quint64 object) const {
        Object header;
        return object < m_count && objectAt(object, header) ? header.type : NoType;
    }

    // Whether `bytes` more bytes fit between the object's position and the end of the objects.
    bool room(const Object& object, quint64 bytes) const {
        return object.position <= m_tableOffset && bytes <= m_tableOffset - object.position;
    }

    // The bytes from the object's position to the end of the objects. objectAt and readLength never
    // move the position past that end.
    quint64 bytesLeft(const Object& object) const { return m_tableOffset - object.position; }

    // The object's length: its marker's low nibble, or, when that is 0xF, the integer object
    // (1, 2, 4 or 8 bytes) that follows the marker, the position then moving past it. False when
    // that integer is not one or does not fit.
    bool readLength(Object& object, quint64& length) const {
        if (object.info != 0x0F) {
            length = object.info;
            return true;
        }
        if (!room(object, 1)) {
            return false;
        }
        const unsigned char lengthMarker = m_data[object.position++];
        const unsigned width = 1u << (lengthMarker & 0x0F);
        if ((lengthMarker >> 4) != 0x1 || width > 8 || !room(object, width)) {
            return false;
        }
        length = number(object.position, width);
        object.position += width;
        return true;
    }

private:
    const unsigned char* m_data;
    quint64 m_size;
    unsigned m_offsetSize = 0;
    unsigned m_refSize = 0;
    quint64 m_count = 0;
    quint64 m_top = 0;
    quint64 m_tableOffset = 0;
};

} // namespace corvina
