#include "platform/ImageDecoder.h"

#include <QBuffer>
#include <QColor>
#include <QFile>
#include <QImage>
#include <QTemporaryFile>
#include <cstdio>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

using namespace corvina;

namespace {

QByteArray encoded(const QImage& image, const char* format, int quality = -1) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(image.save(&buffer, format, quality));
    return bytes;
}

QByteArray bigEndian32(quint32 value) {
    QByteArray out(4, '\0');
    for (int i = 0; i < 4; ++i) {
        out[i] = static_cast<char>((value >> (24 - 8 * i)) & 0xFF);
    }
    return out;
}

QByteArray chunk(const char* type, const QByteArray& data) {
    const QByteArray typed = QByteArray(type, 4) + data;
    const auto crc = static_cast<quint32>(
        ::crc32(0, reinterpret_cast<const Bytef*>(typed.constData()), static_cast<uInt>(typed.size())));
    return bigEndian32(static_cast<quint32>(data.size())) + typed + bigEndian32(crc);
}

// A valid PNG signature and header declaring `width` x `height` 8-bit RGBA pixels, followed by one
// small compressed row and no more: enough for a reader that trusts the header to allocate it all.
QByteArray pngDeclaring(quint32 width, quint32 height) {
    QByteArray header = bigEndian32(width) + bigEndian32(height);
    header += QByteArray("\x08\x06\x00\x00\x00", 5);
    QByteArray row(1 + 16, '\0');
    uLongf size = compressBound(static_cast<uLong>(row.size()));
    QByteArray packed(static_cast<qsizetype>(size), '\0');
    ::compress(reinterpret_cast<Bytef*>(packed.data()), &size,
               reinterpret_cast<const Bytef*>(row.constData()), static_cast<uLong>(row.size()));
    packed.truncate(static_cast<qsizetype>(size));
    return QByteArray("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", header) + chunk("IDAT", packed) +
           chunk("IEND", QByteArray());
}

// What a call writes to the process's standard error, file descriptor 2 itself (libpng writes
// there without going through Qt).
template <typename Call> QByteArray stderrOf(Call call) {
    QTemporaryFile capture;
    EXPECT_TRUE(capture.open());
    std::fflush(stderr);
    const int saved = ::dup(2);
    ::dup2(capture.handle(), 2);
    call();
    std::fflush(stderr);
    ::dup2(saved, 2);
    ::close(saved);
    capture.seek(0);
    return capture.readAll();
}

QImage sample(QImage::Format format) {
    QImage image(7, 5, format);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            image.setPixelColor(x, y, QColor(30 * x, 40 * y, 200 - 20 * x, 255 - 10 * y));
        }
    }
    return image;
}

} // namespace

TEST(ImageDecoder, DecodesPngOfEveryCommonFormAsQtDoes) {
    const QList<QImage> images = {sample(QImage::Format_ARGB32),
                                  sample(QImage::Format_RGB32),
                                  sample(QImage::Format_Grayscale8),
                                  sample(QImage::Format_Grayscale16),
                                  sample(QImage::Format_RGBA64),
                                  sample(QImage::Format_RGB32).convertToFormat(QImage::Format_Indexed8),
                                  sample(QImage::Format_RGB32).convertToFormat(QImage::Format_Mono)};
    for (const QImage& image : images) {
        const QByteArray bytes = encoded(image, "PNG");
        const ImageDecoder::Result ours = ImageDecoder::decode(bytes, 1000);
        const QImage qt = QImage::fromData(bytes).convertToFormat(QImage::Format_ARGB32);
        ASSERT_FALSE(ours.image.isNull()) << image.format();
        EXPECT_TRUE(ours.refusal.isEmpty());
        ASSERT_EQ(ours.image.size(), qt.size());
        for (int y = 0; y < qt.height(); ++y) {
            for (int x = 0; x < qt.width(); ++x) {
                EXPECT_EQ(ours.image.pixel(x, y), qt.pixel(x, y))
                    << image.format() << " at " << x << "," << y;
            }
        }
    }
}

TEST(ImageDecoder, OtherFormatsGoThroughQt) {
    const QImage image = sample(QImage::Format_RGB32);
    for (const char* format : {"BMP", "JPEG", "PPM"}) {
        const QByteArray bytes = encoded(image, format);
        const ImageDecoder::Result ours = ImageDecoder::decode(bytes, 1000);
        ASSERT_FALSE(ours.image.isNull()) << format;
        EXPECT_EQ(ours.image.size(), image.size()) << format;
    }
}

TEST(ImageDecoder, APictureLargerThanTheBoundIsRefusedFromItsHeader) {
    // 20000 x 20000 RGBA would be 1.6 GB once decoded; the header alone says so
    const ImageDecoder::Result png = ImageDecoder::decode(pngDeclaring(20000, 20000), 1024 * 1024);
    EXPECT_TRUE(png.image.isNull());
    EXPECT_EQ(png.refusal, QStringLiteral("picture of 20000x20000 pixels is larger than 1048576 pixels"));
    const QImage wide(2000, 600, QImage::Format_RGB32);
    const ImageDecoder::Result jpeg = ImageDecoder::decode(encoded(wide, "JPEG", 10), 1024 * 1024);
    EXPECT_TRUE(jpeg.image.isNull());
    EXPECT_EQ(jpeg.refusal, QStringLiteral("picture of 2000x600 pixels is larger than 1048576 pixels"));
    // at the bound it is decoded
    const ImageDecoder::Result exact = ImageDecoder::decode(encoded(sample(QImage::Format_RGB32), "PNG"), 35);
    EXPECT_FALSE(exact.image.isNull());
    EXPECT_TRUE(exact.refusal.isEmpty());
    EXPECT_EQ(ImageDecoder::decode(encoded(sample(QImage::Format_RGB32), "PNG"), 34).refusal,
              QStringLiteral("picture of 7x5 pixels is larger than 34 pixels"));
}

TEST(ImageDecoder, BrokenPicturesGiveNothingAndSayNothingOnTheTerminal) {
    const QByteArray png = encoded(sample(QImage::Format_ARGB32), "PNG");
    QByteArray badChunk = png;
    badChunk[40] = static_cast<char>(badChunk[40] ^ 0x55);
    const QByteArray jpeg = encoded(sample(QImage::Format_RGB32), "JPEG");
    const QList<QByteArray> broken = {
        png.left(50),                                  // truncated in the pixels
        badChunk,                                      // a chunk whose checksum fails
        png.left(8) + QByteArray(100, 'x'),            // a PNG signature and nothing else
        pngDeclaring(4, 4),                            // fewer pixels than declared
        jpeg.left(jpeg.size() / 2),                    // truncated JPEG
        QByteArray("GIF89a") + QByteArray(20, '\xff'), // a GIF header and noise
        QByteArray("!!!"),                             // no picture at all
    };
    int index = 0;
    for (const QByteArray& bytes : broken) {
        ImageDecoder::Result result;
        QStringList messages;
        static QStringList* sink = nullptr;
        sink = &messages;
        const QtMessageHandler previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& message) { sink->append(message); });
        const QByteArray printed = stderrOf([&] { result = ImageDecoder::decode(bytes, 1024 * 1024); });
        qInstallMessageHandler(previous);
        EXPECT_TRUE(result.image.isNull()) << "input " << index;
        EXPECT_TRUE(result.refusal.isEmpty()) << "input " << index;
        EXPECT_TRUE(printed.isEmpty()) << "input " << index << ": " << printed.toStdString();
        EXPECT_TRUE(messages.isEmpty()) << "input " << index << ": " << messages.join("|").toStdString();
        ++index;
    }
}

namespace {

// Installs a reader of the other formats for one test, and takes it away after.
class OtherFormats {
public:
    explicit OtherFormats(PictureHeader::Reader reader) { PictureHeader::setOtherFormats(reader); }
    ~OtherFormats() { PictureHeader::setOtherFormats(nullptr); }
    OtherFormats(const OtherFormats&) = delete;
    OtherFormats& operator=(const OtherFormats&) = delete;
};

} // namespace

TEST(PictureHeader, APngIsToldByItsHeaderAlone) {
    const QByteArray png = encoded(sample(QImage::Format_ARGB32), "PNG");
    EXPECT_TRUE(PictureHeader::inspect(png, 35).readable);
    EXPECT_TRUE(PictureHeader::inspect(png, 35).refusal.isEmpty());
    const PictureHeader::Header over = PictureHeader::inspect(png, 34);
    EXPECT_FALSE(over.readable);
    EXPECT_EQ(over.refusal, "picture of 7x5 pixels is larger than 34 pixels");
    EXPECT_EQ(PictureHeader::inspect(pngDeclaring(20000, 20000), 1024 * 1024).refusal,
              "picture of 20000x20000 pixels is larger than 1048576 pixels");
    // the header reads; the pixels after it are not looked at
    EXPECT_TRUE(PictureHeader::inspect(pngDeclaring(4, 4), 1024 * 1024).readable);
    // a signature and a cut header: nothing, quietly
    const QByteArray printed = stderrOf([&] {
        const PictureHeader::Header cut = PictureHeader::inspect(png.left(20), 1024 * 1024);
        EXPECT_FALSE(cut.readable);
        EXPECT_TRUE(cut.refusal.isEmpty());
    });
    EXPECT_TRUE(printed.isEmpty()) << printed.toStdString();
}

TEST(PictureHeader, OtherFormatsAreNoPictureUntilTheirReaderIsInstalled) {
    const QByteArray jpeg = encoded(sample(QImage::Format_RGB32), "JPEG");
    const PictureHeader::Header without = PictureHeader::inspect(jpeg, 1024 * 1024);
    EXPECT_FALSE(without.readable);
    EXPECT_TRUE(without.refusal.isEmpty());

    const OtherFormats installed(&ImageDecoder::inspectOtherFormat);
    EXPECT_TRUE(PictureHeader::inspect(jpeg, 35).readable);
    EXPECT_EQ(PictureHeader::inspect(jpeg, 34).refusal, "picture of 7x5 pixels is larger than 34 pixels");
    EXPECT_FALSE(PictureHeader::inspect(QByteArray("!!!"), 1024 * 1024).readable);
    EXPECT_FALSE(PictureHeader::inspect(QByteArray(), 1024 * 1024).readable);
    // the reader is asked for what is not PNG only: a PNG is still told by libpng
    EXPECT_TRUE(PictureHeader::inspect(pngDeclaring(4, 4), 1024 * 1024).readable);
}
