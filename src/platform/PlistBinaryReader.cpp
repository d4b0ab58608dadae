#include "PlistBinaryReader.h"

#include "PlistBinaryLayout.h"
#include "PlistNode.h"
#include "PlistTree.h"
#include "PropertyList.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace corvina {

namespace {

class BinaryReader {
public:
    BinaryReader(const QByteArray& bytes, PlistTree& tree)
        : m_layout(bytes), m_data(m_layout.data()), m_tree(tree) {}

    bool read() {
        if (m_layout.readTrailer() != PlistBinaryLayout::Trailer::Valid ||
            std::memcmp(m_data, "bplist00", 8) != 0 || !m_layout.unusedTrailerBytesAreZero()) {
            return false;
        }
        m_count = m_layout.objectCount();
        if (m_count > static_cast<quint64>(PropertyList::MaximumNodes)) {
            return false;
        }
        m_seen.assign(static_cast<size_t>(m_count), Unseen);
        m_tree.reserve(
            static_cast<qsizetype>(m_count) + 1,
            std::min<qsizetype>(static_cast<qsizetype>(m_layout.size()), PropertyList::MaximumBytes));
        return object(m_layout.topObject(), 0);
    }

private:
    // Not seen yet; otherwise the node that a text, number or date became the first time, so that
    // a later reference copies it (a text's bytes are then kept once).
    static constexpr quint32 Unseen = 0xFFFFFFFF;
    // A container seen: a second reference to it is declined.
    static constexpr quint32 Container = 0xFFFFFFFE;

    bool counted(quint64 bytes) {
        m_objects += 1;
        m_bytes += bytes;
        return m_objects <= static_cast<quint64>(PropertyList::MaximumNodes) &&
               m_bytes <= static_cast<quint64>(PropertyList::MaximumBytes);
    }

    bool object(quint64 ref, int depth) {
        if (ref >= m_count) {
            return false;
        }
        quint32& seen = m_seen[static_cast<size_t>(ref)];
        if (seen == Container) {
            return false;
        }
        if (seen != Unseen) {
            const PlistTree::Node& first = m_tree.node(seen);
            if (!counted(first.type == PlistTree::Type::String || first.type == PlistTree::Type::Key ||
                                 first.type == PlistTree::Type::Data
                             ? m_weight[static_cast<size_t>(ref)]
                             : 0)) {
                return false;
            }
            m_tree.addCopy(seen);
            return true;
        }
        PlistBinaryLayout::Object header;
        if (!m_layout.objectAt(ref, header)) {
            return false;
        }
        const unsigned char marker = header.marker;
        const unsigned type = header.type;
        const unsigned info = header.info;
        quint64 count = 0;
        const auto index = static_cast<quint32>(m_tree.nodeCount());
        switch (type) {
        case 0x0:
            if (marker != 0x08 && marker != 0x09) {
                return false; // null and fill
            }
            if (!counted(0)) {
                return false;
            }
            m_tree.addBoolean(marker == 0x09);
            break;
        case 0x1: {
            // 1, 2, 4 or 8 bytes; 16 declined
            if (info > 3 || !m_layout.room(header, quint64(1) << info) || !counted(0)) {
                return false;
            }
            // 8 bytes are a 64-bit pattern read signed; fewer are unsigned
            m_tree.addInteger(static_cast<qint64>(m_layout.number(header.position, 1u << info)));
            break;
        }
        case 0x2: {
            if ((info != 2 && info != 3) || !m_layout.room(header, quint64(1) << info) || !counted(0)) {
                return false;
            }
            const quint64 bits = m_layout.number(header.position, 1u << info);
            if (info == 2) {
                float value = 0;
                const auto narrow = static_cast<quint32>(bits);
                std::memcpy(&value, &narrow, sizeof value);
                m_tree.addReal(static_cast<double>(value));
            } else {
                double value = 0;
                std::memcpy(&value, &bits, sizeof value);
                m_tree.addReal(value);
            }
            break;
        }
        case 0x3: {
            // whole seconds from 2001 to 2069 only: those read back the same however they are
            // split into seconds and a fraction
            if (marker != 0x33 || !m_layout.room(header, 8) || !counted(0)) {
                return false;
            }
            const quint64 bits = m_layout.number(header.position, 8);
            double seconds = 0;
            std::memcpy(&seconds, &bits, sizeof seconds);
            if (!(seconds >= 0 && seconds <= 2147483647.0) ||
                seconds != static_cast<double>(static_cast<qint64>(seconds))) {
                return false;
            }
            m_tree.addDate((static_cast<qint64>(seconds) + PlistNode::ReferenceDateOffset) * 1000);
            break;
        }
        case 0x4:
            if (!m_layout.readLength(header, count) || !m_layout.room(header, count) || !counted(count)) {
                return false;
            }
            m_tree.addBytes(PlistTree::Type::Data, reinterpret_cast<const char*>(m_data + header.position),
                            static_cast<qsizetype>(count));
            break;
        case 0x5:
            if (!m_layout.readLength(header, count) || !m_layout.room(header, count) || !counted(count)) {
                return false;
            }
            for (quint64 i = 0; i < count; ++i) {
                const unsigned char c = m_data[header.position + i];
                if (c == 0 || c >= 0x80) {
                    return false;
                }
            }
            m_tree.addBytes(PlistTree::Type::String, reinterpret_cast<const char*>(m_data + header.position),
                            static_cast<qsizetype>(count));
            break;
        case 0x6:
            // libplist makes no text of an empty UTF-16 one
            if (!m_layout.readLength(header, count) || count == 0 || count > m_layout.bytesLeft(header) / 2 ||
                !counted(count * 2) || !utf16(header.position, count)) {
                return false;
            }
            break;
        case 0xA:
        case 0xD: {
            if (depth + 1 > PropertyList::MaximumDepth || !m_layout.readLength(header, count) ||
                !counted(0)) {
                return false;
            }
            const quint64 refs = type == 0xD ? count * 2 : count;
            if ((type == 0xD && count > (quint64(1) << 62)) ||
                refs > m_layout.bytesLeft(header) / m_layout.refSize()) {
                return false;
            }
            seen = Container;
            m_tree.beginContainer(type == 0xD ? PlistTree::Type::Dictionary : PlistTree::Type::Array);
            for (quint64 i = 0; i < count; ++i) {
                if (type == 0xD) {
                    const quint64 key = m_layout.reference(header.position, i);
                    const unsigned keyType = m_layout.typeOf(key);
                    if ((keyType != 0x5 && keyType != 0x6) || !object(key, depth + 1)) {
                        return false;
                    }
                    const quint64 value = m_layout.reference(header.position, count + i);
                    if (!object(value, depth + 1)) {
                        return false;
                    }
                } else if (!object(m_layout.reference(header.position, i), depth + 1)) {
                    return false;
                }
            }
            m_tree.endContainer();
            return true;
        }
        default:
            return false;
        }
        // a text, number or date: remembered for the references to it that follow
        seen = index;
        if (m_weight.empty()) {
            m_weight.assign(static_cast<size_t>(m_count), 0);
        }
        m_weight[static_cast<size_t>(ref)] =
            type == 0x6 ? count * 2 : (type == 0x4 || type == 0x5 ? count : 0);
        return true;
    }

    // A UTF-16 text of `count` units at `position` into UTF-8; declined with a NUL or a lone
    // surrogate in it.
    bool utf16(quint64 position, quint64 count) {
        m_tree.beginBytes();
        char* out = m_tree.growBytes(static_cast<qsizetype>(count * 3));
        char* const start = out;
        for (quint64 i = 0; i < count; ++i) {
            quint32 unit = static_cast<quint32>(m_layout.number(position + 2 * i, 2));
            if (unit == 0 || (unit >= 0xDC00 && unit <= 0xDFFF)) {
                return false;
            }
            if (unit >= 0xD800 && unit <= 0xDBFF) {
                if (i + 1 >= count) {
                    return false;
                }
                const auto low = static_cast<quint32>(m_layout.number(position + 2 * (i + 1), 2));
                if (low < 0xDC00 || low > 0xDFFF) {
                    return false;
                }
                unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
            if (unit < 0x80) {
                *out++ = static_cast<char>(unit);
            } else if (unit < 0x800) {
                *out++ = static_cast<char>(0xC0 | (unit >> 6));
                *out++ = static_cast<char>(0x80 | (unit & 0x3F));
            } else if (unit < 0x10000) {
                *out++ = static_cast<char>(0xE0 | (unit >> 12));
                *out++ = static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
                *out++ = static_cast<char>(0x80 | (unit & 0x3F));
            } else {
                *out++ = static_cast<char>(0xF0 | (unit >> 18));
                *out++ = static_cast<char>(0x80 | ((unit >> 12) & 0x3F));
                *out++ = static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
                *out++ = static_cast<char>(0x80 | (unit & 0x3F));
            }
        }
        m_tree.dropBytes(static_cast<qsizetype>(count * 3) - static_cast<qsizetype>(out - start));
        m_tree.endBytes(PlistTree::Type::String);
        return true;
    }

    PlistBinaryLayout m_layout;
    const unsigned char* m_data;
    PlistTree& m_tree;
    quint64 m_count = 0;
    std::vector<quint32> m_seen;
    // bytes of text or data of each object remembered in m_seen (made on the first one)
    std::vector<quint64> m_weight;
    quint64 m_objects = 0;
    quint64 m_bytes = 0;
};

} // namespace

bool PlistBinaryReader::read(const QByteArray& bytes, PlistTree& tree) {
    return BinaryReader(bytes, tree).read();
}

} // namespace corvina
