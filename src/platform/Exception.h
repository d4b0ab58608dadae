#pragma once

#include <QString>
#include <exception>
#include <string>

namespace corvina {

// The error that record builders and readers raise where a value has the wrong shape (a list where a
// number is needed, a text where a list is iterated). It is always caught inside the guarded block of
// the operation that raised it, which logs `description()` and keeps what it had built so far.
class Exception : public std::exception {
public:
    explicit Exception(QString reason);

    const QString& description() const { return m_reason; }
    const char* what() const noexcept override { return m_utf8.c_str(); }

private:
    QString m_reason;
    std::string m_utf8;
};

} // namespace corvina
