#pragma once

#include <QString>
#include <QVariant>
#include <QVariantList>

namespace corvina {

// How the records read values of a property list (see PropertyList): dictionaries, arrays, strings,
// numbers (qint64, double, bool), dates and data, held in a QVariant. A null QVariant is "no value".
//
// The host application's dictionaries are untyped, and the records store what they find without type
// tests. In a typed program every read has to decide what a value of the wrong type means:
//  - text fields (`stringValue`): a string is kept as it is; a number or boolean gives its text form
//    ("3", "2.5", "1"); anything else (array, dictionary, date, data) counts as absent, so the
//    field's default applies;
//  - boxed number fields (`numberValue`): a number or boolean is kept; a string that is wholly a
//    number gives that number; anything else counts as absent;
//  - conversions that need a number (`integerValue`, `boolValue`, `floatValue`) read numbers and
//    strings by the host's rules below and raise an Exception for anything else;
//  - `objectForKey` raises when the receiver is not a dictionary and `enumerate` when it cannot be
//    iterated. A raised Exception is caught by the guarded block of the record being built.
class PlistValue {
public:
    // The value stored under `key`; null when absent. Null receiver: null. Not a dictionary: raises.
    static QVariant objectForKey(const QVariant& dictionary, const QString& key);

    // Text form for a text field (see above); a null QString when the value counts as absent.
    static QString stringValue(const QVariant& value);

    // The text field under `key` of a record's dictionary (stringValue of objectForKey), or `fallback`
    // when it counts as absent. Every record reads its text fields this way.
    static QString stringForKey(const QVariant& dictionary, const QString& key, const QString& fallback);

    // A string that an operation needs as text; anything else raises (the operation names itself
    // in the error).
    static QString textValue(const QVariant& value, const char* operation);

    // A boxed number: QVariant holding qint64, double or bool; null when absent or not a number.
    static QVariant numberValue(const QVariant& value);

    // Integer value: numbers truncate toward zero (saturating), strings read an optional sign and
    // leading digits after white space ("3.9" -> 3, "x" -> 0), null -> 0. Others raise.
    static qint64 integerValue(const QVariant& value);

    // Boolean value: numbers are true when non-zero; a string is true when, after white space and
    // any signs or zeros, it begins with Y, y, T, t or a digit 1-9. Null -> false. Others raise.
    static bool boolValue(const QVariant& value);

    // Single-precision value: numbers are narrowed, strings read their leading decimal number
    // ("1700000063", " 12.5e1x"), anything unreadable is 0, null -> 0. Others raise.
    static float floatValue(const QVariant& value);

    // Elements of an array, or the keys of a dictionary (as strings, in key order); null -> none.
    // Anything else raises.
    static QVariantList enumerate(const QVariant& value);

    // A short name of the value's kind for messages: "string", "number", "array", ...
    static QString kindName(const QVariant& value);

    static bool isNumber(const QVariant& value);
    static bool isString(const QVariant& value);
    static bool isDictionary(const QVariant& value);
    static bool isArray(const QVariant& value);
};

} // namespace corvina
