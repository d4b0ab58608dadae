#include "PlistNode.h"

#include "PlistDictionary.h"

#include <QDateTime>
#include <QTimeZone>
#include <QVariantList>
#include <QVariantMap>
#include <cstdlib>
#include <plist/plist.h>

namespace corvina {

namespace {

// Containers nested deeper than this are not converted (PropertyList refuses them before).
constexpr int DeepestConversion = 128;

// False where libplist handed over something it should not have (a node it failed to make, a
// dictionary key that is no key). PlistDocument checks the whole list for these before anyone
// reads it, so inside a document this always succeeds.
bool toVariant(plist_t node, int depth, QVariant& out) {
    if (!node || depth > DeepestConversion) {
        return false;
    }
    switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
        QVariantMap map;
        const bool ok = PlistDictionary::forEachItem(node, [&](plist_t keyNode, plist_t value) {
            QVariant element;
            if (!keyNode || !toVariant(value, depth + 1, element))
                return false;
            char* key = nullptr;
            plist_get_key_val(keyNode, &key);
            map.insert(QString::fromUtf8(key ? key : ""), element);
            std::free(key);
            return true;
        });
        out = map;
        return ok;
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t size = plist_array_get_size(node);
        list.reserve(static_cast<qsizetype>(size));
        // through the iterator: fetching element i by index walks the i elements before it
        plist_array_iter iter = nullptr;
        plist_array_new_iter(node, &iter);
        bool ok = true;
        for (uint32_t i = 0; i < size; ++i) {
            plist_t item = nullptr;
            plist_array_next_item(node, iter, &item);
            QVariant element;
            if (!toVariant(item, depth + 1, element)) {
                ok = false;
                break;
            }
            list.append(element);
        }
        std::free(iter);
        out = list;
        return ok;
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        out = text ? QString::fromUtf8(text, static_cast<qsizetype>(length)) : QString(QLatin1String(""));
        return true;
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        // libplist keeps integers as 64-bit patterns: read them signed, as the lists are written
        out = QVariant::fromValue(static_cast<qint64>(value));
        return true;
    }
    case PLIST_UID: {
        uint64_t value = 0;
        plist_get_uid_val(node, &value);
        out = QVariant::fromValue(static_cast<qint64>(value));
        return true;
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        out = value;
        return true;
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        out = value != 0;
        return true;
    }
    case PLIST_DATE: {
        int32_t seconds = 0;
        int32_t micros = 0;
        plist_get_date_val(node, &seconds, &micros);
        // libplist splits a date before 2001 into whole seconds rounded toward zero and a positive
        // fraction: -1.25 s comes as -1 and 250000
        const qint64 fraction = seconds < 0 ? -std::abs(micros / 1000) : micros / 1000;
        const qint64 ms = (static_cast<qint64>(seconds) + PlistNode::ReferenceDateOffset) * 1000 + fraction;
        out = QDateTime::fromMSecsSinceEpoch(ms, QTimeZone::utc());
        return true;
    }
    case PLIST_DATA: {
        uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        out = QByteArray(bytes ? bytes : "", bytes ? static_cast<qsizetype>(length) : 0);
        return true;
    }
    default:
        return false;
    }
}

} // namespace

bool PlistNode::isDictionary() const {
    return m_node && plist_get_node_type(static_cast<plist_t>(m_node)) == PLIST_DICT;
}

bool PlistNode::isArray() const {
    return m_node && plist_get_node_type(static_cast<plist_t>(m_node)) == PLIST_ARRAY;
}

QVariant PlistNode::toVariant() const {
    QVariant out;
    if (!m_node || !corvina::toVariant(static_cast<plist_t>(m_node), 0, out)) {
        return QVariant();
    }
    return out;
}

QByteArrayView PlistNode::textBytes() const {
    if (m_node == nullptr || plist_get_node_type(static_cast<plist_t>(m_node)) != PLIST_STRING) {
        return {};
    }
    uint64_t length = 0;
    const char* text = plist_get_string_ptr(static_cast<plist_t>(m_node), &length);
    return text != nullptr ? QByteArrayView(text, static_cast<qsizetype>(length)) : QByteArrayView();
}

void PlistNode::valuesForKeys(const char* const* keys, int count, PlistNode* values) const {
    for (int i = 0; i < count; ++i) {
        values[i] = PlistNode();
    }
    if (!isDictionary()) {
        return;
    }
    int next = 0;
    PlistDictionary::forEachItem(static_cast<plist_t>(m_node), [&](plist_t keyNode, plist_t value) {
        if (!keyNode)
            return true;
        // compared in place: no copy of the key is made. Dictionaries mostly hold their keys in
        // the order of `keys`, so the one after the last found is tried first.
        for (int tried = 0; tried < count; ++tried) {
            const int i = (next + tried) % count;
            if (plist_key_val_compare(keyNode, keys[i]) == 0) {
                values[i] = PlistNode(value);
                next = i + 1;
                break;
            }
        }
        return true;
    });
}

qsizetype PlistNode::arraySize() const {
    return isArray() ? static_cast<qsizetype>(plist_array_get_size(static_cast<plist_t>(m_node))) : 0;
}

PlistNode PlistNode::nextElement(void*& cursor) const {
    if (!isArray()) {
        return PlistNode();
    }
    const auto node = static_cast<plist_t>(m_node);
    if (!cursor) {
        plist_array_iter iter = nullptr;
        plist_array_new_iter(node, &iter);
        cursor = iter;
    }
    plist_t item = nullptr;
    plist_array_next_item(node, static_cast<plist_array_iter>(cursor), &item);
    return PlistNode(item);
}

void PlistNode::endElements(void*& cursor) {
    std::free(cursor);
    cursor = nullptr;
}

} // namespace corvina
