#include "LogCapture.h"

#include "platform/Log.h"

#include <QMutexLocker>
#include <atomic>
#include <cstring>

namespace corvina::test {

namespace {
std::atomic<LogCapture*> active{nullptr};
QtMessageHandler previousHandler = nullptr;
} // namespace

LogCapture::LogCapture() {
    m_outer = active.exchange(this);
    if (!m_outer) {
        previousHandler = qInstallMessageHandler(&LogCapture::handler);
    }
    m_previous = previousHandler;
}

LogCapture::~LogCapture() {
    active.store(m_outer);
    if (!m_outer) {
        qInstallMessageHandler(previousHandler);
        previousHandler = nullptr;
    }
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    LogCapture* capture = active.load();
    if (capture && context.category && std::strcmp(context.category, Log::category().categoryName()) == 0) {
        QMutexLocker lock(&capture->m_mutex);
        capture->m_lines << message;
        return;
    }
    if (previousHandler) {
        previousHandler(type, context, message);
    }
}

QStringList LogCapture::lines() const {
    QMutexLocker lock(&m_mutex);
    return m_lines;
}

int LogCapture::count(const QString& line) const {
    QMutexLocker lock(&m_mutex);
    return static_cast<int>(m_lines.count(line));
}

void LogCapture::clear() {
    QMutexLocker lock(&m_mutex);
    m_lines.clear();
}

} // namespace corvina::test
