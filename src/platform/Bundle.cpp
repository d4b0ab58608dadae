#include "Bundle.h"

#include <QByteArray>

namespace corvina {

QString Bundle::compiledIdentifier() {
    return QStringLiteral(CORVINA_BUNDLE_IDENTIFIER);
}

QString Bundle::identifier() {
    const QByteArray fromEnvironment = qgetenv("CORVINA_BUNDLE_IDENTIFIER");
    // an empty value is treated as unset: an empty identifier would match no data folder
    if (!fromEnvironment.isEmpty()) {
        return QString::fromUtf8(fromEnvironment);
    }
    return compiledIdentifier();
}

} // namespace corvina
