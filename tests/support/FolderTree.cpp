#include "FolderTree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <functional>
#include <map>

namespace corvina::test {

std::string describeTree(const QString& folder) {
    std::map<std::string, std::string> items;
    std::function<void(const QString&, const QString&)> walk = [&](const QString& path,
                                                                   const QString& relative) {
        for (const QString& name :
             QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
            const QString full = path + u'/' + name;
            const QString key = relative.isEmpty() ? name : relative + u'/' + name;
            const QFileInfo info(full);
            if (info.isSymLink()) {
                items[key.toStdString()] = "link -> " + info.symLinkTarget().toStdString();
            } else if (info.isDir()) {
                items[key.toStdString()] = "folder";
                walk(full, key);
            } else {
                QFile file(full);
                const QByteArray bytes =
                    file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
                items[key.toStdString()] = "file " + bytes.toHex().toStdString();
            }
        }
    };
    walk(folder, QString());
    std::string text;
    for (const auto& [key, value] : items)
        text += key + ": " + value + "\n";
    return text;
}

} // namespace corvina::test
