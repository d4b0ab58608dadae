#include "PlistTree.h"

#include "PropertyList.h"

#include <QDateTime>
#include <QTimeZone>
#include <QVariantList>
#include <QVariantMap>

namespace corvina {

void PlistTree::reserve(qsizetype nodes, qsizetype bytes) {
    m_nodes.reserve(static_cast<size_t>(nodes));
    m_bytes.reserve(static_cast<size_t>(bytes));
}

quint32 PlistTree::add(const Node& node) {
    const auto index = static_cast<quint32>(m_nodes.size());
    m_nodes.push_back(node);
    if (!m_open.empty()) {
        Open& open = m_open.back();
        Node& parent = m_nodes[open.container];
        if (open.last == None) {
            parent.children.first = index;
        } else {
            m_nodes[open.last].next = index;
        }
        ++parent.children.count;
        open.last = index;
    }
    return index;
}

quint32 PlistTree::beginContainer(Type type) {
    Node node;
    node.type = type;
    node.children.first = None;
    node.children.count = 0;
    const quint32 index = add(node);
    m_open.push_back({index, None});
    return index;
}

void PlistTree::endContainer() {
    m_open.pop_back();
}

quint32 PlistTree::addInteger(qint64 value) {
    Node node;
    node.type = Type::Integer;
    node.integer = value;
    return add(node);
}

quint32 PlistTree::addReal(double value) {
    Node node;
    node.type = Type::Real;
    node.real = value;
    return add(node);
}

quint32 PlistTree::addBoolean(bool value) {
    Node node;
    node.type = Type::Boolean;
    node.integer = 0;
    node.boolean = value;
    return add(node);
}

quint32 PlistTree::addDate(qint64 msecsSinceEpoch) {
    Node node;
    node.type = Type::Date;
    node.integer = msecsSinceEpoch;
    return add(node);
}

quint32 PlistTree::addCopy(quint32 index) {
    Node node = m_nodes[index];
    node.next = None;
    return add(node);
}

quint32 PlistTree::addBytes(Type type, const char* data, qsizetype length) {
    beginBytes();
    appendBytes(data, length);
    return endBytes(type);
}

char* PlistTree::growBytes(qsizetype length) {
    const size_t at = m_bytes.size();
    m_bytes.resize(at + static_cast<size_t>(length));
    return m_bytes.data() + at;
}

quint32 PlistTree::endBytes(Type type) {
    Node node;
    node.type = type;
    // every reader keeps within PropertyList::MaximumSize, far below 4 GiB
    node.bytes.offset = static_cast<quint32>(m_bytesFrom);
    node.bytes.length = static_cast<quint32>(m_bytes.size() - m_bytesFrom);
    return add(node);
}

QVariant PlistTree::toVariant(quint32 index) const {
    QVariant out;
    if (index >= m_nodes.size() || !toVariant(index, 0, out)) {
        return QVariant();
    }
    return out;
}

bool PlistTree::toVariant(quint32 index, int depth, QVariant& out) const {
    // the readers keep within the bound; this keeps a mistake from recursing on
    if (depth > PropertyList::MaximumDepth) {
        return false;
    }
    const Node& node = m_nodes[index];
    switch (node.type) {
    case Type::Dictionary: {
        QVariantMap map;
        quint32 child = node.children.first;
        for (quint32 i = 0; i + 1 < node.children.count; i += 2) {
            const Node& key = m_nodes[child];
            QVariant element;
            if (!toVariant(key.next, depth + 1, element)) {
                return false;
            }
            // a key that occurs twice keeps its last value
            map.insert(QString::fromUtf8(bytesOf(key)), element);
            child = m_nodes[key.next].next;
        }
        out = map;
        return true;
    }
    case Type::Array: {
        QVariantList list;
        list.reserve(static_cast<qsizetype>(node.children.count));
        for (quint32 child = node.children.first, i = 0; i < node.children.count; ++i) {
            QVariant element;
            if (!toVariant(child, depth + 1, element)) {
                return false;
            }
            list.append(element);
            child = m_nodes[child].next;
        }
        out = list;
        return true;
    }
    case Type::String:
    case Type::Key: {
        const QByteArrayView bytes = bytesOf(node);
        out = QString::fromUtf8(bytes.data(), bytes.size());
        return true;
    }
    case Type::Integer:
        out = QVariant::fromValue(node.integer);
        return true;
    case Type::Real:
        out = node.real;
        return true;
    case Type::Boolean:
        out = node.boolean;
        return true;
    case Type::Date:
        out = QDateTime::fromMSecsSinceEpoch(node.integer, QTimeZone::utc());
        return true;
    case Type::Data: {
        const QByteArrayView bytes = bytesOf(node);
        out = QByteArray(bytes.data(), bytes.size());
        return true;
    }
    }
    return false;
}

} // namespace corvina
