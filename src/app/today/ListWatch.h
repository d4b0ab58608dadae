#pragma once

#include "ListCommand.h"
#include "StatusLine.h"

#include <QByteArray>
#include <QObject>

namespace corvina {

class FileWatch;
class SharedFolderWatch;
class UnixSignals;

// `corvina-today --list --watch`: prints what `--list` shows as one line (StatusLine), at once and
// again whenever that line would change, until it is told to stop. The shared folder is followed
// as the widget's window follows it (SharedFolderWatch): at once after a change on disk, when the
// day turns (the date texts age: "14:05" becomes yesterday's date), and every interval only when
// one was asked for; and so is the widget's settings file, where the list the rows come from is
// chosen.
//
// It ends with status 0, as a status bar expects of a module it stops: on SIGTERM or SIGINT, and
// when its output is closed (a bar that went away: seen at once when the output is a pipe, else at
// the next line written or the next update). SIGUSR1 reads the shared folder again at once.
class ListWatch : public QObject {
    Q_OBJECT

public:
    ListWatch(bool all, StatusLine::Format format, int intervalSeconds, QObject* parent = nullptr);
    ~ListWatch() override;

    // Prints the first line and runs the event loop until the watch ends; returns the exit status.
    int exec();

private:
    void update();
    // Writes `bytes` whole to the standard output; false when it is closed or cannot be written.
    static bool writeOut(const QByteArray& bytes);
    // The reader of the standard output has gone (a pipe whose far end is closed).
    static bool outputClosed();

    bool m_all;
    StatusLine::Format m_format;
    SharedFolderWatch* m_watch = nullptr;
    UnixSignals* m_signals = nullptr;
    // The settings file's watch; none with --all, whose rows depend on no choice.
    // The widget's settings file, where the list the rows come from is chosen (not with --all).
    FileWatch* m_settings = nullptr;
    // The last line printed: a line equal to it is not printed again.
    QByteArray m_last;
    bool m_printed = false;
};

} // namespace corvina
