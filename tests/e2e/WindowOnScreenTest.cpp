// The widget's window as it is on an X screen (Xvfb): the real program, a real pointer (xdotool),
// and the screen read back from the server's frame buffer. How high the window is for its rows, and
// what is seen of a row that leaves (archived: out to the left; deleted: out to the right).
#include "support/FakeHostApp.h"
#include "support/TempContainer.h"
#include "support/Wait.h"
#include "support/XServer.h"

#include <QDeadlineTimer>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <functional>
#include <gtest/gtest.h>
#include <optional>

using corvina::test::FakeHostApp;
using corvina::test::TempContainer;
using corvina::test::waitFor;
using corvina::test::XServer;

namespace {

const QString kShownAccount = QStringLiteral("ann@example.org");
const QRgb kShownPanel = qRgb(0x24, 0x26, 0x2b);
constexpr int kWidth = 320;
// The widget's own layout: the header and the gap, then rows of 60.
constexpr int kShownTableTop = 30 + 5;
constexpr int kShownRowHeight = 60;

// Pixels of `rect` in `image` that are not the panel's colour: text and pictures.
int inkIn(const QImage& image, const QRect& rect) {
    int ink = 0;
    for (int y = rect.top(); y <= rect.bottom(); ++y)
        for (int x = rect.left(); x <= rect.right(); ++x)
            ink += image.valid(x, y) && image.pixel(x, y) != kShownPanel;
    return ink;
}

// corvina-today on a container of `rows` inbox messages, shown on its own X server.
class ShownWidget {
public:
    explicit ShownWidget(int rows) {
        if (!x.start())
            return;
        container.writeAccounts({TempContainer::account(kShownAccount)});
        QStringList ids;
        for (int i = 0; i < rows; ++i)
            ids << QStringLiteral("m%1").arg(i);
        container.writeSnapshot(kShownAccount, QStringLiteral("inbox.plist"),
                                TempContainer::inboxMessages(kShownAccount, ids));
        host.installRecorder(QStringLiteral("org.corvina.mail"));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DISPLAY"), x.display());
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
        env.insert(QStringLiteral("XDG_STATE_HOME"), state.path());
        // No desktop session and no portal answering: the widget's own dark look.
        env.remove(QStringLiteral("XDG_CURRENT_DESKTOP"));
        widget.setProcessEnvironment(env);
        widget.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        widget.start(QStringLiteral(CORVINA_TODAY_BINARY),
                     {QStringLiteral("--container"), container.root(), QStringLiteral("--interval"),
                      QStringLiteral("3600")});
        if (!widget.waitForStarted(5000))
            return;
        windowId = x.findWindow(QStringLiteral("Corvina Today"));
        if (!windowId.isEmpty())
            origin = x.windowOrigin(windowId);
    }

    ~ShownWidget() {
        if (widget.state() != QProcess::NotRunning) {
            widget.terminate();
            widget.waitForFinished(3000);
        }
    }

    bool shown() const { return !windowId.isEmpty(); }

    // The window's height as the screen shows it: the panel's colour down its left edge, from the
    // window's top to where the black of the screen begins.
    int heightOnScreen() const {
        const QImage screen = x.screen();
        int y = origin.y();
        while (y < screen.height() && screen.pixel(origin.x() + 2, y) == kShownPanel)
            ++y;
        return y - origin.y();
    }

    // The window's height as the X server has it.
    int heightOfWindow() const {
        const QString shell =
            x.xdotool({QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), windowId});
        for (const QString& line : shell.split(u'\n')) {
            if (line.startsWith(QLatin1String("HEIGHT=")))
                return line.mid(7).toInt();
        }
        return -1;
    }

    // The window's top `height` lines as the screen shows them.
    QImage window(int height) const { return x.screen().copy(QRect(origin, QSize(kWidth, height))); }

    XServer x;
    TempContainer container;
    FakeHostApp host;
    QTemporaryDir config;
    QTemporaryDir state;
    QProcess widget;
    QString windowId;
    QPoint origin;
};

} // namespace

TEST(WindowOnScreen, IsExactlyAsHighAsTheWidgetWithNoBandUnderTheLastRow) {
    for (const int rows : {1, 10}) {
        ShownWidget shown(rows);
        ASSERT_TRUE(shown.shown()) << "the widget's window did not appear";
        const int expected = kShownTableTop + rows * kShownRowHeight;
        // The height animates from the empty table's to the rows'; then it stays.
        EXPECT_TRUE(waitFor([&] { return shown.heightOnScreen() == expected; }, 10000))
            << rows << " rows: the panel is " << shown.heightOnScreen() << " high on the screen, not "
            << expected;
        EXPECT_EQ(shown.heightOfWindow(), expected) << rows << " rows";
        // The last row's text reaches down into the window's last row band.
        EXPECT_GT(inkIn(shown.window(expected), QRect(60, expected - kShownRowHeight, 160, kShownRowHeight)),
                  50)
            << rows << " rows";
    }
}

TEST(WindowOnScreen, AnEmptyListIsTheHeaderAndItsWords) {
    ShownWidget shown(0);
    ASSERT_TRUE(shown.shown()) << "the widget's window did not appear";
    // The header (35) and "No messages" below it, then the link "Add your mail account…" (at most
    // 8 below), with the status line's margins (8 above, 12 below): two lines of text.
    ASSERT_TRUE(waitFor([&] { return shown.heightOnScreen() > kShownTableTop + 20; }, 10000))
        << "no words under the empty list: " << shown.heightOnScreen();
    QThread::msleep(300); // the last step of the height animation, if any
    const int height = shown.heightOnScreen();
    EXPECT_EQ(shown.heightOfWindow(), height);
    EXPECT_GE(height, kShownTableTop + 8 + 10 + 10 + 12);
    EXPECT_LE(height, kShownTableTop + 8 + 20 + 8 + 20 + 12);
    EXPECT_EQ(inkIn(shown.window(height), QRect(0, kShownTableTop, kWidth, 8)), 0);
    EXPECT_GT(inkIn(shown.window(height), QRect(0, kShownTableTop + 8, kWidth, height - kShownTableTop - 8)),
              50);
}

namespace {

// What the screen showed of a row that left, frame by frame, against a picture of the window taken
// before: each line of the table, in each frame, must be a whole line of one row, either the
// leaving row moved sideways by `dx` or the rows below moved up by `dy` (or bare panel). A line
// that is neither is two rows drawn into each other: one showing through the other.
class LeavingRow {
public:
    // `before`: the window with its rows at rest; `row`: the leaving one; `ignoredOnScreen`: the
    // pointer and the button under it, not compared while the pointer may be there;
    // `ignoredInRow`: the button it pressed (drawn pressed or hovered), moving with the row.
    LeavingRow(const QImage& before, int row, int rows, QRect ignoredOnScreen, QRect ignoredInRow)
        : m_before(before.convertToFormat(QImage::Format_RGB32)),
          m_top(kShownTableTop + row * kShownRowHeight), m_end(kShownTableTop + rows * kShownRowHeight),
          m_ignoredOnScreen(ignoredOnScreen), m_ignoredInRow(ignoredInRow) {}

    struct Frame {
        int dx = 0;           // how far the leaving row was moved sideways
        int dy = 0;           // how far the rows below it had moved up
        int leavingLines = 0; // lines of the leaving row seen whole, with something drawn in them
        int unexplained = -1; // the first line that is no whole line of one row, or -1
    };

    // `pointerThere`: the frame may still show the pointer over the button, and the button pressed.
    Frame read(const QImage& image, bool pointerThere) const {
        const QImage frame = image.convertToFormat(QImage::Format_RGB32);
        m_pointerThere = pointerThere;
        Frame out;
        // The rows below: the shift that explains most of the lines below the leaving row's band.
        int best = -1;
        for (int dy = 0; dy <= kShownRowHeight; ++dy) {
            int lines = 0;
            for (int y = m_top + kShownRowHeight; y < m_end; ++y)
                lines += risingLine(frame, y, dy);
            if (lines > best) {
                best = lines;
                out.dy = dy;
            }
        }
        // The leaving row, above where the rows below have come: the shift that shows most of its
        // drawn pixels (then most of its lines) as they were. Moved by its whole width, it is gone.
        const int leavingEnd = m_top + kShownRowHeight - out.dy;
        int bestDrawn = -1;
        int bestLines = -1;
        for (int dx = -kWidth; dx <= kWidth; ++dx) {
            int drawn = 0;
            int lines = 0;
            int linesWithDrawing = 0;
            for (int y = m_top; y < leavingEnd; ++y) {
                const int matched = leavingLine(frame, y, dx);
                if (matched < 0)
                    continue;
                drawn += matched;
                ++lines;
                linesWithDrawing += matched >= 3;
            }
            if (drawn > bestDrawn || (drawn == bestDrawn && lines > bestLines)) {
                bestDrawn = drawn;
                bestLines = lines;
                out.dx = dx;
                out.leavingLines = linesWithDrawing;
            }
        }
        // Every line is whole: the leaving row's above the rows below, theirs from there down.
        for (int y = m_top; y < m_end; ++y) {
            if (y < leavingEnd ? leavingLine(frame, y, out.dx) >= 0 : risingLine(frame, y, out.dy))
                continue;
            out.unexplained = y;
            break;
        }
        return out;
    }

private:
    static QRgb at(const QImage& image, int x, int y) {
        return reinterpret_cast<const QRgb*>(image.constScanLine(y))[x];
    }

    // The line `y` of `frame` is the line of the rows below, moved up by `dy` (panel past the last).
    bool risingLine(const QImage& frame, int y, int dy) const {
        const int from = y + dy;
        for (int x = 0; x < kWidth; ++x) {
            if (m_pointerThere && m_ignoredOnScreen.contains(x, y))
                continue;
            const QRgb expected = from < m_end ? at(m_before, x, from) : kShownPanel;
            if (at(frame, x, y) != expected)
                return false;
        }
        return true;
    }

    // The line `y` of `frame` is the leaving row's, moved sideways by `dx` (panel where it left):
    // how many of the pixels compared are drawn ones (not the panel), or -1 when it is not.
    int leavingLine(const QImage& frame, int y, int dx) const {
        int drawn = 0;
        for (int x = 0; x < kWidth; ++x) {
            const int from = x - dx;
            if ((m_pointerThere && m_ignoredOnScreen.contains(x, y)) ||
                m_ignoredInRow.contains(from, y - m_top))
                continue;
            const QRgb expected = from >= 0 && from < kWidth ? at(m_before, from, y) : kShownPanel;
            if (at(frame, x, y) != expected)
                return -1;
            drawn += expected != kShownPanel;
        }
        return drawn;
    }

    QImage m_before;
    int m_top;
    int m_end;
    QRect m_ignoredOnScreen;
    QRect m_ignoredInRow;
    mutable bool m_pointerThere = true;
};

// Clicks the button at `buttonX` (30..50 into the first of three rows) and reads the screen back
// until the rows are at rest again: the picture before the click, and each frame read.
struct Watched {
    QImage before;
    QList<QImage> frames;
    QList<bool> pointerThere; // for each frame: read before the pointer had surely gone away
    bool settled = false;
};

Watched clickAndWatch(ShownWidget& shown, int buttonX) {
    constexpr int rows = 3;
    const int height = kShownTableTop + rows * kShownRowHeight;
    Watched watched;
    // The rows drawn and still: two reads alike, the last row's text in them.
    const bool still = waitFor(
        [&] {
            const QImage a = shown.window(height);
            QThread::msleep(100);
            watched.before = shown.window(height);
            return a == watched.before &&
                   inkIn(watched.before, QRect(60, height - kShownRowHeight, 160, kShownRowHeight)) > 50 &&
                   shown.heightOnScreen() == height;
        },
        10000);
    if (!still) {
        watched.before = QImage();
        return watched;
    }
    // Press and release on the button, then the pointer goes away: one run of xdotool, not waited
    // for, so that the screen is read from the moment of the click on.
    QProcess click;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), shown.x.display());
    click.setProcessEnvironment(env);
    click.start(QStringLiteral("xdotool"),
                {QStringLiteral("mousemove"), QStringLiteral("--window"), shown.windowId,
                 QString::number(buttonX), QString::number(kShownTableTop + 40), QStringLiteral("click"),
                 QStringLiteral("1"), QStringLiteral("mousemove"), QStringLiteral("790"),
                 QStringLiteral("890")});
    // At rest: the second row in the first row's place, the third in the second's.
    const QImage movedUp =
        watched.before.copy(0, kShownTableTop + kShownRowHeight, kWidth, 2 * kShownRowHeight);
    QImage previous;
    bool pointerThere = true;
    QDeadlineTimer guard(20000);
    while (!guard.hasExpired()) {
        // xdotool has ended once it moved the pointer away: a read that starts after that cannot
        // show the pointer over the button.
        if (pointerThere && (click.state() == QProcess::NotRunning || click.waitForFinished(0)))
            pointerThere = false;
        const QImage read = shown.window(height);
        // Two reads alike: no frame was being written while the first was read.
        if (read == previous && (watched.frames.isEmpty() || watched.frames.last() != read)) {
            watched.frames << read;
            watched.pointerThere << pointerThere;
            if (read.copy(0, kShownTableTop, kWidth, 2 * kShownRowHeight) == movedUp) {
                watched.settled = true;
                break;
            }
        }
        previous = read;
    }
    click.waitForFinished(10000);
    return watched;
}

// What the frames of a row leaving towards `direction` (-1 left, +1 right) showed.
struct Seen {
    int moving = 0;       // frames with the row on its way (neither in its place nor gone)
    int out = 0;          // frames with the row a quarter of the way out or more, 10 of its lines seen
    int wrongWay = 0;     // frames with the row seen moved the other way
    int mostLinesOut = 0; // the most of its lines seen with it a quarter of the way out or more
    QStringList mixed;    // frames with a line that is no whole line of one row
};

Seen judge(const Watched& watched, int buttonX, int direction) {
    const int clickY = kShownTableTop + 40;
    const LeavingRow leaving(watched.before, 0, 3, QRect(buttonX - 16, clickY - 16, 48, 48),
                             QRect(buttonX - 14, 40 - 14, 28, 28));
    Seen seen;
    for (qsizetype i = 0; i < watched.frames.size(); ++i) {
        const LeavingRow::Frame frame = leaving.read(watched.frames.at(i), watched.pointerThere.at(i));
        if (frame.unexplained >= 0) {
            seen.mixed << QStringLiteral("frame %1 (row moved by %2, rows below up by %3): line %4")
                              .arg(i)
                              .arg(frame.dx)
                              .arg(frame.dy)
                              .arg(frame.unexplained);
        }
        seen.moving += frame.dx != 0 && std::abs(frame.dx) < kWidth;
        if (frame.dx * direction >= kWidth / 4) {
            seen.mostLinesOut = std::max(seen.mostLinesOut, frame.leavingLines);
            seen.out += frame.leavingLines >= 10;
        }
        seen.wrongWay += frame.leavingLines >= 10 && frame.dx * direction <= -8;
    }
    return seen;
}

// Clicks the first row's button at `buttonX` and checks what the screen showed while the row left
// towards `direction`: nothing showing through anything, and the row seen on its way out, a
// quarter of the way or more with at least 10 of its lines. A machine too busy to draw more than
// two frames of the slide (or the reads to catch them) tells nothing either way: then it is tried
// again, with a new widget, up to three times.
void expectSeenLeaving(int buttonX, int direction, const QString& command) {
    for (int attempt = 1; attempt <= 3; ++attempt) {
        ShownWidget shown(3);
        ASSERT_TRUE(shown.shown()) << "the widget's window did not appear";
        const Watched watched = clickAndWatch(shown, buttonX);
        ASSERT_FALSE(watched.before.isNull()) << "the rows never came to rest";
        ASSERT_TRUE(watched.settled) << "the rows did not come to rest after the click ("
                                     << watched.frames.size() << " frames)";
        const auto launches = shown.host.waitForLaunches(1);
        ASSERT_EQ(launches.size(), 1);
        EXPECT_TRUE(
            launches.at(0).arguments.value(0).startsWith(QStringLiteral("corvina://") + command + "?"));
        const Seen seen = judge(watched, buttonX, direction);
        EXPECT_TRUE(seen.mixed.isEmpty())
            << "lines that are no whole line of one row, one row showing through "
               "another: "
            << seen.mixed.join(QStringLiteral("; ")).toStdString();
        EXPECT_EQ(seen.wrongWay, 0);
        if (seen.out > 0)
            return;
        if (seen.moving > 2 || attempt == 3) {
            ADD_FAILURE() << "the row was not seen sliding out: a quarter of the way out or more, at most "
                          << seen.mostLinesOut << " of its lines were seen (" << seen.moving
                          << " frames of it moving, attempt " << attempt << ")";
            return;
        }
    }
}

} // namespace

TEST(WindowOnScreen, AnArchivedRowIsSeenSlidingOutToTheLeft) {
    expectSeenLeaving(262, -1, QStringLiteral("archive"));
}

TEST(WindowOnScreen, ADeletedRowIsSeenSlidingOutToTheRight) {
    expectSeenLeaving(290, +1, QStringLiteral("delete"));
}
