#pragma once

#include "PictureHeader.h"

#include <QByteArray>
#include <QImage>
#include <QString>

namespace corvina {

// Decodes pictures that come from another program, quietly and within bounds.
//
// The bytes may be anything: a picture of a hundred million pixels packed into a few kilobytes, or
// a broken file. So the size a picture declares is checked before its pixels are allocated, and a
// picture that does not decode gives a null image and nothing on the terminal: PNG is decoded here
// through libpng with our own error handler (Qt's PNG reader lets libpng print its errors straight
// to stderr), and the messages of Qt's other image readers are switched off.
class ImageDecoder {
public:
    struct Result {
        QImage image;    // null when the bytes are no picture, or the picture is refused
        QString refusal; // why a picture was refused for its size; empty otherwise
    };

    // Decodes `bytes`; a picture of more than `maximumPixels` is refused unread.
    static Result decode(const QByteArray& bytes, qint64 maximumPixels);

    // PictureHeader's reader of every format but PNG, through Qt's readers: a header that declares a
    // size within `maximumPixels` is readable, one over it refused; a header that tells no size is
    // decoded, within the same bound, to tell. Programs that link Qt Gui install it at their start.
    static PictureHeader::Header inspectOtherFormat(const QByteArray& bytes, qint64 maximumPixels);
};

} // namespace corvina
