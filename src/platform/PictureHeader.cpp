#include "PictureHeader.h"

#include "PngRead.h"

namespace corvina {

std::atomic<PictureHeader::Reader> PictureHeader::s_otherFormats{nullptr};

PictureHeader::Header PictureHeader::inspect(const QByteArray& bytes, qint64 maximumPixels) {
    if (!PngRead::isPng(bytes)) {
        const Reader other = s_otherFormats.load();
        return other ? other(bytes, maximumPixels) : Header{};
    }
    PngRead read(bytes);
    Header header;
    png_uint_32 width = 0;
    png_uint_32 height = 0;
    if (read.ok() && read.header(&width, &height)) {
        if (qint64(width) * qint64(height) > maximumPixels) {
            header.refusal = tooManyPixels(width, height, maximumPixels);
        } else {
            header.readable = width > 0 && height > 0;
        }
    }
    return header;
}

void PictureHeader::setOtherFormats(Reader reader) {
    s_otherFormats.store(reader);
}

QString PictureHeader::tooManyPixels(qint64 width, qint64 height, qint64 maximumPixels) {
    return QStringLiteral("picture of %1x%2 pixels is larger than %3 pixels")
        .arg(width)
        .arg(height)
        .arg(maximumPixels);
}

} // namespace corvina
