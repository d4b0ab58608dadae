// Arbitrary text through the query parser in every option, query merging, base64 decoding and URL
// parsing (with the components written back).
#include "requestutils/RequestUtils.h"

#include <QCoreApplication>
#include <cstddef>
#include <cstdint>

using namespace corvina;
using namespace corvina::RequestUtils;

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static QCoreApplication app(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    for (quint32 options = 0; options < 16; ++options) {
        const Parameters parameters = URLQueryParametersWithOptions(text, options);
        (void)URLQueryWithParameters(parameters, options);
    }
    // the first line is the receiver, the rest the query to merge into it
    const qsizetype newline = text.indexOf(QLatin1Char('\n'));
    const QString receiver = newline < 0 ? text : text.left(newline);
    const QString query = newline < 0 ? QString() : text.mid(newline + 1);
    for (quint32 options : {0u, 1u, 2u, 3u, 4u, 12u}) {
        (void)stringByMergingURLQuery(receiver, query, options);
    }
    (void)base64DecodedString(text);
    (void)URLDecodedString(text, true);
    (void)stringByAppendingURLPathExtension(text, QStringLiteral("txt"));
    (void)stringByDeletingLastURLPathComponent(text);
    if (const auto url = Url::URLWithString(text)) {
        const auto back = URLWithComponents(components(*url));
        (void)back;
        (void)URLWithScheme(*url, QStringLiteral("https"));
    }
    return 0;
}
