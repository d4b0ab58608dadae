// Arbitrary bytes through the loader's per-file path: property-list parsing with its guards, the
// envelope checks and the message records, exactly as a snapshot file found on disk is read.
#include "platform/Exception.h"
#include "widget/SnapshotLoader.h"

#include <QCoreApplication>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static QCoreApplication app(*argc, *argv);
    // the log lines of bad input come by the thousand; keep the fuzzer's output readable
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    corvina::ExtensionMessageList collected;
    try {
        corvina::SnapshotLoader::readSnapshotData(
            QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)),
            collected);
    } catch (const corvina::Exception&) {
        // "data" that is no collection: the loader's guard catches this
    }
    for (const auto& message : collected) {
        (void)message->description();
        // avatars are decoded when first looked at: look, as a row being drawn does
        (void)message->image();
    }
    return 0;
}
