#include "ProgramRunner.h"

#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace corvina::test {

ProgramRunner::Outcome ProgramRunner::run(const QString& program, const QStringList& arguments,
                                          std::chrono::milliseconds deadline,
                                          const QProcessEnvironment& environment) {
    Outcome outcome;
    QTemporaryDir dir;
    if (!dir.isValid()) {
        return outcome;
    }
    const QByteArray outPath = QFile::encodeName(dir.filePath(QStringLiteral("out")));
    const QByteArray errPath = QFile::encodeName(dir.filePath(QStringLiteral("err")));
    const QString reportPath = dir.filePath(QStringLiteral("rusage"));

    // through the measuring program: see programs/rusage.cpp for why
    std::vector<std::string> argStore{CORVINA_TEST_RUSAGE, QFile::encodeName(reportPath).toStdString(),
                                      QFile::encodeName(program).toStdString()};
    for (const QString& argument : arguments) {
        argStore.push_back(argument.toStdString());
    }
    std::vector<std::string> envStore;
    for (const QString& entry : environment.toStringList()) {
        envStore.push_back(entry.toStdString());
    }
    std::vector<char*> argv;
    for (std::string& argument : argStore) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (std::string& entry : envStore) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    // a process group of its own, so that the deadline ends the program with the measurer
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    pid_t pid = 0;
    const auto start = std::chrono::steady_clock::now();
    const int spawned = posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawned != 0) {
        return outcome;
    }
    outcome.started = true;

    int status = 0;
    for (;;) {
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) {
            break;
        }
        if (done < 0 && errno != EINTR) {
            return outcome;
        }
        if (std::chrono::steady_clock::now() - start > deadline) {
            outcome.timedOut = true;
            kill(-pid, SIGKILL);
            while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
            break;
        }
        QThread::msleep(5);
    }
    outcome.elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    if (WIFEXITED(status)) {
        outcome.exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        outcome.signal = WTERMSIG(status);
    }
    QFile report(reportPath);
    if (report.open(QIODevice::ReadOnly)) {
        outcome.peakRssKiB = report.readAll().trimmed().toLongLong(); // kilobytes on Linux
    }
    QFile out(QFile::decodeName(outPath));
    if (out.open(QIODevice::ReadOnly)) {
        outcome.out = out.readAll();
    }
    QFile err(QFile::decodeName(errPath));
    if (err.open(QIODevice::ReadOnly)) {
        outcome.err = err.readAll();
    }
    return outcome;
}

} // namespace corvina::test
