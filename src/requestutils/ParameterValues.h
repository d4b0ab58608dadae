#pragma once

#include <QStringList>
#include <QVariant>

// Inside the RequestUtils family only: a parameter's value is a text or a list of texts.
namespace corvina::RequestUtils::detail {

inline bool isList(const QVariant& value) {
    return value.typeId() == QMetaType::QStringList || value.typeId() == QMetaType::QVariantList;
}

inline QStringList listOf(const QVariant& value) {
    if (value.typeId() == QMetaType::QStringList) {
        return value.toStringList(); // shared, not copied
    }
    QStringList out;
    for (const QVariant& element : value.toList()) {
        out << element.toString();
    }
    return out;
}

} // namespace corvina::RequestUtils::detail
