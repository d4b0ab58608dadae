// The fast property-list readers (XML and binary) against libplist, input by input: whenever a
// fast reader takes an input, libplist must take it too and read it to the very same values
// (types, texts, integers, doubles bit for bit, dates to the millisecond, data). A fast reader may
// decline anything; it must never take what libplist refuses or read it differently.
#include "platform/PlistBinaryReader.h"
#include "platform/PlistDocument.h"
#include "platform/PlistTree.h"
#include "platform/PlistXmlReader.h"
#include "platform/PropertyList.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QVariantList>
#include <QVariantMap>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

bool same(const QVariant& a, const QVariant& b) {
    if (a.typeId() != b.typeId() || a.isValid() != b.isValid()) {
        return false;
    }
    switch (a.typeId()) {
    case QMetaType::QVariantMap: {
        const QVariantMap x = a.toMap();
        const QVariantMap y = b.toMap();
        if (x.size() != y.size()) {
            return false;
        }
        for (auto i = x.cbegin(), j = y.cbegin(); i != x.cend(); ++i, ++j) {
            if (i.key() != j.key() || !same(i.value(), j.value())) {
                return false;
            }
        }
        return true;
    }
    case QMetaType::QVariantList: {
        const QVariantList x = a.toList();
        const QVariantList y = b.toList();
        if (x.size() != y.size()) {
            return false;
        }
        for (qsizetype i = 0; i < x.size(); ++i) {
            if (!same(x.at(i), y.at(i))) {
                return false;
            }
        }
        return true;
    }
    case QMetaType::QString: {
        const QString x = a.toString();
        const QString y = b.toString();
        return x.isNull() == y.isNull() && x == y;
    }
    case QMetaType::QByteArray: {
        const QByteArray x = a.toByteArray();
        const QByteArray y = b.toByteArray();
        return x.isNull() == y.isNull() && x == y;
    }
    case QMetaType::Double: {
        const double x = a.toDouble();
        const double y = b.toDouble();
        return std::memcmp(&x, &y, sizeof x) == 0;
    }
    case QMetaType::LongLong:
        return a.toLongLong() == b.toLongLong();
    case QMetaType::Bool:
        return a.toBool() == b.toBool();
    case QMetaType::QDateTime: {
        const QDateTime x = a.toDateTime();
        const QDateTime y = b.toDateTime();
        return x.isValid() == y.isValid() && x.toMSecsSinceEpoch() == y.toMSecsSinceEpoch() &&
               x.timeSpec() == y.timeSpec() && x.offsetFromUtc() == y.offsetFromUtc();
    }
    default:
        return false;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static QCoreApplication app(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    corvina::PlistTree tree;
    const bool taken = bytes.startsWith("bplist00") ? corvina::PlistBinaryReader::read(bytes, tree)
                                                    : corvina::PlistXmlReader::read(bytes, tree);
    if (!taken) {
        return 0;
    }
    const corvina::PlistDocument reference = corvina::PropertyList::parseWithLibplist(bytes);
    if (!reference.ok()) {
        // taken by the fast reader, refused by libplist
        __builtin_trap();
    }
    if (!same(tree.toVariant(0), reference.root().toVariant())) {
        __builtin_trap();
    }
    // and the whole read, which takes the fast path, agrees with it as well
    const corvina::PropertyList::Result read = corvina::PropertyList::read(bytes);
    if (!read.ok() || !same(read.value, reference.root().toVariant())) {
        __builtin_trap();
    }
    return 0;
}
