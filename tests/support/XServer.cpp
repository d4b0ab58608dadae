#include "XServer.h"

#include <QFile>
#include <QtEndian>

namespace corvina::test {

XServer::~XServer() {
    m_server.terminate();
    m_server.waitForFinished(3000);
}

bool XServer::start() {
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

QImage XServer::screen() const {
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

QString XServer::xdotool(const QStringList& arguments) const {
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), m_display);
    p.setProcessEnvironment(env);
    p.start(QStringLiteral("xdotool"), arguments);
    p.waitForFinished(10000);
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

QString XServer::findWindow(const QString& name) const {
    return xdotool({QStringLiteral("search"), QStringLiteral("--sync"), QStringLiteral("--onlyvisible"),
                    QStringLiteral("--name"), name})
        .section(u'\n', 0, 0);
}

QPoint XServer::windowOrigin(const QString& windowId) const {
    QPoint origin;
    const QString shell = xdotool({QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), windowId});
    for (const QString& line : shell.split(u'\n')) {
        if (line.startsWith(QLatin1String("X=")))
            origin.setX(line.mid(2).toInt());
        if (line.startsWith(QLatin1String("Y=")))
            origin.setY(line.mid(2).toInt());
    }
    return origin;
}

void XServer::click(const QString& windowId, int x, int y) const {
    xdotool({QStringLiteral("mousemove"), QStringLiteral("--window"), windowId, QString::number(x),
             QString::number(y), QStringLiteral("click"), QStringLiteral("1")});
}

} // namespace corvina::test
