#include "ApplicationAdaptor.h"

#include "CommandService.h"

#include <QMetaObject>

namespace corvina {

ApplicationAdaptor::ApplicationAdaptor(CommandService* service)
    : QDBusAbstractAdaptor(service), m_service(service) {
    // A method's work is queued, so the answer goes out before anything slow starts.
    setAutoRelaySignals(false);
}

void ApplicationAdaptor::Activate(const QVariantMap& platformData) {
    Q_UNUSED(platformData)
    // The bridge has no window to show; being activated (a launcher, a click on its entry) asks
    // for the freshest picture instead.
    QMetaObject::invokeMethod(
        m_service, [service = m_service] { emit service->syncRequested(QStringLiteral("activated")); },
        Qt::QueuedConnection);
}

void ApplicationAdaptor::Open(const QStringList& uris, const QVariantMap& platformData) {
    QMetaObject::invokeMethod(
        m_service,
        [service = m_service, uris, platformData] { emit service->urisOpened(uris, platformData); },
        Qt::QueuedConnection);
}

void ApplicationAdaptor::ActivateAction(const QString& actionName, const QVariantList& parameter,
                                        const QVariantMap& platformData, const QDBusMessage& message) {
    Q_UNUSED(parameter)
    Q_UNUSED(platformData)
    if (actionName == QLatin1String(CommandService::RetryAction)) {
        QMetaObject::invokeMethod(
            m_service, [service = m_service] { emit service->retryRequested(QStringLiteral("nudged")); },
            Qt::QueuedConnection);
        return;
    }
    if (actionName != QLatin1String(CommandService::SyncAction)) {
        // Answered with an error, so that a caller that means something else learns it.
        message.setDelayedReply(true);
        m_service->bus().send(message.createErrorReply(
            QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"),
            QStringLiteral("unknown action %1; corvina-mail-bridge knows \"%2\" and \"%3\"")
                .arg(actionName, QLatin1String(CommandService::SyncAction),
                     QLatin1String(CommandService::RetryAction))));
        return;
    }
    QMetaObject::invokeMethod(
        m_service, [service = m_service] { emit service->syncRequested(QStringLiteral("sync action")); },
        Qt::QueuedConnection);
}

} // namespace corvina
