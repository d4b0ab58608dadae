#include "PlistNode.h"

#include "PlistTree.h"

#include <cstring>

namespace corvina {

bool PlistNode::isDictionary() const {
    return m_tree && m_tree->node(m_index).type == PlistTree::Type::Dictionary;
}

bool PlistNode::isArray() const {
    return m_tree && m_tree->node(m_index).type == PlistTree::Type::Array;
}

QVariant PlistNode::toVariant() const {
    return m_tree ? m_tree->toVariant(m_index) : QVariant();
}

QByteArrayView PlistNode::textBytes() const {
    if (!m_tree) {
        return {};
    }
    const PlistTree::Node& node = m_tree->node(m_index);
    return node.type == PlistTree::Type::String ? m_tree->bytesOf(node) : QByteArrayView();
}

void PlistNode::valuesForKeys(const char* const* keys, int count, PlistNode* values) const {
    for (int i = 0; i < count; ++i) {
        values[i] = PlistNode();
    }
    if (!isDictionary()) {
        return;
    }
    // the lengths once, not once per item (a record's dictionary has a dozen keys)
    constexpr int Measured = 64;
    size_t lengths[Measured];
    for (int i = 0; i < count && i < Measured; ++i) {
        lengths[i] = std::strlen(keys[i]);
    }
    auto matches = [&](const QByteArrayView key, int i) {
        const size_t length = i < Measured ? lengths[i] : std::strlen(keys[i]);
        return static_cast<size_t>(key.size()) == length && std::memcmp(key.data(), keys[i], length) == 0;
    };
    const PlistTree::Node& dictionary = m_tree->node(m_index);
    int next = 0;
    quint32 child = dictionary.children.first;
    for (quint32 item = 0; item + 1 < dictionary.children.count; item += 2) {
        const PlistTree::Node& keyNode = m_tree->node(child);
        const quint32 value = keyNode.next;
        const QByteArrayView key = m_tree->bytesOf(keyNode);
        // Dictionaries mostly hold their keys in the order of `keys`, so the one after the last
        // found is tried first. A key that occurs again overwrites what was found for it before.
        for (int tried = 0; tried < count; ++tried) {
            const int i = (next + tried) % count;
            if (matches(key, i)) {
                values[i] = PlistNode(m_tree, value);
                next = i + 1;
                break;
            }
        }
        child = m_tree->node(value).next;
    }
}

qsizetype PlistNode::arraySize() const {
    return isArray() ? static_cast<qsizetype>(m_tree->node(m_index).children.count) : 0;
}

// The cursor points at the element answered last; at the array itself once past the last one.
PlistNode PlistNode::nextElement(void*& cursor) const {
    if (!isArray()) {
        return PlistNode();
    }
    const PlistTree::Node& array = m_tree->node(m_index);
    quint32 at = PlistTree::None;
    if (!cursor) {
        at = array.children.first;
    } else if (cursor != &array) {
        at = static_cast<const PlistTree::Node*>(cursor)->next;
    }
    if (at == PlistTree::None) {
        cursor = const_cast<PlistTree::Node*>(&array);
        return PlistNode();
    }
    cursor = const_cast<PlistTree::Node*>(&m_tree->node(at));
    return PlistNode(m_tree, at);
}

void PlistNode::endElements(void*& cursor) {
    cursor = nullptr;
}

} // namespace corvina
