#include "SecurityBox.h"

#include "platform/Localization.h"

namespace corvina {

SecurityBox::SecurityBox(QWidget* parent) : ChoiceBox(parent) {
    setAccessibleName(Localization::text("Security"));
    addItem(Localization::text("TLS: encrypted from the start (usually port 993)"), QStringLiteral("tls"));
    addItem(Localization::text("STARTTLS: encrypted after the greeting (usually port 143)"),
            QStringLiteral("starttls"));
    addItem(Localization::text("None: not encrypted, only for a server on this computer"),
            QStringLiteral("none"));
}

QString SecurityBox::security() const {
    return currentData().toString();
}

void SecurityBox::setSecurity(const QString& security) {
    setCurrentIndex(qMax(0, findData(security)));
}

} // namespace corvina
