#include "WidgetProgram.h"

#include "RowsFrameWatch.h"
#include "TodayOptions.h"
#include "TodayWindow.h"
#include "WidgetHost.h"
#include "platform/ImageDecoder.h"
#include "widget/TrayIcon.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QTextStream>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace corvina {

namespace {

// Qt's offscreen platform (used for --screenshot on machines without a display) warns about every
// fixed-size window; the warning says nothing a user can act on.
QtMessageHandler g_defaultHandler = nullptr;
void filterMessages(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (message.startsWith(QLatin1String("This plugin does not support propagateSizeHints"))) {
        return;
    }
    g_defaultHandler(type, context, message);
}

int runWidget(const QCommandLineParser& parser, const TodayOptions& options) {
    QTextStream err(stderr);
    const std::optional<int> seconds = options.intervalSeconds(parser);
    if (!seconds) {
        return 2;
    }
    const QString look =
        parser.isSet(options.appearance) ? parser.value(options.appearance) : QStringLiteral("auto");
    WidgetHost::Appearance chosen = WidgetHost::Appearance::Auto;
    if (look == QLatin1String("light")) {
        chosen = WidgetHost::Appearance::Light;
    } else if (look == QLatin1String("dark")) {
        chosen = WidgetHost::Appearance::Dark;
    } else if (look != QLatin1String("auto")) {
        err << "corvina-today: --appearance is auto, light or dark, not " << look << "\n";
        return 2;
    }
    WidgetHost host(*seconds);
    host.setAppearance(chosen);
    if (qEnvironmentVariable("CORVINA_BENCH_FIRST_FRAME") == QLatin1String("1")) {
        // A benchmark's hook (bench/first_frame_bench.py), inert unless set: at the window's first
        // frame, print the monotonic clock in nanoseconds and leave at once, before anything else
        // runs. The benchmark subtracts the moment it started the program.
        QObject::connect(&host, &WidgetHost::firstFramePainted, [] {
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            std::printf("%lld\n", static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec);
            std::fflush(stdout);
            std::_Exit(0);
        });
    }
    if (qEnvironmentVariable("CORVINA_BENCH_ROWS") == QLatin1String("1")) {
        // A benchmark's hook (bench/rows_bench.py), inert unless set: prints the monotonic clock in
        // nanoseconds at the window's first frame ("frame"), and at each frame that puts other rows
        // on the screen ("rows", with the top row's subject), and goes on running.
        auto now = [] {
            timespec clock{};
            clock_gettime(CLOCK_MONOTONIC, &clock);
            return static_cast<long long>(clock.tv_sec) * 1000000000LL + clock.tv_nsec;
        };
        QObject::connect(&host, &WidgetHost::firstFramePainted, [now] {
            std::printf("frame %lld\n", now());
            std::fflush(stdout);
        });
        QObject::connect(&host, &WidgetHost::windowMade, [&host, now] {
            auto* watch = new RowsFrameWatch(host.window(), host.controller(), &host);
            QObject::connect(watch, &RowsFrameWatch::rowsOnScreen, [now](const QString& subject) {
                std::printf("rows %lld %s\n", now(), subject.toUtf8().constData());
                std::fflush(stdout);
            });
        });
    }
    host.start(parser.isSet(options.tray));
    if (parser.isSet(options.tray) && parser.isSet(options.screenshot)) {
        // The tray's picture as after a start in a desktop's tray: the window closed (where there
        // is no tray it was shown, before anything was read, so it has not taken a look yet).
        host.window()->hide();
    }
    if (!parser.isSet(options.screenshot)) {
        return QApplication::exec();
    }
    // Render once the first update has been shown and every animation has come to rest.
    const QString file = parser.value(options.screenshot);
    QElapsedTimer waited;
    waited.start();
    QTimer poll;
    int status = 0;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        // The last step of a height animation asks the window for its new size by a posted event;
        // a poll due in the same turn of the event loop would otherwise grab the window one step
        // short (a pixel, now and then). Whatever layout is still asked for is done first.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        if (!host.isSettled() && waited.elapsed() < 15000) {
            return;
        }
        poll.stop();
        if (!host.isSettled()) {
            err << "corvina-today: the widget did not settle within 15 s; rendering as it is\n";
        }
        // With --tray, the tray's icon and its menu instead of the window.
        const QImage shot = host.tray() ? host.tray()->picture() : host.window()->grab().toImage();
        if (!shot.save(file)) {
            err << "corvina-today: cannot write the screenshot to " << file << "\n";
            status = 1;
        }
        QApplication::exit(status);
    });
    // Often: the picture is taken as soon as the widget is still, and a grab that raced the
    // window's last resize would show in the screenshot tests rather than once in a while.
    poll.start(1);
    return QApplication::exec();
}

} // namespace

int WidgetProgram::run(int argc, char* argv[]) {
    g_defaultHandler = qInstallMessageHandler(filterMessages);
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("corvina-today"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVINA_VERSION));
    const TodayOptions options;
    QCommandLineParser parser;
    options.addTo(parser);
    parser.process(app);
    options.applyContainer(parser);
    return runWidget(parser, options);
}

PictureHeader::Reader WidgetProgram::pictureReader() {
    return &ImageDecoder::inspectOtherFormat;
}

} // namespace corvina

// The two doors of the window's half, looked up by name when corvina-today loads it.
extern "C" Q_DECL_EXPORT int corvina_today_widget_main(int argc, char* argv[]) {
    return corvina::WidgetProgram::run(argc, argv);
}

extern "C" Q_DECL_EXPORT corvina::PictureHeader::Reader corvina_today_picture_reader() {
    return corvina::WidgetProgram::pictureReader();
}
