#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <chrono>

namespace corvina::test {

// Runs a program to its end, or kills it at a deadline, and tells what it did and what it cost:
// for the whole-program tests that feed hostile input to an executable and hold it to a time and
// a memory budget. Output goes through temporary files, so a program that writes a lot never
// blocks on a full pipe. The program is started through corvina_test_rusage, which tells its own
// peak memory and not the test process's.
class ProgramRunner {
public:
    struct Outcome {
        bool started = false;
        bool timedOut = false; // killed at the deadline
        int exitCode = -1;     // when it exited
        int signal = 0;        // when a signal ended it
        QByteArray out;
        QByteArray err;
        qint64 peakRssKiB = -1; // the program's own peak resident set, from its rusage; -1 when unknown
        std::chrono::milliseconds elapsed{0};

        bool exitedWith(int code) const { return started && !timedOut && signal == 0 && exitCode == code; }
    };

    static Outcome run(const QString& program, const QStringList& arguments,
                       std::chrono::milliseconds deadline,
                       const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());

    // Resident-set figures mean nothing under the address and thread sanitizers, which reserve
    // and touch memory of their own: tests skip their memory checks in such builds.
    static constexpr bool memoryIsMeaningful() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        return false;
#else
        return true;
#endif
    }
};

} // namespace corvina::test
