#pragma once

#include "ChoiceBox.h"

#include <QString>

namespace corvina {

// The choice of a connection's security as the Accounts window's pages offer it: each choice says
// in one line what it means, so that the person need not know the words; its data is the word
// bridge.conf takes (tls, starttls, none).
class SecurityBox : public ChoiceBox {
    Q_OBJECT
public:
    explicit SecurityBox(QWidget* parent = nullptr);

    QString security() const;
    // Selects `security` (a word of bridge.conf); the first choice when it is none of them.
    void setSecurity(const QString& security);
};

} // namespace corvina
