// A stand-in for a D-Bus activatable mail application in tests.
//
//     corvina_test_appservice RECORD_FILE SERVICE_NAME [DELAY_MS]
//
// Takes SERVICE_NAME on the session bus and serves org.freedesktop.Application at the object path
// the name gives. Every call is appended to RECORD_FILE before it is answered:
//     call Open
//     uri TEXT              (one per URI, in order)
//     data KEY=VALUE        (platform_data, keys sorted)
//     end
// With DELAY_MS, each call waits that long before recording and answering (for timeout tests).
#include "AppService.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusVariant>
#include <QFile>
#include <QThread>
#include <QTimer>

AppService::AppService(QString recordFile, int delayMilliseconds)
    : m_recordFile(std::move(recordFile)), m_delay(delayMilliseconds) {}

void AppService::Activate(const QVariantMap& platformData) {
    record(QStringLiteral("Activate"), {}, platformData);
}

void AppService::Open(const QStringList& uris, const QVariantMap& platformData) {
    record(QStringLiteral("Open"), uris, platformData);
}

void AppService::ActivateAction(const QString& action, const QVariantList&, const QVariantMap& platformData) {
    record(QStringLiteral("ActivateAction ") + action, {}, platformData);
}

void AppService::record(const QString& method, const QStringList& uris, const QVariantMap& platformData) {
    if (m_delay > 0)
        QThread::msleep(m_delay);
    QString block = QStringLiteral("call ") + method + u'\n';
    for (const QString& uri : uris)
        block += QStringLiteral("uri ") + uri + u'\n';
    for (auto it = platformData.cbegin(); it != platformData.cend(); ++it) {
        QVariant value = it.value();
        if (value.canConvert<QDBusVariant>())
            value = value.value<QDBusVariant>().variant();
        block += QStringLiteral("data ") + it.key() + u'=' + value.toString() + u'\n';
    }
    block += QStringLiteral("end\n");
    QFile file(m_recordFile);
    if (file.open(QIODevice::Append))
        file.write(block.toUtf8());
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 3)
        return 2;
    const QString name = args.at(2);
    const int delay = args.size() > 3 ? args.at(3).toInt() : 0;
    QString path = QStringLiteral("/") + name;
    path.replace(u'.', u'/').replace(u'-', u'_');

    AppService service(args.at(1), delay);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(path, &service, QDBusConnection::ExportScriptableSlots))
        return 1;
    if (!bus.registerService(name))
        return 1;
    // A bus-started service outlives the test's bus unless it watches for the end of its connection.
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, &app, [&] {
        if (!QDBusConnection::sessionBus().isConnected())
            app.quit();
    });
    watch.start(200);
    QTimer::singleShot(120000, &app, &QCoreApplication::quit);
    return app.exec();
}
