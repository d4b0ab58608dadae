#include "CompanionProgram.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

namespace corvina {

QString CompanionProgram::find(const QString& name) {
    const QFileInfo beside(QDir(QCoreApplication::applicationDirPath()).filePath(name));
    if (beside.isFile() && beside.isExecutable())
        return beside.absoluteFilePath();
    return QStandardPaths::findExecutable(name);
}

bool CompanionProgram::start(const QString& name, const QStringList& arguments, QString* error) {
    const QString program = find(name);
    if (program.isEmpty()) {
        if (error)
            *error = QStringLiteral("%1 is not installed (looked in %2 and on PATH)")
                         .arg(name, QCoreApplication::applicationDirPath());
        return false;
    }
    if (!QProcess::startDetached(program, arguments)) {
        if (error)
            *error = QStringLiteral("%1 could not be started").arg(program);
        return false;
    }
    return true;
}

} // namespace corvina
