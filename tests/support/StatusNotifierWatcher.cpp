#include "StatusNotifierWatcher.h"

#include <QAtomicInt>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>

namespace corvina::test {

namespace {

const QString WatcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString WatcherPath = QStringLiteral("/StatusNotifierWatcher");
const QString ItemInterface = QStringLiteral("org.kde.StatusNotifierItem");
const QString ItemPath = QStringLiteral("/StatusNotifierItem");
QAtomicInt g_watcherConnections = 0;

} // namespace

StatusNotifierWatcher::StatusNotifierWatcher(const QString& address)
    : m_connectionName(QStringLiteral("corvina-status-notifier-watcher-%1")
                           .arg(g_watcherConnections.fetchAndAddRelaxed(1))),
      m_connection(QDBusConnection::connectToBus(address, m_connectionName)) {
    m_registered =
        m_connection.isConnected() &&
        m_connection.registerObject(WatcherPath, this,
                                    QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals |
                                        QDBusConnection::ExportAllProperties) &&
        m_connection.registerService(WatcherService);
}

StatusNotifierWatcher::~StatusNotifierWatcher() {
    if (m_connection.isConnected()) {
        m_connection.unregisterService(WatcherService);
        m_connection.unregisterObject(WatcherPath);
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

QString StatusNotifierWatcher::menuPath(const QString& item) const {
    QDBusMessage get = QDBusMessage::createMethodCall(
        item, ItemPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << ItemInterface << QStringLiteral("Menu");
    const QDBusMessage path = m_connection.call(get, QDBus::Block, 5000);
    if (path.type() != QDBusMessage::ReplyMessage || path.arguments().isEmpty())
        return QString();
    return path.arguments().constFirst().value<QDBusVariant>().variant().value<QDBusObjectPath>().path();
}

QList<QPair<int, QString>> StatusNotifierWatcher::menuEntries(const QString& item) const {
    QList<QPair<int, QString>> entries;
    const QString menu = menuPath(item);
    if (menu.isEmpty())
        return entries;
    QDBusMessage layout = QDBusMessage::createMethodCall(item, menu, QStringLiteral("com.canonical.dbusmenu"),
                                                         QStringLiteral("GetLayout"));
    layout << 0 << -1 << QStringList();
    const QDBusMessage reply = m_connection.call(layout, QDBus::Block, 5000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() < 2)
        return entries;
    // (id, properties, children as variants of the same structure); the top is the menu itself.
    const QDBusArgument root = reply.arguments().at(1).value<QDBusArgument>();
    int rootId = 0;
    QVariantMap rootProperties;
    root.beginStructure();
    root >> rootId >> rootProperties;
    root.beginArray();
    while (!root.atEnd()) {
        QDBusVariant child;
        root >> child;
        const QDBusArgument entry = child.variant().value<QDBusArgument>();
        int id = 0;
        QVariantMap properties;
        entry.beginStructure();
        entry >> id >> properties;
        entry.beginArray();
        while (!entry.atEnd()) {
            QDBusVariant ignored;
            entry >> ignored;
        }
        entry.endArray();
        entry.endStructure();
        if (properties.value(QStringLiteral("visible"), true).toBool())
            entries << qMakePair(id, properties.value(QStringLiteral("type")).toString() ==
                                             QStringLiteral("separator")
                                         ? QString()
                                         : properties.value(QStringLiteral("label")).toString());
    }
    root.endArray();
    root.endStructure();
    return entries;
}

QStringList StatusNotifierWatcher::menuLabels(const QString& item) const {
    QStringList labels;
    for (const auto& entry : menuEntries(item))
        labels << entry.second;
    return labels;
}

bool StatusNotifierWatcher::clickMenu(const QString& item, const QString& label) const {
    for (const auto& entry : menuEntries(item)) {
        if (entry.second != label)
            continue;
        QDBusMessage event = QDBusMessage::createMethodCall(
            item, menuPath(item), QStringLiteral("com.canonical.dbusmenu"), QStringLiteral("Event"));
        event << entry.first << QStringLiteral("clicked") << QVariant::fromValue(QDBusVariant(QString()))
              << uint(0);
        return m_connection.call(event, QDBus::Block, 5000).type() == QDBusMessage::ReplyMessage;
    }
    return false;
}

} // namespace corvina::test
