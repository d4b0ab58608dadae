#include "GroupContainer.h"

#include <QDir>

namespace corvina {

const char* const GroupContainer::EnvironmentVariable = "CORVINA_GROUP_CONTAINER";

std::optional<QUrl> GroupContainer::containerURL(const QString& groupIdentifier) {
    if (qEnvironmentVariableIsSet(EnvironmentVariable)) {
        const QString chosen = qEnvironmentVariable(EnvironmentVariable);
        if (chosen.isEmpty()) {
            return std::nullopt;
        }
        return QUrl::fromLocalFile(QDir::cleanPath(QDir(chosen).absolutePath()));
    }
    // QStandardPaths would add the application's name; the shared folder belongs to no one program
    QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
    if (dataHome.isEmpty() || !QDir::isAbsolutePath(dataHome)) {
        dataHome = QDir::homePath() + QStringLiteral("/.local/share");
    }
    return QUrl::fromLocalFile(
        QDir::cleanPath(dataHome + QStringLiteral("/group-containers/") + groupIdentifier));
}

} // namespace corvina
