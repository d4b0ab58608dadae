// Snapshot loading against its floor: updateData over containers of 1 000, 10 000 and 100 000
// messages (5% with avatars, XML and binary files mixed), next to reading and parsing the same files
// with the property-list reader alone, in the same run. Prints messages per second and the ratio of
// each load to its floor. The containers are written once by tools/container_writer.py and kept
// under the build folder.
//
// WidgetUpdate is the widget's whole reload as its host's update makes it: the read, then
// ReloadData (the list filter, the new-mail bookkeeping), the table's reload and the resize, every
// step on the main thread, timed until the main queue is empty again (offscreen, no window shown).
#include "platform/Dispatch.h"
#include "platform/PropertyList.h"
#include "shared/ConstVars.h"
#include "widget/NewMailTracker.h"
#include "widget/SnapshotLoader.h"
#include "widget/TodayViewController.h"
#include "widget/UpdateResult.h"

#include <QApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <string>
#include <sys/resource.h>

namespace {

QString containerFor(qint64 messages) {
    const QString root =
        QCoreApplication::applicationDirPath() + QStringLiteral("/bench-data/%1").arg(messages);
    if (!QFileInfo::exists(root + "/SharedData/" + corvina::ConstVars::accountsFile)) {
        QDir().mkpath(root);
        QProcess writer;
        writer.setProcessChannelMode(QProcess::ForwardedChannels);
        writer.start("python3", {QStringLiteral(CORVINA_SOURCE_DIR) + "/tools/container_writer.py",
                                 "generate", "--container", root, "--messages", QString::number(messages),
                                 "--accounts", "3", "--avatars", "0.05", "--mixed-formats"});
        if (!writer.waitForFinished(600000) || writer.exitCode() != 0) {
            std::fprintf(stderr, "cannot write the benchmark container %s\n", qPrintable(root));
            std::exit(1);
        }
    }
    return root;
}

QStringList snapshotFiles(const QString& root) {
    QStringList files;
    QDirIterator it(root + "/SharedData/" + corvina::ConstVars::todayFolder, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        files << it.next();
    }
    return files;
}

// The floor: every snapshot file read and parsed, nothing else.
void ParseFloor(benchmark::State& state) {
    const QStringList files = snapshotFiles(containerFor(state.range(0)));
    for (auto _ : state) {
        qint64 parsed = 0;
        for (const QString& path : files) {
            const auto read = corvina::PropertyList::readFile(path);
            parsed += read.value.toMap().value("data").toList().size();
        }
        if (parsed != state.range(0)) {
            state.SkipWithError("the container does not hold the messages it should");
        }
        benchmark::DoNotOptimize(parsed);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void UpdateData(benchmark::State& state) {
    qputenv("CORVINA_GROUP_CONTAINER", containerFor(state.range(0)).toUtf8());
    for (auto _ : state) {
        corvina::SnapshotLoader loader;
        const auto messages = loader.updateData();
        if (messages.size() != state.range(0)) {
            state.SkipWithError("updateData did not read every message");
        }
        benchmark::DoNotOptimize(messages.size());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The process's CPU time (every thread), in milliseconds.
double processCpuMs() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

// The read that puts a change's rows (or the first rows) on the screen before the whole read:
// SnapshotLoader::newest for the ten rows of the unfiltered list. Its time is what the rows of a
// change wait for, and what the update (and so the new-mail notification) is put off by; the
// counter cpu_ms is its CPU time over both threads, the work a change costs on top of the update.
void Newest(benchmark::State& state) {
    qputenv("CORVINA_GROUP_CONTAINER", containerFor(state.range(0)).toUtf8());
    double cpu = 0;
    for (auto _ : state) {
        const double before = processCpuMs();
        corvina::SnapshotLoader loader;
        const auto rows = loader.newest(10, [](const QVariant&) { return true; });
        cpu += processCpuMs() - before;
        if (rows.size() != 10) {
            state.SkipWithError("newest did not find ten rows");
        }
        benchmark::DoNotOptimize(rows.size());
    }
    state.counters["cpu_ms"] = benchmark::Counter(cpu, benchmark::Counter::kAvgIterations);
}

// `change`: before each timed reload one snapshot file of the container is taken out of it or put
// back (the timer paused), so that every reload finds 20 messages gone or come, as after the mail
// application rewrote a file; without it every reload reads what the last one read, as the
// periodic update mostly does.
void widgetUpdate(benchmark::State& state, bool change) {
    const QString root = containerFor(state.range(0));
    qputenv("CORVINA_GROUP_CONTAINER", root.toUtf8());
    const QString moving = snapshotFiles(root).value(0);
    const QString aside = root + QStringLiteral("/bench-file-taken-out.plist");
    if (QFileInfo::exists(aside)) // left by a run that was stopped
        QFile::rename(aside, moving);
    const qint64 inMoving =
        corvina::PropertyList::readFile(moving).value.toMap().value("data").toList().size();
    // Settings of its own for each size: what the new-mail bookkeeping has seen of one container
    // must not make the next one's messages new.
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    corvina::TodayViewController controller;
    controller.view();
    // As the host has it: the new-mail bookkeeping follows every reload, and the window is looked at.
    corvina::NewMailTracker tracker;
    controller.setNewMailTracker(&tracker);
    tracker.beginLook();
    const auto update = [&controller] {
        bool done = false;
        controller.widgetPerformUpdateWithCompletionHandler(
            [&done](int result) { done = done || result == corvina::UpdateResult::NewData; });
        while (!done || corvina::Dispatch::pendingMainBlocks() > 0)
            QCoreApplication::processEvents();
    };
    // A reload of a running widget: the first read (and the first sight of each account) is behind it.
    update();
    bool out = false;
    for (auto _ : state) {
        if (change) {
            state.PauseTiming();
            out = !out;
            if (!(out ? QFile::rename(moving, aside) : QFile::rename(aside, moving)))
                state.SkipWithError("cannot move a snapshot file out of the container and back");
            state.ResumeTiming();
        }
        update();
        if (controller.dataFromDisk().size() != state.range(0) - (out ? inMoving : 0)) {
            state.SkipWithError("the update did not read every message");
        }
    }
    if (out)
        QFile::rename(aside, moving);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void WidgetUpdate(benchmark::State& state) {
    widgetUpdate(state, false);
}

void WidgetUpdateAfterAChange(benchmark::State& state) {
    widgetUpdate(state, true);
}

BENCHMARK(ParseFloor)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(UpdateData)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Newest)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(WidgetUpdate)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(WidgetUpdateAfterAChange)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

// Prints as usual and keeps each run's time, so that the ratios can be given at the end.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (!run.error_occurred) {
                times[run.benchmark_name()] = run.GetAdjustedRealTime();
            }
        }
    }
    std::map<std::string, double> times;
};

} // namespace

int main(int argc, char** argv) {
    // The widget's views need a GUI application; no display is needed to build and reload them.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nupdateData against the parse floor (same files, same run):\n");
    for (const char* size : {"1000", "10000", "100000"}) {
        const auto floor = reporter.times.find(std::string("ParseFloor/") + size + "/real_time");
        const auto load = reporter.times.find(std::string("UpdateData/") + size + "/real_time");
        if (floor != reporter.times.end() && load != reporter.times.end() && floor->second > 0) {
            std::printf("  %6s messages: %.2fx the floor\n", size, load->second / floor->second);
        }
    }
    for (const char* size : {"10000", "100000"}) {
        const auto load = reporter.times.find(std::string("UpdateData/") + size + "/real_time");
        for (const char* kind : {"WidgetUpdate", "WidgetUpdateAfterAChange"}) {
            const auto update = reporter.times.find(std::string(kind) + "/" + size + "/real_time");
            if (update == reporter.times.end())
                continue;
            std::printf("  %6s messages: the widget's reload%s takes %.0f ms", size,
                        std::string(kind) == "WidgetUpdate" ? "" : " after a change", update->second);
            if (load != reporter.times.end() && load->second > 0)
                std::printf(" (%.2fx updateData alone)", update->second / load->second);
            std::printf("\n");
        }
    }
    benchmark::Shutdown();
    return 0;
}
