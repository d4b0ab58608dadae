#include "Exception.h"

namespace corvina {

Exception::Exception(QString reason) : m_reason(std::move(reason)), m_utf8(m_reason.toStdString()) {}

} // namespace corvina
