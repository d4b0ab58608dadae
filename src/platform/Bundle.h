#pragma once

#include <QString>

namespace corvina {

// The identity of this program, as the host application knows it.
class Bundle {
public:
    // CORVINA_BUNDLE_IDENTIFIER when set and not empty, otherwise the identifier compiled in
    // (CMake cache variable CORVINA_BUNDLE_IDENTIFIER, "org.corvina.mail.today" by default).
    static QString identifier();
    static QString compiledIdentifier();
};

} // namespace corvina
