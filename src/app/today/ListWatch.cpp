#include "ListWatch.h"

#include "platform/UnixSignals.h"
#include "platform/UserDefaults.h"
#include "widget/FileWatch.h"
#include "widget/SharedFolderWatch.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTextStream>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvina {

ListWatch::ListWatch(bool all, StatusLine::Format format, int intervalSeconds, QObject* parent)
    : QObject(parent), m_all(all), m_format(format) {
    m_watch = new SharedFolderWatch(intervalSeconds, this);
    connect(m_watch, &SharedFolderWatch::changed, this, &ListWatch::update);
    m_signals = new UnixSignals(this);
    connect(m_signals, &UnixSignals::terminate, this, [] { QCoreApplication::exit(0); });
    connect(m_signals, &UnixSignals::syncNow, this, &ListWatch::update);
    if (!m_all) {
        // The rows shown depend on the list chosen in the widget's header, kept in its settings file:
        // a new choice is a new line at once, not at the next periodic update.
        m_settings = new FileWatch(UserDefaults::filePath(), this);
        connect(m_settings, &FileWatch::changed, this, &ListWatch::update);
    }
}

ListWatch::~ListWatch() = default;

int ListWatch::exec() {
    // A closed output shows as a failed write (EPIPE), handled there, not as a signal that would
    // end the program with no chance to exit cleanly.
    std::signal(SIGPIPE, SIG_IGN);
    struct stat out {};
    if (::fstat(STDOUT_FILENO, &out) == 0 && S_ISFIFO(out.st_mode)) {
        // A bar reads the output through a pipe. Its write end never becomes readable, but a read
        // notifier also wakes on the error poll reports once the reader has gone: the watch ends then,
        // not at the next line it would write.
        auto* readerGone = new QSocketNotifier(STDOUT_FILENO, QSocketNotifier::Read, this);
        connect(readerGone, &QSocketNotifier::activated, this, [readerGone] {
            if (outputClosed()) {
                readerGone->setEnabled(false);
                QCoreApplication::exit(0);
            }
        });
    }
    m_watch->start();
    if (m_settings) {
        m_settings->start();
    }
    update();
    if (!m_printed) {
        return 0; // the output was closed before the first line
    }
    return QCoreApplication::exec();
}

void ListWatch::update() {
    if (outputClosed()) {
        QCoreApplication::exit(0);
        return;
    }
    const ListCommand::Reading reading = ListCommand::read(m_all);
    const QByteArray line = StatusLine::line(m_format, reading);
    if (m_printed && line == m_last) {
        return;
    }
    QTextStream err(stderr);
    ListCommand::explain(reading, err);
    if (!writeOut(line)) {
        QCoreApplication::exit(0);
        return;
    }
    m_last = line;
    m_printed = true;
}

bool ListWatch::writeOut(const QByteArray& bytes) {
    const char* at = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(STDOUT_FILENO, at, static_cast<size_t>(left));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        at += n;
        left -= n;
    }
    return true;
}

bool ListWatch::outputClosed() {
    pollfd out{STDOUT_FILENO, 0, 0};
    // With no events asked for, poll still reports an error or a hang-up: the write end of a pipe
    // whose reader has gone reports POLLERR.
    return ::poll(&out, 1, 0) > 0 && (out.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
}

} // namespace corvina
