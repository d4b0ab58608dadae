#include "ListCommand.h"

#include "platform/PlistValue.h"
#include "platform/UserDefaults.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "widget/SegmentFilter.h"
#include "widget/SnapshotLoader.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>

namespace corvina {

namespace {

bool breaksLine(QChar c) {
    // printable ASCII, nearly every character of a row, is answered without the category table
    if (c.unicode() >= 0x20 && c.unicode() < 0x7F) {
        return false;
    }
    return c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
           c == QChar::ParagraphSeparator;
}

} // namespace

QString ListCommand::oneLine(const QString& text) {
    // most texts have nothing to replace, and are shared rather than copied
    if (std::none_of(text.cbegin(), text.cend(), breaksLine)) {
        return text;
    }
    QString out = text;
    for (QChar& c : out) {
        if (breaksLine(c)) {
            c = QLatin1Char(' ');
        }
    }
    return out;
}

namespace {

// ---- the JSON of a list, written row by row ---------------------------------------------------
// The bytes are exactly those of QJsonDocument::toJson(Indented) for an array of QJsonObjects with
// these keys (in its order: sorted), which is what the list printed when it held the whole document
// in memory; scripts may compare outputs byte for byte. Rows are written one at a time, so the
// output is never held whole.

// Appends a text known to be ASCII, one byte a character, without a converted copy of it.
void appendAscii(QByteArray& out, const QString& text) {
    const qsizetype at = out.size();
    out.resize(at + text.size());
    char* to = out.data() + at;
    for (const QChar c : text) {
        *to++ = static_cast<char>(c.unicode());
    }
}

// A whole number in decimal, as QByteArray::number writes it, without a text made for it.
void appendInteger(QByteArray& out, qint64 value) {
    char digits[24];
    const std::to_chars_result end = std::to_chars(std::begin(digits), std::end(digits), value);
    out.append(digits, end.ptr - digits);
}

// `text` as a JSON string, as QJsonDocument writes it: UTF-8, with '"', '\\' and control
// characters escaped; a text with a lone surrogate half goes through QJsonDocument itself.
void appendJsonString(QByteArray& out, const QString& text) {
    bool plain = true;
    bool ascii = true;
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u < 0x20 || u == u'"' || u == u'\\' || QChar::isSurrogate(u)) {
            plain = false;
            break;
        }
        ascii = ascii && u < 0x80;
    }
    if (plain) {
        out += '"';
        if (ascii) {
            appendAscii(out, text);
        } else {
            out += text.toUtf8();
        }
        out += '"';
        return;
    }
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    out += QByteArrayView(array).sliced(1, array.size() - 2);
}

// A number as QJsonDocument writes a double: whole numbers up to 2^53 as integers, the rest in
// the shortest form that reads back the same; infinities and NaN as null.
void appendJsonDouble(QByteArray& out, double value) {
    if (!std::isfinite(value)) {
        out += "null";
    } else if (value == std::floor(value) && std::fabs(value) <= 9007199254740992.0) {
        appendInteger(out, static_cast<qint64>(value));
    } else {
        out += QByteArray::number(value, 'g', QLocale::FloatingPointShortest);
    }
}

void appendJsonText(QByteArray& out, const QString& value) {
    if (value.isNull()) {
        out += "null";
    } else {
        appendJsonString(out, value);
    }
}

void appendJsonNumber(QByteArray& out, const QVariant& boxed) {
    const QVariant value = PlistValue::numberValue(boxed);
    if (!value.isValid()) {
        out += "null";
    } else if (value.typeId() == QMetaType::Double) {
        appendJsonDouble(out, value.toDouble());
    } else {
        appendInteger(out, value.toLongLong());
    }
}

// The white space between the parts of the JSON: indented as QJsonDocument::Indented writes it, or
// none at all, as QJsonDocument::Compact writes it (one line for `--list --watch`).
struct JsonLayout {
    const char* open;       // the array's opening bracket
    const char* rowOpen;    // a row's opening brace
    const char* firstKey;   // before a row's first key
    const char* nextKey;    // between two members of a row
    const char* colon;      // between a key and its value
    const char* rowClose;   // a row's closing brace
    const char* rowBetween; // between two rows
    const char* closeEmpty; // the closing bracket of an empty array
    const char* close;      // the closing bracket after the last row
};
constexpr JsonLayout Indented{
    "[\n", "    {\n", "        \"", ",\n        \"", "\": ", "\n    }", ",\n", "]\n", "\n]\n"};
constexpr JsonLayout Compact{"[", "{", "\"", ",\"", "\":", "}", ",", "]", "]"};

// Starts one member of a row: the separator and indent, the key and its colon.
void appendJsonKey(QByteArray& out, const JsonLayout& layout, const QString& key, bool first = false) {
    out += first ? layout.firstKey : layout.nextKey;
    appendAscii(out, key); // the keys are ASCII
    out += layout.colon;
}

// One message as an element of the indented array, without the separator before it. The keys come
// in the order of their names, as a JSON document of Qt writes them: the output stays byte for byte
// what it was before it was streamed.
void appendJsonRow(QByteArray& out, const JsonLayout& layout, const ExtensionMessage& message) {
    using Key = ListCommand::JsonKey;
    const QDateTime date = message.date();
    const QVariant unread = PlistValue::numberValue(message.unread());
    out += layout.rowOpen;
    appendJsonKey(out, layout, Key::account, true);
    appendJsonText(out, message.account());
    appendJsonKey(out, layout, Key::date);
    if (date.isValid()) {
        appendJsonDouble(out, static_cast<double>(date.toMSecsSinceEpoch()) / 1000.0);
    } else {
        out += "null";
    }
    appendJsonKey(out, layout, Key::dateString);
    appendJsonText(out, message.dateString());
    appendJsonKey(out, layout, Key::folderPath);
    appendJsonText(out, message.folderPath());
    appendJsonKey(out, layout, Key::folderStandardId);
    appendJsonNumber(out, message.folderStandardId());
    appendJsonKey(out, layout, Key::from);
    appendJsonText(out, message.from());
    appendJsonKey(out, layout, Key::hasAvatar);
    out += message.hasAvatar() ? "true" : "false";
    appendJsonKey(out, layout, Key::messageId);
    appendJsonText(out, message.messageId());
    appendJsonKey(out, layout, Key::subject);
    appendJsonText(out, message.subject());
    appendJsonKey(out, layout, Key::unread);
    out += unread.isValid() ? (unread.toDouble() != 0 ? "true" : "false") : "null";
    out += layout.rowClose;
}

// About this many bytes are gathered before they are handed to the output.
constexpr qsizetype ChunkBytes = 64 * 1024;

// Writes the JSON of `messages`, handing it to `hand` in pieces that end between rows.
template <typename Emit>
void writeJson(const ExtensionMessageList& messages, const JsonLayout& layout, Emit hand) {
    QByteArray chunk;
    chunk.reserve(ChunkBytes + 4096);
    chunk += layout.open;
    bool first = true;
    for (const ExtensionMessagePtr& message : messages) {
        if (!first) {
            chunk += layout.rowBetween;
        }
        first = false;
        appendJsonRow(chunk, layout, *message);
        if (chunk.size() >= ChunkBytes) {
            hand(chunk);
            chunk.resize(0); // keeps its room for the next piece, where clear() would free it
        }
    }
    chunk += first ? layout.closeEmpty : layout.close;
    hand(chunk);
}

// Writes the plain lines of `messages`, handing them to `hand` in pieces that end with a line.
template <typename Emit> void writePlain(const ExtensionMessageList& messages, Emit hand) {
    QString chunk;
    chunk.reserve(ChunkBytes + 1024);
    for (const ExtensionMessagePtr& message : messages) {
        chunk += ListCommand::oneLine(message->dateString());
        chunk += QLatin1Char('\t');
        chunk += ListCommand::oneLine(message->from());
        chunk += QLatin1Char('\t');
        chunk += ListCommand::oneLine(message->subject());
        chunk += QLatin1Char('\n');
        if (chunk.size() >= ChunkBytes) {
            hand(chunk);
            chunk.resize(0); // keeps its room for the next piece, where clear() would free it
        }
    }
    hand(chunk);
}

} // namespace

QString ListCommand::plainText(const ExtensionMessageList& messages) {
    QString out;
    writePlain(messages, [&out](const QString& chunk) { out += chunk; });
    return out;
}

QByteArray ListCommand::json(const ExtensionMessageList& messages, bool compact) {
    QByteArray out;
    writeJson(messages, compact ? Compact : Indented, [&out](const QByteArray& chunk) { out += chunk; });
    return out;
}

ListCommand::Reading ListCommand::read(bool all) {
    Reading reading;
    const std::optional<QUrl> container = ExtensionUtilities::GroupPath();
    if (!container) {
        reading.missingFolder =
            QStringLiteral("no shared container (CORVINA_GROUP_CONTAINER is set but empty)");
        return reading;
    }
    if (!QFileInfo(container->toLocalFile()).isDir()) {
        reading.missingFolder = QStringLiteral("no shared container at ") + container->toLocalFile();
    }
    SnapshotLoader loader;
    const ExtensionMessageList dataFromDisk = loader.updateData();
    if (!loader.accountsRefusal().isEmpty()) {
        const std::optional<QUrl> data = ExtensionUtilities::GroupDataPath();
        reading.refusedAccounts = QStringLiteral("refused the account list ") +
                                  (data ? data->toLocalFile() + QLatin1Char('/') : QString()) +
                                  ConstVars::accountsFile + QStringLiteral(" (") + loader.accountsRefusal() +
                                  QStringLiteral("): no account is read");
    }
    if (all) {
        reading.rows = dataFromDisk;
    } else {
        // a stored choice without a list shows nothing, as the widget's first screen would
        reading.rows =
            SegmentFilter::dataToShow(dataFromDisk, UserDefaults::integerForKey(ConstVars::segmentedKey))
                .value_or(ExtensionMessageList());
    }
    return reading;
}

void ListCommand::explain(const Reading& reading, QTextStream& err) {
    if (!reading.missingFolder.isEmpty()) {
        err << "corvina-today: " << reading.missingFolder << "\n";
    }
    if (!reading.refusedAccounts.isEmpty()) {
        err << "corvina-today: " << reading.refusedAccounts << "\n";
    }
    err.flush();
}

int ListCommand::run(const Options& options, QTextStream& out, QTextStream& err) {
    const Reading reading = read(options.all);
    explain(reading, err);
    const ExtensionMessageList& rows = reading.rows;
    // streamed: the text of a hundred thousand rows is never held whole
    if (options.json) {
        QIODevice* device = out.device();
        writeJson(rows, Indented, [&out, device](const QByteArray& chunk) {
            if (device) {
                // the bytes as they are: the stream would only decode and encode them again
                out.flush();
                device->write(chunk);
            } else {
                out << chunk;
            }
        });
    } else {
        writePlain(rows, [&out](const QString& chunk) { out << chunk; });
    }
    out.flush();
    err.flush();
    return 0;
}

} // namespace corvina
