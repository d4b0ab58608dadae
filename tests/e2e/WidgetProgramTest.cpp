// The corvina-today widget as a person runs it: a real X server (Xvfb), the real program, real
// mouse and keyboard input (xdotool), a stand-in mail application that records what it is sent.
#include "support/FakeHostApp.h"
#include "support/TempContainer.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>
#include <QtEndian>
#include <cstdio>
#include <gtest/gtest.h>

using corvina::test::FakeHostApp;
using corvina::test::TempContainer;

namespace {

const QString kAccount = QStringLiteral("ann@example.org");
// Where the widget's parts are inside its window: the host's top margin, the header and the gap,
// then rows of 60 (the archive button of a row at x 252..272, y 30..50 of the row).
constexpr int kTableTop = 8 + 30 + 5;
constexpr int kRowHeight = 60;
const QColor kPanel(0x24, 0x26, 0x2b);

QVariantList messages(const QStringList& ids) {
    QVariantList out;
    qint64 date = 1795000000;
    for (const QString& id : ids) {
        QVariantMap m = TempContainer::message(id, kAccount, date, 1);
        m.insert(QStringLiteral("subject"), QStringLiteral("Subject ") + id);
        m.insert(QStringLiteral("from"), QStringLiteral("Sender ") + id);
        out << m;
        date -= 600;
    }
    return out;
}

bool waitFor(const std::function<bool()>& condition, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(50);
    }
    return true;
}

// An X server of the test's own, whose screen is also a file (-fbdir) the test can look at.
class XServer {
public:
    bool start() {
        m_server.setProgram(QStringLiteral("Xvfb"));
        m_server.setArguments({QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
                               QStringLiteral("0"), QStringLiteral("800x900x24"), QStringLiteral("-fbdir"),
                               m_dir.path(), QStringLiteral("-nolisten"), QStringLiteral("tcp"),
                               QStringLiteral("-br")});
        m_server.start();
        if (!m_server.waitForStarted(5000))
            return false;
        while (!m_server.canReadLine()) {
            if (!m_server.waitForReadyRead(10000))
                return false;
        }
        m_display = QStringLiteral(":") + QString::fromUtf8(m_server.readLine()).trimmed();
        return m_display.size() > 1;
    }
    ~XServer() {
        m_server.terminate();
        m_server.waitForFinished(3000);
    }
    QString display() const { return m_display; }

    // The screen as an image, read from the server's XWD frame-buffer file.
    QImage screen() const {
        QFile file(m_dir.filePath(QStringLiteral("Xvfb_screen0")));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        const QByteArray data = file.readAll();
        auto field = [&](int index) { return qFromBigEndian<quint32>(data.constData() + index * 4); };
        if (data.size() < 100)
            return {};
        const quint32 headerSize = field(0), width = field(4), height = field(5), bitsPerPixel = field(11),
                      bytesPerLine = field(12), colours = field(19);
        const qsizetype offset = headerSize + colours * 12;
        if (bitsPerPixel != 32 || data.size() < offset + qsizetype(bytesPerLine) * height)
            return {};
        QImage image(reinterpret_cast<const uchar*>(data.constData() + offset), int(width), int(height),
                     int(bytesPerLine), QImage::Format_RGB32);
        return image.copy();
    }

private:
    QTemporaryDir m_dir;
    QProcess m_server;
    QString m_display;
};

QString xdotool(const QString& display, const QStringList& arguments) {
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), display);
    p.setProcessEnvironment(env);
    p.start(QStringLiteral("xdotool"), arguments);
    p.waitForFinished(10000);
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

// Pixels of a window row (inside its text area) that are neither the panel's colour nor the black
// of the screen around the window: the row's text and pictures.
int inkInRow(const QImage& screen, QPoint window, int row) {
    int ink = 0;
    const int top = window.y() + kTableTop + row * kRowHeight;
    for (int y = top + 6; y < top + kRowHeight - 4; ++y)
        for (int x = window.x() + 60; x < window.x() + 220; ++x)
            ink += screen.valid(x, y) && screen.pixelColor(x, y) != kPanel &&
                   screen.pixelColor(x, y) != QColor(Qt::black);
    return ink;
}

class WidgetProgram : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(x.start()) << "Xvfb could not be started";
        container.writeAccounts({TempContainer::account(kAccount)});
        container.writeSnapshot(kAccount, QStringLiteral("inbox.plist"),
                                messages({QStringLiteral("m0"), QStringLiteral("m1"), QStringLiteral("m2")}));
        host.installRecorder(QStringLiteral("org.corvina.mail"));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DISPLAY"), x.display());
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
        widget.setProcessEnvironment(env);
        widget.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        widget.start(QStringLiteral(CORVINA_TODAY_BINARY),
                     {QStringLiteral("--container"), container.root(), QStringLiteral("--interval"),
                      QStringLiteral("3600")});
        ASSERT_TRUE(widget.waitForStarted(5000));
        windowId = xdotool(x.display(), {QStringLiteral("search"), QStringLiteral("--sync"),
                                         QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
                                         QStringLiteral("Corvina Today")})
                       .section(u'\n', 0, 0);
        ASSERT_FALSE(windowId.isEmpty()) << "the widget's window did not appear";
        const QString shell =
            xdotool(x.display(), {QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), windowId});
        for (const QString& line : shell.split(u'\n')) {
            if (line.startsWith(QLatin1String("X=")))
                origin.setX(line.mid(2).toInt());
            if (line.startsWith(QLatin1String("Y=")))
                origin.setY(line.mid(2).toInt());
        }
        ASSERT_TRUE(waitFor([&] { return inkInRow(x.screen(), origin, 2) > 50; }, 10000))
            << "the rows were not drawn";
    }

    void TearDown() override {
        if (widget.state() != QProcess::NotRunning) {
            widget.terminate();
            widget.waitForFinished(3000);
        }
    }

    XServer x;
    TempContainer container;
    FakeHostApp host;
    QTemporaryDir config;
    QProcess widget;
    QString windowId;
    QPoint origin;
};

} // namespace

TEST_F(WidgetProgram, ArchiveButtonSendsTheCommandAndTheRowLeaves) {
    EXPECT_GT(inkInRow(x.screen(), origin, 0), 50);
    // The first row's archive button.
    xdotool(x.display(),
            {QStringLiteral("mousemove"), QStringLiteral("--window"), windowId, QStringLiteral("262"),
             QString::number(kTableTop + 40), QStringLiteral("click"), QStringLiteral("1")});
    const auto launches = host.waitForLaunches(1);
    ASSERT_EQ(launches.size(), 1);
    EXPECT_EQ(launches.at(0).arguments,
              QStringList{QStringLiteral(
                  "corvina://archive?mail=ann%40example.org&messageid=m0&folderstandardid=1")});
    EXPECT_EQ(launches.at(0).values.value(QStringLiteral("CORVINA_LAUNCH_OPTIONS")), QStringLiteral("0x200"));
    // Two rows remain, moved up; the third row's place stays, empty, until the next reload.
    EXPECT_TRUE(waitFor([&] { return inkInRow(x.screen(), origin, 2) == 0; }, 5000));
    EXPECT_GT(inkInRow(x.screen(), origin, 0), 50);
    EXPECT_GT(inkInRow(x.screen(), origin, 1), 50);
}

TEST_F(WidgetProgram, FollowsTheMailAppsFilesAndClosesWithEscape) {
    EXPECT_EQ(inkInRow(x.screen(), origin, 3), 0);
    // The mail application replaces its snapshot the way it is meant to (a new file renamed over
    // the old): the widget shows it without waiting for its hourly update.
    container.writeSnapshot(
        kAccount, QStringLiteral(".inbox.plist.new"),
        messages({QStringLiteral("new"), QStringLiteral("m0"), QStringLiteral("m1"), QStringLiteral("m2")}));
    const QString folder = container.data() + QStringLiteral("/Today/") + kAccount;
    ASSERT_EQ(std::rename(QFile::encodeName(folder + QStringLiteral("/.inbox.plist.new")).constData(),
                          QFile::encodeName(folder + QStringLiteral("/inbox.plist")).constData()),
              0);
    EXPECT_TRUE(waitFor([&] { return inkInRow(x.screen(), origin, 3) > 50; }, 5000));

    xdotool(x.display(), {QStringLiteral("windowactivate"), QStringLiteral("--sync"), windowId});
    xdotool(x.display(),
            {QStringLiteral("key"), QStringLiteral("--window"), windowId, QStringLiteral("Escape")});
    ASSERT_TRUE(widget.waitForFinished(5000)) << "Escape did not close the widget";
    EXPECT_EQ(widget.exitCode(), 0);
    // The window's place is kept for the next start.
    const QSettings settings(config.filePath(QStringLiteral("corvina/org.corvina.mail.today.conf")),
                             QSettings::IniFormat);
    EXPECT_TRUE(settings.value(QStringLiteral("window/position")).isValid());
}
