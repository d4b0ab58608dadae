#include "PropertyList.h"

// Placeholder until the reader lands: refuses everything.
namespace corvina {
PropertyList::Result PropertyList::read(const QByteArray&) { return {QVariant(), QStringLiteral("not implemented")}; }
PropertyList::Result PropertyList::readFile(const QString&) { return {QVariant(), QStringLiteral("not implemented")}; }
QByteArray PropertyList::write(const QVariant&, Format, QString* error) {
    if (error) {
        *error = QStringLiteral("not implemented");
    }
    return {};
}
} // namespace corvina
