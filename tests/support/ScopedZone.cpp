#include "ScopedZone.h"

#include "platform/Localization.h"

#include <ctime>

namespace corvina::test {

ScopedTimeZone::ScopedTimeZone(const char* zone)
    : m_saved(qgetenv("TZ")), m_had(qEnvironmentVariableIsSet("TZ")) {
    qputenv("TZ", zone);
    tzset();
}

ScopedTimeZone::~ScopedTimeZone() {
    if (m_had) {
        qputenv("TZ", m_saved);
    } else {
        qunsetenv("TZ");
    }
    tzset();
}

ScopedLocale::ScopedLocale(const QLocale& locale) : m_saved(QLocale()) {
    QLocale::setDefault(locale);
}

ScopedLocale::~ScopedLocale() {
    QLocale::setDefault(m_saved);
}

ScopedLanguage::ScopedLanguage(const QLocale& locale) : m_saved(Localization::locale()) {
    Localization::setLocale(locale);
}

ScopedLanguage::~ScopedLanguage() {
    Localization::setLocale(m_saved);
}

} // namespace corvina::test
