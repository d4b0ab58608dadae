#include "Fixtures.h"

#include <QFile>
#include <gtest/gtest.h>

namespace corvina::test {

QString fixturePath(const QString& relative) {
    return QStringLiteral(CORVINA_FIXTURES_DIR) + QLatin1Char('/') + relative;
}

QByteArray fixtureBytes(const QString& relative) {
    QFile file(fixturePath(relative));
    if (!file.open(QIODevice::ReadOnly)) {
        ADD_FAILURE() << "cannot read fixture " << relative.toStdString();
        return {};
    }
    return file.readAll();
}

std::string s(const QString& text) {
    return text.toStdString();
}

} // namespace corvina::test
