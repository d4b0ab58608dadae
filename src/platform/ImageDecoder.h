#pragma once

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

    // What the picture's header alone tells, its pixels left undecoded: `readable` when a header of
    // a known format is read and declares a size within `maximumPixels`; `refusal` as decode gives
    // it for a larger picture. A readable header says nothing about the pixels after it, which may
    // still be broken: decode alone tells.
    struct Header {
        bool readable = false;
        QString refusal;
    };
    static Header inspect(const QByteArray& bytes, qint64 maximumPixels);
};

} // namespace corvina
