#include "OnlineAccountsStandIn.h"

#include "PrivateSessionBus.h"
#include "ProcessStop.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QThread>
#include <cstdio>

namespace corvina::test {

namespace {

constexpr int StandInStartTimeoutMs = 15000;
constexpr int StandInStopTimeoutMs = 5000;

} // namespace

bool waitForBusName(const QString& name, bool owned, int timeoutMs) {
    const QDeadlineTimer deadline(timeoutMs);
    while (QDBusConnection::sessionBus().interface()->isServiceRegistered(name).value() != owned) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(20);
    }
    return true;
}

OnlineAccountsStandIn::OnlineAccountsStandIn() = default;

OnlineAccountsStandIn::~OnlineAccountsStandIn() {
    stop();
}

bool OnlineAccountsStandIn::start(QString* error) {
    auto fail = [this, error](const QString& why) {
        if (error)
            *error = why + u'\n' + QString::fromUtf8(m_process.readAll());
        stop();
        return false;
    };
    if (PrivateSessionBus::instance() == nullptr)
        return fail(QStringLiteral("no private session bus (is dbus-daemon installed?)"));
    if (!m_dir.isValid())
        return fail(QStringLiteral("no temporary folder for the stand-in"));
    writeState();
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.start(
        QStringLiteral(CORVINA_TEST_ONLINEACCOUNTS),
        {m_dir.filePath(QStringLiteral("state.json")), m_dir.filePath(QStringLiteral("calls.log"))});
    if (!m_process.waitForStarted(StandInStartTimeoutMs))
        return fail(QStringLiteral("the stand-in could not be started: ") + m_process.errorString());
    if (!waitForBusName(QString::fromLatin1(Name), true, StandInStartTimeoutMs))
        return fail(QStringLiteral("the stand-in did not own %1 within %2 s")
                        .arg(QString::fromLatin1(Name))
                        .arg(StandInStartTimeoutMs / 1000));
    return true;
}

void OnlineAccountsStandIn::stop() {
    if (m_process.state() == QProcess::NotRunning)
        return;
    stopProcess(m_process, StandInStopTimeoutMs);
    waitForBusName(QString::fromLatin1(Name), false, StandInStopTimeoutMs);
}

void OnlineAccountsStandIn::setAccounts(const QJsonArray& accounts) {
    m_accounts = accounts;
    writeState();
}

void OnlineAccountsStandIn::setHanging(bool hanging) {
    m_hanging = hanging;
    writeState();
}

void OnlineAccountsStandIn::setWrongShape(bool wrong) {
    m_wrongShape = wrong;
    writeState();
}

QStringList OnlineAccountsStandIn::calls() const {
    QFile file(m_dir.filePath(QStringLiteral("calls.log")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

void OnlineAccountsStandIn::writeState() {
    // Written whole and renamed into place: the program may read it at any moment.
    const QString path = m_dir.filePath(QStringLiteral("state.json"));
    QFile file(path + QStringLiteral(".new"));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return;
    file.write(QJsonDocument(QJsonObject{{QStringLiteral("hang"), m_hanging},
                                         {QStringLiteral("wrongShape"), m_wrongShape},
                                         {QStringLiteral("accounts"), m_accounts}})
                   .toJson());
    file.close();
    std::rename(QFile::encodeName(file.fileName()).constData(), QFile::encodeName(path).constData());
}

} // namespace corvina::test
