// Arbitrary bytes straight through the property-list reader: the guards that run before libplist,
// libplist itself, and the conversion of its nodes. Run under a small memory and time cap per
// input (scripts/fuzz), so an input that makes the reader slow or greedy is a finding too.
#include "platform/PropertyList.h"

#include <QCoreApplication>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static QCoreApplication app(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const corvina::PropertyList::Result read = corvina::PropertyList::read(
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
    // a read either gives a value or says why not, never both nor neither
    if (read.ok() == !read.error.isEmpty()) {
        __builtin_trap();
    }
    return 0;
}
