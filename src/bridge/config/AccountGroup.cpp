#include "AccountGroup.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>

namespace corvina {

AccountGroup::AccountGroup(QString name, QVariantMap keys)
    : m_name(std::move(name)), m_keys(std::move(keys)) {}

bool AccountGroup::isPlainName(const QString& name) {
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_-][A-Za-z0-9._-]*$"));
    return plain.match(name).hasMatch();
}

QString AccountGroup::suggestedName(const QString& mail, const BridgeConfig& config) {
    QString base = mail.section(u'@', 1).section(u'.', 0, 0).toLower();
    if (!isPlainName(base))
        base = QStringLiteral("mail");
    QString name = base;
    for (int n = 2; config.account(name) != nullptr; ++n)
        name = base + QString::number(n);
    return name;
}

BridgeConfig::Account AccountGroup::read() const {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("bridge.conf"));
    QString error;
    const BridgeConfig config =
        dir.isValid() && writeTo(path, &error) ? BridgeConfig::load(path) : BridgeConfig();
    // A name QSettings reads back as another group (or none) would not be this account.
    if (config.accounts().size() != 1 || config.accounts().first().name != m_name) {
        BridgeConfig::Account broken;
        broken.name = m_name;
        broken.problem = QStringLiteral("the account could not be written as an INI group");
        return broken;
    }
    return config.accounts().first();
}

bool AccountGroup::writeTo(const QString& path, QString* error) const {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSettings settings(path, QSettings::IniFormat);
    settings.beginGroup(m_name);
    for (auto it = m_keys.begin(); it != m_keys.end(); ++it)
        settings.setValue(it.key(), it.value());
    settings.endGroup();
    settings.sync();
    if (settings.status() != QSettings::NoError) {
        *error = QStringLiteral("cannot write %1").arg(path);
        return false;
    }
    return true;
}

std::optional<AccountGroup> AccountGroup::readFrom(const QString& path, const QString& name) {
    QSettings settings(path, QSettings::IniFormat);
    if (!settings.childGroups().contains(name))
        return std::nullopt;
    settings.beginGroup(name);
    QVariantMap keys;
    for (const QString& key : settings.childKeys())
        keys.insert(key, settings.value(key));
    return AccountGroup(name, keys);
}

AccountGroup AccountGroup::with(const QVariantMap& changes) const {
    QVariantMap keys = m_keys;
    for (auto it = changes.begin(); it != changes.end(); ++it) {
        if (it.value().toString().isEmpty())
            keys.remove(it.key());
        else
            keys.insert(it.key(), it.value());
    }
    return AccountGroup(m_name, keys);
}

bool AccountGroup::replaceIn(const QString& path, QString* error) const {
    QSettings settings(path, QSettings::IniFormat);
    // One write of the whole file: the group's old keys go and its new ones come together.
    settings.remove(m_name);
    settings.beginGroup(m_name);
    for (auto it = m_keys.begin(); it != m_keys.end(); ++it)
        settings.setValue(it.key(), it.value());
    settings.endGroup();
    settings.sync();
    if (settings.status() != QSettings::NoError) {
        if (error)
            *error = QStringLiteral("cannot write %1").arg(path);
        return false;
    }
    return true;
}

bool AccountGroup::removeFrom(const QString& path, const QString& name, QString* error) {
    QSettings settings(path, QSettings::IniFormat);
    settings.remove(name);
    settings.sync();
    if (settings.status() != QSettings::NoError) {
        *error = QStringLiteral("cannot write %1").arg(path);
        return false;
    }
    return true;
}

} // namespace corvina
