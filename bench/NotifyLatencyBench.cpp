// New mail to desktop notification, ours against mailnag, paired on the same Dovecot (the tests'
// own fixture) and the same private session bus, whose notification service is this program: it
// records when each Notify call arrives.
//
// Ours: corvina-mail-bridge in the foreground (IDLE on the inbox, writing the shared folder) and
// corvina-today (offscreen) reading it and notifying through its MailNotifier. The peer: mailnag
// in IDLE mode with its libnotify plugin, in a private HOME. Each follows a user of its own on the
// one server, so that a message for one wakes only that one. A round APPENDs a message to each
// user in turn, over a connection logged in beforehand, and times from the moment the APPEND is
// written to the moment its notification arrives; the order alternates from round to round. Both
// passwords sit in a real keyring (gnome-keyring on the private bus), never in a file or on a
// command line. Our time is split at the moment the bridge renames the new snapshot into place.
//
// Needs root (the Dovecot fixture's master runs as root) and mailnag (scripts/bench installs it).
// BENCH_ROUNDS sets the rounds (default 15); BENCH_TODAY runs another corvina-today; BENCH_KEEP
// keeps the programs' logs.
#include "support/DovecotServer.h"
#include "support/KeyringDaemon.h"
#include "support/PrivateSessionBus.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QVariantMap>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <sys/inotify.h>
#include <unistd.h>
#include <vector>

using corvina::test::DovecotServer;
using corvina::test::KeyringDaemon;
using corvina::test::PrivateSessionBus;

namespace {

using Clock = std::chrono::steady_clock;

// Made up for the run: the bench's Dovecot lives and dies with it.
const QString BenchPassword = QStringLiteral("bench-%1").arg(QDateTime::currentMSecsSinceEpoch());

// The desktop's notification service, as far as the two notifiers use it: records the arrival of
// each Notify call.
class NotificationClock : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Arrival {
        Clock::time_point at;
        QString application;
        QString summary;
    };
    std::vector<Arrival> arrivals;

public slots:
    uint Notify(const QString& application, uint replacesId, const QString& /*icon*/, const QString& summary,
                const QString& /*body*/, const QStringList& /*actions*/, const QVariantMap& /*hints*/,
                int /*timeout*/) {
        arrivals.push_back({Clock::now(), application, summary});
        return replacesId != 0 ? replacesId : uint(arrivals.size());
    }
    QStringList GetCapabilities() { return {QStringLiteral("body"), QStringLiteral("actions")}; }
    QString GetServerInformation(QString& vendor, QString& version, QString& specVersion) {
        vendor = QStringLiteral("bench");
        version = QStringLiteral("1");
        specVersion = QStringLiteral("1.2");
        return QStringLiteral("notification clock");
    }
    void CloseNotification(uint /*id*/) {}
};

// One IMAP connection, logged in, that APPENDs to the inbox.
class Appender {
public:
    bool open(const DovecotServer& server, const QString& user) {
        m_socket.connectToHost(server.host(), server.port());
        if (!m_socket.waitForConnected(10000) || !readUntil("* OK"))
            return false;
        m_socket.write("a LOGIN " + user.toUtf8() + " \"" + BenchPassword.toUtf8() + "\"\r\n");
        return readUntil("a OK");
    }
    // Writes one APPEND (a non-synchronizing literal, so one write) and answers when it was
    // written; the server's OK is read after.
    Clock::time_point append(const QByteArray& message) {
        const QByteArray tag = "b" + QByteArray::number(++m_count);
        const QByteArray command =
            tag + " APPEND INBOX {" + QByteArray::number(message.size()) + "+}\r\n" + message + "\r\n";
        m_socket.write(command);
        m_socket.waitForBytesWritten(10000);
        const Clock::time_point written = Clock::now();
        readUntil(tag + " OK");
        return written;
    }

private:
    bool readUntil(const QByteArray& start) {
        for (;;) {
            while (!m_socket.canReadLine()) {
                if (!m_socket.waitForReadyRead(10000))
                    return false;
            }
            const QByteArray line = m_socket.readLine();
            if (line.startsWith(start))
                return true;
        }
    }
    QTcpSocket m_socket;
    int m_count = 0;
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n == 0 ? 0 : (n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2);
}

// Runs `program arguments` to its end with `input` on its standard input; false when it failed.
bool runToEnd(const QString& program, const QStringList& arguments, const QProcessEnvironment& env,
              const QByteArray& input) {
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(program, arguments);
    if (!process.waitForStarted(10000))
        return false;
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000))
        return false;
    if (process.exitCode() != 0)
        std::fprintf(stderr, "%s failed: %s\n", qPrintable(program),
                     process.readAllStandardError().constData());
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

bool writeFile(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

// Waits, serving the bus, until `arrivals` holds more than `count`; false after `seconds`.
bool waitForArrival(const NotificationClock& clock, size_t count, int seconds) {
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(seconds);
    QTimer tick; // bounds each wait
    tick.start(20);
    while (clock.arrivals.size() <= count) {
        if (Clock::now() > deadline)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

void serveFor(int milliseconds) {
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
    QTimer tick;
    tick.start(20);
    while (Clock::now() < end)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (::geteuid() != 0) {
        std::printf("bench_notify: skipped, it needs root (its Dovecot's master runs as root)\n");
        return 0;
    }
    const QString mailnag = QStandardPaths::findExecutable(QStringLiteral("mailnag"));
    if (mailnag.isEmpty()) {
        std::fprintf(stderr, "bench_notify: mailnag is not installed (apt-get install mailnag)\n");
        return 1;
    }
    const int rounds =
        qEnvironmentVariableIsSet("BENCH_ROUNDS") ? qEnvironmentVariableIntValue("BENCH_ROUNDS") : 15;

    PrivateSessionBus* bus = PrivateSessionBus::instance();
    if (!bus) {
        std::fprintf(stderr, "bench_notify: no private session bus (dbus-daemon)\n");
        return 1;
    }
    NotificationClock clock;
    QDBusConnection session = QDBusConnection::sessionBus();
    if (!session.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &clock,
                                QDBusConnection::ExportAllSlots) ||
        !session.registerService(QStringLiteral("org.freedesktop.Notifications"))) {
        std::fprintf(stderr, "bench_notify: could not own org.freedesktop.Notifications\n");
        return 1;
    }
    KeyringDaemon keyring;
    QString error;
    if (!keyring.start(&error)) {
        std::fprintf(stderr, "bench_notify: keyring: %s\n", qPrintable(error));
        return 1;
    }
    DovecotServer server;
    server.addUser(QStringLiteral("ours"), BenchPassword);
    server.addUser(QStringLiteral("peer"), BenchPassword);
    // Some mail already there, seen: neither notifier has anything to say at start.
    for (const QString& user : {QStringLiteral("ours"), QStringLiteral("peer")}) {
        for (int i = 0; i < 20; ++i) {
            server.deliver(
                user, QStringLiteral("INBOX"),
                DovecotServer::message(
                    QStringLiteral("Old %1").arg(i), QStringLiteral("Old <old@example.org>"),
                    QStringLiteral("Mon, 2 Nov 2026 10:%1:00 +0000").arg(i, 2, 10, QLatin1Char('0')),
                    QStringLiteral("<old-%1-%2@example.org>").arg(user).arg(i)),
                QStringLiteral("S"));
        }
    }
    if (!server.start(&error)) {
        std::fprintf(stderr, "bench_notify: Dovecot did not start: %s\n", qPrintable(error));
        return 1;
    }
    QTemporaryDir scratch;
    const QString port = QString::number(server.port());

    // Ours: the bridge's config, its password in the keyring, then the bridge and the widget.
    QProcessEnvironment ours = QProcessEnvironment::systemEnvironment();
    ours.insert(QStringLiteral("XDG_CONFIG_HOME"), scratch.filePath(QStringLiteral("ours/config")));
    ours.insert(QStringLiteral("XDG_STATE_HOME"), scratch.filePath(QStringLiteral("ours/state")));
    ours.insert(QStringLiteral("XDG_RUNTIME_DIR"), scratch.filePath(QStringLiteral("ours/runtime")));
    ours.insert(QStringLiteral("CORVINA_GROUP_CONTAINER"), scratch.filePath(QStringLiteral("ours/box")));
    ours.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    QDir().mkpath(scratch.filePath(QStringLiteral("ours/runtime")));
    QFile::setPermissions(scratch.filePath(QStringLiteral("ours/runtime")),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    const QString config = scratch.filePath(QStringLiteral("ours/config/corvina/bridge.conf"));
    writeFile(config, "[work]\nmail = ours@example.org\nhost = 127.0.0.1\nport = " + port.toUtf8() +
                          "\nsecurity = none\nuser = ours\n");
    if (!runToEnd(QStringLiteral(CORVINA_BRIDGE_BINARY),
                  {QStringLiteral("account"), QStringLiteral("password"), QStringLiteral("work"),
                   QStringLiteral("--config"), config},
                  ours, BenchPassword.toUtf8() + '\n')) {
        return 1;
    }
    QProcess bridge;
    bridge.setProcessEnvironment(ours);
    bridge.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    bridge.setStandardOutputFile(scratch.filePath(QStringLiteral("ours/bridge.log")));
    bridge.start(QStringLiteral(CORVINA_BRIDGE_BINARY), {QStringLiteral("--config"), config});
    QProcess widget;
    widget.setProcessEnvironment(ours);
    widget.setStandardOutputFile(QProcess::nullDevice());
    widget.setStandardErrorFile(scratch.filePath(QStringLiteral("ours/widget.log")));
    // BENCH_TODAY: another build of the widget (an older one, say) in its place.
    widget.start(qEnvironmentVariableIsSet("BENCH_TODAY") ? qEnvironmentVariable("BENCH_TODAY")
                                                          : QStringLiteral(CORVINA_TODAY_BINARY));

    // The peer: its config in a private HOME, its password where it looks (libsecret, id = md5 of
    // user, server and "True" for IMAP).
    const QString peerHome = scratch.filePath(QStringLiteral("peer"));
    QProcessEnvironment peer = QProcessEnvironment::systemEnvironment();
    peer.insert(QStringLiteral("HOME"), peerHome);
    peer.insert(QStringLiteral("XDG_CONFIG_HOME"), peerHome + QStringLiteral("/.config"));
    peer.insert(QStringLiteral("XDG_DATA_HOME"), peerHome + QStringLiteral("/.local/share"));
    peer.insert(QStringLiteral("XDG_CACHE_HOME"), peerHome + QStringLiteral("/.cache"));
    writeFile(
        peerHome + QStringLiteral("/.config/mailnag/mailnag.cfg"),
        "[core]\npoll_interval = 10\nimap_idle_timeout = 10\nmailbox_seen_flags = 1\nautostart = 1\n"
        "connectivity_test = networkmonitor\nenabled_plugins = libnotifyplugin\n\n"
        "[account1]\nenabled = 1\ntype = imap\nname = peer\nuser = peer\npassword = \nserver = 127.0.0.1\n"
        "port = " +
            port.toUtf8() +
            "\nssl = 0\nimap = 1\nidle = 1\nfolder = []\n\n"
            "[plugin_libnotifyplugin]\nnotification_mode = 1\nmax_visible_mails = 10\n");
    if (!runToEnd(QStringLiteral("/usr/bin/python3"),
                  {QStringLiteral(CORVINA_SOURCE_DIR "/bench/peer_password.py"), QStringLiteral("peer"),
                   QStringLiteral("127.0.0.1")},
                  peer, BenchPassword.toUtf8() + '\n')) {
        return 1;
    }
    QProcess peerProcess;
    peerProcess.setProcessEnvironment(peer);
    peerProcess.setStandardOutputFile(scratch.filePath(QStringLiteral("peer/mailnag.log")));
    peerProcess.setStandardErrorFile(scratch.filePath(QStringLiteral("peer/mailnag.err")));
    peerProcess.start(QStringLiteral("/usr/bin/python3"), {mailnag});

    auto stopAll = [&] {
        for (QProcess* p : {&peerProcess, &widget, &bridge}) {
            p->terminate();
            if (!p->waitForFinished(5000)) {
                p->kill();
                p->waitForFinished(5000);
            }
        }
    };
    // Where our time goes: when the bridge renames a new snapshot into the account's folder (its
    // temporary files, hidden names, are left out).
    const int inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    std::vector<Clock::time_point> snapshotWrites;
    QSocketNotifier snapshots(inotify, QSocketNotifier::Read);
    QObject::connect(&snapshots, &QSocketNotifier::activated, [inotify, &snapshotWrites] {
        const Clock::time_point now = Clock::now();
        alignas(inotify_event) std::array<char, 16 * 1024> buffer;
        ssize_t length = 0;
        while ((length = ::read(inotify, buffer.data(), buffer.size())) > 0) {
            for (ssize_t at = 0; at < length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
                at += ssize_t(sizeof(inotify_event) + event->len);
                if ((event->mask & IN_MOVED_TO) && event->len > 0 && event->name[0] != '.')
                    snapshotWrites.push_back(now);
            }
        }
    });
    // Both settle: the bridge's first sync written and read, mailnag's first check done.
    serveFor(8000);
    for (QProcess* p : {&bridge, &widget, &peerProcess}) {
        if (p->state() != QProcess::Running) {
            std::fprintf(stderr, "bench_notify: %s ended at start; logs in %s\n", qPrintable(p->program()),
                         qPrintable(scratch.path()));
            scratch.setAutoRemove(false);
            stopAll();
            return 1;
        }
    }
    ::inotify_add_watch(
        inotify,
        QFile::encodeName(scratch.filePath(QStringLiteral("ours/box/SharedData/Today/ours@example.org")))
            .constData(),
        IN_MOVED_TO);
    Appender oursIn;
    Appender peerIn;
    if (!oursIn.open(server, QStringLiteral("ours")) || !peerIn.open(server, QStringLiteral("peer"))) {
        std::fprintf(stderr, "bench_notify: could not log in to APPEND\n");
        stopAll();
        return 1;
    }
    std::printf("New mail to notification, %d rounds, ours (bridge + widget) and mailnag %s alternating,\n"
                "the same Dovecot and session bus; ms from the APPEND written to the Notify call:\n\n",
                rounds, "2.2");
    std::printf("| round | first | ours (ms) | of which: snapshot in place (ms) | then the widget (ms) | "
                "mailnag (ms) | "
                "ours / mailnag |\n|---|---|---|---|---|---|---|\n");
    std::vector<double> oursMs, peerMs, ratios, writtenMs, widgetMs;
    int failures = 0;
    // Round 0 is a warm-up, not counted: each side's first new mail after its start.
    for (int round = 0; round <= rounds; ++round) {
        double times[2] = {0, 0};
        double written = 0;
        bool ok = true;
        const bool oursFirst = round % 2 == 0;
        for (int turn = 0; turn < 2; ++turn) {
            const bool isOurs = (turn == 0) == oursFirst;
            const size_t before = clock.arrivals.size();
            snapshotWrites.clear();
            const QByteArray message = DovecotServer::message(
                QStringLiteral("Round %1 for %2").arg(round).arg(isOurs ? "ours" : "peer"),
                QStringLiteral("Bench <bench@example.org>"),
                QDateTime::currentDateTimeUtc().toString(Qt::RFC2822Date),
                QStringLiteral("<round-%1-%2-%3@example.org>")
                    .arg(round)
                    .arg(isOurs ? "ours" : "peer")
                    .arg(QDateTime::currentMSecsSinceEpoch()));
            const Clock::time_point sent = (isOurs ? oursIn : peerIn).append(message);
            if (!waitForArrival(clock, before, 30)) {
                ok = false;
                std::fprintf(stderr, "round %d: no notification from %s within 30 s\n", round,
                             isOurs ? "ours" : "mailnag");
                continue;
            }
            const auto& arrival = clock.arrivals.at(before);
            times[isOurs ? 0 : 1] = std::chrono::duration<double, std::milli>(arrival.at - sent).count();
            if (isOurs && !snapshotWrites.empty())
                written = std::chrono::duration<double, std::milli>(snapshotWrites.front() - sent).count();
            if (round == 0)
                std::printf("(warm-up: %s notified as \"%s\": \"%s\")\n", isOurs ? "ours" : "mailnag",
                            qPrintable(arrival.application), qPrintable(arrival.summary));
            serveFor(1500); // the side settles (its follow-up reads) before the other's turn
        }
        if (!ok) {
            ++failures;
            continue;
        }
        if (round == 0)
            continue;
        oursMs.push_back(times[0]);
        peerMs.push_back(times[1]);
        ratios.push_back(times[0] / times[1]);
        writtenMs.push_back(written);
        widgetMs.push_back(times[0] - written);
        std::printf("| %d | %s | %.1f | %.1f | %.1f | %.1f | %.2f |\n", round, oursFirst ? "ours" : "mailnag",
                    times[0], written, times[0] - written, times[1], times[0] / times[1]);
    }
    std::printf("\nMedians: ours %.1f ms (snapshot in place at %.1f, the widget's notification %.1f after), "
                "mailnag %.1f ms; ratio pair by pair (ours / mailnag): median %.2f, "
                "min %.2f, max %.2f%s\n",
                median(oursMs), median(writtenMs), median(widgetMs), median(peerMs), median(ratios),
                ratios.empty() ? 0 : *std::min_element(ratios.begin(), ratios.end()),
                ratios.empty() ? 0 : *std::max_element(ratios.begin(), ratios.end()),
                failures ? " (some rounds failed: see above)" : "");
    if (qEnvironmentVariableIsSet("BENCH_KEEP")) {
        scratch.setAutoRemove(false);
        std::printf("logs kept in %s\n", qPrintable(scratch.path()));
    }
    stopAll();
    return failures ? 1 : 0;
}

#include "NotifyLatencyBench.moc"
