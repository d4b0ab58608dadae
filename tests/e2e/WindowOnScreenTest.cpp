// The widget's window as it is on an X screen (Xvfb): the real program, a real pointer (xdotool),
// and the screen read back from the server's frame buffer. How high the window is for its rows, and
// what is seen of a row that leaves (archived: out to the left; deleted: out to the right).
#include "support/FakeHostApp.h"
#include "support/TempContainer.h"
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
using corvina::test::XServer;

namespace {

const QString kAccount = QStringLiteral("ann@example.org");
const QRgb kPanel = qRgb(0x24, 0x26, 0x2b);
constexpr int kWidth = 320;
// The widget's own layout: the header and the gap, then rows of 60.
constexpr int kTableTop = 30 + 5;
constexpr int kRowHeight = 60;

// Pixels of `rect` in `image` that are not the panel's colour: text and pictures.
int inkIn(const QImage& image, const QRect& rect) {
    int ink = 0;
    for (int y = rect.top(); y <= rect.bottom(); ++y)
        for (int x = rect.left(); x <= rect.right(); ++x)
            ink += image.valid(x, y) && image.pixel(x, y) != kPanel;
    return ink;
}

bool waitFor(const std::function<bool()>& condition, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(20);
    }
    return true;
}

// corvina-today on a container of `rows` inbox messages, shown on its own X server.
class ShownWidget {
public:
    explicit ShownWidget(int rows) {
        if (!x.start())
            return;
        container.writeAccounts({TempContainer::account(kAccount)});
        QStringList ids;
        for (int i = 0; i < rows; ++i)
            ids << QStringLiteral("m%1").arg(i);
        container.writeSnapshot(kAccount, QStringLiteral("inbox.plist"),
                                TempContainer::inboxMessages(kAccount, ids));
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
        while (y < screen.height() && screen.pixel(origin.x() + 2, y) == kPanel)
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
        const int expected = kTableTop + rows * kRowHeight;
        // The height animates from the empty table's to the rows'; then it stays.
        EXPECT_TRUE(waitFor([&] { return shown.heightOnScreen() == expected; }, 10000))
            << rows << " rows: the panel is " << shown.heightOnScreen() << " high on the screen, not "
            << expected;
        EXPECT_EQ(shown.heightOfWindow(), expected) << rows << " rows";
        // The last row's text reaches down into the window's last row band.
        EXPECT_GT(inkIn(shown.window(expected), QRect(60, expected - kRowHeight, 160, kRowHeight)), 50)
            << rows << " rows";
    }
}

TEST(WindowOnScreen, AnEmptyListIsTheHeaderAndItsWords) {
    ShownWidget shown(0);
    ASSERT_TRUE(shown.shown()) << "the widget's window did not appear";
    // The header (35) and "No messages" below it, with the status line's margins (8 above, 12
    // below): one line of text.
    ASSERT_TRUE(waitFor([&] { return shown.heightOnScreen() > kTableTop + 20; }, 10000))
        << "no words under the empty list: " << shown.heightOnScreen();
    QThread::msleep(300); // the last step of the height animation, if any
    const int height = shown.heightOnScreen();
    EXPECT_EQ(shown.heightOfWindow(), height);
    EXPECT_GE(height, kTableTop + 8 + 10 + 12);
    EXPECT_LE(height, kTableTop + 8 + 20 + 12);
    EXPECT_EQ(inkIn(shown.window(height), QRect(0, kTableTop, kWidth, 8)), 0);
    EXPECT_GT(inkIn(shown.window(height), QRect(0, kTableTop + 8, kWidth, height - kTableTop - 8)), 50);
}
