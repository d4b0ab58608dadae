#include "ImageDecoder.h"

#include <QBuffer>
#include <QImageReader>
#include <QLoggingCategory>
#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <mutex>
#include <png.h>
#include <vector>

namespace corvina {

namespace {

QString tooManyPixels(qint64 width, qint64 height, qint64 maximumPixels) {
    return QStringLiteral("picture of %1x%2 pixels is larger than %3 pixels")
        .arg(width)
        .arg(height)
        .arg(maximumPixels);
}

// ---- PNG through libpng, with errors kept to ourselves ---------------------------------------

struct PngSource {
    const QByteArray* bytes;
    qsizetype position = 0;
};

void readFromSource(png_structp png, png_bytep out, png_size_t length) {
    auto* source = static_cast<PngSource*>(png_get_io_ptr(png));
    const qsizetype left = source->bytes->size() - source->position;
    if (length > static_cast<png_size_t>(left)) {
        png_error(png, "truncated");
    }
    std::memcpy(out, source->bytes->constData() + source->position, length);
    source->position += static_cast<qsizetype>(length);
}

[[noreturn]] void quietError(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}

void quietWarning(png_structp, png_const_charp) {}

// The two steps that libpng may abandon by a long jump. They own no C++ object, so that a jump
// skips no destructor: the caller holds the image and the row pointers.
bool readHeader(png_structp png, png_infop info, png_uint_32* width, png_uint_32* height) {
    if (setjmp(png_jmpbuf(png))) {
        return false;
    }
    png_read_info(png, info);
    *width = png_get_image_width(png, info);
    *height = png_get_image_height(png, info);
    return true;
}

bool readPixels(png_structp png, png_infop info, png_uint_32 width, png_bytep* rows) {
    if (setjmp(png_jmpbuf(png))) {
        return false;
    }
    // whatever the stored form, 8-bit RGBA comes out
    png_set_expand(png);
    png_set_strip_16(png);
    png_set_gray_to_rgb(png);
    png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    if (png_get_rowbytes(png, info) != png_size_t(width) * 4) {
        return false;
    }
    png_read_image(png, rows);
    png_read_end(png, nullptr);
    return true;
}

// One libpng read of `bytes`: its reader and info made and set up once, destroyed with it.
class PngRead {
public:
    explicit PngRead(const QByteArray& bytes) : m_source{&bytes} {
        m_png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, quietError, quietWarning);
        m_info = m_png ? png_create_info_struct(m_png) : nullptr;
        if (m_info) {
            png_set_read_fn(m_png, &m_source, readFromSource);
            // ancillary chunks (texts, colour profiles) are not what a picture of a sender needs
            png_set_chunk_malloc_max(m_png, 1024 * 1024);
        }
    }
    ~PngRead() { png_destroy_read_struct(&m_png, &m_info, nullptr); }
    PngRead(const PngRead&) = delete;
    PngRead& operator=(const PngRead&) = delete;

    bool ok() const { return m_info != nullptr; }
    bool header(png_uint_32* width, png_uint_32* height) { return readHeader(m_png, m_info, width, height); }
    bool pixels(png_uint_32 width, png_bytep* rows) { return readPixels(m_png, m_info, width, rows); }

private:
    PngSource m_source;
    png_structp m_png = nullptr;
    png_infop m_info = nullptr;
};

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
            result.refusal = tooManyPixels(width, height, maximumPixels);
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

ImageDecoder::Header inspectPng(const QByteArray& bytes, qint64 maximumPixels) {
    PngRead read(bytes);
    if (!read.ok()) {
        return {};
    }
    ImageDecoder::Header header;
    png_uint_32 width = 0;
    png_uint_32 height = 0;
    if (read.header(&width, &height)) {
        if (qint64(width) * qint64(height) > maximumPixels) {
            header.refusal = tooManyPixels(width, height, maximumPixels);
        } else {
            header.readable = width > 0 && height > 0;
        }
    }
    return header;
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

ImageDecoder::Header inspectWithQt(const QByteArray& bytes, qint64 maximumPixels) {
    quietenQtReaders();
    QByteArray data = bytes;
    QBuffer buffer(&data);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    ImageDecoder::Header header;
    const QSize declared = reader.size();
    if (!declared.isValid() || declared.isEmpty()) {
        return header;
    }
    if (qint64(declared.width()) * qint64(declared.height()) > maximumPixels) {
        header.refusal = tooManyPixels(declared.width(), declared.height(), maximumPixels);
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
        result.refusal = tooManyPixels(declared.width(), declared.height(), maximumPixels);
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

ImageDecoder::Header ImageDecoder::inspect(const QByteArray& bytes, qint64 maximumPixels) {
    if (bytes.startsWith("\x89PNG\r\n\x1a\n")) {
        return inspectPng(bytes, maximumPixels);
    }
    return inspectWithQt(bytes, maximumPixels);
}

ImageDecoder::Result ImageDecoder::decode(const QByteArray& bytes, qint64 maximumPixels) {
    if (bytes.startsWith("\x89PNG\r\n\x1a\n")) {
        return decodePng(bytes, maximumPixels);
    }
    return decodeWithQt(bytes, maximumPixels);
}

} // namespace corvina
