#pragma once

#include <QByteArrayView>
#include <QVariant>

namespace corvina {

class PlistTree;

// One value inside a parsed property list (see PlistDocument), read in place: no copy of the list
// into Qt values. Valid as long as the document that holds it. A default-made node is "no value".
//
// Readers that only need a few keys of a large list (the snapshot loader) look them up here and
// convert just those values, through toVariant, into exactly what PropertyList::read would have
// given for them; so a record built either way is the same record.
class PlistNode {
public:
    // Seconds from 1970-01-01 to 2001-01-01, the epoch of property-list dates.
    static constexpr qint64 ReferenceDateOffset = 978307200;

    PlistNode() = default;
    PlistNode(const PlistTree* tree, quint32 index) : m_tree(tree), m_index(index) {}

    bool isNull() const { return m_tree == nullptr; }
    bool isDictionary() const;
    bool isArray() const;

    // The value as PropertyList::read gives it (QVariantMap, QVariantList, QString, qint64, double,
    // bool, QDateTime in UTC, QByteArray); null for no value.
    QVariant toVariant() const;
    // The UTF-8 bytes of a text value, in place (valid as long as the document); an empty view for
    // an empty text and for any other kind of value. For a caller that recognises a text it has
    // converted before: the same bytes always give the same toVariant.
    QByteArrayView textBytes() const;

    // For each of the `count` keys, the value a dictionary holds under it, or no value; a key that
    // occurs twice gives its last value, as the Qt form (a QVariantMap) keeps the last one. One pass
    // over the dictionary, fastest when the dictionary holds its keys in the order of `keys`. Every
    // value is "no value" when this is no dictionary.
    void valuesForKeys(const char* const* keys, int count, PlistNode* values) const;

    // The number of elements of an array (0 for anything else), and the next one in order: start
    // with a null `cursor`, and call until it answers a null node. Walks each element once.
    qsizetype arraySize() const;
    PlistNode nextElement(void*& cursor) const;
    // Releases what nextElement kept in `cursor` (safe on a null cursor).
    static void endElements(void*& cursor);

private:
    const PlistTree* m_tree = nullptr;
    quint32 m_index = 0;
};

} // namespace corvina
