#include "PropertyList.h"

#include "NumbersInCLocale.h"
#include "PlistBinaryLayout.h"
#include "PlistBinaryReader.h"
#include "PlistDictionary.h"
#include "PlistNode.h"
#include "PlistTree.h"
#include "PlistXmlReader.h"
#include "RegularFile.h"

#include <QDateTime>
#include <QTimeZone>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <plist/plist.h>
#include <vector>

namespace corvina {

namespace {

struct PlistDeleter {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

// ---- binary lists, checked before libplist sees them ---------------------------------------

QString binaryObjectsError() {
    return QStringLiteral("binary property list expands past %1 objects").arg(PropertyList::MaximumNodes);
}

QString binaryBytesError() {
    return QStringLiteral("binary property list expands past %1 bytes of text and data")
        .arg(PropertyList::MaximumBytes);
}

// Walks every object reachable from the top one, with the bounds of the container format checked
// at each step, so that libplist is only ever handed a list it can take apart safely. libplist
// copies a shared object out wherever it is referenced, so what is bounded is the list as it will
// be once copied out: its objects, and the bytes of its texts and data.
class BinaryChecker {
public:
    explicit BinaryChecker(const QByteArray& bytes) : m_layout(bytes) {}

    QString check() {
        switch (m_layout.readTrailer()) {
        case PlistBinaryLayout::Trailer::Valid:
            break;
        case PlistBinaryLayout::Trailer::Truncated:
            return QStringLiteral("binary property list is truncated");
        case PlistBinaryLayout::Trailer::Invalid:
            return QStringLiteral("binary property list has an invalid trailer");
        case PlistBinaryLayout::Trailer::TableOutsideData:
            return QStringLiteral("binary property list has an offset table outside the data");
        }
        m_count = m_layout.objectCount();
        // the walk keeps a few bytes for each object of the table; a table larger than the bound
        // is refused before that memory is taken (writers put no unreachable objects in a list)
        if (m_count > static_cast<quint64>(PropertyList::MaximumNodes)) {
            return QStringLiteral("binary property list holds more than %1 objects")
                .arg(PropertyList::MaximumNodes);
        }
        m_state.assign(static_cast<size_t>(m_count), 0);
        m_weight.assign(static_cast<size_t>(m_count), Weight{});
        return walk(m_layout.topObject());
    }

private:
    // What an object stands for once its shared references are copied out. Both stay within the
    // bounds (checked at each addition), so 32 bits hold them.
    struct Weight {
        quint32 objects = 0;
        quint32 bytes = 0;
    };

    // A container being walked: its references are read from the data as they are needed.
    struct Frame {
        quint64 object = 0;
        quint64 refs = 0;     // where its references begin
        quint64 refCount = 0; // keys and values of a dictionary
        quint64 next = 0;
        Weight weight;
        bool container = false;
    };

    bool isText(quint64 object) const {
        const unsigned type = m_layout.typeOf(object);
        return type == 0x5 || type == 0x6;
    }

    // Reads the object's header into `frame`: its own bytes of text or data, and for containers
    // where their references lie. An empty text on success.
    QString describe(Frame& frame) const {
        PlistBinaryLayout::Object header;
        if (!m_layout.objectAt(frame.object, header)) {
            return QStringLiteral("binary property list has an object offset outside the data");
        }
        const unsigned type = header.type;
        const unsigned info = header.info;
        // the bytes of one text or data: within the file, so well within 32 bits once the
        // bound is checked
        auto ownBytes = [&](quint64 bytes) -> bool {
            if (bytes > static_cast<quint64>(PropertyList::MaximumBytes)) {
                return false;
            }
            frame.weight.bytes = static_cast<quint32>(bytes);
            return true;
        };
        QString badLength = QStringLiteral("binary property list has an invalid length field");
        quint64 count = 0;
        switch (type) {
        case 0x0: // null, booleans, fill
            return QString();
        case 0x1: // integer of 2^info bytes
        case 0x2: // real of 2^info bytes
            if (info > 4 || !m_layout.room(header, quint64(1) << info)) {
                return badLength;
            }
            return QString();
        case 0x3: // date
            return m_layout.room(header, 8) ? QString() : badLength;
        case 0x4: // data
        case 0x5: // ASCII text
            if (!m_layout.readLength(header, count) || !m_layout.room(header, count)) {
                return badLength;
            }
            return ownBytes(count) ? QString() : binaryBytesError();
        case 0x6: { // UTF-16 text
            if (!m_layout.readLength(header, count) || count > m_layout.bytesLeft(header) / 2) {
                return badLength;
            }
            // libplist turns a text it cannot convert into no node at all, and then aborts when
            // that was a dictionary key
            for (quint64 i = 0; i < count; ++i) {
                const quint64 unit = m_layout.number(header.position + 2 * i, 2);
                if (unit == 0) {
                    // libplist aborts on a converted text whose length disagrees with its C string
                    return QStringLiteral("binary property list has a text holding a NUL character");
                }
                if (unit >= 0xD800 && unit <= 0xDBFF) {
                    const quint64 next =
                        i + 1 < count ? m_layout.number(header.position + 2 * (i + 1), 2) : 0;
                    if (next < 0xDC00 || next > 0xDFFF) {
                        return QStringLiteral("binary property list has a text that is not valid UTF-16");
                    }
                    ++i;
                } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
                    return QStringLiteral("binary property list has a text that is not valid UTF-16");
                }
            }
            return ownBytes(count * 2) ? QString() : binaryBytesError();
        }
        case 0x8: // uid of info+1 bytes
            return m_layout.room(header, info + 1) ? QString() : badLength;
        case 0xA:   // array
        case 0xC:   // set
        case 0xD: { // dictionary: keys, then values
            frame.container = true;
            if (!m_layout.readLength(header, count)) {
                return badLength;
            }
            const quint64 refs = type == 0xD ? count * 2 : count;
            if ((type == 0xD && count > (quint64(1) << 62)) ||
                refs > m_layout.bytesLeft(header) / m_layout.refSize()) {
                return badLength;
            }
            for (quint64 i = 0; i < refs; ++i) {
                const quint64 ref = m_layout.reference(header.position, i);
                if (ref >= m_count) {
                    return QStringLiteral("binary property list has a reference outside the object table");
                }
                // libplist aborts on a dictionary key that is not a text
                if (type == 0xD && i < count && !isText(ref)) {
                    return QStringLiteral("binary property list has a dictionary key that is not a text");
                }
            }
            frame.refs = header.position;
            frame.refCount = refs;
            return QString();
        }
        default:
            return QStringLiteral("binary property list has an object of unknown type %1").arg(type);
        }
    }

    // Depth-first, without recursion; each object is described once, each reference followed
    // once, and each object's weight is remembered for the references to it that come later.
    QString walk(quint64 top) {
        std::vector<Frame> stack;
        int containers = 0; // containers on the stack: the nesting depth
        auto enter = [&](quint64 object) -> QString {
            if (m_state[object] == 1) {
                return QStringLiteral("binary property list has a reference cycle");
            }
            Frame frame;
            frame.object = object;
            frame.weight.objects = 1;
            QString error = describe(frame);
            if (!error.isEmpty()) {
                return error;
            }
            if (frame.container && ++containers > PropertyList::MaximumDepth) {
                return QStringLiteral("property list nests deeper than %1 levels")
                    .arg(PropertyList::MaximumDepth);
            }
            m_state[object] = 1;
            stack.push_back(frame);
            return QString();
        };
        QString error = enter(top);
        while (error.isEmpty() && !stack.empty()) {
            Frame& frame = stack.back();
            if (frame.next == frame.refCount) {
                m_state[frame.object] = 2;
                m_weight[frame.object] = frame.weight;
                const Weight weight = frame.weight;
                containers -= frame.container ? 1 : 0;
                stack.pop_back();
                if (!stack.empty()) {
                    error = add(stack.back().weight, weight);
                }
                continue;
            }
            const quint64 child = m_layout.reference(frame.refs, frame.next++);
            if (m_state[child] == 2) {
                error = add(frame.weight, m_weight[child]);
                continue;
            }
            error = enter(child);
        }
        return error;
    }

    static QString add(Weight& total, const Weight& more) {
        // both sides are within the bounds, so the sums cannot overflow 64 bits
        const quint64 objects = quint64(total.objects) + more.objects;
        const quint64 bytes = quint64(total.bytes) + more.bytes;
        if (objects > static_cast<quint64>(PropertyList::MaximumNodes)) {
            return binaryObjectsError();
        }
        if (bytes > static_cast<quint64>(PropertyList::MaximumBytes)) {
            return binaryBytesError();
        }
        total.objects = static_cast<quint32>(objects);
        total.bytes = static_cast<quint32>(bytes);
        return QString();
    }

    PlistBinaryLayout m_layout;
    quint64 m_count = 0;
    std::vector<unsigned char> m_state; // 0 not seen, 1 being walked, 2 done
    std::vector<Weight> m_weight;
};

// ---- XML lists, checked before libplist sees them -------------------------------------------

// Nesting depth of <dict> and <array>, no entity declarations (a few declared entities can
// expand to gigabytes), and the bounds on objects and on bytes of text and data: every element
// but <plist> is an object, and the characters inside an element that holds no other (a
// <string>, a <key>, a <data>, ...) count as its bytes. Comments and processing instructions are
// skipped whole; a CDATA section counts as text. One pass over the bytes.
QString checkXml(const QByteArray& bytes) {
    const char* p = bytes.constData();
    const char* const end = p + bytes.size();
    int depth = 0;
    qint64 objects = 0;
    qint64 textBytes = 0;
    const char* textFrom = nullptr; // just after the start tag of an element that holds text
    auto startsWith = [&](const char* at, const char* text) {
        const size_t n = std::strlen(text);
        return static_cast<size_t>(end - at) >= n && std::memcmp(at, text, n) == 0;
    };
    auto skipPast = [&](const char* from, const char* text) -> const char* {
        const size_t n = std::strlen(text);
        for (const char* q = from; static_cast<size_t>(end - q) >= n; ++q) {
            if (std::memcmp(q, text, n) == 0) {
                return q + n;
            }
        }
        return end;
    };
    // `name` is the element's name, followed by the end of the tag or a space
    auto isElement = [&](const char* name, const char* element) {
        const size_t n = std::strlen(element);
        if (!startsWith(name, element) || static_cast<size_t>(end - name) == n) {
            return false;
        }
        const char after = name[n];
        return after == '>' || after == '/' || std::isspace(static_cast<unsigned char>(after));
    };
    auto addText = [&](qint64 length) {
        textBytes += length;
        return textBytes <= PropertyList::MaximumBytes;
    };
    QString tooManyBytes = QStringLiteral("XML property list holds more than %1 bytes of text and data")
                               .arg(PropertyList::MaximumBytes);
    while (p < end) {
        const char* open = static_cast<const char*>(std::memchr(p, '<', static_cast<size_t>(end - p)));
        if (!open) {
            break;
        }
        if (textFrom && !addText(open - textFrom)) {
            return tooManyBytes;
        }
        // a comment or processing instruction inside a text leaves the text going on after it
        const bool inText = textFrom != nullptr;
        textFrom = nullptr;
        if (startsWith(open, "<!--")) {
            p = skipPast(open + 4, "-->");
            textFrom = inText ? p : nullptr;
            continue;
        }
        if (startsWith(open, "<![CDATA[")) {
            p = skipPast(open + 9, "]]>");
            if (!addText(p - open)) {
                return tooManyBytes;
            }
            textFrom = inText ? p : nullptr;
            continue;
        }
        if (startsWith(open, "<?")) {
            p = skipPast(open + 2, "?>");
            textFrom = inText ? p : nullptr;
            continue;
        }
        if (startsWith(open, "<!")) {
            const char* close = skipPast(open + 2, ">");
            // an internal subset ends at "]>", and may declare entities
            const char* bracket =
                static_cast<const char*>(std::memchr(open, '[', static_cast<size_t>(close - open)));
            if (bracket) {
                close = skipPast(bracket, "]");
                close = skipPast(close, ">");
            }
            if (QByteArray::fromRawData(open, static_cast<qsizetype>(close - open)).contains("<!ENTITY")) {
                return QStringLiteral("XML property list declares entities");
            }
            p = close;
            continue;
        }
        const char* close = static_cast<const char*>(std::memchr(open, '>', static_cast<size_t>(end - open)));
        if (!close) {
            break;
        }
        const bool closing = open[1] == '/';
        const char* name = open + (closing ? 2 : 1);
        const bool selfClosing = close > open && close[-1] == '/';
        const bool container = isElement(name, "dict") || isElement(name, "array");
        if (!closing && !isElement(name, "plist")) {
            if (++objects > PropertyList::MaximumNodes) {
                return QStringLiteral("XML property list holds more than %1 objects")
                    .arg(PropertyList::MaximumNodes);
            }
            if (!container && !selfClosing) {
                textFrom = close + 1;
            }
        }
        if (container) {
            if (closing) {
                --depth;
            } else if (depth + 1 > PropertyList::MaximumDepth) {
                // an empty <array/> is a level too
                return QStringLiteral("property list nests deeper than %1 levels")
                    .arg(PropertyList::MaximumDepth);
            } else if (!selfClosing) {
                ++depth;
            }
        }
        p = close + 1;
    }
    return QString();
}

// ---- libplist nodes to and from QVariant ----------------------------------------------------

QString notAPropertyList() {
    return QStringLiteral("not a property list");
}

// False where libplist handed over something it should not have (a node it failed to make, a
// dictionary key that is no key, a kind of node no reader knows): the list is then treated as no
// list at all. Checked over the whole list before anyone reads from it, so that a reader taking
// only a few values (PlistNode) refuses exactly the lists that a conversion in full refuses.
bool wellFormed(plist_t node, int depth) {
    // the checks above bound the depth already; this keeps a libplist surprise from recursing on
    if (!node || depth > PropertyList::MaximumDepth) {
        return false;
    }
    switch (plist_get_node_type(node)) {
    case PLIST_DICT:
        return PlistDictionary::forEachItem(
            node, [depth](plist_t key, plist_t value) { return key && wellFormed(value, depth + 1); });
    case PLIST_ARRAY: {
        const uint32_t size = plist_array_get_size(node);
        // through the iterator: fetching element i by index walks the i elements before it
        plist_array_iter iter = nullptr;
        plist_array_new_iter(node, &iter);
        bool ok = true;
        for (uint32_t i = 0; i < size && ok; ++i) {
            plist_t item = nullptr;
            plist_array_next_item(node, iter, &item);
            ok = wellFormed(item, depth + 1);
        }
        std::free(iter);
        return ok;
    }
    case PLIST_STRING:
    case PLIST_KEY:
    case PLIST_UINT:
    case PLIST_UID:
    case PLIST_REAL:
    case PLIST_BOOLEAN:
    case PLIST_DATE:
    case PLIST_DATA:
        return true;
    default:
        return false;
    }
}

// Copies a list that wellFormed accepted into `tree`, each value as PlistNode::toVariant gave it
// when it read libplist's nodes: texts by their length, keys as C strings (up to a NUL, as
// libplist hands them out), unsigned integers and UIDs read signed, dates to milliseconds.
void copyOut(plist_t node, PlistTree& tree) {
    switch (plist_get_node_type(node)) {
    case PLIST_DICT:
        tree.beginContainer(PlistTree::Type::Dictionary);
        PlistDictionary::forEachItem(node, [&tree](plist_t keyNode, plist_t value) {
            char* key = nullptr;
            plist_get_key_val(keyNode, &key);
            tree.addBytes(PlistTree::Type::Key, key ? key : "",
                          key ? static_cast<qsizetype>(std::strlen(key)) : 0);
            std::free(key);
            copyOut(value, tree);
            return true;
        });
        tree.endContainer();
        return;
    case PLIST_ARRAY: {
        tree.beginContainer(PlistTree::Type::Array);
        const uint32_t size = plist_array_get_size(node);
        plist_array_iter iter = nullptr;
        plist_array_new_iter(node, &iter);
        for (uint32_t i = 0; i < size; ++i) {
            plist_t item = nullptr;
            plist_array_next_item(node, iter, &item);
            copyOut(item, tree);
        }
        std::free(iter);
        tree.endContainer();
        return;
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        tree.addBytes(PlistTree::Type::String, text ? text : "", text ? static_cast<qsizetype>(length) : 0);
        return;
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        // libplist keeps integers as 64-bit patterns: read them signed, as the lists are written
        tree.addInteger(static_cast<qint64>(value));
        return;
    }
    case PLIST_UID: {
        uint64_t value = 0;
        plist_get_uid_val(node, &value);
        tree.addInteger(static_cast<qint64>(value));
        return;
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        tree.addReal(value);
        return;
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        tree.addBoolean(value != 0);
        return;
    }
    case PLIST_DATE: {
        int32_t seconds = 0;
        int32_t micros = 0;
        plist_get_date_val(node, &seconds, &micros);
        // libplist splits a date before 2001 into whole seconds rounded toward zero and a positive
        // fraction: -1.25 s comes as -1 and 250000
        const qint64 fraction = seconds < 0 ? -std::abs(micros / 1000) : micros / 1000;
        tree.addDate((static_cast<qint64>(seconds) + PlistNode::ReferenceDateOffset) * 1000 + fraction);
        return;
    }
    case PLIST_DATA: {
        uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        tree.addBytes(PlistTree::Type::Data, bytes ? bytes : "", bytes ? static_cast<qsizetype>(length) : 0);
        return;
    }
    default:
        // wellFormed let no other kind through
        tree.addInteger(0);
        return;
    }
}

plist_t fromVariant(const QVariant& value, PropertyList::Format format, QString* error, int depth) {
    if (depth > PropertyList::MaximumDepth) {
        *error = QStringLiteral("property list nests deeper than %1 levels").arg(PropertyList::MaximumDepth);
        return nullptr;
    }
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        plist_t dict = plist_new_dict();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            plist_t item = fromVariant(it.value(), format, error, depth + 1);
            if (!item) {
                plist_free(dict);
                return nullptr;
            }
            plist_dict_set_item(dict, it.key().toUtf8().constData(), item);
        }
        return dict;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        plist_t array = plist_new_array();
        for (const QVariant& element : value.toList()) {
            plist_t item = fromVariant(element, format, error, depth + 1);
            if (!item) {
                plist_free(array);
                return nullptr;
            }
            plist_array_append_item(array, item);
        }
        return array;
    }
    case QMetaType::QString:
        return plist_new_string(value.toString().toUtf8().constData());
    case QMetaType::Bool:
        return plist_new_bool(value.toBool() ? 1 : 0);
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::SChar:
        return plist_new_uint(static_cast<uint64_t>(value.toLongLong()));
    case QMetaType::UInt:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::UChar:
        return plist_new_uint(value.toULongLong());
    case QMetaType::Double:
    case QMetaType::Float:
        return plist_new_real(value.toDouble());
    case QMetaType::QDateTime: {
        if (format == PropertyList::Format::Binary) {
            // libplist 2.2 writes binary dates unreliably (sometimes no output at all); nothing we
            // write needs one, so refuse rather than write a broken list
            *error = QStringLiteral("dates are written in XML property lists only");
            return nullptr;
        }
        // libplist 2.2 writes dates before 2001 a second off, and whole seconds only
        const qint64 seconds = value.toDateTime().toSecsSinceEpoch() - PlistNode::ReferenceDateOffset;
        if (seconds < 0 || seconds > INT32_MAX) {
            *error = QStringLiteral("only dates from 2001 to 2069 can be written");
            return nullptr;
        }
        return plist_new_date(static_cast<int32_t>(seconds), 0);
    }
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        return plist_new_data(bytes.constData(), static_cast<uint64_t>(bytes.size()));
    }
    default:
        *error = QStringLiteral("a value of type %1 cannot be written to a property list")
                     .arg(QString::fromLatin1(value.metaType().name() ? value.metaType().name() : "null"));
        return nullptr;
    }
}

} // namespace

QString PropertyList::tooLargeError() {
    return QStringLiteral("property list is larger than %1 bytes").arg(MaximumSize);
}

PlistDocument PropertyList::parse(const QByteArray& bytes) {
    if (bytes.size() > MaximumSize) {
        return PlistDocument::failure(tooLargeError());
    }
    if (bytes.isEmpty()) {
        return PlistDocument::failure(notAPropertyList());
    }
    // The usual lists, as writers make them, go through a reader of our own; it takes only a
    // strict subset of each format and declines everything else, which then goes to libplist
    // exactly as before. So whatever is refused is refused by libplist, with its error texts.
    auto tree = std::make_unique<PlistTree>();
    const bool taken = bytes.startsWith("bplist00") ? PlistBinaryReader::read(bytes, *tree)
                                                    : PlistXmlReader::read(bytes, *tree);
    if (taken) {
        return PlistDocument::adopt(std::move(tree));
    }
    return parseWithLibplist(bytes);
}

PlistDocument PropertyList::parseWithLibplist(const QByteArray& bytes) {
    if (bytes.size() > MaximumSize) {
        return PlistDocument::failure(tooLargeError());
    }
    if (bytes.isEmpty()) {
        return PlistDocument::failure(notAPropertyList());
    }
    const auto length = static_cast<uint32_t>(bytes.size());
    plist_t root = nullptr;
    if (bytes.startsWith("bplist00")) {
        const QString problem = BinaryChecker(bytes).check();
        if (!problem.isEmpty()) {
            return PlistDocument::failure(problem);
        }
        plist_from_bin(bytes.constData(), length, &root);
    } else if (bytes.startsWith("bplist")) {
        return PlistDocument::failure(QStringLiteral("binary property list of an unknown version"));
    } else {
        const QString problem = checkXml(bytes);
        if (!problem.isEmpty()) {
            return PlistDocument::failure(problem);
        }
        // libplist reads <real> through the C library, which follows the process's locale
        const NumbersInCLocale numbers;
        plist_from_xml(bytes.constData(), length, &root);
    }
    if (!root) {
        return PlistDocument::failure(notAPropertyList());
    }
    const PlistPtr owner(root);
    if (!wellFormed(root, 0)) {
        return PlistDocument::failure(notAPropertyList());
    }
    // every reader sees the one kind of tree, whichever reader made it
    auto tree = std::make_unique<PlistTree>();
    copyOut(root, *tree);
    return PlistDocument::adopt(std::move(tree));
}

PlistDocument PropertyList::parseFile(const QString& path) {
    // a FIFO, socket or device among the files is refused without waiting for it
    RegularFile file = RegularFile::open(path);
    if (!file.isOpen()) {
        return PlistDocument::failure(file.error(), true);
    }
    // One buffer per thread for the bytes, kept between files: a loader reads thousands of small
    // files in a row, and a fresh buffer for each costs more than reading it. Both readers copy out
    // what they keep, so the bytes are not needed past the parse. A buffer grown past a mebibyte
    // by a large file is let go again.
    thread_local QByteArray buffer;
    struct Release {
        ~Release() {
            if (buffer.capacity() > 1024 * 1024) {
                buffer = QByteArray();
            }
        }
    } release;
    bool tooLarge = false;
    if (!file.readAllInto(buffer, MaximumSize, &tooLarge)) {
        if (tooLarge) {
            return PlistDocument::failure(tooLargeError());
        }
        return PlistDocument::failure(file.error(), true);
    }
    return parse(buffer);
}

PropertyList::Result PropertyList::read(const QByteArray& bytes) {
    return resultOf(parse(bytes));
}

PropertyList::Result PropertyList::readFile(const QString& path) {
    return resultOf(parseFile(path));
}

PropertyList::Result PropertyList::resultOf(const PlistDocument& document) {
    if (!document.ok()) {
        return {QVariant(), document.error(), document.unreadable()};
    }
    return {document.root().toVariant(), QString()};
}

QByteArray PropertyList::write(const QVariant& value, Format format, QString* error) {
    QString problem;
    plist_t root = fromVariant(value, format, &problem, 0);
    if (!root) {
        if (error) {
            *error = problem;
        }
        return QByteArray();
    }
    const PlistPtr owner(root);
    char* out = nullptr;
    uint32_t length = 0;
    QByteArray bytes;
    if (format == Format::Xml) {
        plist_to_xml(root, &out, &length);
        bytes = QByteArray(out, static_cast<qsizetype>(length));
        plist_to_xml_free(out);
    } else {
        plist_to_bin(root, &out, &length);
        bytes = QByteArray(out, static_cast<qsizetype>(length));
        plist_to_bin_free(out);
    }
    if (error) {
        error->clear();
    }
    return bytes;
}

} // namespace corvina
