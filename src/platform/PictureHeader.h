#pragma once

#include <QByteArray>
#include <QString>
#include <atomic>

namespace corvina {

// Whether some bytes from another program hold a picture, and of a size within a bound, told without
// decoding pixels where the format allows it.
//
// PNG is read here, through libpng, with Qt Core alone. Every other format is read by Qt's image
// readers, which live in Qt Gui; this class does not link them, so that a program that lists mail
// without showing any (`corvina-today --list`) starts without loading Qt Gui. A program that has
// Qt Gui, or can load it when a picture asks for it, installs the reader of the other formats with
// setOtherFormats() before it reads; until then a picture that is not PNG counts as no readable
// picture.
class PictureHeader {
public:
    struct Header {
        // A picture within the bound: a readable header of a known format that declares its size,
        // or, for a format whose header tells no size, pixels that decode. A readable PNG header
        // says nothing about the pixels after it, which may still be broken.
        bool readable = false;
        // Why a picture is refused for its size; empty otherwise.
        QString refusal;
    };

    // What `bytes` hold, a picture of more than `maximumPixels` being refused unread.
    static Header inspect(const QByteArray& bytes, qint64 maximumPixels);

    // The reader of every format but PNG; null for none.
    using Reader = Header (*)(const QByteArray& bytes, qint64 maximumPixels);
    static void setOtherFormats(Reader reader);

    // The line of a refusal: "picture of WxH pixels is larger than N pixels".
    static QString tooManyPixels(qint64 width, qint64 height, qint64 maximumPixels);

private:
    static std::atomic<Reader> s_otherFormats;
};

} // namespace corvina
