#pragma once

#include "PlistDocument.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

namespace corvina {

// Property lists in and out, XML and binary: written by libplist, read by a fast reader of our
// own for the usual lists and by libplist for every other.
//
// Reading answers a QVariant made of QVariantMap (dictionary), QVariantList (array), QString,
// qint64 (integer), double (real), bool, QDateTime (date, UTC) and QByteArray (data); or "nothing"
// (a null QVariant) together with an error text, where the input is not a property list.
//
// The files come from another program, so reading guards against hostile input before libplist
// sees it: inputs over MaximumSize bytes, nesting deeper than MaximumDepth, reference cycles in
// binary lists, length fields and offsets that point outside the data, and lists that hold (or,
// binary, expand to once their shared references are copied out) more than MaximumNodes objects
// or more than MaximumBytes bytes of text and data are refused with an error, never parsed. Time
// and memory are then linear in the input and bounded, whatever it holds. The fast readers stop at
// the same bounds and leave such a list to libplist's path, which refuses it as described.
class PropertyList {
public:
    enum class Format { Xml, Binary };

    // 64 MiB: far above any snapshot the host writes (ten messages with their avatars take
    // well under a megabyte), far below what would hurt memory.
    static constexpr qint64 MaximumSize = 64 * 1024 * 1024;
    // Containers nested deeper than this are refused.
    static constexpr int MaximumDepth = 128;
    // Most objects (dictionary keys included) a list may hold, or a binary list expand to once its
    // shared references are copied out. Each costs a few hundred bytes once read, and whoever
    // reads the list makes records of them.
    static constexpr qint64 MaximumNodes = 128 * 1024;
    // Most bytes of text and data a list may hold, or a binary list expand to.
    static constexpr qint64 MaximumBytes = 16 * 1024 * 1024;

    struct Result {
        QVariant value; // null on failure
        QString error;  // empty on success
        // readFile only: the file could not be read at all (missing, a folder, no permission), as
        // opposed to read but refused
        bool unreadable = false;
        bool ok() const { return value.isValid(); }
    };

    // Parses XML or binary property-list bytes (told apart by the binary header).
    static Result read(const QByteArray& bytes);
    // Reads a whole file and parses it; a file over MaximumSize is refused before it is read.
    static Result readFile(const QString& path);

    // The same reads, with the same checks and errors, leaving the list in a compact tree for a
    // reader that takes only what it needs from it (see PlistDocument). read and readFile are
    // these followed by a conversion of the whole list.
    static PlistDocument parse(const QByteArray& bytes);
    static PlistDocument parseFile(const QString& path);
    // parse through libplist alone, without the fast readers of the usual lists that parse tries
    // first (PlistXmlReader, PlistBinaryReader): what parse falls back to for every list they
    // decline, and what they are checked against.
    static PlistDocument parseWithLibplist(const QByteArray& bytes);

    // The error text for an input over MaximumSize.
    static QString tooLargeError();

    // Serialises `value` (the types above); null QByteArray and `error` set when it holds a value
    // a property list cannot carry.
    static QByteArray write(const QVariant& value, Format format, QString* error = nullptr);

private:
    static Result resultOf(const PlistDocument& document);
};

} // namespace corvina
