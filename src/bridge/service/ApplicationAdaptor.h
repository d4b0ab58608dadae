#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

namespace corvina {

class CommandService;

// The freedesktop.org application interface (org.freedesktop.Application) on the bridge's object:
// how the widget, corvina-share and the desktop's launchers reach a D-Bus activatable application.
// Every method answers at once and leaves the work to the service's owner through queued signals,
// because the widget gives up on an answer after 3 seconds and the work (a server round trip, a
// mail client starting) can take longer.
class ApplicationAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
public:
    explicit ApplicationAdaptor(CommandService* service);

public slots:
    void Activate(const QVariantMap& platformData);
    void Open(const QStringList& uris, const QVariantMap& platformData);
    void ActivateAction(const QString& actionName, const QVariantList& parameter,
                        const QVariantMap& platformData, const QDBusMessage& message);

private:
    CommandService* m_service;
};

} // namespace corvina
