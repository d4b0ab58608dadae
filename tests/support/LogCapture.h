#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>
#include <QtGlobal>

namespace corvina::test {

// Collects the lines the program logs while it lives, from any thread, instead of printing them.
// Lines of other categories still reach the previous handler.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QStringList lines() const;
    int count(const QString& line) const;
    void clear();

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& message);

    mutable QMutex m_mutex;
    QStringList m_lines;
    QtMessageHandler m_previous = nullptr;
    LogCapture* m_outer = nullptr;
};

} // namespace corvina::test
