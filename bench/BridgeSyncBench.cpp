// The mail bridge's first sync of one account whose inbox holds 1 000, 10 000 and 100 000 messages,
// measured three ways in the same run against the same Dovecot (the tests' own fixture, one user
// per size):
//
//   bridge  `corvina-mail-bridge --once` as a user runs it: the whole program, a bridge.conf with a
//           passwordCommand, a fresh shared folder and state folder each run; wall time and its
//           own peak resident memory;
//   floor   the same IMAP commands made directly with libetpan in this process (LOGIN, EXAMINE,
//           FETCH UID FLAGS INTERNALDATE ENVELOPE of the newest 50 message numbers, EXAMINE, UID
//           SEARCH FLAGGED, UID FETCH of the newest 50 flagged, LOGOUT) and nothing else: no
//           process, no decoding, no files;
//   python  bench/imap_peer.py: the same job with imaplib and plistlib, the same files written by
//           the same lock and replacement protocol.
//
// Whole programs are timed from spawning to reaping, and each runs under the tests' rusage helper so
// that its peak memory is its own (see tests/support/programs/rusage.cpp). The runs of the three
// are interleaved, so that a busy moment of the machine falls on all of them alike, and the table
// gives medians. Before timing, one untimed round per size warms Dovecot's index of the folder and
// checks that the three did the same work: the Python peer's files equal the bridge's, and Dovecot
// counted the same bytes coming in for the floor's session as for the bridge's (what goes out differs
// only by the timings Dovecot puts in its answers).
//
// Not a Google Benchmark program: its loops time code in this process, and what is measured here
// is mostly other processes, interleaved.
//
// Needs root (the Dovecot fixture's master runs as root). BENCH_RUNS sets the timed runs per size
// (default 7); BENCH_SIZES a comma-separated list of inbox sizes; BENCH_VERBOSE prints every run.
#include "platform/PropertyList.h"
#include "support/DovecotServer.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <libetpan/libetpan.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

using corvina::test::DovecotServer;
using Clock = std::chrono::steady_clock;

// What the bridge keeps per list unless its config says otherwise.
constexpr quint32 Newest = 50;
const QString Password = QStringLiteral("secret");

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t mid = values.size() / 2;
    return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

QString userFor(int size) {
    return QStringLiteral("u%1").arg(size);
}

QString mailFor(int size) {
    return userFor(size) + QStringLiteral("@example.org");
}

// An inbox as mail piles up: most messages read, the newest twenty not, one in 97 flagged, every
// tenth subject and sender name RFC 2047 encoded, one in 500 without a Date header.
void seed(DovecotServer& server, const QString& user, int count) {
    const QDateTime first = QDateTime::currentDateTimeUtc().addSecs(-qint64(count) * 60);
    const QByteArray body = QByteArray("Hello,\r\n\r\nthe figures for this week are attached; nothing "
                                       "unusual, but have a look before Friday.\r\n\r\nThanks.\r\n")
                                .repeated(4);
    for (int i = 0; i < count; ++i) {
        const QDateTime received = first.addSecs(qint64(i) * 60);
        const bool encoded = i % 10 == 3;
        const QString subject = encoded ? QStringLiteral("=?UTF-8?Q?Caf=C3=A9_order_n=C2=BA_%1?=").arg(i)
                                        : QStringLiteral("Weekly figures, part %1").arg(i);
        const QString from = encoded ? QStringLiteral("=?ISO-8859-1?Q?Andr=E9_Marchal?= <andre@example.org>")
                                     : QStringLiteral("Grace Hopper <grace%1@example.org>").arg(i % 37);
        const QString date = i % 500 == 7 ? QString() : received.toString(Qt::RFC2822Date);
        QString flags = i % 97 == 5 ? QStringLiteral("F") : QString();
        if (i < count - 20)
            flags += u'S';
        server.deliver(user, QStringLiteral("INBOX"),
                       DovecotServer::message(subject, from, date,
                                              QStringLiteral("<m%1.%2@example.org>").arg(i).arg(user), body),
                       flags, received);
    }
}

// --- whole programs --------------------------------------------------------------------------------

struct ProgramRun {
    bool ok = false;
    double ms = 0;
    double peakMiB = 0;
    QString error;
};

// Runs `program` under the rusage helper with `environment`, stdout and stderr into `logFile`.
ProgramRun runProgram(const QString& program, const QStringList& arguments,
                      const QProcessEnvironment& environment, const QString& scratch) {
    const QString report = scratch + QStringLiteral("/rusage");
    const QString logFile = scratch + QStringLiteral("/output");
    std::vector<QByteArray> argStorage{QByteArrayLiteral(CORVINA_TEST_RUSAGE), QFile::encodeName(report),
                                       QFile::encodeName(program)};
    for (const QString& argument : arguments)
        argStorage.push_back(argument.toLocal8Bit());
    std::vector<QByteArray> envStorage;
    for (const QString& entry : environment.toStringList())
        envStorage.push_back(entry.toLocal8Bit());
    std::vector<char*> argv;
    std::vector<char*> envp;
    for (QByteArray& a : argStorage)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    for (QByteArray& e : envStorage)
        envp.push_back(e.data());
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const QByteArray logName = QFile::encodeName(logFile);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, logName.constData(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);

    ProgramRun run;
    const Clock::time_point start = Clock::now();
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        run.error =
            QStringLiteral("cannot start %1: %2").arg(program, QString::fromLocal8Bit(strerror(spawned)));
        return run;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    run.ms = msSince(start);
    QFile peak(report);
    if (peak.open(QIODevice::ReadOnly))
        run.peakMiB = peak.readAll().trimmed().toDouble() / 1024.0;
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!run.ok) {
        QFile output(logFile);
        run.error = QStringLiteral("%1 failed (status %2): %3")
                        .arg(QFileInfo(program).fileName())
                        .arg(WIFEXITED(status) ? WEXITSTATUS(status) : -1)
                        .arg(output.open(QIODevice::ReadOnly) ? QString::fromUtf8(output.readAll()).trimmed()
                                                              : QString());
    }
    return run;
}

// --- the floor: the bridge's IMAP commands, straight through libetpan ------------------------------

mailimap_fetch_type* envelopeFetch() {
    mailimap_fetch_type* type = mailimap_fetch_type_new_fetch_att_list_empty();
    for (mailimap_fetch_att* att : {mailimap_fetch_att_new_uid(), mailimap_fetch_att_new_flags(),
                                    mailimap_fetch_att_new_internaldate(), mailimap_fetch_att_new_envelope()})
        mailimap_fetch_type_new_fetch_att_list_add(type, att);
    return type;
}

bool fetchInto(mailimap* imap, mailimap_set* set, bool byUid, int* fetched) {
    mailimap_fetch_type* type = envelopeFetch();
    clist* list = nullptr;
    const int r = byUid ? mailimap_uid_fetch(imap, set, type, &list) : mailimap_fetch(imap, set, type, &list);
    mailimap_fetch_type_free(type);
    mailimap_set_free(set);
    if (list != nullptr) {
        *fetched += clist_count(list);
        mailimap_fetch_list_free(list);
    }
    return r == MAILIMAP_NO_ERROR;
}

struct FloorRun {
    bool ok = false;
    double ms = 0;
    int fetched = 0;
    QString error;
};

FloorRun floorSync(const QString& host, quint16 port, const QString& user) {
    FloorRun run;
    const Clock::time_point start = Clock::now();
    mailimap* imap = mailimap_new(0, nullptr);
    auto failed = [&](const char* what) {
        run.error = QStringLiteral("floor: %1 failed").arg(QLatin1String(what));
        mailimap_free(imap);
        return run;
    };
    const int connected = mailimap_socket_connect(imap, host.toUtf8().constData(), port);
    if (connected != MAILIMAP_NO_ERROR_NON_AUTHENTICATED && connected != MAILIMAP_NO_ERROR_AUTHENTICATED)
        return failed("connect");
    if (mailimap_login(imap, user.toUtf8().constData(), Password.toUtf8().constData()) != MAILIMAP_NO_ERROR)
        return failed("LOGIN");
    if (mailimap_examine(imap, "INBOX") != MAILIMAP_NO_ERROR)
        return failed("EXAMINE");
    const quint32 exists = imap->imap_selection_info->sel_exists;
    if (exists > 0 &&
        !fetchInto(imap, mailimap_set_new_interval(exists > Newest ? exists - Newest + 1 : 1, exists), false,
                   &run.fetched))
        return failed("FETCH");
    if (mailimap_examine(imap, "INBOX") != MAILIMAP_NO_ERROR)
        return failed("EXAMINE");
    mailimap_search_key* flagged = mailimap_search_key_new(
        MAILIMAP_SEARCH_KEY_FLAGGED, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
        nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
        nullptr, 0, nullptr, nullptr, nullptr);
    clist* found = nullptr;
    const int searched = mailimap_uid_search(imap, nullptr, flagged, &found);
    mailimap_search_key_free(flagged);
    std::vector<uint32_t> uids;
    for (clistiter* it = clist_begin(found); it != nullptr; it = clist_next(it))
        uids.push_back(*static_cast<uint32_t*>(clist_content(it)));
    if (found != nullptr)
        mailimap_search_result_free(found);
    if (searched != MAILIMAP_NO_ERROR)
        return failed("UID SEARCH");
    std::sort(uids.begin(), uids.end());
    if (!uids.empty()) {
        mailimap_set* set = mailimap_set_new_empty();
        for (size_t i = uids.size() > Newest ? uids.size() - Newest : 0; i < uids.size(); ++i)
            mailimap_set_add_single(set, uids[i]);
        if (!fetchInto(imap, set, true, &run.fetched))
            return failed("UID FETCH");
    }
    mailimap_logout(imap);
    mailimap_free(imap);
    run.ms = msSince(start);
    run.ok = true;
    return run;
}

// --- one size --------------------------------------------------------------------------------------

// The interpreter the peer runs on: BENCH_PYTHON, else the distribution's, else the real program
// behind the `python3` of PATH (a version manager's shim would add its own start-up to every run).
QString pythonInterpreter() {
    if (const QString chosen = qEnvironmentVariable("BENCH_PYTHON"); !chosen.isEmpty())
        return chosen;
    if (QFileInfo(QStringLiteral("/usr/bin/python3")).isExecutable())
        return QStringLiteral("/usr/bin/python3");
    QProcess ask;
    ask.start(QStringLiteral("python3"),
              {QStringLiteral("-c"), QStringLiteral("import sys; print(sys.executable)")});
    ask.waitForFinished(30000);
    const QString found = QString::fromLocal8Bit(ask.readAllStandardOutput()).trimmed();
    return found.isEmpty() ? QStandardPaths::findExecutable(QStringLiteral("python3")) : found;
}

struct Row {
    int size = 0;
    std::vector<double> bridge, floor, python, bridgePeak, pythonPeak;
};

class Bench {
public:
    Bench(DovecotServer& server, const QString& scratch) : m_server(server), m_scratch(scratch) {
        m_python = pythonInterpreter();
        m_pythonCache = QCoreApplication::applicationDirPath() + QStringLiteral("/bench-data/pycache");
    }

    QString config(int size) {
        const QString path = m_scratch + QStringLiteral("/bridge-%1.conf").arg(size);
        QSettings settings(path, QSettings::IniFormat);
        settings.beginGroup(QStringLiteral("bench"));
        settings.setValue(QStringLiteral("mail"), mailFor(size));
        settings.setValue(QStringLiteral("host"), m_server.host());
        settings.setValue(QStringLiteral("port"), m_server.port());
        settings.setValue(QStringLiteral("security"), QStringLiteral("none"));
        settings.setValue(QStringLiteral("user"), userFor(size));
        settings.setValue(QStringLiteral("passwordCommand"), QStringLiteral("echo ") + Password);
        settings.endGroup();
        settings.sync();
        return path;
    }

    // A fresh folder for one run of a program: its shared folder, state, output.
    QString freshRunFolder(const QString& name) {
        const QString dir = m_scratch + u'/' + name;
        QDir(dir).removeRecursively();
        QDir().mkpath(dir + QStringLiteral("/state"));
        return dir;
    }

    ProgramRun bridge(const QString& configPath, const QString& dir) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("CORVINA_GROUP_CONTAINER"), dir + QStringLiteral("/container"));
        env.insert(QStringLiteral("XDG_STATE_HOME"), dir + QStringLiteral("/state"));
        return runProgram(QStringLiteral(CORVINA_BRIDGE_BINARY),
                          {QStringLiteral("--config"), configPath, QStringLiteral("--once")}, env, dir);
    }

    QString python() const { return m_python; }

    ProgramRun python(int size, const QString& dir) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        // bytecode of the imported writer kept between runs, as an installed script would have it,
        // but out of the source tree
        env.insert(QStringLiteral("PYTHONPYCACHEPREFIX"), m_pythonCache);
        return runProgram(m_python,
                          {QStringLiteral(CORVINA_SOURCE_DIR "/bench/imap_peer.py"), QStringLiteral("--host"),
                           m_server.host(), QStringLiteral("--port"), QString::number(m_server.port()),
                           QStringLiteral("--user"), userFor(size), QStringLiteral("--mail"), mailFor(size),
                           QStringLiteral("--password-command"), QStringLiteral("echo ") + Password,
                           QStringLiteral("--container"), dir + QStringLiteral("/container")},
                          env, dir);
    }

    // The traffic Dovecot counted for the user's last session: "in=... out=...".
    QString lastSession(const QString& user, int before) {
        const QRegularExpression loggedOut(QStringLiteral("imap\\(%1\\).*Logged out (in=\\d+ out=\\d+)")
                                               .arg(QRegularExpression::escape(user)));
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 3000) {
            QStringList sessions;
            for (const QString& line : m_server.log().split(u'\n')) {
                const QRegularExpressionMatch m = loggedOut.match(line);
                if (m.hasMatch())
                    sessions << m.captured(1);
            }
            if (sessions.size() > before)
                return sessions.last();
            QThread::msleep(20);
        }
        return QStringLiteral("(not logged)");
    }

    int sessions(const QString& user) {
        return int(m_server.log().count(QRegularExpression(
            QStringLiteral("imap\\(%1\\).*Logged out").arg(QRegularExpression::escape(user)))));
    }

    // The untimed round: warms Dovecot, and says whether the three did the same work.
    bool warmAndCheck(int size, const QString& configPath) {
        const QString user = userFor(size);
        const QString bridgeDir = freshRunFolder(QStringLiteral("check-bridge"));
        const ProgramRun b = bridge(configPath, bridgeDir);
        if (!b.ok) {
            std::fprintf(stderr, "%s\n", qPrintable(b.error));
            return false;
        }
        const QString bridgeBytes = lastSession(user, sessions(user) - 1);
        int count = sessions(user);
        const FloorRun f = floorSync(m_server.host(), m_server.port(), user);
        if (!f.ok) {
            std::fprintf(stderr, "%s\n", qPrintable(f.error));
            return false;
        }
        const QString floorBytes = lastSession(user, count);
        count = sessions(user);
        const QString pythonDir = freshRunFolder(QStringLiteral("check-python"));
        const ProgramRun p = python(size, pythonDir);
        if (!p.ok) {
            std::fprintf(stderr, "%s\n", qPrintable(p.error));
            return false;
        }
        const QString pythonBytes = lastSession(user, count);

        QStringList differing;
        const QString today = QStringLiteral("/container/SharedData/Today/") + mailFor(size);
        for (const QString& file :
             {QStringLiteral("/container/SharedData/Accounts.plist"), today + QStringLiteral("/inbox.plist"),
              today + QStringLiteral("/todo.plist")}) {
            const auto ours = corvina::PropertyList::readFile(bridgeDir + file);
            const auto theirs = corvina::PropertyList::readFile(pythonDir + file);
            if (!ours.ok() || !theirs.ok() || ours.value != theirs.value)
                differing << QFileInfo(file).fileName();
        }
        const auto inbox =
            corvina::PropertyList::readFile(bridgeDir + today + QStringLiteral("/inbox.plist"));
        const auto todo = corvina::PropertyList::readFile(bridgeDir + today + QStringLiteral("/todo.plist"));
        std::printf("  %6d: bridge wrote %lld inbox and %lld to-do messages; floor fetched %d envelopes;\n"
                    "          python files %s\n"
                    "          Dovecot counted bridge %s, floor %s, python %s\n",
                    size, qlonglong(inbox.value.toMap().value(QStringLiteral("data")).toList().size()),
                    qlonglong(todo.value.toMap().value(QStringLiteral("data")).toList().size()), f.fetched,
                    differing.isEmpty()
                        ? "equal to the bridge's"
                        : qPrintable(QStringLiteral("DIFFER: ") + differing.join(QStringLiteral(", "))),
                    qPrintable(bridgeBytes), qPrintable(floorBytes), qPrintable(pythonBytes));
        std::fflush(stdout);
        return true;
    }

    bool measure(Row& row, int runs) {
        const QString configPath = config(row.size);
        if (!warmAndCheck(row.size, configPath))
            return false;
        for (int r = 0; r < runs; ++r) {
            const ProgramRun b = bridge(configPath, freshRunFolder(QStringLiteral("bridge")));
            const FloorRun f = floorSync(m_server.host(), m_server.port(), userFor(row.size));
            const ProgramRun p = python(row.size, freshRunFolder(QStringLiteral("python")));
            for (const QString& error : {b.error, f.error, p.error}) {
                if (!error.isEmpty()) {
                    std::fprintf(stderr, "%s\n", qPrintable(error));
                    return false;
                }
            }
            if (qEnvironmentVariableIsSet("BENCH_VERBOSE"))
                std::printf("          run %d: bridge %.1f ms, floor %.1f ms, python %.1f ms\n", r + 1, b.ms,
                            f.ms, p.ms);
            row.bridge.push_back(b.ms);
            row.bridgePeak.push_back(b.peakMiB);
            row.floor.push_back(f.ms);
            row.python.push_back(p.ms);
            row.pythonPeak.push_back(p.peakMiB);
        }
        return true;
    }

    // The bridge with nothing to sync: what starting it, reading its config and writing
    // Accounts.plist and its status cost, whatever the mailbox.
    double startupOnly(int runs) {
        const QString path = m_scratch + QStringLiteral("/empty.conf");
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.close();
        std::vector<double> times;
        for (int r = 0; r < runs; ++r) {
            const ProgramRun b = bridge(path, freshRunFolder(QStringLiteral("empty")));
            if (b.ok)
                times.push_back(b.ms);
        }
        return median(times);
    }

private:
    DovecotServer& m_server;
    QString m_scratch;
    QString m_python;
    QString m_pythonCache;
};

QList<int> sizes() {
    QList<int> chosen;
    for (const QString& part : qEnvironmentVariable("BENCH_SIZES").split(u',', Qt::SkipEmptyParts))
        if (part.trimmed().toInt() > 0)
            chosen << part.trimmed().toInt();
    return chosen.isEmpty() ? QList<int>{1000, 10000, 100000} : chosen;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (::geteuid() != 0) {
        std::printf("bench_bridgesync: skipped, it needs root (its Dovecot's master runs as root and hands "
                    "the mail to nobody)\n");
        return 0;
    }
    const int runs =
        qMax(1, qEnvironmentVariableIntValue("BENCH_RUNS") ? qEnvironmentVariableIntValue("BENCH_RUNS") : 7);
    const QList<int> chosen = sizes();

    DovecotServer server;
    QTemporaryDir scratch;
    std::printf("First sync of one account, newest %u per list; bridge, libetpan floor and Python peer "
                "interleaved against the same Dovecot.\n\nSeeding the inboxes:\n",
                Newest);
    for (const int size : chosen) {
        server.addUser(userFor(size), Password);
        QElapsedTimer timer;
        timer.start();
        seed(server, userFor(size), size);
        std::printf("  %6d messages written as Maildir files in %.1f s\n", size, timer.elapsed() / 1000.0);
        std::fflush(stdout);
    }
    QString error;
    if (!server.start(&error)) {
        std::fprintf(stderr, "Dovecot did not start: %s\n", qPrintable(error));
        return 1;
    }

    Bench bench(server, scratch.path());
    std::printf("\nPython peer on %s\n", qPrintable(bench.python()));
    std::printf("\nUntimed round per size (warms Dovecot's index, checks the three do the same work):\n");
    std::vector<Row> rows;
    for (const int size : chosen) {
        Row row;
        row.size = size;
        QElapsedTimer timer;
        timer.start();
        if (!bench.measure(row, runs))
            return 1;
        rows.push_back(row);
        std::printf("          %d timed runs of each in %.1f s\n", runs, timer.elapsed() / 1000.0);
        std::fflush(stdout);
    }
    const double startup = bench.startupOnly(runs);

    std::printf("\nMedians of %d runs (ms; peak resident memory in MiB):\n\n", runs);
    std::printf("  %8s  %9s  %8s  %12s  %9s  %13s  %11s  %11s\n", "messages", "bridge", "floor",
                "bridge/floor", "python", "bridge/python", "bridge peak", "python peak");
    for (const Row& row : rows) {
        const double b = median(row.bridge), f = median(row.floor), p = median(row.python);
        std::printf("  %8d  %9.1f  %8.1f  %11.2fx  %9.1f  %12.2fx  %11.1f  %11.1f\n", row.size, b, f, b / f,
                    p, b / p, median(row.bridgePeak), median(row.pythonPeak));
    }
    std::printf(
        "\n  corvina-mail-bridge --once with no account (start-up, Accounts.plist, status file): %.1f ms\n",
        startup);

    std::printf("\nAims:\n");
    for (const Row& row : rows) {
        const double ratio = median(row.bridge) / median(row.floor);
        const double versusPython = median(row.bridge) / median(row.python);
        std::printf("  %6d: within 1.5x of the floor: %s (%.2fx); faster than the Python peer: %s (%.2fx)\n",
                    row.size, ratio <= 1.5 ? "met" : "missed", ratio, versusPython < 1 ? "met" : "missed",
                    versusPython);
    }
    if (rows.size() > 1) {
        const double smallest = median(rows.front().bridgePeak);
        const double largest = median(rows.back().bridgePeak);
        // flat: no more than 1 MiB or 5% more memory for the largest inbox than for the smallest
        const bool flat = largest - smallest <= qMax(1.0, smallest * 0.05);
        std::printf(
            "  bridge memory flat from %d to %d messages (within 1 MiB or 5%%): %s (%.1f -> %.1f MiB)\n",
            rows.front().size, rows.back().size, flat ? "met" : "missed", smallest, largest);
    }
    return 0;
}
