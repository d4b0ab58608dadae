#include "ImageDecoder.h"

#include "PngRead.h"

#include <QBuffer>
#include <QImageReader>
#include <QLoggingCategory>
#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

namespace corvina {

namespace {

ImageDecoder::Result decodePng(const QByteArray& bytes, qint64 maximumPixels) {
    PngRead read(bytes);
    if (!read.ok()) {
        return {};
    }
    ImageDecoder::Result result;
    png_uint_32 width = 0;
    png_uint_32 height = 0;
    if (read.header(&width, &height)) {
        if (qint64(width) * qint64(height) > maximumPixels) {
            result.refusal = PictureHeader::tooManyPixels(width, height, maximumPixels);
        } else {
            QImage image(static_cast<int>(width), static_cast<int>(height), QImage::Format_RGBA8888);
            std::vector<png_bytep> rows(image.isNull() ? 0 : height);
            for (png_uint_32 y = 0; y < rows.size(); ++y) {
                rows[y] = image.scanLine(static_cast<int>(y));
            }
            if (!image.isNull() && read.pixels(width, rows.data())) {
                result.image = image.convertToFormat(QImage::Format_ARGB32);
            }
        }
    }
    return result;
}

// ---- everything else through Qt's readers ----------------------------------------------------

// Qt's image readers report broken files in the qt.gui.imageio categories; a broken avatar is no
// news to a user, so those messages are switched off for the whole process (other categories keep
// whatever rules they have).
QLoggingCategory::CategoryFilter previousFilter = nullptr;

void quietImageReaders(QLoggingCategory* category) {
    if (previousFilter) {
        previousFilter(category);
    }
    if (std::strncmp(category->categoryName(), "qt.gui.imageio", 14) == 0) {
        category->setEnabled(QtDebugMsg, false);
        category->setEnabled(QtInfoMsg, false);
        category->setEnabled(QtWarningMsg, false);
        category->setEnabled(QtCriticalMsg, false);
    }
}

void quietenQtReaders() {
    static std::once_flag once;
    std::call_once(once, [] { previousFilter = QLoggingCategory::installFilter(quietImageReaders); });
}

PictureHeader::Header inspectWithQt(const QByteArray& bytes, qint64 maximumPixels) {
    quietenQtReaders();
    QByteArray data = bytes;
    QBuffer buffer(&data);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    PictureHeader::Header header;
    const QSize declared = reader.size();
    if (!declared.isValid() || declared.isEmpty()) {
        return header;
    }
    if (qint64(declared.width()) * qint64(declared.height()) > maximumPixels) {
        header.refusal = PictureHeader::tooManyPixels(declared.width(), declared.height(), maximumPixels);
    } else {
        header.readable = true;
    }
    return header;
}

ImageDecoder::Result decodeWithQt(const QByteArray& bytes, qint64 maximumPixels) {
    quietenQtReaders();
    QByteArray data = bytes;
    QBuffer buffer(&data);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    ImageDecoder::Result result;
    const QSize declared = reader.size();
    if (declared.isValid() && qint64(declared.width()) * qint64(declared.height()) > maximumPixels) {
        result.refusal = PictureHeader::tooManyPixels(declared.width(), declared.height(), maximumPixels);
        return result;
    }
    // for readers that cannot tell their size before decoding: no allocation beyond what the
    // pixel bound allows in 32-bit colour (the limit is in whole mebibytes, at least one)
    reader.setAllocationLimit(
        static_cast<int>(std::max<qint64>(1, (maximumPixels * 4 + (1 << 20) - 1) >> 20)));
    result.image = reader.read();
    return result;
}

} // namespace

PictureHeader::Header ImageDecoder::inspectOtherFormat(const QByteArray& bytes, qint64 maximumPixels) {
    PictureHeader::Header header = inspectWithQt(bytes, maximumPixels);
    if (!header.readable && header.refusal.isEmpty()) {
        // a format whose header tells no size (or a broken one): only its pixels tell
        const Result decoded = decodeWithQt(bytes, maximumPixels);
        header.readable = !decoded.image.isNull();
        header.refusal = decoded.refusal;
    }
    return header;
}

ImageDecoder::Result ImageDecoder::decode(const QByteArray& bytes, qint64 maximumPixels) {
    if (PngRead::isPng(bytes)) {
        return decodePng(bytes, maximumPixels);
    }
    return decodeWithQt(bytes, maximumPixels);
}

} // namespace corvina
