#include "NumbersInCLocale.h"

namespace corvina {

namespace {

locale_t cLocale() {
    // made once and kept for the life of the process: every thread may switch to it
    static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return c;
}

} // namespace

NumbersInCLocale::NumbersInCLocale() {
    if (const locale_t c = cLocale()) {
        m_previous = uselocale(c);
    }
}

NumbersInCLocale::~NumbersInCLocale() {
    if (m_previous) {
        uselocale(m_previous);
    }
}

} // namespace corvina
