#include "UnixSignals.h"

#include <QSocketNotifier>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace corvina {

namespace {

int pipeFds[2] = {-1, -1};

void handler(int signal) {
    const int saved = errno;
    const unsigned char byte = static_cast<unsigned char>(signal);
    // A full pipe drops the byte: the signals already in it are handled anyway.
    [[maybe_unused]] const ssize_t n = ::write(pipeFds[1], &byte, 1);
    errno = saved;
}

} // namespace

UnixSignals::UnixSignals(QObject* parent) : QObject(parent) {
    if (pipeFds[0] < 0 && ::pipe2(pipeFds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    // Interrupted system calls of the main thread go on by themselves.
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGTERM, SIGINT, SIGUSR1})
        ::sigaction(signal, &action, nullptr);
    m_notifier = new QSocketNotifier(pipeFds[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &UnixSignals::readPipe);
}

UnixSignals::~UnixSignals() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGTERM, SIGINT, SIGUSR1})
        ::sigaction(signal, &action, nullptr);
}

void UnixSignals::readPipe() {
    unsigned char byte = 0;
    while (::read(pipeFds[0], &byte, 1) == 1) {
        if (byte == SIGUSR1)
            emit syncNow();
        else
            emit terminate(byte);
    }
}

} // namespace corvina
