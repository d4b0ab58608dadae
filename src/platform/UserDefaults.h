#pragma once

#include <QString>
#include <QVariant>

namespace corvina {

// The program's own settings, kept between runs: a QSettings file
// $XDG_CONFIG_HOME/corvina/<bundle identifier>.conf (~/.config when XDG_CONFIG_HOME is unset).
class UserDefaults {
public:
    // The integer stored under `key`; 0 when absent or not a number.
    static qint64 integerForKey(const QString& key);
    static void setInteger(qint64 value, const QString& key);
    // Any other value (the widget host keeps its window position this way); null when absent.
    static QVariant valueForKey(const QString& key);
    static void setValue(const QVariant& value, const QString& key);

    // Where the settings live for the current bundle identifier.
    static QString filePath();
};

} // namespace corvina
