// A stand-in for the mail application in tests: a program a desktop file can start, which writes
// what it was started with to a file and exits.
//
//     corvina_test_recorder RECORD_FILE [ARG]...
//
// Appends one block per start to RECORD_FILE, in a single write so that starts in parallel do not
// interleave:
//     launch
//     env NAME=VALUE        (for the launch variables that are set)
//     arg TEXT              (one per argument after RECORD_FILE; "\n" and "\\" escaped)
//     end
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

std::string escaped(const char* text) {
    std::string out;
    for (const char* p = text; *p; ++p) {
        if (*p == '\n')
            out += "\\n";
        else if (*p == '\\')
            out += "\\\\";
        else
            out += *p;
    }
    return out;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2)
        return 2;
    std::string block = "launch\n";
    for (const char* name : {"CORVINA_LAUNCH_OPTIONS", "XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID"}) {
        if (const char* value = std::getenv(name))
            block += std::string("env ") + name + "=" + escaped(value) + "\n";
    }
    for (int i = 2; i < argc; ++i)
        block += "arg " + escaped(argv[i]) + "\n";
    block += "end\n";
    const int fd = ::open(argv[1], O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd < 0)
        return 1;
    const bool ok = ::write(fd, block.data(), block.size()) == ssize_t(block.size());
    ::close(fd);
    return ok ? 0 : 1;
}
