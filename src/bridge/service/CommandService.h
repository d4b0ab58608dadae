#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace corvina {

// The bridge as the mail application on the session bus: the well-known name org.corvina.mail and
// the object /org/corvina/mail with the org.freedesktop.Application interface, where the widget's
// command URLs and the share command's compose URLs arrive (see docs/host-commands.md).
//
// Calls are answered at once; what they ask for reaches the owner through the signals, queued, on
// the service's thread.
class CommandService : public QObject {
    Q_OBJECT
public:
    static constexpr const char* ServiceName = "org.corvina.mail";
    static constexpr const char* ObjectPath = "/org/corvina/mail";
    // The application actions ActivateAction accepts.
    static constexpr const char* SyncAction = "sync";
    // The Accounts window's nudge after it changed an account (BridgeNudge): bridge.conf read
    // again, and the accounts waiting to try again try at once.
    static constexpr const char* RetryAction = "retry";

    explicit CommandService(QObject* parent = nullptr);
    ~CommandService() override;

    // Publishes the object, then takes the name. False with `error` set when the bus is not there
    // or the name belongs to another process (a bridge already running): one bridge per session,
    // so that two never write the same files.
    bool registerOn(const QDBusConnection& bus, QString* error);
    bool isRegistered() const { return m_registered; }
    const QDBusConnection& bus() const { return m_bus; }

signals:
    // Open: the URLs of one request, in order, and the caller's platform data (launch options,
    // activation token).
    void urisOpened(const QStringList& uris, const QVariantMap& platformData);
    // Activate, or ActivateAction("sync"): the person asked for a fresh look at every account.
    void syncRequested(const QString& reason);
    // ActivateAction("retry"): an account was changed; the ones waiting should try now.
    void retryRequested(const QString& reason);

private:
    friend class ApplicationAdaptor;

    QDBusConnection m_bus;
    bool m_registered = false;
};

} // namespace corvina
