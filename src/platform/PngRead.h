#pragma once

#include <QByteArray>
#include <png.h>

namespace corvina {

// One libpng read of a PNG held in memory, its errors and warnings kept to ourselves: libpng's own
// handlers print to stderr, and a broken picture from another program is no news to a user. The
// reader and its info are made and set up once and destroyed with the object; `bytes` must outlive
// it.
class PngRead {
public:
    explicit PngRead(const QByteArray& bytes);
    ~PngRead();
    PngRead(const PngRead&) = delete;
    PngRead& operator=(const PngRead&) = delete;

    // Whether libpng made its reader (it fails only out of memory).
    bool ok() const { return m_info != nullptr; }
    // The header's size; false for bytes that are no readable PNG header.
    bool header(png_uint_32* width, png_uint_32* height);
    // After header(): the pixels as 8-bit RGBA, whatever the stored form, into `rows` (one row
    // pointer per line, each `width` * 4 bytes long); false for broken pixels.
    bool pixels(png_uint_32 width, png_bytep* rows);

    // The signature every PNG begins with.
    static bool isPng(const QByteArray& bytes) { return bytes.startsWith("\x89PNG\r\n\x1a\n"); }

private:
    struct Source {
        const QByteArray* bytes;
        qsizetype position = 0;
    };
    Source m_source;
    png_structp m_png = nullptr;
    png_infop m_info = nullptr;
};

} // namespace corvina
