// corvina-today is a program with Qt Core alone and a module for its window
// (corvina-today-window.so), loaded only to show the widget or to read an avatar that is not PNG.
// These tests hold the split: what the program needs from the system, what a running listing has
// loaded, and what a person is told when the window's half is not there.
#include "support/WriterTool.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

const QString program = QStringLiteral(CORVINA_TODAY_BINARY);

struct Outcome {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

QProcessEnvironment quietEnvironment() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    environment.insert("TZ", "UTC");
    environment.insert("LC_ALL", "C.UTF-8");
    return environment;
}

Outcome run(const QString& binary, const QStringList& arguments) {
    QProcess process;
    process.setProcessEnvironment(quietEnvironment());
    process.start(binary, arguments);
    EXPECT_TRUE(process.waitForFinished(60000));
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

QString base64Of(const QImage& image, const char* format) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(image.save(&buffer, format)) << format;
    return QString::fromLatin1(bytes.toBase64());
}

// Qt reads GIF but does not write it: a GIF of one white pixel, as the format's smallest example
// has it.
QString gifOnePixel() {
    static const char bytes[] = "GIF89a\x01\x00\x01\x00\x80\x00\x00\xff\xff\xff\x00\x00\x00!\xf9\x04\x01\x00"
                                "\x00\x00\x00,\x00\x00\x00\x00\x01\x00\x01\x00\x00\x02\x02D\x01\x00;";
    return QString::fromLatin1(QByteArray(bytes, sizeof bytes - 1).toBase64());
}

QImage solid(int width, int height) {
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    return image;
}

// One account, one snapshot: a message per avatar given (by id), newest first in id order.
void writeContainer(const QString& root, const QList<QPair<QString, QJsonValue>>& avatars) {
    QJsonArray messages;
    qint64 date = 1700000000;
    for (const auto& [id, avatar] : avatars) {
        QJsonObject m{{"messageId", id},
                      {"account", "ada@example.org"},
                      {"subject", "Subject " + id},
                      {"from", "From"},
                      {"folder", "INBOX"},
                      {"folderStid", 1},
                      {"isUnread", 1},
                      {"date", date}};
        date -= 60;
        if (!avatar.isNull()) {
            m.insert("avatar", avatar);
        }
        messages.append(m);
    }
    const QJsonObject spec{
        {"accounts", QJsonArray{QJsonObject{{"mail", "ada@example.org"}, {"enabled", 1}}}},
        {"snapshots",
         QJsonArray{QJsonObject{
             {"account", "ada@example.org"}, {"file", "a"}, {"format", "xml"}, {"messages", messages}}}}};
    corvina::test::WriterTool::write(root, spec);
}

// hasAvatar of each row, by message id.
QMap<QString, bool> avatarsListed(const QByteArray& json) {
    QMap<QString, bool> listed;
    const QJsonArray rows = QJsonDocument::fromJson(json).array();
    for (const QJsonValue& row : rows) {
        listed.insert(row["messageId"].toString(), row["hasAvatar"].toBool());
    }
    return listed;
}

// The shared libraries a running process has mapped, by file name.
QStringList mappedLibraries(qint64 pid) {
    QFile maps(QStringLiteral("/proc/%1/maps").arg(pid));
    EXPECT_TRUE(maps.open(QIODevice::ReadOnly));
    QStringList names;
    for (const QByteArray& line : maps.readAll().split('\n')) {
        const int slash = line.lastIndexOf('/');
        if (slash >= 0 && line.contains(".so")) {
            names.append(QString::fromLocal8Bit(line.mid(slash + 1)));
        }
    }
    names.removeDuplicates();
    return names;
}

bool mapsOne(const QStringList& names, const QString& start) {
    return std::any_of(names.begin(), names.end(), [&](const QString& n) { return n.startsWith(start); });
}

// `--list --watch` keeps running: its first line is printed once the listing (and any avatar in it)
// was read, so the libraries it has mapped then are those a listing needs.
QStringList librariesOfARunningListing(const QString& container) {
    QProcess process;
    process.setProcessEnvironment(quietEnvironment());
    process.start(program, {"--list", "--watch", "--container", container});
    EXPECT_TRUE(process.waitForStarted(30000));
    while (!process.canReadLine() && process.state() == QProcess::Running) {
        process.waitForReadyRead(60000);
    }
    EXPECT_TRUE(process.canReadLine()) << process.readAllStandardError().toStdString();
    const QStringList names = mappedLibraries(process.processId());
    process.terminate();
    EXPECT_TRUE(process.waitForFinished(30000));
    return names;
}

} // namespace

// What the program needs from the system holds for the builds people run, not for a sanitized one:
// a sanitizer registers every global of each source it instruments at the program's start, so none
// of them is left out, and with them what they point to (a class's meta-object names its Qt Gui
// superclass). The tests below the two check what does not depend on the link.
#if !CORVINA_SANITIZED
TEST(ProgramHalves, TheProgramNeedsQtCoreAloneFromTheSystem) {
    QProcess readelf;
    readelf.start("readelf", {"-d", program});
    ASSERT_TRUE(readelf.waitForFinished(30000));
    const QString dynamic = QString::fromLocal8Bit(readelf.readAllStandardOutput());
    ASSERT_TRUE(dynamic.contains("libQt6Core.so")) << dynamic.toStdString();
    for (const char* library : {"libQt6Gui", "libQt6Widgets", "libQt6DBus", "libQt6Svg"}) {
        EXPECT_FALSE(dynamic.contains(QLatin1String(library))) << library << " in\n" << dynamic.toStdString();
    }
}

TEST(ProgramHalves, AListingWithPngAvatarsLoadsNeitherQtGuiNorTheWindow) {
    QTemporaryDir root;
    writeContainer(root.path(), {{"png", base64Of(solid(4, 4), "PNG")}, {"none", QJsonValue()}});
    const QStringList names = librariesOfARunningListing(root.path());
    ASSERT_TRUE(mapsOne(names, "libQt6Core.so")) << names.join(' ').toStdString();
    EXPECT_FALSE(mapsOne(names, "libQt6Gui.so")) << names.join(' ').toStdString();
    EXPECT_FALSE(mapsOne(names, "corvina-today-window.so")) << names.join(' ').toStdString();
}

#endif

TEST(ProgramHalves, AnAvatarThatIsNotPngIsReadByTheWindowsHalfWhenItComes) {
    QTemporaryDir root;
    const QString jpeg = base64Of(solid(8, 6), "JPEG");
    const QString broken = QString::fromLatin1(QByteArray::fromBase64(jpeg.toLatin1()).left(40).toBase64());
    writeContainer(root.path(), {{"jpeg", jpeg},
                                 {"gif", gifOnePixel()},
                                 {"bmp", base64Of(solid(3, 2), "BMP")},
                                 {"huge", base64Of(solid(1100, 1000), "JPEG")},
                                 {"broken", broken},
                                 {"png", base64Of(solid(2, 2), "PNG")},
                                 {"none", QJsonValue()}});
    const Outcome r = run(program, {"--list", "--json", "--all", "--container", root.path()});
    EXPECT_EQ(r.exitCode, 0);
    const QMap<QString, bool> listed = avatarsListed(r.out);
    ASSERT_EQ(listed.size(), 7) << r.out.toStdString();
    EXPECT_TRUE(listed["jpeg"]);
    EXPECT_TRUE(listed["bmp"]);
    EXPECT_TRUE(listed["png"]);
    EXPECT_FALSE(listed["huge"]);
    EXPECT_FALSE(listed["broken"]);
    EXPECT_FALSE(listed["none"]);
    EXPECT_TRUE(listed["gif"]);
    EXPECT_EQ(r.err,
              "corvina: ExtensionMessage avatar picture of 1100x1000 pixels is larger than 1048576 pixels\n")
        << r.err.toStdString();

    const QStringList names = librariesOfARunningListing(root.path());
    EXPECT_TRUE(mapsOne(names, "corvina-today-window.so")) << names.join(' ').toStdString();
}

TEST(ProgramHalves, WithoutItsWindowTheProgramStillListsAndSaysWhatIsMissing) {
    QTemporaryDir alone;
    const QString copy = alone.filePath("corvina-today");
    ASSERT_TRUE(QFile::copy(program, copy));
    QTemporaryDir root;
    writeContainer(root.path(), {{"jpeg", base64Of(solid(8, 6), "JPEG")},
                                 {"jpeg2", base64Of(solid(6, 8), "JPEG")},
                                 {"png", base64Of(solid(2, 2), "PNG")}});

    const Outcome listed = run(copy, {"--list", "--json", "--all", "--container", root.path()});
    EXPECT_EQ(listed.exitCode, 0);
    const QMap<QString, bool> avatars = avatarsListed(listed.out);
    EXPECT_EQ(avatars, (QMap<QString, bool>{{"jpeg", false}, {"jpeg2", false}, {"png", true}}));
    const QString folder = QDir(alone.path()).canonicalPath();
    // said once, however many such avatars: next to the program, then where the package puts it
    const QString said = QString::fromLocal8Bit(listed.err);
    EXPECT_TRUE(said.startsWith(
        QStringLiteral("corvina-today: cannot read avatars other than PNG (they show as none): "
                       "its window's half (corvina-today-window.so) is missing: looked in "
                       "%1/corvina-today-window.so and /")
            .arg(folder)))
        << said.toStdString();
    EXPECT_TRUE(said.endsWith("/corvina-today/corvina-today-window.so\n")) << said.toStdString();
    EXPECT_EQ(said.count('\n'), 1) << said.toStdString();

    const Outcome shown = run(copy, {"--screenshot", alone.filePath("shot.png"), "--container", root.path()});
    EXPECT_EQ(shown.exitCode, 1);
    EXPECT_TRUE(shown.out.isEmpty());
    EXPECT_TRUE(shown.err.startsWith("corvina-today: cannot show the widget: its window's half "
                                     "(corvina-today-window.so) is missing: looked in "))
        << shown.err.toStdString();
    EXPECT_TRUE(shown.err.endsWith("; reinstall the corvina-today package\n")) << shown.err.toStdString();
    EXPECT_FALSE(QFile::exists(alone.filePath("shot.png")));
}

TEST(ProgramHalves, AWindowsHalfThatDoesNotLoadIsNamedWithItsReason) {
    QTemporaryDir alone;
    const QString copy = alone.filePath("corvina-today");
    ASSERT_TRUE(QFile::copy(program, copy));
    QFile broken(alone.filePath("corvina-today-window.so"));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("not a library\n");
    broken.close();
    const Outcome shown = run(copy, {"--screenshot", alone.filePath("shot.png")});
    EXPECT_EQ(shown.exitCode, 1);
    const QString path = QDir(alone.path()).canonicalPath() + "/corvina-today-window.so";
    EXPECT_TRUE(
        shown.err.startsWith(("corvina-today: cannot show the widget: cannot load " + path + ": ").toUtf8()))
        << shown.err.toStdString();
    EXPECT_TRUE(shown.err.endsWith("; reinstall the corvina-today package\n")) << shown.err.toStdString();
}
