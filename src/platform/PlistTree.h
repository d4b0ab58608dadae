#pragma once

#include <QByteArrayView>
#include <QVariant>
#include <string>
#include <vector>

namespace corvina {

// A parsed property list in a compact form of our own: every object is one fixed-size node in one
// array, texts and data are byte ranges in one shared buffer, and a container finds its children
// by index. A list of thousands of objects is then a handful of allocations, freed in one go.
// PlistDocument owns one and PlistNode reads it in place.
//
// Built front to back (a container's children follow it), by the fast readers (PlistXmlReader,
// PlistBinaryReader) and by the copy out of libplist's tree for the lists they decline.
class PlistTree {
public:
    enum class Type : quint8 { Dictionary, Array, String, Key, Integer, Real, Boolean, Date, Data };

    // No node: node indexes start at 0 with the top object, which is nobody's child or sibling.
    static constexpr quint32 None = 0;

    struct Children {
        quint32 first; // first child, or None when empty
        quint32 count; // children; a dictionary's keys and values alternate
    };
    struct Range {
        quint32 offset;
        quint32 length;
    };
    struct Node {
        Type type = Type::Integer;
        // the next child of the same container, or None
        quint32 next = None;
        union {
            Children children; // Dictionary, Array
            Range bytes;       // String, Key, Data
            qint64 integer;    // Integer, and the milliseconds since 1970 (UTC) of a Date
            double real;       // Real
            bool boolean;      // Boolean
        };
    };

    PlistTree() = default;

    // Room for `nodes` nodes and `bytes` bytes of text, so that a reader that knows its input
    // grows nothing.
    void reserve(qsizetype nodes, qsizetype bytes);

    bool isEmpty() const { return m_nodes.empty(); }
    const Node& node(quint32 index) const { return m_nodes[index]; }
    QByteArrayView bytesOf(const Node& node) const {
        return QByteArrayView(m_bytes.data() + node.bytes.offset, static_cast<qsizetype>(node.bytes.length));
    }
    // The value as PropertyList::read gives it (see PlistNode::toVariant).
    QVariant toVariant(quint32 index) const;

    // ---- building: in order, a container's children between its begin and its end ----

    quint32 beginContainer(Type type);
    void endContainer();
    // Open containers: the nesting depth at this point of the build.
    int openContainers() const { return static_cast<int>(m_open.size()); }
    quint32 addInteger(qint64 value);
    quint32 addReal(double value);
    quint32 addBoolean(bool value);
    quint32 addDate(qint64 msecsSinceEpoch);
    // Another node with the value of the text, number or date `index` (a text's bytes are shared).
    quint32 addCopy(quint32 index);
    // A text or data in one piece.
    quint32 addBytes(Type type, const char* data, qsizetype length);
    // Or in parts: begin, append (or grow and write), then end as a node of `type`.
    void beginBytes() { m_bytesFrom = m_bytes.size(); }
    void appendBytes(const char* data, qsizetype length) {
        m_bytes.append(data, static_cast<size_t>(length));
    }
    // `length` more bytes at the end, to be written through the pointer answered
    char* growBytes(qsizetype length);
    // Gives back the last `length` bytes (of those grown and not written).
    void dropBytes(qsizetype length) { m_bytes.resize(m_bytes.size() - static_cast<size_t>(length)); }
    quint32 endBytes(Type type);
    // Bytes of text and data so far.
    qsizetype byteCount() const { return static_cast<qsizetype>(m_bytes.size()); }
    qsizetype nodeCount() const { return static_cast<qsizetype>(m_nodes.size()); }

private:
    struct Open {
        quint32 container;
        quint32 last; // its last child so far, None for none
    };

    quint32 add(const Node& node);
    bool toVariant(quint32 index, int depth, QVariant& out) const;

    std::vector<Node> m_nodes;
    std::string m_bytes;
    std::vector<Open> m_open;
    size_t m_bytesFrom = 0;
};

} // namespace corvina
