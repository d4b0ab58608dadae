#include "ScopedEnvironment.h"

#include <QtGlobal>

namespace corvina::test {

namespace {
void setOrUnset(const QByteArray& name, const std::optional<QByteArray>& value) {
    if (value) {
        qputenv(name.constData(), *value);
    } else {
        qunsetenv(name.constData());
    }
}
} // namespace

ScopedEnvironment::ScopedEnvironment(const char* name, std::optional<QByteArray> value) : m_name(name) {
    if (qEnvironmentVariableIsSet(name)) {
        m_saved = qgetenv(name);
    }
    setOrUnset(m_name, value);
}

ScopedEnvironment::~ScopedEnvironment() {
    setOrUnset(m_name, m_saved);
}

} // namespace corvina::test
