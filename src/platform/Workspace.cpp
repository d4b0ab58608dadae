#include "Workspace.h"

#include "DesktopEntry.h"
#include "Handoff.h"

#include <QAtomicInt>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDateTime>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QThreadPool>
#include <QVariantMap>

namespace corvina {

namespace {

QAtomicInt g_callTimeout = 3000;
QAtomicInt g_tokenCounter = 0;

bool activates(quint32 options) {
    return (options & Workspace::LaunchWithoutActivation) == 0;
}

QString optionsText(quint32 options) {
    return QStringLiteral("0x") + QString::number(options, 16);
}

// We cannot ask the desktop for a real activation token from here, so we make one of the form a
// launcher uses for startup notification: unique per launch, and ending in the time of the request.
QString newActivationToken() {
    return QStringLiteral("corvina-today-%1-%2_TIME%3")
        .arg(QCoreApplication::applicationPid())
        .arg(g_tokenCounter.fetchAndAddRelaxed(1))
        .arg(QDateTime::currentMSecsSinceEpoch());
}

bool openOverDBus(const QStringList& urls, const QString& identifier, quint32 options) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    QDBusMessage call =
        QDBusMessage::createMethodCall(identifier, Workspace::objectPathForIdentifier(identifier),
                                       QStringLiteral("org.freedesktop.Application"), QStringLiteral("Open"));
    call.setAutoStartService(true);
    QVariantMap platformData;
    platformData.insert(QStringLiteral("corvina-launch-options"), QVariant::fromValue<quint32>(options));
    if (activates(options)) {
        const QString token = newActivationToken();
        platformData.insert(QStringLiteral("activation-token"), token);
        platformData.insert(QStringLiteral("desktop-startup-id"), token);
    }
    call << urls << platformData;
    const QDBusMessage reply = bus.call(call, QDBus::Block, Workspace::callTimeout());
    return reply.type() == QDBusMessage::ReplyMessage;
}

bool runExec(const DesktopEntry& entry, const QStringList& urls, quint32 options) {
    const auto lines = entry.commandLines(urls);
    if (!lines)
        return false;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("XDG_ACTIVATION_TOKEN"));
    env.remove(QStringLiteral("DESKTOP_STARTUP_ID"));
    env.insert(QStringLiteral("CORVINA_LAUNCH_OPTIONS"), optionsText(options));
    const QString workingDirectory = entry.value(QStringLiteral("Path"));
    for (const QStringList& line : *lines) {
        QProcessEnvironment childEnv = env;
        if (activates(options)) {
            const QString token = newActivationToken();
            childEnv.insert(QStringLiteral("XDG_ACTIVATION_TOKEN"), token);
            childEnv.insert(QStringLiteral("DESKTOP_STARTUP_ID"), token);
        }
        QProcess process;
        process.setProgram(line.first());
        process.setArguments(line.mid(1));
        process.setProcessEnvironment(childEnv);
        if (!workingDirectory.isEmpty())
            process.setWorkingDirectory(workingDirectory);
        process.setStandardInputFile(QProcess::nullDevice());
        if (!process.startDetached())
            return false;
    }
    return true;
}

} // namespace

bool Workspace::openURLs(const QStringList& urls, const QString& identifier, quint32 options) {
    // Hidden entries, links and the like count as not installed, as they do for the share command.
    const auto entry = DesktopEntry::application(identifier);
    if (!entry)
        return false;
    if (entry->boolValue(QStringLiteral("DBusActivatable")))
        return openOverDBus(urls, identifier, options);
    return runExec(*entry, urls, options);
}

namespace {

// One thread, so that launches keep their order.
QThreadPool& launchPool() {
    static QThreadPool* pool = [] {
        auto* p = new QThreadPool;
        p->setMaxThreadCount(1);
        // A launch still running when the program ends would have the D-Bus connection and the
        // application torn down under it.
        qAddPostRoutine([] { launchPool().waitForDone(Workspace::callTimeout() + 1000); });
        return p;
    }();
    return *pool;
}

} // namespace

void Workspace::openURLsInBackground(const QStringList& urls, const QString& identifier, quint32 options,
                                     std::function<void(bool)> done) {
    launchPool().start(Handoff::runnable([urls, identifier, options, done = std::move(done)] {
        const bool ok = openURLs(urls, identifier, options);
        if (done)
            done(ok);
    }));
}

bool Workspace::waitForBackgroundLaunches(int milliseconds) {
    return launchPool().waitForDone(milliseconds);
}

int Workspace::callTimeout() {
    return g_callTimeout.loadRelaxed();
}

void Workspace::setCallTimeout(int milliseconds) {
    g_callTimeout.storeRelaxed(milliseconds);
}

QString Workspace::objectPathForIdentifier(const QString& identifier) {
    QString path = QStringLiteral("/") + identifier;
    path.replace(u'.', u'/');
    path.replace(u'-', u'_');
    return path;
}

} // namespace corvina
