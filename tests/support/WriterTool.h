#pragma once

#include <QJsonObject>
#include <QString>

namespace corvina::test {

// The host-side writer tool (tools/container_writer.py, Python's plistlib: a property-list writer
// independent of ours), writing the shared folder that `spec` describes (the tool's JSON) into
// `root`. A test fails when the tool does.
class WriterTool {
public:
    static void write(const QString& root, const QJsonObject& spec);
};

} // namespace corvina::test
