#pragma once

#include <QString>

namespace corvina {

// The common root of the records: a text for logs and an equality that defaults to identity.
class Object {
public:
    virtual ~Object() = default;
    virtual QString description() const = 0;
    // True for this very object; records with a value equality override it.
    virtual bool isEqual(const Object* other) const { return other == this; }

    // An empty text that is not null: many defaults are "" while other fields stay null.
    static QString emptyString() { return QString(QLatin1String("")); }
    // How a missing text shows inside a description.
    static QString describe(const QString& text) { return text.isNull() ? QStringLiteral("(null)") : text; }
};

} // namespace corvina
