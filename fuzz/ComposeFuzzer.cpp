// Arbitrary text through the link detector, the HTML rendering of a plain body and the compose URL.
// Besides crashes, it stops on a broken promise: matches out of order or not made from their own
// text, or a body that does not come back unchanged from its compose URL.
#include "model/ExtensionMessage.h"
#include "platform/LinkDetector.h"

#include <QGuiApplication>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace corvina;

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static QGuiApplication app(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    qsizetype previousEnd = 0;
    for (const LinkDetector::Match& match : LinkDetector::matches(text)) {
        if (match.location < previousEnd || match.length <= 0 ||
            match.location + match.length > text.size() ||
            !match.url.endsWith(text.mid(match.location, match.length))) {
            std::abort();
        }
        previousEnd = match.location + match.length;
    }

    const auto message = ExtensionMessage::init();
    message->setPlainBody(text);
    message->setSubject(text);
    message->attachments()->append(text);
    const auto url = message->queryUrl(QStringLiteral("compose"));
    if (!url) {
        std::abort(); // every text is percent-encoded, so the URL is always valid
    }
    const auto back = ExtensionMessage::ExtensionMessageWithUrl(*url);
    if (!text.isEmpty() && (back->plainBody() != text || back->subject() != text)) {
        std::abort();
    }
    if (back->attachments()->size() != 1 || back->attachments()->at(0).toString() != text) {
        std::abort();
    }
    (void)message->renderHtml();
    (void)message->renderHtml();

    if (const auto parsed = Url::URLWithString(text)) {
        (void)ExtensionMessage::ExtensionMessageWithUrl(*parsed);
    }
    return 0;
}
