#include "PlistValue.h"

#include "Exception.h"

#include <QDateTime>
#include <QVariantMap>
#include <charconv>
#include <cmath>
#include <limits>

namespace corvina {

namespace {

int typeId(const QVariant& v) {
    return v.metaType().id();
}

bool isIntegerType(int id) {
    switch (id) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
        return true;
    default:
        return false;
    }
}

bool isRealType(int id) {
    return id == QMetaType::Double || id == QMetaType::Float;
}

[[noreturn]] void raise(const char* operation, const QVariant& value) {
    throw Exception(QStringLiteral("%1: unsupported value of type %2")
                        .arg(QLatin1String(operation), PlistValue::kindName(value)));
}

qint64 saturatingTruncate(double d) {
    if (std::isnan(d)) {
        return 0;
    }
    if (d >= 9223372036854775807.0) {
        return std::numeric_limits<qint64>::max();
    }
    if (d <= -9223372036854775808.0) {
        return std::numeric_limits<qint64>::min();
    }
    return static_cast<qint64>(d);
}

qint64 integerFromNumber(const QVariant& v) {
    const int id = typeId(v);
    if (id == QMetaType::Bool) {
        return v.toBool() ? 1 : 0;
    }
    if (isRealType(id)) {
        return saturatingTruncate(v.toDouble());
    }
    if (id == QMetaType::ULongLong || id == QMetaType::ULong) {
        // values past the signed range are the two's-complement form of negative numbers
        return static_cast<qint64>(v.toULongLong());
    }
    return v.toLongLong();
}

double doubleFromNumber(const QVariant& v) {
    const int id = typeId(v);
    if (id == QMetaType::Bool) {
        return v.toBool() ? 1.0 : 0.0;
    }
    if (isRealType(id)) {
        return v.toDouble();
    }
    return static_cast<double>(integerFromNumber(v));
}

qsizetype skipSpace(const QString& s, qsizetype i) {
    while (i < s.size() && s[i].isSpace()) {
        ++i;
    }
    return i;
}

qint64 integerFromString(const QString& s) {
    qsizetype i = skipSpace(s, 0);
    bool negative = false;
    if (i < s.size() && (s[i] == QLatin1Char('+') || s[i] == QLatin1Char('-'))) {
        negative = s[i] == QLatin1Char('-');
        ++i;
    }
    // accumulate as a negative number so that the minimum fits, saturating on overflow
    qint64 acc = 0;
    const qint64 min = std::numeric_limits<qint64>::min();
    for (; i < s.size() && s[i] >= QLatin1Char('0') && s[i] <= QLatin1Char('9'); ++i) {
        const int digit = s[i].unicode() - '0';
        if (acc < (min + digit) / 10) {
            return negative ? min : std::numeric_limits<qint64>::max();
        }
        acc = acc * 10 - digit;
    }
    if (negative) {
        return acc;
    }
    return acc == min ? std::numeric_limits<qint64>::max() : -acc;
}

bool boolFromString(const QString& s) {
    qsizetype i = skipSpace(s, 0);
    while (i < s.size() &&
           (s[i] == QLatin1Char('+') || s[i] == QLatin1Char('-') || s[i] == QLatin1Char('0'))) {
        ++i;
    }
    if (i >= s.size()) {
        return false;
    }
    const QChar c = s[i];
    return c == QLatin1Char('Y') || c == QLatin1Char('y') || c == QLatin1Char('T') || c == QLatin1Char('t') ||
           (c >= QLatin1Char('1') && c <= QLatin1Char('9'));
}

// Length of the leading decimal number of `s` from `i`: [sign] digits [. digits] [e [sign] digits].
qsizetype decimalPrefixEnd(const QString& s, qsizetype i) {
    auto digit = [&](qsizetype k) {
        return k < s.size() && s[k] >= QLatin1Char('0') && s[k] <= QLatin1Char('9');
    };
    if (i < s.size() && (s[i] == QLatin1Char('+') || s[i] == QLatin1Char('-'))) {
        ++i;
    }
    bool any = false;
    while (digit(i)) {
        ++i;
        any = true;
    }
    if (i < s.size() && s[i] == QLatin1Char('.')) {
        qsizetype k = i + 1;
        bool frac = false;
        while (digit(k)) {
            ++k;
            frac = true;
        }
        if (any || frac) {
            i = k;
            any = true;
        }
    }
    if (!any) {
        return -1;
    }
    if (i < s.size() && (s[i] == QLatin1Char('e') || s[i] == QLatin1Char('E'))) {
        qsizetype k = i + 1;
        if (k < s.size() && (s[k] == QLatin1Char('+') || s[k] == QLatin1Char('-'))) {
            ++k;
        }
        if (digit(k)) {
            while (digit(k)) {
                ++k;
            }
            i = k;
        }
    }
    return i;
}

double doubleFromString(const QString& s) {
    const qsizetype start = skipSpace(s, 0);
    const qsizetype end = decimalPrefixEnd(s, start);
    if (end < 0) {
        return 0.0;
    }
    QByteArray text = s.mid(start, end - start).toLatin1();
    if (text.startsWith('+')) {
        text.remove(0, 1);
    }
    double d = 0.0;
    // from_chars is independent of the C locale, which the application sets from the user's settings
    const auto result = std::from_chars(text.constData(), text.constData() + text.size(), d);
    if (result.ec == std::errc::result_out_of_range) {
        // past the range of a double: an exponent below zero underflows to zero, anything else is infinite
        qsizetype e = text.indexOf('e');
        if (e < 0) {
            e = text.indexOf('E');
        }
        const bool tiny = e >= 0 && text.mid(e + 1).startsWith('-');
        d = tiny ? 0.0 : std::numeric_limits<double>::infinity();
        return text.startsWith('-') ? -d : d;
    }
    return d;
}

bool wholeNumberFromString(const QString& s, QVariant& out) {
    const QString t = s.trimmed();
    if (t.isEmpty()) {
        return false;
    }
    bool ok = false;
    const qlonglong i = t.toLongLong(&ok);
    if (ok) {
        out = QVariant::fromValue<qint64>(i);
        return true;
    }
    const qsizetype end = decimalPrefixEnd(t, 0);
    if (end != t.size()) {
        return false;
    }
    out = QVariant::fromValue<double>(doubleFromString(t));
    return true;
}

} // namespace

bool PlistValue::isNumber(const QVariant& v) {
    const int id = typeId(v);
    return id == QMetaType::Bool || isIntegerType(id) || isRealType(id);
}

bool PlistValue::isString(const QVariant& v) {
    return typeId(v) == QMetaType::QString;
}
bool PlistValue::isDictionary(const QVariant& v) {
    return typeId(v) == QMetaType::QVariantMap;
}
bool PlistValue::isArray(const QVariant& v) {
    return typeId(v) == QMetaType::QVariantList || typeId(v) == QMetaType::QStringList;
}

QString PlistValue::kindName(const QVariant& v) {
    if (!v.isValid()) {
        return QStringLiteral("null");
    }
    if (isString(v)) {
        return QStringLiteral("string");
    }
    if (typeId(v) == QMetaType::Bool) {
        return QStringLiteral("boolean");
    }
    if (isNumber(v)) {
        return QStringLiteral("number");
    }
    if (isDictionary(v)) {
        return QStringLiteral("dictionary");
    }
    if (isArray(v)) {
        return QStringLiteral("array");
    }
    if (typeId(v) == QMetaType::QDateTime) {
        return QStringLiteral("date");
    }
    if (typeId(v) == QMetaType::QByteArray) {
        return QStringLiteral("data");
    }
    return QString::fromLatin1(v.typeName());
}

QVariant PlistValue::objectForKey(const QVariant& dictionary, const QString& key) {
    if (!dictionary.isValid()) {
        return {};
    }
    if (!isDictionary(dictionary)) {
        raise("objectForKey", dictionary);
    }
    const QVariantMap& map = *static_cast<const QVariantMap*>(dictionary.constData());
    const auto it = map.constFind(key);
    return it == map.constEnd() ? QVariant() : it.value();
}

QString PlistValue::stringForKey(const QVariant& dictionary, const QString& key, const QString& fallback) {
    const QString value = stringValue(objectForKey(dictionary, key));
    return value.isNull() ? fallback : value;
}

QString PlistValue::stringValue(const QVariant& v) {
    if (isString(v)) {
        return *static_cast<const QString*>(v.constData());
    }
    const int id = typeId(v);
    if (id == QMetaType::Bool) {
        return v.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    }
    if (isIntegerType(id)) {
        return QString::number(integerFromNumber(v));
    }
    if (isRealType(id)) {
        return QString::number(v.toDouble(), 'g', 17);
    }
    return {};
}

QString PlistValue::textValue(const QVariant& v, const char* operation) {
    if (!isString(v)) {
        raise(operation, v);
    }
    return *static_cast<const QString*>(v.constData());
}

QVariant PlistValue::numberValue(const QVariant& v) {
    const int id = typeId(v);
    if (id == QMetaType::Bool) {
        return QVariant(v.toBool());
    }
    if (isIntegerType(id)) {
        return QVariant::fromValue<qint64>(integerFromNumber(v));
    }
    if (isRealType(id)) {
        return QVariant::fromValue<double>(v.toDouble());
    }
    QVariant out;
    if (isString(v) && wholeNumberFromString(v.toString(), out)) {
        return out;
    }
    return {};
}

qint64 PlistValue::integerValue(const QVariant& v) {
    if (!v.isValid()) {
        return 0;
    }
    if (isNumber(v)) {
        return integerFromNumber(v);
    }
    if (isString(v)) {
        return integerFromString(v.toString());
    }
    raise("integerValue", v);
}

bool PlistValue::boolValue(const QVariant& v) {
    if (!v.isValid()) {
        return false;
    }
    if (isNumber(v)) {
        return doubleFromNumber(v) != 0.0;
    }
    if (isString(v)) {
        return boolFromString(v.toString());
    }
    raise("boolValue", v);
}

float PlistValue::floatValue(const QVariant& v) {
    if (!v.isValid()) {
        return 0.0f;
    }
    if (isNumber(v)) {
        return static_cast<float>(doubleFromNumber(v));
    }
    if (isString(v)) {
        return static_cast<float>(doubleFromString(v.toString()));
    }
    raise("floatValue", v);
}

QVariantList PlistValue::enumerate(const QVariant& v) {
    if (!v.isValid()) {
        return {};
    }
    if (typeId(v) == QMetaType::QVariantList) {
        return v.toList();
    }
    if (typeId(v) == QMetaType::QStringList) {
        QVariantList out;
        for (const QString& s : v.toStringList()) {
            out << s;
        }
        return out;
    }
    if (isDictionary(v)) {
        QVariantList keys;
        const QVariantMap& map = *static_cast<const QVariantMap*>(v.constData());
        keys.reserve(map.size());
        for (auto it = map.keyBegin(); it != map.keyEnd(); ++it) {
            keys << *it;
        }
        return keys;
    }
    raise("enumerate", v);
}

} // namespace corvina
