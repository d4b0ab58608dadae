#pragma once

#include <QByteArray>
#include <optional>

namespace corvina::test {

// Sets (or, with nothing, unsets) an environment variable for a block of a test, restoring it after.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, std::optional<QByteArray> value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    QByteArray m_name;
    std::optional<QByteArray> m_saved;
};

} // namespace corvina::test
