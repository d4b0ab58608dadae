#include "PlistBinaryLayout.h"

namespace corvina {

PlistBinaryLayout::Trailer PlistBinaryLayout::readTrailer() {
    // the 8-byte header, the 32-byte trailer and at least one object
    if (m_size < 8 + 32 + 1) {
        return Trailer::Truncated;
    }
    const quint64 trailer = m_size - 32;
    m_offsetSize = m_data[trailer + 6];
    m_refSize = m_data[trailer + 7];
    m_count = number(trailer + 8, 8);
    m_top = number(trailer + 16, 8);
    m_tableOffset = number(trailer + 24, 8);
    if (m_offsetSize < 1 || m_offsetSize > 8 || m_refSize < 1 || m_refSize > 8) {
        return Trailer::Invalid;
    }
    // every object takes at least one byte, so more objects than bytes is a lie
    if (m_count == 0 || m_count > m_size || m_top >= m_count) {
        return Trailer::Invalid;
    }
    // divided rather than multiplied: a hostile count times the offset size could overflow
    if (m_tableOffset < 8 || m_tableOffset > trailer || (trailer - m_tableOffset) / m_offsetSize < m_count) {
        return Trailer::TableOutsideData;
    }
    return Trailer::Valid;
}

bool PlistBinaryLayout::unusedTrailerBytesAreZero() const {
    const unsigned char* trailer = m_data + m_size - 32;
    for (int i = 0; i < 6; ++i) {
        if (trailer[i] != 0) {
            return false;
        }
    }
    return true;
}

} // namespace corvina
