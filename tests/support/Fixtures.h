#pragma once

#include <QByteArray>
#include <QString>

namespace corvina::test {

// Path of a committed fixture file under tests/fixtures.
QString fixturePath(const QString& relative);
// Its bytes; fails the calling test when the file cannot be read.
QByteArray fixtureBytes(const QString& relative);

} // namespace corvina::test
