#include "WriterTool.h"

#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <gtest/gtest.h>

namespace corvina::test {

void WriterTool::write(const QString& root, const QJsonObject& spec) {
    QFile file(root + "/spec.json");
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(spec).toJson());
    file.close();
    QProcess writer;
    writer.start("python3",
                 {QStringLiteral(CORVINA_CONTAINER_WRITER), "write", "--container", root, file.fileName()});
    ASSERT_TRUE(writer.waitForFinished(30000));
    ASSERT_EQ(writer.exitCode(), 0) << writer.readAllStandardError().toStdString();
}

} // namespace corvina::test
