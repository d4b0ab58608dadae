#include "UserDefaults.h"

#include "Bundle.h"

#include <QDir>
#include <QSettings>

namespace corvina {

QString UserDefaults::filePath() {
    QString configHome = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (configHome.isEmpty() || !QDir::isAbsolutePath(configHome)) {
        configHome = QDir::homePath() + QStringLiteral("/.config");
    }
    return configHome + QStringLiteral("/corvina/") + Bundle::identifier() + QStringLiteral(".conf");
}

qint64 UserDefaults::integerForKey(const QString& key) {
    const QSettings settings(filePath(), QSettings::IniFormat);
    bool ok = false;
    const qint64 value = settings.value(key).toLongLong(&ok);
    return ok ? value : 0;
}

void UserDefaults::setInteger(qint64 value, const QString& key) {
    QSettings settings(filePath(), QSettings::IniFormat);
    settings.setValue(key, value);
    settings.sync();
}

QVariant UserDefaults::valueForKey(const QString& key) {
    const QSettings settings(filePath(), QSettings::IniFormat);
    return settings.value(key);
}

void UserDefaults::setValue(const QVariant& value, const QString& key) {
    QSettings settings(filePath(), QSettings::IniFormat);
    settings.setValue(key, value);
    settings.sync();
}

} // namespace corvina
