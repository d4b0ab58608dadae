#include "StatusNotifierWatcher.h"

#include <QAtomicInt>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVariant>

namespace corvina::test {

namespace {

const QString Service = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString Path = QStringLiteral("/StatusNotifierWatcher");
const QString ItemInterface = QStringLiteral("org.kde.StatusNotifierItem");
const QString ItemPath = QStringLiteral("/StatusNotifierItem");
QAtomicInt g_connections = 0;

} // namespace

StatusNotifierWatcher::StatusNotifierWatcher(const QString& address)
    : m_connectionName(
          QStringLiteral("corvina-status-notifier-watcher-%1").arg(g_connections.fetchAndAddRelaxed(1))),
      m_connection(QDBusConnection::connectToBus(address, m_connectionName)) {
    m_registered =
        m_connection.isConnected() &&
        m_connection.registerObject(Path, this,
                                    QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals |
                                        QDBusConnection::ExportAllProperties) &&
        m_connection.registerService(Service);
}

StatusNotifierWatcher::~StatusNotifierWatcher() {
    if (m_connection.isConnected()) {
        m_connection.unregisterService(Service);
        m_connection.unregisterObject(Path);
    }
    QDBusConnection::disconnectFromBus(m_connectionName);
}

void StatusNotifierWatcher::RegisterStatusNotifierItem(const QString& service, const QDBusMessage& message) {
    // An item may name itself by a path only; then its bus name is the caller's.
    const QString name = service.startsWith(u'/') ? message.service() : service;
    if (!m_items.contains(name))
        m_items << name;
    emit StatusNotifierItemRegistered(name);
}

void StatusNotifierWatcher::RegisterStatusNotifierHost(const QString&) {}

QString StatusNotifierWatcher::toolTip(const QString& item) const {
    QDBusMessage get = QDBusMessage::createMethodCall(
        item, ItemPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << ItemInterface << QStringLiteral("ToolTip");
    const QDBusMessage reply = m_connection.call(get, QDBus::Block, 5000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return QString();
    // (icon name, icon pixmaps a(iiay), title, text)
    const QDBusArgument value =
        reply.arguments().constFirst().value<QDBusVariant>().variant().value<QDBusArgument>();
    QString iconName;
    QString title;
    QString text;
    value.beginStructure();
    value >> iconName;
    value.beginArray();
    while (!value.atEnd()) {
        int width = 0;
        int height = 0;
        QByteArray bytes;
        value.beginStructure();
        value >> width >> height >> bytes;
        value.endStructure();
    }
    value.endArray();
    value >> title >> text;
    value.endStructure();
    return text.isEmpty() ? title : title + u'\n' + text;
}

bool StatusNotifierWatcher::activate(const QString& item) const {
    QDBusMessage call =
        QDBusMessage::createMethodCall(item, ItemPath, ItemInterface, QStringLiteral("Activate"));
    call << 0 << 0;
    return m_connection.call(call, QDBus::Block, 5000).type() == QDBusMessage::ReplyMessage;
}

} // namespace corvina::test
