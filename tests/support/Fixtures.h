#pragma once

#include <QByteArray>
#include <QString>
#include <string>

namespace corvina::test {

// Path of a committed fixture file under tests/fixtures.
QString fixturePath(const QString& relative);
// Its bytes; fails the calling test when the file cannot be read.
QByteArray fixtureBytes(const QString& relative);
// Qt text as a std::string, which GoogleTest prints readably in a failed comparison.
std::string s(const QString& text);

} // namespace corvina::test
