#pragma once

#include <locale.h>

namespace corvina {

// While one lives, C library calls on this thread read and write numbers as the C locale does
// (a point as the decimal mark), whatever locale the process runs in.
//
// Qt sets the process's locale from the environment, and libplist reads an XML list's <real>
// through the C library: under a locale with a decimal comma, "1.5" read as 1. Only this thread's
// locale changes (uselocale), so other threads, and Qt's own formatting, are untouched.
class NumbersInCLocale {
public:
    NumbersInCLocale();
    ~NumbersInCLocale();
    NumbersInCLocale(const NumbersInCLocale&) = delete;
    NumbersInCLocale& operator=(const NumbersInCLocale&) = delete;

private:
    locale_t m_previous = nullptr;
};

} // namespace corvina
