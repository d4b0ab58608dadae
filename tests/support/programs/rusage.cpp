// Runs a program and writes down the most memory it held: its peak resident set in kilobytes, as
// its rusage tells once it has ended.
//
//     corvina_test_rusage REPORT_FILE PROGRAM [ARG]...
//
// It exists because a program started straight from a test process is charged that process's own
// peak: the kernel carries the peak of the memory a process had before it started the new program
// over into the new program's figure. Started from this small program instead, the figure is the
// program's own. The exit status is the program's; a program ended by a signal ends this one by the
// same signal.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: corvina_test_rusage REPORT_FILE PROGRAM [ARG]...\n");
        return 125;
    }
    const pid_t pid = fork();
    if (pid < 0) {
        return 126;
    }
    if (pid == 0) {
        execv(argv[2], argv + 2);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    while (wait4(pid, &status, 0, &usage) < 0) {
        if (errno != EINTR) {
            return 126;
        }
    }
    if (FILE* report = std::fopen(argv[1], "w")) {
        std::fprintf(report, "%ld\n", usage.ru_maxrss);
        std::fclose(report);
    }
    if (WIFSIGNALED(status)) {
        std::signal(WTERMSIG(status), SIG_DFL);
        raise(WTERMSIG(status));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 126;
}
